#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/Client.h"
#include "agent/HitlessCheck.h"
#include "agent/source/Random.h"

#include <gtest/gtest.h>

namespace Quarle::Agent::Testing {

/// A client over a simulated chip whose every write is followed by look-ups, and random changes of
/// its routes and groups.
class WatchedLoad {
 public:
  using NextHops = std::vector<U64>;

  /// `inBetween(check manager, family)` may put a manager of its own between client and check.
  template <typename InBetween>
  WatchedLoad(XdkSim::ChipProfile profile, InBetween inBetween)
      : chip(std::move(profile)),
        check(chip),
        client({.systemStatus = systemStatusOf(chip),
                .ipv4 = inBetween(check.manager(Family::ipv4), Family::ipv4),
                .ipv6 = inBetween(check.manager(Family::ipv6), Family::ipv6)}) {
    client.answerHandlerIs([this](const RouteEvent& event) {
      if (event.cause == Cause::retry && !event.answer.refused()) {
        check.settled(event.key, /*asWished=*/true);
      }
    });
  }

  explicit WatchedLoad(XdkSim::ChipProfile profile)
      : WatchedLoad(std::move(profile), [](xpIpRouteLpmMgr& manager, Family) { return &manager; }) {
  }

  /// Whether the route leads there now.
  bool route(const RoutePrefix& prefix, const NextHops& nextHops) {
    const RouteKey key{.vrf = 0, .prefix = prefix};
    check.wishIs(key, nextHops);
    const SwId group = client.groupIs(nextHops);
    const bool placed = !client.family(prefix.family).routeIs(key, group).refused();
    client.groupDel(group);
    if (placed) {
      check.settled(key, /*asWished=*/true);
    }
    // A refused wish stays: the client may try it again at any time.
    check.requestEnds();
    return placed;
  }

  void withdraw(const RoutePrefix& prefix) {
    if (hasRoomToWithdraw(prefix.family)) {
      withdrawNow(prefix);
    }
  }

  void withdrawNow(const RoutePrefix& prefix) {
    const RouteKey key{.vrf = 0, .prefix = prefix};
    check.withdrawalIs(key);
    if (!client.family(prefix.family).routeDel(key).refused()) {
      check.settled(key, /*asWished=*/true);
    }
    check.requestEnds();
  }

  /// Loads the routes and then makes random changes, until something is wrong.
  void run(const std::vector<RouteEntry>& routes, U32 changes, U64 seed) {
    Random random(seed);
    placed.assign(routes.size(), false);
    for (std::size_t i = 0; i < routes.size() && check.counts().wrong == 0; ++i) {
      placed[i] = route(routes[i].prefix, nextHops(random));
    }
    for (U32 i = 0; i < changes && check.counts().wrong == 0; ++i) {
      const U32 which = random.below(static_cast<U32>(routes.size()));
      if (placed[which] && random.chance(500)) {
        withdraw(routes[which].prefix);
        placed[which] = client.family(routes[which].prefix.family)
                            .groupOf({.vrf = 0, .prefix = routes[which].prefix})
                            .has_value();
      } else {
        const bool leads = route(routes[which].prefix, nextHops(random));
        placed[which] = placed[which] || leads;
      }
    }
  }

  /// What went wrong, nothing when all was right.
  std::string faults() const {
    std::string text;
    for (const std::string& fault : check.faults()) {
      text += fault;
    }
    return text;
  }

  XdkSim::Chip chip;
  HitlessCheck check;
  Client client;
  std::vector<bool> placed;
  // Lists that routes lead to; a larger number makes groups come and go.
  U32 lists = 64;

 private:
  /// What a withdrawal leaves behind in its row needs a block of its own.
  bool hasRoomToWithdraw(Family family) {
    U32 most = 0;
    for (const auto& tile : client.family(family).engine().nhiAllocatorCollection()) {
      most = std::max(most, tile.value->freeEntries());
    }
    return most >= xpLpmPrefixEntry::kLeaves / 6;
  }

  NextHops nextHops(Random& random) const {
    const U32 list = random.below(lists);
    NextHops hops;
    for (U32 way = 0; way <= list % 8; ++way) {
      hops.push_back(list * 8 + way + 1);
    }
    return hops;
  }
};

}  // namespace Quarle::Agent::Testing
