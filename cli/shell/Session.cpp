#include "cli/shell/Session.h"

#include <algorithm>
#include <unordered_map>

#include "agent/ChipContexts.h"
#include "cli/GroupListFile.h"
#include "cli/shell/ObjectText.h"
#include "framework/Vellor/Strep.h"

namespace Quarle::Cli {

using Agent::Family;
using TarnletNextHop::NextHopBlock;

Session::Session(const XdkSim::ChipProfile& profile)
    : chip_(std::make_unique<XdkSim::Chip>(profile)) {
  start({});
}

Session::Session(const std::filesystem::path& image, ImageUse use)
    : worksOnImage_(use == ImageUse::write) {
  XdkSim::ChipImage opened(image);
  std::filesystem::path list = groupListOf(image);
  if (use == ImageUse::copy) {
    chip_ = std::make_unique<XdkSim::Chip>(opened.profile());
    std::ranges::copy(opened.words(), chip_->memory().words().begin());
    chip_->memoryChanged();
    list = listCopy_.emplace(list).path();
  } else {
    chip_ = std::make_unique<XdkSim::Chip>(std::move(opened));
  }
  // Who looks at a row that cannot be taken over does not want it cleared.
  start({.groupList = list,
         .chipName = chip_->profile().name,
         .warmStart = Agent::WarmStart{.keepBadRows = true}});
}

void Session::start(const Agent::ClientOptions& options) {
  manager4_ = std::make_unique<XdkSim::SimLpmMgr>(*chip_, XdkSim::Family::ipv4);
  manager6_ = std::make_unique<XdkSim::SimLpmMgr>(*chip_, XdkSim::Family::ipv6);
  client_ = std::make_unique<Agent::Client>(access(), options);
  Vellor::objectByNameIs(
      [this](const Vellor::String8& text) { return objectOf(*this, text.str()); });
}

Agent::ChipAccess Session::access() const {
  return {.systemStatus = Agent::systemStatusOf(*chip_),
          .ipv4 = manager4_.get(),
          .ipv6 = manager6_.get()};
}

Session::~Session() { Vellor::objectByNameIs({}); }

Agent::PrefixStore Session::store(Family family) const {
  const Tarnlet::ConfigBase::Ptr config = engine(family)->config();
  return family == Family::ipv4
             ? Agent::PrefixStore(Vellor::dynamicPtrCast<Tarnlet::ConfigV4>(config))
             : Agent::PrefixStore(Vellor::dynamicPtrCast<Tarnlet::ConfigV6>(config));
}

void Session::takeUp(Family family, References& references) const {
  std::unordered_map<U64, Agent::ReferenceTrie::Value> known;
  for (const auto& request : engine(family)->config()->requestCollection()) {
    const NextHopBlock& block = request.value;
    const auto [place, isNew] =
        known.try_emplace(U64{block.base().value()} << 16 | block.size().value(),
                          static_cast<Agent::ReferenceTrie::Value>(references.blocks.size()));
    if (isNew) {
      references.blocks.push_back(block);
    }
    const Agent::RouteKey key = Agent::routeKeyOf(family, *request.key);
    references.tries[key.vrf].insert(key.prefix, place->second);
  }
}

std::optional<Session::Reference> Session::reference(U32 vrf, const Agent::IpAddress& address) {
  if (!references_) {
    references_.emplace();
    takeUp(Family::ipv4, *references_);
    takeUp(Family::ipv6, *references_);
  }
  const auto trie = references_->tries.find(vrf);
  if (trie == references_->tries.end()) {
    return std::nullopt;
  }
  const std::optional<Agent::ReferenceTrie::Match> match = trie->second.longestMatch(address);
  if (!match) {
    return std::nullopt;
  }
  return Reference{.length = match->length, .block = references_->blocks[match->value]};
}

void Session::aboutToChange() {
  references_.reset();
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    client_->family(family).engineForDiagnosis(/*changes=*/true);
  }
}

std::vector<U64> Session::nextHopsOf(const NextHopBlock& block) const {
  const Agent::NextHopGroups& groups = client_->groups();
  // A request that was written past the client may name anything.
  if (block.base().value() >= nextHopEngine()->config()->tableSize()) {
    return {};
  }
  const Agent::SwId group = groups.groupAt(block);
  if (group == Agent::SwId() || groups.block(group) != block) {
    return {};
  }
  const std::span<const U64> nextHops = groups.nextHops(group);
  return {nextHops.begin(), nextHops.end()};
}

}  // namespace Quarle::Cli
