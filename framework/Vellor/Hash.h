#pragma once

#include <cstdint>
#include <type_traits>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Bit 0 goes to bit 31, bit 31 to bit 0.
constexpr U32 bitReverse(U32 x) {
  x = (x >> 1 & 0x55555555U) | (x & 0x55555555U) << 1;
  x = (x >> 2 & 0x33333333U) | (x & 0x33333333U) << 2;
  x = (x >> 4 & 0x0f0f0f0fU) | (x & 0x0f0f0f0fU) << 4;
  return __builtin_bswap32(x);
}

/// Mixed into every address hash. Nothing may depend on the order of a pointer-keyed map; tests set
/// other seeds to prove it. Set it before the first such map has a member.
VELLOR_API extern U64 addressHashSeed;

/// 32-bit hash of an object's address; 0 for null. The multiplication spreads the pool's regular
/// strides over the top bits, which are the ones that choose the bucket.
inline U32 vellorHashU32(const void* address) {
  if (address == nullptr) {
    return 0;
  }
  const U64 mixed = reinterpret_cast<std::uintptr_t>(address) ^ addressHashSeed;
  return static_cast<U32>(mixed * 0x9e3779b97f4a7c15U >> 32);
}

/// Thomas Wang's 32-bit integer mix.
constexpr U32 integerHash(U32 x) {
  x = x * 32767U - 1U;
  x ^= x >> 12;
  x *= 5U;
  x ^= x >> 4;
  x *= 2057U;
  x ^= x >> 16;
  return x;
}

/// Bob Jenkins' one-at-a-time hash, byte by byte.
class OneAtATimeHash {
 public:
  constexpr void addByte(U8 byte) {
    h_ += byte;
    h_ += h_ << 10;
    h_ ^= h_ >> 6;
  }

  /// Four bytes, least significant first.
  constexpr void addU32(U32 word) {
    addByte(static_cast<U8>(word));
    addByte(static_cast<U8>(word >> 8));
    addByte(static_cast<U8>(word >> 16));
    addByte(static_cast<U8>(word >> 24));
  }

  constexpr U32 finish() const {
    U32 h = h_;
    h += h << 3;
    h ^= h >> 11;
    h += h << 15;
    return h;
  }

 private:
  U32 h_ = 0;
};

/// The hash that places a key in a HashMap: the address hash for pointers, the reversed hash for
/// all others, so that a walk over small integers visits them in bit-reversed order.
template <class Key>
U32 placementHash(const Key& key) {
  if constexpr (isPtr<Key>) {
    return vellorHashU32(key.get());
  } else if constexpr (std::is_integral_v<Key> || std::is_enum_v<Key>) {
    return bitReverse(static_cast<U32>(key));
  } else {
    return bitReverse(key.hash());
  }
}

}  // namespace Vellor
