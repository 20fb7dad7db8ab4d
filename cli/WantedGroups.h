#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "agent/source/NextHopPlan.h"
#include "agent/source/RouteTable.h"

namespace Quarle::Cli {

/// The next-hop groups that the routes of a table want, numbered from 0: first the distinct lists
/// that the routes bring along, then made-up ones.
class WantedGroups {
 public:
  /// Groups made up for routes that bring no next hops when none were asked for.
  static constexpr std::uint32_t kDefaultGroups = 64;

  /// With `madeUp` all routes take one of that many made-up groups. The table's lists stay where
  /// they are.
  WantedGroups(const Agent::RouteTable& table,
               std::optional<std::uint32_t> madeUp,
               std::uint64_t seed);

  /// The next hops of each group, each next hop under a number of its own.
  const std::vector<std::vector<std::uint64_t>>& groups() const { return groups_; }

  /// Where a route leads; `changed` gives every route another group than before, if there is one.
  std::uint32_t groupOf(const Agent::RouteEntry& route, bool changed) const;

 private:
  std::uint32_t fileGroups_ = 0;
  Agent::NextHopPlan plan_;
  Agent::NextHopPlan changedPlan_;
  std::vector<std::vector<std::uint64_t>> groups_;
};

}  // namespace Quarle::Cli
