#pragma once

#include <cstdint>

#include "agent/source/RouteEntry.h"

namespace Quarle::Agent {

/// Synthetic next hops for a load: a pure function from a prefix to one of a number of next-hop
/// groups. As in a real table, neighbours mostly lead the same way: four prefixes in five take the
/// group of their covering /12 (IPv4) or /29 (IPv6), the others one of their own.
class NextHopPlan {
 public:
  static constexpr std::uint32_t kMaxWays = 8;

  /// REQUIRES: `groups` > 0.
  NextHopPlan(std::uint32_t groups, std::uint64_t seed) : groups_(groups), seed_(seed) {}

  std::uint32_t groups() const { return groups_; }

  /// The group of `prefix`, 0 to `groups()` - 1.
  std::uint32_t groupOf(const RoutePrefix& prefix) const;

  /// Next hops of `group`, 1 to `kMaxWays`. They belong to the group and stay over `changed`.
  ///
  /// REQUIRES: `group` < `groups()`.
  std::uint32_t waysOf(std::uint32_t group) const;

  /// A plan that gives every prefix another group than this one does, and prefixes that shared a
  /// group still share one. A plan of a single group has no other to give and stays as it is.
  NextHopPlan changed() const;

 private:
  std::uint32_t groups_;
  std::uint64_t seed_;
  std::uint32_t shift_ = 0;
};

}  // namespace Quarle::Agent
