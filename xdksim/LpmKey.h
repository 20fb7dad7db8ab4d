#pragma once

#include <array>

#include "framework/Vellor/Types.h"

namespace XdkSim {

/// Bits of a word below bit `count` (0 to 64).
constexpr U64 lowBits(U32 count) { return count >= 64 ? ~U64{0} : (U64{1} << count) - 1; }

/// A key as the chip compares it: 16 VRF bits, then the address, left aligned in 144 bits, zeros
/// behind. The top bit of the first word is key bit 0; of the last word only the top 16 bits count.
struct LpmKey {
  static constexpr U32 kBits = 144;
  static constexpr U32 kBytes = kBits / 8;
  static constexpr U32 kVrfBits = 16;

  std::array<U64, 3> words{};

  bool operator==(const LpmKey&) const = default;

  /// The key of an address of `addressBytes` bytes in network order.
  static constexpr LpmKey of(U16 vrf, const U8* address, U32 addressBytes) {
    LpmKey key;
    key.byteIs(0, static_cast<U8>(vrf >> 8));
    key.byteIs(1, static_cast<U8>(vrf));
    for (U32 i = 0; i < addressBytes; ++i) {
      key.byteIs(i + 2, address[i]);
    }
    return key;
  }

  /// The key whose 18 bytes stand at `bytes`, the first key bits first.
  static constexpr LpmKey fromBytes(const U8* bytes) {
    LpmKey key;
    for (U32 i = 0; i < kBytes; ++i) {
      key.byteIs(i, bytes[i]);
    }
    return key;
  }

  constexpr U8 byte(U32 index) const {
    return static_cast<U8>(words[index / 8] >> (56 - index % 8 * 8));
  }

  constexpr void byteIs(U32 index, U8 value) {
    const U32 shift = 56 - index % 8 * 8;
    words[index / 8] = (words[index / 8] & ~(U64{0xff} << shift)) | U64{value} << shift;
  }

  /// Key bits `first` to `first + count - 1`, right aligned.
  ///
  /// REQUIRES: `count` <= 64, `first + count` <= 144.
  constexpr U64 bits(U32 first, U32 count) const {
    if (count == 0) {
      return 0;
    }
    const U32 offset = first % 64;
    U64 value = words[first / 64] << offset;
    if (offset + count > 64) {
      value |= words[first / 64 + 1] >> (64 - offset);
    }
    return value >> (64 - count);
  }

  /// Puts the low `count` bits of `value` at key bits `first` and on.
  ///
  /// REQUIRES: `count` <= 64, `first + count` <= 144.
  constexpr void bitsIs(U32 first, U32 count, U64 value) {
    if (count == 0) {
      return;
    }
    // The analyzer does not see what callers know of `count`.
    // NOLINTBEGIN(clang-analyzer-core.UndefinedBinaryOperatorResult)
    const U64 aligned = value << (64 - count);
    const U64 mask = lowBits(count) << (64 - count);
    const U32 offset = first % 64;
    U64& word = words[first / 64];
    word = (word & ~(mask >> offset)) | aligned >> offset;
    if (offset + count > 64) {
      U64& next = words[first / 64 + 1];
      next = (next & ~(mask << (64 - offset))) | aligned << (64 - offset);
    }
    // NOLINTEND(clang-analyzer-core.UndefinedBinaryOperatorResult)
  }

  /// This key's first `length` bits, zeros behind.
  constexpr LpmKey prefix(U32 length) const {
    LpmKey key;
    for (U32 i = 0; i < words.size() && length > i * 64; ++i) {
      key.words[i] = length - i * 64 >= 64 ? words[i] : words[i] & ~lowBits(64 - (length - i * 64));
    }
    return key;
  }
};

}  // namespace XdkSim
