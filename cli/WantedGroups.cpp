#include "cli/WantedGroups.h"

#include "agent/source/Random.h"

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

// IPv4 next hops have their address for number, IPv6 ones a hash of it above all of these.
constexpr std::uint64_t kFirstIpv6 = std::uint64_t{1} << 63;
constexpr std::uint64_t kFirstMadeUp = std::uint64_t{1} << 32;

/// `taken` holds the numbers of IPv6 next hops so far.
std::uint64_t numberOf(const IpAddress& nextHop, std::map<std::uint64_t, IpAddress>& taken) {
  const Agent::AddressBits bits = Agent::AddressBits::of(nextHop.bytes);
  if (nextHop.family == Agent::Family::ipv4) {
    return bits.high >> 32;
  }
  std::uint64_t number = kFirstIpv6 | (Agent::mixed(Agent::mixed(bits.high) + bits.low) >> 2);
  while (taken.try_emplace(number, nextHop).first->second != nextHop) {
    ++number;
  }
  return number;
}

}  // namespace

WantedGroups::WantedGroups(const RouteTable& table, const RouteOptions& options)
    : allTold_(options.synthetic || options.nextHopGroups),
      plan_(options.nextHopGroups.value_or(kDefaultGroups), options.seed),
      changedPlan_(plan_.changed()) {
  if (!options.nextHopGroups) {
    std::map<std::uint64_t, IpAddress> numbers;
    // List 0 is the empty one.
    fileGroups_ = table.nextHopSets.size() - 1;
    for (std::uint32_t set = 1; set <= fileGroups_; ++set) {
      std::vector<std::uint64_t>& group = groups_.emplace_back();
      for (const IpAddress& nextHop : table.nextHopSets.at(set)) {
        group.push_back(numberOf(nextHop, numbers));
      }
    }
  }
  if (options.nextHopGroups || someBringNone(table)) {
    std::uint64_t next = kFirstMadeUp;
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
