#pragma once

#include <algorithm>
#include <bit>
#include <compare>

#include "agent/RouteKey.h"
#include "framework/Xdk/Xdk.h"
#include "xdksim/LpmKey.h"

namespace Quarle::Agent {

/// The content of one leaf field: bits behind the branch under a stop bit. Both words zero is an
/// empty slot.
struct Leaf {
  U64 low = 0;
  U64 high = 0;

  bool operator==(const Leaf&) const = default;

  bool empty() const { return low == 0 && high == 0; }

  /// Key bits that the leaf adds behind the branch.
  ///
  /// REQUIRES: the leaf is not empty.
  U32 bits() const {
    return static_cast<U32>(high != 0 ? std::bit_width(high) + 63 : std::bit_width(low) - 1);
  }
};

inline Leaf leafOf(const xpLpmPrefixEntry& entry, U32 slot) {
  return {.low = entry.leafVal[slot], .high = entry.leafValHigh[slot]};
}

/// The branch, left aligned, zeros behind.
///
/// REQUIRES: the branch is no longer than 144 bits.
inline XdkSim::LpmKey branchKeyOf(const xpLpmPrefixEntry& entry) {
  XdkSim::LpmKey key;
  U32 left = entry.branchLen;
  for (U32 i = 0; left != 0; ++i) {
    const U32 count = std::min(left, 8U);
    left -= count;
    key.bitsIs(left, count, entry.branch[i]);
  }
  return key;
}

/// A prefix in key bits: the first `length` bits of `key`, zeros behind.
struct RowPrefix {
  XdkSim::LpmKey key;
  U32 length = 0;

  bool operator==(const RowPrefix&) const = default;
};

/// The prefix that branch and leaf spell.
///
/// REQUIRES: `branch` is `branchKeyOf` the entry; branch and leaf have at most 144 bits together;
/// the leaf is not empty.
inline RowPrefix prefixOf(const XdkSim::LpmKey& branch, U32 branchLen, const Leaf& leaf) {
  RowPrefix prefix{.key = branch, .length = branchLen + leaf.bits()};
  const U32 lowCount = std::min(leaf.bits(), 64U);
  const U32 highCount = leaf.bits() - lowCount;
  prefix.key.bitsIs(branchLen, highCount, leaf.high & XdkSim::lowBits(highCount));
  prefix.key.bitsIs(branchLen + highCount, lowCount, leaf.low & XdkSim::lowBits(lowCount));
  return prefix;
}

/// The route that the first `length` bits of a key name.
///
/// REQUIRES: `length` is 16 to the length of the family's keys.
inline RouteKey routeKeyOf(Family family, const XdkSim::LpmKey& key, U32 length) {
  const AddressBits bits{.high = key.words[0] << 16 | key.words[1] >> 48,
                         .low = key.words[1] << 16 | key.words[2] >> 48};
  return {.vrf = static_cast<U32>(key.words[0] >> 48),
          .prefix = RoutePrefix::of(family, bits, length - XdkSim::LpmKey::kVrfBits)};
}

}  // namespace Quarle::Agent
