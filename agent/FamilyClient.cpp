// The road of one request: at the door, through the room that is left, to the engine and back as an
// answer. What the engine refuses is undone before anything else is asked of it. Retries are in
// FamilyRetries.cpp, moves of groups in FamilyGroups.cpp.

#include "agent/FamilyClient.h"

#include <utility>

#include "agent/LookAhead.h"
#include "agent/restart/RestartHelperV4.h"
#include "agent/restart/RestartHelperV6.h"

namespace Quarle::Agent {

using Tarnlet::LpmPrefix;

FamilyClient::FamilyClient(const Tarnlet::ConfigV4::Ptr& config,
                           const Shared& shared,
                           xpIpRouteLpmMgr* manager,
                           const FamilyOptions& options)
    : FamilyClient(
          PrefixStore(config),
          config,
          [&config](const Tarnlet::Status::Ptr& status) -> Tarnlet::RestartHelperBase::Ptr {
            return new RestartHelperV4(config, status);
          },
          shared,
          manager,
          options) {}

FamilyClient::FamilyClient(const Tarnlet::ConfigV6::Ptr& config,
                           const Shared& shared,
                           xpIpRouteLpmMgr* manager,
                           const FamilyOptions& options)
    : FamilyClient(
          PrefixStore(config),
          config,
          [&config](const Tarnlet::Status::Ptr& status) -> Tarnlet::RestartHelperBase::Ptr {
            return new RestartHelperV6(config, status);
          },
          shared,
          manager,
          options) {}

FamilyClient::FamilyClient(PrefixStore prefixes,
                           const Tarnlet::ConfigBase::Ptr& config,
                           const HelperMaker& helper,
                           const Shared& shared,
                           xpIpRouteLpmMgr* manager,
                           const FamilyOptions& options)
    : prefixes_(std::move(prefixes)),
      config_(config),
      status_(Tarnlet::statusFactory(config->name())),
      shared_(shared),
      groups_(shared.groups),
      options_(options),
      consumer_(prefixes_.family(), status_, config_->keyType(), manager, shared.faults),
      sm_(startEngine(helper, manager)),
      window_(sm_),
      room_(window_, options_.headroom) {
  dropRoutesWithoutGroup();
}

Answer FamilyClient::routeIs(const RouteKey& key, SwId group) {
  claim(key);
  const Answer result = answer(key, want(key, group));
  shared_.faults.raiseIfAny();
  return result;
}

Answer FamilyClient::routeIs(const RouteKey& key, std::span<const U64> nextHops) {
  claim(key);
  const SwId group = groups_.hold(nextHops);
  const Request request = want(key, group);
  groups_.release(group);
  const Answer result = answer(key, request);
  shared_.faults.raiseIfAny();
  return result;
}

Answer FamilyClient::routeDel(const RouteKey& key) {
  claim(key);
  const Answer result = answer(key, withdraw(key));
  shared_.faults.raiseIfAny();
  return result;
}

void FamilyClient::batch(std::span<const RouteChange> changes, std::span<Answer> answers) {
  LookAhead ahead(prefixes_, *config_, *sm_, changes);
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const auto& [key, group] = changes[i];
    ahead.beforeChange(i);
    claim(key);
    const Answer result = answer(key, group == SwId() ? withdraw(key) : want(key, group));
    if (!answers.empty()) {
      answers[i] = result;
    }
  }
  shared_.faults.raiseIfAny();
}

/// A warm start may bring in longer prefixes than may be requested.
bool FamilyClient::canBeServed(const RouteKey& key) const {
  return key.prefix.length <= options_.maxLength && isSound(key);
}

std::optional<RefusalReason> FamilyClient::refusalAheadOfTables(const RouteKey& key) const {
  if (!canBeServed(key)) {
    return RefusalReason::invalid;
  }
  if (!room_.forNewRoute()) {
    return RefusalReason::headroom;
  }
  return std::nullopt;
}

FamilyClient::Request FamilyClient::want(const RouteKey& key, SwId group) {
  if (!canBeServed(key)) {
    return refuse(key, group, RefusalReason::invalid);
  }
  if (const std::optional<RefusalReason> reason = groups_.tryAgain(group)) {
    return refuse(key, group, *reason);
  }
  window_.narrow();
  const auto [prefix, made] = prefixes_.intern(key);
  return made ? insert(key, prefix, group) : update(key, prefix, group);
}

FamilyClient::Request FamilyClient::insert(const RouteKey& key,
                                           const LpmPrefix::Ptr& prefix,
                                           SwId group) {
  if (!room_.forNewRoute()) {
    prefixes_.forget(key);
    return refuse(key, group, RefusalReason::headroom);
  }
  const U32 before = routes();
  config_->requestIs(prefix, groups_.block(group));
  if (routes() == before) {
    const RefusalReason reason = reasonOfRefusal(*sm_, prefix);
    config_->requestDel(prefix);
    prefixes_.forget(key);
    return refuse(key, group, reason);
  }
  groups_.hold(group);
  forgetRefusal(key);
  return {.answer = {.outcome = Outcome::placed}, .group = group};
}

FamilyClient::Request FamilyClient::update(const RouteKey& key,
                                           const LpmPrefix::Ptr& prefix,
                                           SwId group) {
  const NextHopBlock present = config_->request(prefix);
  const NextHopBlock block = groups_.block(group);
  if (present == block && !isBehind(key, prefix, block)) {
    forgetRefusal(key);
    return {.answer = {.outcome = Outcome::unchanged}, .group = group};
  }
  if (!mayUpdate(prefix)) {
    return refuse(key, group, RefusalReason::headroom);
  }
  if (!leadTo(prefix, block, /*isRequested=*/present == block)) {
    // Left in place, the new wish would reach the chip with the next change of a neighbour.
    config_->requestIs(prefix, present);
    return refuse(key, group, RefusalReason::nhiTableFull);
  }
  groups_.hold(group);
  groups_.release(groups_.groupAt(present));
  forgetRefusal(key);
  return {.answer = {.outcome = Outcome::updated}, .group = group, .room = Room::nhi};
}

FamilyClient::Request FamilyClient::withdraw(const RouteKey& key) {
  const LpmPrefix::Ptr prefix = isSound(key) ? prefixes_.find(key) : nullptr;
  if (prefix == nullptr) {
    const RefusedWish* wish = refused_.find(key);
    if (wish == nullptr) {
      return {.answer = {.outcome = Outcome::absent}, .group = SwId()};
    }
    const SwId group = wish->group;
    forgetRefusal(key);
    return {.answer = {.outcome = Outcome::withdrawn}, .group = group};
  }
  window_.narrow();
  if (!room_.forDelete(prefix)) {
    Request refused = refuse(key, SwId(), RefusalReason::headroom);
    refused.group = groups_.groupAt(config_->request(prefix));
    return refused;
  }
  // A row that keeps routes gets a new block; one that is cleared does not.
  const U64 before = consumer_.counts().nhi;
  const SwId group = groups_.groupAt(config_->requestDel(prefix));
  const Room room = consumer_.counts().nhi == before ? Room::row : Room::leaf;
  if (resync_ != nullptr) {
    // The next prefix may be made where this one was.
    resync_->marks.erase(prefix.get());
  }
  prefixes_.forget(key);
  forgetRefusal(key);
  groups_.release(group);
  return {.answer = {.outcome = Outcome::withdrawn}, .group = group, .room = room};
}

/// Whether the chip leads elsewhere although `block` is what was requested last.
bool FamilyClient::isBehind(const RouteKey& key,
                            const LpmPrefix::Ptr& prefix,
                            const NextHopBlock& block) const {
  // Such a route is always on the list of refused.
  return !refused_.empty() && refused_.find(key) != nullptr &&
         status_->prefixToNextHopBlock(prefix) != block;
}

/// Whether an update leaves the withdrawals their room. Where it does, a block that is not to be
/// had is the engine's to refuse: the row may find one with its new content.
bool FamilyClient::mayUpdate(const LpmPrefix::Ptr& prefix) const {
  return room_.forUpdate(prefix) || window_.freeEntries() >= room_.entriesForUpdates();
}

bool FamilyClient::leadTo(const LpmPrefix::Ptr& prefix,
                          const NextHopBlock& block,
                          bool isRequested) {
  // An update that is carried out rewrites its row, even to the same content, and one that is
  // refused queues nothing: cheaper to see than where the route leads.
  const U64 before = consumer_.counts().prefix;
  if (isRequested) {
    config_->requestNotify(prefix);
  } else {
    config_->requestIs(prefix, block);
  }
  return consumer_.counts().prefix != before;
}

FamilyClient::Request FamilyClient::refuse(const RouteKey& key, SwId group, RefusalReason reason) {
  const RefusedWish* former = refused_.find(key);
  const SwId formerGroup = former == nullptr ? SwId() : former->group;
  if (group != SwId()) {
    groups_.hold(group);
  }
  refused_.put({.key = key, .group = group, .reason = reason});
  if (formerGroup != SwId()) {
    groups_.release(formerGroup);
  }
  return {.answer = {.outcome = Outcome::refused, .reason = reason}, .group = group};
}

bool FamilyClient::forgetRefusal(const RouteKey& key) {
  if (refused_.empty()) {
    return false;
  }
  const RefusedWish* wish = refused_.find(key);
  if (wish == nullptr) {
    return false;
  }
  const SwId group = wish->group;
  refused_.erase(key);
  if (group != SwId()) {
    groups_.release(group);
  }
  return true;
}

Answer FamilyClient::answer(const RouteKey& key, const Request& request) {
  if (resync_ != nullptr) [[unlikely]] {
    resync_->count(request.answer, resyncCounts_);
  }
  tell(key, request.group, request.answer, Cause::request);
  settle(request);
  return request.answer;
}

void FamilyClient::settle(const Request& request) {
  if (request.room != Room::none && !refused_.empty()) [[unlikely]] {
    useRoom(request.room);
  }
  if (groups_.takeRoom()) [[unlikely]] {
    shared_.rowsCameFree();
  }
}

void FamilyClient::tell(const RouteKey& key, SwId group, const Answer& answer, Cause cause) const {
  if (shared_.answerHandler) {
    shared_.answerHandler({.key = key, .group = group, .answer = answer, .cause = cause});
  }
}

std::optional<SwId> FamilyClient::groupOf(const RouteKey& key) const {
  const LpmPrefix::Ptr prefix = isSound(key) ? prefixes_.find(key) : nullptr;
  if (prefix == nullptr) {
    return std::nullopt;
  }
  return groups_.groupAt(config_->request(prefix));
}

const Tarnlet::LpmSm& FamilyClient::engine() const {
  window_.widen();
  return *sm_;
}

Tarnlet::LpmSm::Ptr FamilyClient::engineForDiagnosis(bool changes) const {
  if (changes) {
    window_.narrow();
  } else {
    window_.widen();
  }
  return sm_;
}

FamilyStatistics FamilyClient::statistics() const {
  FamilyStatistics result;
  result.routes = routes();
  for (const auto& table : sm_->prefixTableCollection()) {
    result.rowsUsed += table.value->subTries();
    result.rowCapacity += table.value->tableConfig()->depth();
  }
  result.nhiTiles = window_.tiles().size();
  result.nhiEntryCapacity = window_.capacity();
  result.nhiEntriesUsed = window_.capacity() - window_.freeEntries();
  result.nhiBlocks = sm_->nhiBaseIdxToBlks();
  for (const auto& info : sm_->sharedNhiCollection()) {
    result.nhiShared += info.value->subTrieCount() - 1;
  }
  result.shuffleAttempts = sm_->numHashShufflingAttempt();
  result.shuffleSuccesses = sm_->numHashShufflingSuccess();
  result.defragMoves = sm_->numNhiBlockDefrag();
  return result;
}

}  // namespace Quarle::Agent
