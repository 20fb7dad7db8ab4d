#pragma once

#include <cstdint>
#include <vector>

#include "agent/source/NextHopPlan.h"
#include "agent/source/RouteTable.h"
#include "cli/RouteOptions.h"

namespace Quarle::Cli {

/// The next-hop groups that the routes of a table want, numbered from 0: first the distinct lists
/// that the routes bring along, then made-up ones.
class WantedGroups {
 public:
  /// Groups made up for routes that bring no next hops when none were asked for.
  static constexpr std::uint32_t kDefaultGroups = 64;

  /// No next hop of these groups has this number or a higher one.
  static constexpr std::uint64_t kFirstSpare = std::uint64_t{3} << 62;

  /// With --nexthops all routes take one of that many made-up groups. The table's lists stay where
  /// they are.
  WantedGroups(const Agent::RouteTable& table, const RouteOptions& options);

  /// The next hops of each group, each next hop under a number of its own, which it has in every
  /// table and every run.
  const std::vector<std::vector<std::uint64_t>>& groups() const { return groups_; }

  /// Where a route leads; `changed` gives every route another group than before, if there is one.
  std::uint32_t groupOf(const Agent::RouteEntry& route, bool changed) const;

  /// Whether the route's group comes from the table or was asked for, and is no stopgap.
  bool isTold(const Agent::RouteEntry& route) const { return allTold_ || route.nextHopSet != 0; }

 private:
  bool allTold_;
  std::uint32_t fileGroups_ = 0;
  Agent::NextHopPlan plan_;
  Agent::NextHopPlan changedPlan_;
  std::vector<std::vector<std::uint64_t>> groups_;
};

}  // namespace Quarle::Cli
