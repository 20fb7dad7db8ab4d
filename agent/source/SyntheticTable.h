#pragma once

#include <cstdint>

#include "agent/source/RouteTable.h"

namespace Quarle::Agent {

struct SyntheticSize {
  /// Most routes of one family that the address space holds without losing its shape altogether.
  static constexpr std::uint32_t kMaxRoutes = 4'000'000;

  std::uint32_t ipv4 = 0;
  std::uint32_t ipv6 = 0;
};

/// A made-up routing table of exactly `size` distinct routes without next hops, sorted, that is the
/// same for a seed wherever it is built. Lengths, nesting and clustering follow the public Internet
/// (InternetShape.h): near the size of the real table the routes of a /19 or of an IPv6 /44 are as
/// many as there. A smaller table has fewer blocks of the same kind. A larger one has more of them,
/// until the IPv4 space is used up at a little over a million routes; from there its blocks fill.
///
/// Raises `std::invalid_argument` when a family asks for more than `kMaxRoutes`.
RouteTable makeSyntheticTable(const SyntheticSize& size, std::uint64_t seed);

}  // namespace Quarle::Agent
