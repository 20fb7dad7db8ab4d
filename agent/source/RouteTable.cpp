#include "agent/source/RouteTable.h"

#include <utility>

namespace Quarle::Agent {

namespace {

constexpr std::size_t kFirstSlots = 1024;
constexpr std::uint64_t kIndexSeed = 0;

}  // namespace

NextHopSets::NextHopSets() : lists_(1), ids_{{{}, 0}} {}

std::uint32_t NextHopSets::idOf(const std::vector<IpAddress>& nextHops) {
  const auto [place, isNew] = ids_.try_emplace(nextHops, size());
  if (isNew) {
    lists_.push_back(nextHops);
  }
  return place->second;
}

bool RouteTableBuilder::routeIs(const RoutePrefix& prefix, std::uint32_t nextHopSet) {
  std::vector<RouteEntry>& routes = table_.routes(prefix.family);
  Index& index = indexes_[prefix.family == Family::ipv6];
  if (routes.size() * 2 >= index.slots.size()) {
    index.grow(routes);
  }
  std::uint32_t& slot = index.slotOf(prefix, routes);
  if (slot != 0) {
    routes[slot - 1].nextHopSet = nextHopSet;
    return false;
  }
  routes.push_back({.prefix = prefix, .nextHopSet = nextHopSet});
  slot = static_cast<std::uint32_t>(routes.size());
  return true;
}

RouteTable RouteTableBuilder::finish() {
  indexes_[0].slots.clear();
  indexes_[1].slots.clear();
  return std::exchange(table_, {});
}

std::uint32_t& RouteTableBuilder::Index::slotOf(const RoutePrefix& prefix,
                                                const std::vector<RouteEntry>& routes) {
  const std::size_t mask = slots.size() - 1;
  std::size_t place = hashOf(prefix, kIndexSeed) & mask;
  while (slots[place] != 0 && routes[slots[place] - 1].prefix != prefix) {
    place = (place + 1) & mask;
  }
  return slots[place];
}

void RouteTableBuilder::Index::grow(const std::vector<RouteEntry>& routes) {
  slots.assign(slots.empty() ? kFirstSlots : slots.size() * 2, 0);
  for (std::size_t i = 0; i < routes.size(); ++i) {
    slotOf(routes[i].prefix, routes) = static_cast<std::uint32_t>(i + 1);
  }
}

}  // namespace Quarle::Agent
