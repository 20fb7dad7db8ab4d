#pragma once

#include <array>

#include "framework/Vellor/Types.h"

namespace Quarle::Testing {

/// The 18 bytes of a key of which only the first `tread` bits count, first byte first.
using KeyBytes = std::array<U8, 18>;

inline KeyBytes cutTo(U32 tread, KeyBytes key) {
  for (U32 bit = tread; bit < key.size() * 8; ++bit) {
    key[bit / 8] = static_cast<U8>(key[bit / 8] & ~(0x80U >> bit % 8));
  }
  return key;
}

inline KeyBytes keyOf(U16 vrf, U32 address) {
  KeyBytes key{};
  for (U32 i = 0; i < 2; ++i) {
    key[i] = static_cast<U8>(vrf >> (8 - 8 * i));
  }
  for (U32 i = 0; i < 4; ++i) {
    key[2 + i] = static_cast<U8>(address >> (24 - 8 * i));
  }
  return key;
}

/// The chip's hash, bit by bit: the key from its last byte to its first, the top bit of each byte
/// first, the remainder by `poly` (with its top bit) cut to `hashBits` bits.
inline U32 bitwiseCrcRow(const KeyBytes& key, U32 poly, U32 hashBits) {
  U32 remainder = 0;
  for (auto byte = key.rbegin(); byte != key.rend(); ++byte) {
    for (int bit = 7; bit >= 0; --bit) {
      const U32 top = (remainder >> 15 & 1U) ^ (*byte >> bit & 1U);
      remainder = remainder << 1 & 0xffffU;
      if (top != 0) {
        remainder ^= poly & 0xffffU;
      }
    }
  }
  return remainder & ((U32{1} << hashBits) - 1);
}

}  // namespace Quarle::Testing
