#pragma once

#include <algorithm>
#include <set>
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
    // First the group: making it may still bring what was wished for this route before.
    const SwId group = client.groupIs(nextHops);
    check.wishIs({.vrf = 0, .prefix = prefix}, nextHops);
    const bool placed = lead(prefix, group);
    client.groupDel(group);
    check.requestEnds();
    return placed;
  }

  bool routeTo(const RoutePrefix& prefix, SwId group) {
    const std::span<const U64> nextHops = client.groups().nextHops(group);
    check.wishIs({.vrf = 0, .prefix = prefix}, nextHops);
    const bool placed = lead(prefix, group);
    check.requestEnds();
    return placed;
  }

  /// Whether the group has these next hops now.
  bool changeGroup(SwId group, const NextHops& nextHops) {
    const std::span<const U64> present = client.groups().nextHops(group);
    const NextHops before(present.begin(), present.end());
    wishesAre(group, nextHops);
    std::vector<RouteKey> routes;
    for (const RouteKey& key : requested_) {
      if (client.family(key.prefix.family).groupOf(key) == group) {
        routes.push_back(key);
      }
    }
    check.groupChangeIs(routes, nextHops);
    const bool changed = !client.groupNextHopsAre(group, nextHops).refused();
    for (const RouteKey& key : routes) {
      check.followed(key, changed && client.family(key.prefix.family).groupOf(key) == group);
    }
    // Those too that could not follow and wait for it.
    wishesAre(group, changed ? nextHops : before);
    check.requestEnds();
    return changed;
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
    for (U32 i = 0; i < changingGroups; ++i) {
      groups_.push_back(client.ownGroupIs(nextHops(random)));
    }
    for (std::size_t i = 0; i < routes.size() && check.counts().wrong == 0; ++i) {
      placed[i] = randomRoute(routes[i].prefix, random);
    }
    for (U32 i = 0; i < changes && check.counts().wrong == 0; ++i) {
      const U32 which = random.below(static_cast<U32>(routes.size()));
      if (!groups_.empty() && random.chance(100)) {
        changeRandomGroup(random);
      } else if (placed[which] && random.chance(500)) {
        withdraw(routes[which].prefix);
        placed[which] = client.family(routes[which].prefix.family)
                            .groupOf({.vrf = 0, .prefix = routes[which].prefix})
                            .has_value();
      } else {
        const bool leads = randomRoute(routes[which].prefix, random);
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
  // Groups that every other route leads to and that get other next hops now and then.
  U32 changingGroups = 0;

 private:
  /// A refused wish stays in the check: the client may try it again at any time.
  bool lead(const RoutePrefix& prefix, SwId group) {
    const RouteKey key{.vrf = 0, .prefix = prefix};
    requested_.insert(key);
    const bool placed = !client.family(prefix.family).routeIs(key, group).refused();
    if (placed) {
      check.settled(key, /*asWished=*/true);
    }
    return placed;
  }

  /// Refused wishes for the group are wishes for these next hops.
  void wishesAre(SwId group, const NextHops& nextHops) {
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      client.family(family).refused().forEach([&](const RefusedWish& wish) {
        if (wish.group == group) {
          check.wishIs(wish.key, nextHops);
        }
      });
    }
  }

  bool randomRoute(const RoutePrefix& prefix, Random& random) {
    if (groups_.empty() || random.chance(500)) {
      return route(prefix, nextHops(random));
    }
    return routeTo(prefix, groups_[random.below(static_cast<U32>(groups_.size()))]);
  }

  /// Mostly as many next hops as before.
  void changeRandomGroup(Random& random) {
    const SwId group = groups_[random.below(static_cast<U32>(groups_.size()))];
    NextHops hops = nextHops(random);
    if (random.chance(700)) {
      hops.resize(client.groups().nextHops(group).size(), random.below(1000));
    }
    changeGroup(group, hops);
  }

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

  std::set<RouteKey> requested_;
  std::vector<SwId> groups_;
};

}  // namespace Quarle::Agent::Testing
