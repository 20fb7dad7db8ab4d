#include "agent/FamilyClient.h"

#include <utility>

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;

constexpr U32 kMaxVrf = 65535;

}  // namespace

FamilyClient::FamilyClient(const Tarnlet::ConfigV4::Ptr& config,
                           NextHopGroups& groups,
                           xpIpRouteLpmMgr* manager)
    : FamilyClient(PrefixStore(config), config, groups, manager) {}

FamilyClient::FamilyClient(const Tarnlet::ConfigV6::Ptr& config,
                           NextHopGroups& groups,
                           xpIpRouteLpmMgr* manager)
    : FamilyClient(PrefixStore(config), config, groups, manager) {}

FamilyClient::FamilyClient(PrefixStore prefixes,
                           const Tarnlet::ConfigBase::Ptr& config,
                           NextHopGroups& groups,
                           xpIpRouteLpmMgr* manager)
    : prefixes_(std::move(prefixes)),
      config_(config),
      status_(Tarnlet::statusFactory(config->name())),
      sm_(Tarnlet::lpmSmFactory(config->name(), config_, status_, nullptr)),
      groups_(groups),
      consumer_(prefixes_.family(), status_, config_->keyType(), manager),
      lengths_(*config_) {}

Answer FamilyClient::routeIs(const RouteKey& key, SwId group) {
  if (!canBeServed(key)) {
    return refuse(key, group, RefusalReason::invalid);
  }
  if (const std::optional<RefusalReason> reason = groups_.refusal(group)) {
    return refuse(key, group, *reason);
  }
  const auto [prefix, made] = prefixes_.intern(key);
  if (made) {
    return insert(key, prefix, group);
  }
  return update(key, prefix, config_->request(prefix), group);
}

Answer FamilyClient::insert(const RouteKey& key, const LpmPrefix::Ptr& prefix, SwId group) {
  const NextHopBlock block = groups_.block(group);
  config_->requestIs(prefix, block);
  const bool placed = leadsTo(prefix, block);
  RefusalReason reason{};
  if (!placed) {
    reason = reasonOfRefusal(*sm_, prefix);
    config_->requestDel(prefix);
    prefixes_.forget(key);
  }
  // A refused insert may have moved others out of its way.
  consumer_.drain();
  if (!placed) {
    return refuse(key, group, reason);
  }
  groups_.hold(group);
  forgetRefusal(key);
  return {.outcome = Outcome::placed};
}

Answer FamilyClient::update(const RouteKey& key,
                            const LpmPrefix::Ptr& prefix,
                            const NextHopBlock& present,
                            SwId group) {
  const NextHopBlock block = groups_.block(group);
  if (present != block) {
    config_->requestIs(prefix, block);
  } else if (leadsTo(prefix, block)) {
    forgetRefusal(key);
    return {.outcome = Outcome::unchanged};
  } else {
    // The group moved when there was no room to follow it.
    config_->requestNotify(prefix);
  }
  if (!leadsTo(prefix, block)) {
    // Left in place, the new wish would reach the chip with the next change of a neighbour.
    config_->requestIs(prefix, present);
    consumer_.drain();
    return refuse(key, group, RefusalReason::nhiTableFull);
  }
  consumer_.drain();
  groups_.hold(group);
  groups_.release(groups_.groupAt(present));
  forgetRefusal(key);
  return {.outcome = Outcome::updated};
}

Answer FamilyClient::routeDel(const RouteKey& key) {
  const bool wasRefused = forgetRefusal(key);
  const LpmPrefix::Ptr prefix = prefixes_.find(key);
  if (prefix == nullptr) {
    return {.outcome = wasRefused ? Outcome::withdrawn : Outcome::absent};
  }
  const NextHopBlock present = config_->request(prefix);
  config_->requestDel(prefix);
  prefixes_.forget(key);
  consumer_.drain();
  groups_.release(groups_.groupAt(present));
  return {.outcome = Outcome::withdrawn};
}

std::optional<SwId> FamilyClient::groupOf(const RouteKey& key) const {
  const LpmPrefix::Ptr prefix = prefixes_.find(key);
  if (prefix == nullptr) {
    return std::nullopt;
  }
  return groups_.groupAt(config_->request(prefix));
}

bool FamilyClient::canBeServed(const RouteKey& key) const {
  const RoutePrefix& prefix = key.prefix;
  return key.vrf <= kMaxVrf && prefix.length <= addressBits(prefix.family) &&
         prefix.bits().masked(prefix.length) == prefix.bits() &&
         lengths_.serves(U32{Tarnlet::kVrfBits} + prefix.length);
}

bool FamilyClient::leadsTo(const LpmPrefix::Ptr& prefix, const NextHopBlock& block) const {
  return status_->prefixToNextHopBlock(prefix) == block;
}

Answer FamilyClient::refuse(const RouteKey& key, SwId group, RefusalReason reason) {
  groups_.hold(group);
  forgetRefusal(key);
  refused_.emplace(key, Refused{.group = group, .reason = reason});
  return {.outcome = Outcome::refused, .reason = reason};
}

bool FamilyClient::forgetRefusal(const RouteKey& key) {
  if (refused_.empty()) {
    return false;
  }
  const auto place = refused_.find(key);
  if (place == refused_.end()) {
    return false;
  }
  const SwId group = place->second.group;
  refused_.erase(place);
  groups_.release(group);
  return true;
}

std::vector<std::vector<LpmPrefix::Ptr>> FamilyClient::routesOf(
    std::span<const GroupMove> moves) const {
  std::unordered_map<U32, std::size_t> moveByBase;
  for (std::size_t i = 0; i < moves.size(); ++i) {
    moveByBase.emplace(moves[i].from.base().value(), i);
  }
  std::vector<std::vector<LpmPrefix::Ptr>> routes(moves.size());
  for (const auto& route : config_->requestCollection()) {
    const auto place = moveByBase.find(route.value.base().value());
    if (place != moveByBase.end()) {
      routes[place->second].push_back(route.key);
    }
  }
  return routes;
}

void FamilyClient::groupMoved(std::span<const LpmPrefix::Ptr> routes, const GroupMove& move) {
  for (const LpmPrefix::Ptr& prefix : routes) {
    config_->requestIs(prefix, move.to);
    consumer_.drain();
    if (!leadsTo(prefix, move.to)) {
      // Not put back: the old rows end, so the new place is the one to reach with the row's next
      // change.
      refuse(routeKeyOf(prefixes_.family(), *prefix), move.group, RefusalReason::nhiTableFull);
    }
  }
}

FamilyStatistics FamilyClient::statistics() const {
  FamilyStatistics result;
  result.routes = routes();
  for (const auto& table : sm_->prefixTableCollection()) {
    result.rowsUsed += table.value->subTries();
    result.rowCapacity += table.value->tableConfig()->depth();
  }
  for (const auto& tile : sm_->nhiAllocatorCollection()) {
    ++result.nhiTiles;
    result.nhiEntryCapacity += tile.value->entriesCapacity();
    result.nhiEntriesUsed += tile.value->entriesCapacity() - tile.value->freeEntries();
  }
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
