#include "cli/WantedGroups.h"

#include <algorithm>
#include <map>

namespace Quarle::Cli {

namespace {

using Agent::IpAddress;
using Agent::RouteEntry;
using Agent::RouteTable;

bool bringsNone(const RouteEntry& route) { return route.nextHopSet == 0; }

bool someBringNone(const RouteTable& table) {
  return std::any_of(table.ipv4.begin(), table.ipv4.end(), bringsNone) ||
         std::any_of(table.ipv6.begin(), table.ipv6.end(), bringsNone);
}

}  // namespace

WantedGroups::WantedGroups(const RouteTable& table,
                           std::optional<std::uint32_t> madeUp,
                           std::uint64_t seed)
    : plan_(madeUp.value_or(kDefaultGroups), seed), changedPlan_(plan_.changed()) {
  std::map<IpAddress, std::uint64_t> numbers;
  if (!madeUp) {
    // List 0 is the empty one.
    fileGroups_ = table.nextHopSets.size() - 1;
    for (std::uint32_t set = 1; set <= fileGroups_; ++set) {
      std::vector<std::uint64_t>& group = groups_.emplace_back();
      for (const IpAddress& nextHop : table.nextHopSets.at(set)) {
        group.push_back(numbers.try_emplace(nextHop, numbers.size() + 1).first->second);
      }
    }
  }
  if (madeUp || someBringNone(table)) {
    std::uint64_t next = numbers.size() + 1;
    for (std::uint32_t i = 0; i < plan_.groups(); ++i) {
      std::vector<std::uint64_t>& group = groups_.emplace_back(plan_.waysOf(i));
      for (std::uint64_t& nextHop : group) {
        nextHop = next++;
      }
    }
  }
}

std::uint32_t WantedGroups::groupOf(const RouteEntry& route, bool changed) const {
  if (fileGroups_ == 0 || bringsNone(route)) {
    return fileGroups_ + (changed ? changedPlan_ : plan_).groupOf(route.prefix);
  }
  const std::uint32_t group = route.nextHopSet - 1;
  return changed ? (group + 1) % fileGroups_ : group;
}

}  // namespace Quarle::Cli
