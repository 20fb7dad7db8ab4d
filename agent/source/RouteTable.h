#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "agent/source/RouteEntry.h"

namespace Quarle::Agent {

/// The distinct lists of next hops of a table, each under a small id, so that a million routes
/// share a few thousand lists. Order and repetition within a list count: a repeated next hop is a
/// weight.
///
/// Invariant: id 0 is the empty list.
class NextHopSets {
 public:
  NextHopSets();

  /// The id of `nextHops`, a new one when the list is new.
  std::uint32_t idOf(const std::vector<IpAddress>& nextHops);

  /// REQUIRES: `id` < `size()`.
  std::span<const IpAddress> at(std::uint32_t id) const { return lists_[id]; }

  std::uint32_t size() const { return static_cast<std::uint32_t>(lists_.size()); }

 private:
  std::vector<std::vector<IpAddress>> lists_;
  std::map<std::vector<IpAddress>, std::uint32_t> ids_;
};

/// The routes of one VRF as a source yields them. The families stand apart since a load takes one
/// after the other. Written by a source and by the orders of RouteOrder.h, then read only.
///
/// Invariants:
///  1. No prefix stands twice.
///  2. `ipv4` holds IPv4 routes alone, `ipv6` IPv6 routes alone.
///  3. Each `nextHopSet` is an id of `nextHopSets`.
struct RouteTable {
  std::vector<RouteEntry> ipv4;
  std::vector<RouteEntry> ipv6;
  NextHopSets nextHopSets;

  std::vector<RouteEntry>& routes(Family family) { return family == Family::ipv4 ? ipv4 : ipv6; }

  const std::vector<RouteEntry>& routes(Family family) const {
    return family == Family::ipv4 ? ipv4 : ipv6;
  }

  std::size_t size() const { return ipv4.size() + ipv6.size(); }
};

/// Gathers a `RouteTable` from routes in any order, where a prefix may come again.
class RouteTableBuilder {
 public:
  /// Adds a route, or gives a known prefix the new next hops; true when the prefix is new. The
  /// place of a known prefix in the order of arrival stays.
  bool routeIs(const RoutePrefix& prefix, std::uint32_t nextHopSet);

  NextHopSets& nextHopSets() { return table_.nextHopSets; }

  /// Gives the table away; the builder is then empty.
  RouteTable finish();

 private:
  /// Open addressing over the routes of one family: a slot holds a position in the family's vector
  /// plus one, 0 when free.
  ///
  /// Invariant: at most half of the slots are taken.
  struct Index {
    std::vector<std::uint32_t> slots;

    std::uint32_t& slotOf(const RoutePrefix& prefix, const std::vector<RouteEntry>& routes);
    void grow(const std::vector<RouteEntry>& routes);
  };

  RouteTable table_;
  Index indexes_[2];
};

}  // namespace Quarle::Agent
