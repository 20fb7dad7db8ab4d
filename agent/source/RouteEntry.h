#pragma once

#include <array>
#include <compare>
#include <cstdint>

#include "agent/source/AddressBits.h"
#include "agent/source/Random.h"

namespace Quarle::Agent {

enum class Family : std::uint8_t { ipv4, ipv6 };

/// Bits of an address of `family`: 32 or 128.
constexpr unsigned addressBits(Family family) { return family == Family::ipv4 ? 32 : 128; }

/// An address in network order; IPv4 fills the first four bytes, zeros behind.
struct IpAddress {
  Family family = Family::ipv4;
  std::array<std::uint8_t, 16> bytes{};

  auto operator<=>(const IpAddress&) const = default;
};

/// What a route leads to by address: family, address and length.
///
/// Invariants of every prefix that a source yields:
///  1. `length` <= `addressBits(family)`.
///  2. Address bits from `length` on are zero.
///
/// The order is by family, then address, then length.
struct RoutePrefix {
  Family family = Family::ipv4;
  std::array<std::uint8_t, 16> address{};
  std::uint8_t length = 0;

  auto operator<=>(const RoutePrefix&) const = default;

  constexpr AddressBits bits() const { return AddressBits::of(address); }

  /// The prefix of `length` bits whose address starts as `bits` does.
  ///
  /// REQUIRES: `length` <= `addressBits(family)`.
  static constexpr RoutePrefix of(Family family, AddressBits bits, unsigned length) {
    return {.family = family,
            .address = bits.masked(length).bytes(),
            .length = static_cast<std::uint8_t>(length)};
  }

  constexpr IpAddress firstAddress() const { return {.family = family, .bytes = address}; }

  constexpr IpAddress lastAddress() const {
    return {.family = family, .bytes = bits().filled(length).masked(addressBits(family)).bytes()};
  }
};

/// A hash of `prefix` that differs from one `seed` to the next and never from one build to another.
constexpr std::uint64_t hashOf(const RoutePrefix& prefix, std::uint64_t seed) {
  const AddressBits bits = prefix.bits();
  const std::uint64_t tail = std::uint64_t{prefix.length} << 1 | (prefix.family == Family::ipv6);
  return mixed(mixed(mixed(bits.high + seed) + bits.low) + tail);
}

/// One route of a table. `nextHopSet` is an id of the table's `NextHopSets`; 0 is the empty set.
struct RouteEntry {
  RoutePrefix prefix;
  std::uint32_t nextHopSet = 0;

  bool operator==(const RouteEntry&) const = default;
};

}  // namespace Quarle::Agent
