#include <random>
#include <vector>

#include "engine/TarnletSm.h"
#include "tests/support/Key.h"
#include "tests/support/Seed.h"
#include "tests/support/Words.h"

#include <gtest/gtest.h>

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;

constexpr U32 kKeyBits = 144;

using Bits = std::vector<bool>;

SubTrieBranch branchOf(const Bits& bits) {
  SubTrieBranch branch;
  for (U32 i = 0; i < bits.size(); ++i) {
    if (bits[i]) {
      branch.u8Is(i / 8, static_cast<U8>(branch.u8(i / 8) | 0x80U >> i % 8));
    }
  }
  return branch;
}

std::string text(const SubTrieBranch& key, U32 len) {
  std::string out;
  for (U32 i = 0; i < len; ++i) {
    out += (key.u8(i / 8) >> (7 - i % 8) & 1) != 0 ? '1' : '0';
  }
  return out;
}

std::string text(const Bits& bits) {
  std::string out;
  for (const bool bit : bits) {
    out += bit ? '1' : '0';
  }
  return out;
}

struct Leaf {
  U64 low = 0;
  U64 high = 0;
};

/// The bits under a stop bit, the first of them highest.
Leaf leafOf(const Bits& bits) {
  Leaf leaf{.low = 1, .high = 0};
  for (const bool bit : bits) {
    leaf.high = leaf.high << 1 | leaf.low >> 63;
    leaf.low = leaf.low << 1 | (bit ? 1 : 0);
  }
  return leaf;
}

/// "length:words" of the combined key, in hexadecimal.
std::string combined(SubTrieBranch branch, U8 branchLen, U64 leafVal, U64 leafValHigh) {
  const U8 len = combineBranchAndLeaf(branch, branchLen, leafVal, leafValHigh);
  return Vellor::format("%u:%016llx %016llx %04x", unsigned{len},
                        static_cast<unsigned long long>(branch.u64(0)),
                        static_cast<unsigned long long>(branch.u64(1)), unsigned{branch.word4()})
      .str();
}

/// Compares one pair of lengths with the same, bit by bit.
void expectAsBitByBit(U32 branchLen, const Bits& branchBits, const Bits& leafBits) {
  Bits expected = branchBits;
  expected.insert(expected.end(), leafBits.begin(), leafBits.end());
  SubTrieBranch key = branchOf(branchBits);
  Leaf leaf = leafOf(leafBits);
  const U8 len = combineBranchAndLeaf(key, static_cast<U8>(branchLen), leaf.low, leaf.high);
  ASSERT_EQ(len, expected.size());
  ASSERT_EQ(text(key, len), text(expected));
  const bool leavesCopy = leafBits.size() == 64 && branchLen % 64 == 0;
  if (!leavesCopy) {
    expected.resize(kKeyBits);
    ASSERT_EQ(text(key, kKeyBits), text(expected));
  }
}

TEST(CombineBranchAndLeaf, everyPairOfLengthsIsAsBitByBit) {
  std::mt19937_64 random(testSeed());
  const auto bits = [&random](U32 count) {
    Bits out(count);
    for (U32 i = 0; i < count; ++i) {
      out[i] = (random() & 1) != 0;
    }
    return out;
  };
  for (U32 branchLen = 0; branchLen <= kKeyBits; ++branchLen) {
    for (U32 n = 0; n < 128 && branchLen + n <= kKeyBits; ++n) {
      SCOPED_TRACE("branch of " + std::to_string(branchLen) + ", leaf of " + std::to_string(n));
      for (int round = 0; round < 4; ++round) {
        ASSERT_NO_FATAL_FAILURE(expectAsBitByBit(branchLen, bits(branchLen), bits(n)));
      }
      ASSERT_NO_FATAL_FAILURE(expectAsBitByBit(branchLen, Bits(branchLen, true), Bits(n, true)));
      ASSERT_NO_FATAL_FAILURE(expectAsBitByBit(branchLen, Bits(branchLen), Bits(n)));
    }
  }
}

TEST(CombineBranchAndLeaf, aLeafOfOneAddsNoBits) {
  const SubTrieBranch branch(0x00010a01, 0x80000000, 0, 0, 0);
  EXPECT_EQ(combined(branch, 35, 1, 0), "35:00010a0180000000 0000000000000000 0000");
  EXPECT_EQ(combined(SubTrieBranch(), 0, 1, 0), "0:0000000000000000 0000000000000000 0000");
  const SubTrieBranch full(~0U, ~0U, ~0U, ~0U, 0xffff);
  EXPECT_EQ(combined(full, 144, 1, 0), "144:ffffffffffffffff ffffffffffffffff ffff");
}

TEST(CombineBranchAndLeaf, aLeafAcrossAWordLosesNoBits) {
  const SubTrieBranch branch(0x00002001, 0x0db80000, 0, 0, 0);
  // 8 bits, 1010 0101, behind 60.
  EXPECT_EQ(combined(branch, 60, 0x1a5, 0), "68:000020010db8000a 5000000000000000 0000");
  // 68 bits behind 60 fill two words; 84 reach into the third.
  EXPECT_EQ(combined(branch, 60, 0x123456789abcdef0, 0x1f),
            "128:000020010db8000f 123456789abcdef0 0000");
  EXPECT_EQ(combined(branch, 60, 0x123456789abcdef0, 0x1fedcb),
            "144:000020010db8000f edcb123456789abc def0");
}

TEST(CombineBranchAndLeaf, aWholeWordBehindAWholeWordLeavesACopyBehindTheKey) {
  EXPECT_EQ(combined(SubTrieBranch(), 0, 0x123456789abcdef0, 1),
            "64:123456789abcdef0 123456789abcdef0 0000");
  // Of the third word the key has 16 bits.
  EXPECT_EQ(combined(SubTrieBranch(0xffffffff, 0xfffffffe, 0, 0, 0), 64, 0x123456789abcdef0, 1),
            "128:fffffffffffffffe 123456789abcdef0 1234");
}

TEST(CombineBranchAndLeaf, theStopBitAloneIsTakenOut) {
  EXPECT_EQ(combined(SubTrieBranch(), 0, 0, U64{1} << 63),
            "127:0000000000000000 0000000000000000 0000");
  EXPECT_EQ(combined(SubTrieBranch(), 0, U64{1} << 63, 0),
            "63:0000000000000000 0000000000000000 0000");
  EXPECT_EQ(combined(SubTrieBranch(), 0, ~U64{0}, ~U64{0}),
            "127:ffffffffffffffff fffffffffffffffe 0000");
}

TEST(CombineBranchAndLeaf, theLeafIsUsedUp) {
  SubTrieBranch branch;
  U64 low = 0x1a5;
  U64 high = 0;
  EXPECT_EQ(combineBranchAndLeaf(branch, 0, low, high), 8U);
  EXPECT_EQ(low, U64{0xa5} << 56);
  EXPECT_EQ(high, 0U);
}

TEST(CombineBranchAndLeaf, aKeyThatNeedsAFourthWordRaises) {
  const auto combine = [](U8 branchLen, U64 leafVal, U64 leafValHigh) {
    SubTrieBranch branch;
    return combineBranchAndLeaf(branch, branchLen, leafVal, leafValHigh);
  };
  EXPECT_THROW(combine(128, 0, 1), Vellor::RangeException);
  EXPECT_THROW(combine(192, 1, 0), Vellor::RangeException);
  EXPECT_THROW(combine(255, 2, 0), Vellor::RangeException);
  EXPECT_THROW(combine(190, 8, 0), Vellor::RangeException);
  EXPECT_THROW(combine(100, 0, U64{1} << 63), Vellor::RangeException);
}

TEST(CombineBranchAndLeaf, aKeyBehindTheLastBitIsCutAndTellsItsLength) {
  // What a damaged row can spell: 8 bits behind 140.
  EXPECT_EQ(combined(SubTrieBranch(), 140, 0x1ff, 0), "148:0000000000000000 0000000000000000 000f");
}

TEST(CombineBranchAndLeaf, everyBranchAndLeafEndsWithoutUndefinedBehaviour) {
  U32 raised = 0;
  for (U32 branchLen = 0; branchLen < 256; ++branchLen) {
    for (U32 n = 0; n < 128; ++n) {
      SubTrieBranch branch;
      Leaf leaf = leafOf(Bits(n, true));
      try {
        EXPECT_EQ(combineBranchAndLeaf(branch, static_cast<U8>(branchLen), leaf.low, leaf.high),
                  static_cast<U8>(branchLen + n));
      } catch (const Vellor::RangeException&) {
        ++raised;
        EXPECT_GT(branchLen + n, kKeyBits);
      }
    }
  }
  EXPECT_GT(raised, 0U);
}

TEST(CombineBranchAndLeafDeathTest, anEmptyLeafIsFatal) {
  SubTrieBranch branch;
  U64 low = 0;
  U64 high = 0;
  EXPECT_DEATH(combineBranchAndLeaf(branch, 35, low, high), assertion("leafVal || leafValHigh"));
}

}  // namespace
