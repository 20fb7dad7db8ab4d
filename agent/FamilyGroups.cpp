// Routes that follow their group to other rows.

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "agent/FamilyClient.h"

namespace Quarle::Agent {

using Tarnlet::LpmPrefix;

namespace {

/// Table and row of an installed prefix.
std::pair<U32, U32> rowOf(const Tarnlet::LpmSm& sm, const LpmPrefix::Ptr& prefix) {
  const auto* holder = sm.prefixToSubTrieCollection().find(prefix);
  if (holder == nullptr) {
    return {};
  }
  const Tarnlet::SubTrie& subTrie = *holder->value;
  return {subTrie.table()->tableId().value(), subTrie.index().value()};
}

/// The prefixes, those of one row together.
std::vector<LpmPrefix::Ptr> byRow(const Tarnlet::LpmSm& sm,
                                  const std::vector<LpmPrefix::Ptr>& prefixes) {
  std::vector<std::pair<std::pair<U32, U32>, std::size_t>> order;
  for (std::size_t i = 0; i < prefixes.size(); ++i) {
    order.emplace_back(rowOf(sm, prefixes[i]), i);
  }
  std::sort(order.begin(), order.end());
  std::vector<LpmPrefix::Ptr> result;
  result.reserve(order.size());
  for (const auto& [row, i] : order) {
    result.push_back(prefixes[i]);
  }
  return result;
}

}  // namespace

std::vector<std::vector<LpmPrefix::Ptr>> FamilyClient::routesOf(
    std::span<const GroupMove> moves) const {
  std::unordered_map<U32, std::size_t> moveByBase;
  for (std::size_t i = 0; i < moves.size(); ++i) {
    moveByBase.emplace(moves[i].from.base().value(), i);
  }
  std::vector<std::vector<LpmPrefix::Ptr>> routes(moves.size());
  for (const auto& route : config_->requestCollection()) {
    const auto place = moveByBase.find(route.value.base().value());
    // A stranger may begin where the group does.
    if (place != moveByBase.end() && route.value == moves[place->second].from) {
      routes[place->second].push_back(route.key);
    }
  }
  for (std::vector<LpmPrefix::Ptr>& ofOne : routes) {
    ofOne = byRow(*sm_, ofOne);
  }
  return routes;
}

void FamilyClient::groupMoved(std::span<const LpmPrefix::Ptr> routes, const GroupMove& move) {
  for (const LpmPrefix::Ptr& prefix : routes) {
    const RouteKey key = routeKeyOf(prefixes_.family(), *prefix);
    window_.narrow();
    // The old rows of a move by the table end whatever comes of it, so it takes the room that
    // updates leave alone.
    const bool mayStay = move.left != SwId();
    const bool hasRoom = !mayStay || mayUpdate(prefix);
    if (hasRoom && leadTo(prefix, move.to, /*isRequested=*/false)) {
      tell(key, move.group, {.outcome = Outcome::updated}, Cause::groupMove);
      continue;
    }
    if (mayStay) {
      config_->requestIs(prefix, move.from);
      groups_.routeIsLeft(move);
    }
    // A table's move is not put back: the new place is the one to reach with the row's next change.
    const RefusalReason reason = hasRoom ? RefusalReason::nhiTableFull : RefusalReason::headroom;
    const RefusedWish* wish = refused_.find(key);
    if (wish == nullptr || wish->group == move.group) {
      const Request request = refuse(key, move.group, reason);
      tell(key, move.group, request.answer, Cause::groupMove);
    }
  }
}

}  // namespace Quarle::Agent
