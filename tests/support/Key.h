#pragma once

#include <array>
#include <compare>
#include <string>

#include "model/Tarnlet.h"

namespace Quarle::Tarnlet::Testing {

/// The first `len` bits of what the chip compares: 16 VRF bits and an address, the most significant
/// first. Spelled out byte by byte, since the tests hold the library's own key arithmetic against
/// it.
///
/// Invariant 1: bits behind `len` are clear.
struct Key {
  bool longKey = false;
  U8 len = 0;
  std::array<U8, 18> bytes{};

  static constexpr U8 kVrf = 16;

  U8 fullLength() const { return longKey ? 144 : 48; }

  bool bit(U32 index) const { return (bytes[index / 8] >> (7 - index % 8) & 1) != 0; }

  void bitIs(U32 index, bool on);

  /// The first `length` bits, with clear bits where there are fewer.
  Key cut(U8 length) const;

  bool beginsWith(const Key& branch) const;

  /// The first or last full-length key that begins with this one.
  Key lowest() const;
  Key highest() const;

  friend bool operator==(const Key&, const Key&) = default;
  friend std::strong_ordering operator<=>(const Key&, const Key&) = default;
};

Key keyOf(const LpmPrefix& prefix);

/// The first `len` bits of a branch.
Key keyOf(const SubTrieBranch& branch, U8 len, bool longKey);

/// "10.1.0.0/24", "2001:db8::/32", in VRF 7 "7|10.1.0.0/24" and "7|2001:db8::/32". An address alone
/// is a full-length key. Raises Vellor::RangeException for any other text.
Key keyFrom(const std::string& text, bool longKey);

/// As keyFrom() reads it; of a key that ends in the VRF, "vrf bits 0x0003/12".
std::string textOf(const Key& key);

}  // namespace Quarle::Tarnlet::Testing
