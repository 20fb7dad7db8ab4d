#include "xdksim/NhiRow.h"

#include <array>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/Random.h"

namespace XdkSim {
namespace {

using RowWords = std::array<U64, 2>;

NhiLayout layoutOf(U32 pairs, U32 baseWidth) {
  NhiProfile profile;
  profile.pairsPerEntry = pairs;
  profile.blockBaseWidth = baseWidth;
  return NhiLayout(profile);
}

/// "" when `pair` fits in pair `index`, else why not; in that case the row must be untouched.
std::string refusal(const NhiLayout& layout, U32 index, NhiPair pair) {
  xpLpmNhiEntry entry;
  entry.base[index] = pair.base;
  entry.size[index] = pair.size;
  RowWords words{0x5555, 0x5555};
  std::string error;
  if (layout.pack(entry, words.data(), error) != XP_NO_ERR) {
    EXPECT_EQ(words, (RowWords{0x5555, 0x5555}));
  }
  return error;
}

struct Shape {
  U32 pairs;
  U32 pairWidth;
};

std::ostream& operator<<(std::ostream& out, const Shape& shape) {
  return out << shape.pairs << "PairsOf" << shape.pairWidth;
}

class NhiRowOf : public testing::TestWithParam<Shape> {};

TEST_P(NhiRowOf, givesBackWhatWasPackedForEveryBaseWidth) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 baseWidth = 1; baseWidth <= GetParam().pairWidth; ++baseWidth) {
    const NhiLayout layout = layoutOf(GetParam().pairs, baseWidth);
    ASSERT_EQ(layout.sizeWidth(), GetParam().pairWidth - baseWidth);
    for (int round = 0; round < 100; ++round) {
      xpLpmNhiEntry entry;
      for (U32 i = 0; i < GetParam().pairs; ++i) {
        NhiPair pair{.base = static_cast<U32>(random.word() & lowBits(baseWidth)),
                     .size = static_cast<U32>(random.word() & lowBits(layout.sizeWidth()))};
        if (random.oneIn(5) ||
            (pair.base == lowBits(baseWidth) && pair.size == lowBits(layout.sizeWidth()))) {
          pair = NhiPair();
        }
        entry.base[i] = pair.base;
        entry.size[i] = pair.size;
      }
      RowWords words{~U64{0}, ~U64{0}};
      std::string error;
      ASSERT_EQ(layout.pack(entry, words.data(), error), XP_NO_ERR) << error;
      const xpLpmNhiEntry back = layout.unpack(words.data());
      for (U32 i = 0; i < xpLpmNhiEntry::kPairs; ++i) {
        ASSERT_EQ(U32{back.base[i]}, U32{entry.base[i]}) << "width " << baseWidth << " pair " << i;
        ASSERT_EQ(U32{back.size[i]}, U32{entry.size[i]}) << "width " << baseWidth << " pair " << i;
      }
    }
  }
}

TEST_P(NhiRowOf, eachPairHasItsOwnBits) {
  const NhiLayout layout = layoutOf(GetParam().pairs, 1);
  U64 low = 0;
  U64 high = 0;
  for (U32 i = 0; i < GetParam().pairs; ++i) {
    xpLpmNhiEntry entry;
    entry.base[i] = NhiPair::kNullBase;
    entry.size[i] = NhiPair::kNullSize;
    RowWords words{};
    std::string error;
    ASSERT_EQ(layout.pack(entry, words.data(), error), XP_NO_ERR) << error;
    EXPECT_EQ(std::popcount(words[0]) + std::popcount(words[1]),
              static_cast<int>(GetParam().pairWidth));
    EXPECT_EQ((low & words[0]) | (high & words[1]), 0U) << "pair " << i;
    low |= words[0];
    high |= words[1];
  }
}

INSTANTIATE_TEST_SUITE_P(NhiRow,
                         NhiRowOf,
                         testing::Values(Shape{6, 21}, Shape{7, 18}, Shape{8, 16}, Shape{10, 12}),
                         testing::PrintToStringParamName());

TEST(NhiRow, pairsThatDoNotFitAreRefused) {
  const NhiLayout layout = layoutOf(6, 16);
  EXPECT_EQ(refusal(layout, 0, {.base = 65535, .size = 30}), "");
  EXPECT_EQ(refusal(layout, 0, {.base = 65534, .size = 31}), "");
  EXPECT_EQ(refusal(layout, 0, {.base = 65536, .size = 1}),
            "pair 0 has base 65536, expected at most 65535");
  EXPECT_EQ(refusal(layout, 5, {.base = 7, .size = 32}), "pair 5 has size 32, expected at most 31");
  EXPECT_EQ(refusal(layout, 6, {.base = 7, .size = 1}),
            "pair 6 is in use, expected no more than 6 pairs");
}

TEST(NhiRow, noNextHopFitsEveryPairAndBehindThem) {
  const NhiLayout layout = layoutOf(8, 16);
  for (U32 i = 0; i < xpLpmNhiEntry::kPairs; ++i) {
    EXPECT_EQ(refusal(layout, i, NhiPair()), "");
  }
  // Half of the null pair is no null pair.
  EXPECT_EQ(refusal(layout, 1, {.base = NhiPair::kNullBase, .size = 0}),
            "pair 1 has base 4294967295, expected at most 65535");
  EXPECT_EQ(refusal(layout, 1, {.base = 4, .size = NhiPair::kNullSize}),
            "pair 1 has size 65535, expected at most 0");
}

TEST(NhiRow, theBitsOfNoNextHopCannotBeHadOtherwise) {
  EXPECT_EQ(refusal(layoutOf(6, 16), 2, {.base = 65535, .size = 31}),
            "pair 2 has base 65535 and size 31, expected anything but all bits set, which is no "
            "next hop");
}

TEST(NhiRow, unwrittenRowReadsAsZeros) {
  const RowWords words{};
  const xpLpmNhiEntry entry = layoutOf(10, 12).unpack(words.data());
  for (U32 i = 0; i < xpLpmNhiEntry::kPairs; ++i) {
    EXPECT_EQ(U32{entry.base[i]}, 0U);
    EXPECT_EQ(U32{entry.size[i]}, 0U);
  }
}

}  // namespace
}  // namespace XdkSim
