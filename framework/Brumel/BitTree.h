#pragma once

#include <array>
#include <bit>
#include <vector>

#include "framework/Vellor/Types.h"

namespace Brumel::BFA {

/// An ordered set of the numbers below a fixed bound: a bitmap with a bitmap of its non-zero words
/// above it, and so on up to a single word. Every operation touches at most one word of each level,
/// three levels for 262,144 numbers.
///
/// Invariant 1: bit i of a level above the lowest is set exactly when word i of the level below is
/// not zero.
class BitTree {
 public:
  /// No member: the result of a search that finds nothing.
  static constexpr U32 kNone = ~U32{0};

  /// An empty set of numbers below `bound`.
  explicit BitTree(U32 bound) {
    U32 total = 0;
    U32 bits = bound;
    do {
      const U32 words = bits / kWordBits + (bits % kWordBits != 0);
      levels_[levelCount_] = {total, words};
      ++levelCount_;
      total += words;
      bits = words;
    } while (bits > 1);
    words_.resize(total);
  }

  /// REQUIRES: `number` is below the bound.
  void insert(U32 number) {
    for (U32 k = 0; k < levelCount_; ++k) {
      U64& word = wordOf(k, number);
      const bool wasEmpty = word == 0;
      word |= bitOf(number);
      if (!wasEmpty) {
        return;
      }
      number /= kWordBits;
    }
  }

  /// REQUIRES: `number` is below the bound.
  void erase(U32 number) {
    for (U32 k = 0; k < levelCount_; ++k) {
      U64& word = wordOf(k, number);
      word &= ~bitOf(number);
      if (word != 0) {
        return;
      }
      number /= kWordBits;
    }
  }

  bool empty() const { return words_.empty() || words_.back() == 0; }

  /// The lowest member.
  /// REQUIRES: the set is not empty.
  U32 lowest() const { return lowestBelow(levelCount_, 0); }

  /// The lowest member not below `number`, or kNone.
  U32 lowestAtLeast(U32 number) const {
    for (U32 k = 0; k < levelCount_ && number / kWordBits < levels_[k].words; ++k) {
      const U64 word = wordOf(k, number) & (~U64{0} << (number % kWordBits));
      if (word != 0) {
        return lowestBelow(k, number / kWordBits * kWordBits + lowestBit(word));
      }
      number = number / kWordBits + 1;
    }
    return kNone;
  }

  /// The highest member not above `number`, or kNone.
  /// REQUIRES: `number` is below the bound.
  U32 highestAtMost(U32 number) const {
    for (U32 k = 0; k < levelCount_; ++k) {
      const U64 word = wordOf(k, number) & (~U64{0} >> (kWordBits - 1 - number % kWordBits));
      if (word != 0) {
        return highestBelow(k, number / kWordBits * kWordBits + highestBit(word));
      }
      if (number < kWordBits) {
        return kNone;
      }
      number = number / kWordBits - 1;
    }
    return kNone;
  }

 private:
  static constexpr U32 kWordBits = 64;
  /// Six levels of 6 bits reach over all of U32.
  static constexpr U32 kMaxLevels = 6;

  struct Level {
    U32 begin;
    U32 words;
  };

  static U64 bitOf(U32 number) { return U64{1} << (number % kWordBits); }

  static U32 lowestBit(U64 word) { return static_cast<U32>(std::countr_zero(word)); }

  static U32 highestBit(U64 word) {
    return kWordBits - 1 - static_cast<U32>(std::countl_zero(word));
  }

  U64& wordOf(U32 k, U32 number) { return words_[levels_[k].begin + number / kWordBits]; }

  const U64& wordOf(U32 k, U32 number) const {
    return words_[levels_[k].begin + number / kWordBits];
  }

  /// The lowest member that bit `number` of level `k` stands for.
  U32 lowestBelow(U32 k, U32 number) const {
    while (k > 0) {
      --k;
      number = number * kWordBits + lowestBit(words_[levels_[k].begin + number]);
    }
    return number;
  }

  U32 highestBelow(U32 k, U32 number) const {
    while (k > 0) {
      --k;
      number = number * kWordBits + highestBit(words_[levels_[k].begin + number]);
    }
    return number;
  }

  std::array<Level, kMaxLevels> levels_{};
  U32 levelCount_ = 0;
  std::vector<U64> words_;
};

}  // namespace Brumel::BFA
