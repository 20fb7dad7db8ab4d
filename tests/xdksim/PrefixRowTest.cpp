#include "xdksim/PrefixRow.h"

#include <array>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/Random.h"

namespace XdkSim {
namespace {

using RowWords = std::array<U64, 4>;

std::string hex(const xpLpmPrefixEntry& entry) {
  std::array<U8, sizeof entry> bytes;
  std::memcpy(bytes.data(), &entry, sizeof entry);
  std::string text;
  for (const U8 byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

/// A record in which every field that a row of `width` bits has room for is random.
xpLpmPrefixEntry randomEntry(Random& random, U32 width) {
  const U32 usable = width - kHeaderBits;
  xpLpmPrefixEntry entry;
  entry.keySize = random.between(0, 3);
  entry.mode = random.between(0, 3);
  entry.stride = random.between(1, std::min(128U, usable));
  entry.branchLen = random.between(0, std::min(144U, usable - entry.stride));
  entry.nhiTile = random.between(0, 63);
  entry.nhiOffset = random.between(0, 16383);
  for (U32 bit = 0; bit < entry.branchLen; ++bit) {
    entry.branch[bit / 8] |= static_cast<U8>(random.between(0, 1) << bit % 8);
  }
  const U32 slots = std::min((usable - entry.branchLen) / entry.stride, 36U);
  for (U32 slot = 0; slot < slots; ++slot) {
    if (random.oneIn(4)) {
      continue;
    }
    entry.leafVal[slot] = random.word() & lowBits(entry.stride);
    entry.leafValHigh[slot] =
        entry.stride > 64 ? random.word() & lowBits(entry.stride - 64) : U64{0};
  }
  return entry;
}

/// "" when `entry` fits a row of `width` bits, else why not; in that case the row must be
/// untouched.
std::string refusal(const xpLpmPrefixEntry& entry, U32 width) {
  RowWords words;
  words.fill(0x5555555555555555);
  const RowWords before = words;
  std::string error;
  const XP_STATUS status = packPrefixRow(entry, width, words.data(), error);
  EXPECT_EQ(status == XP_NO_ERR, error.empty());
  if (status != XP_NO_ERR) {
    EXPECT_EQ(status, XP_ERR_FIELD_TOO_WIDE);
    EXPECT_EQ(words, before);
  }
  return error;
}

xpLpmPrefixEntry smallEntry() {
  xpLpmPrefixEntry entry;
  entry.mode = kSparseModeCode;
  entry.branchLen = 35;
  entry.stride = 10;
  return entry;
}

class PrefixRowOfWidth : public testing::TestWithParam<U32> {};

TEST_P(PrefixRowOfWidth, givesBackWhatWasPacked) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (int round = 0; round < 3000; ++round) {
    const xpLpmPrefixEntry entry = randomEntry(random, GetParam());
    RowWords words;
    words.fill(~U64{0});
    std::string error;
    ASSERT_EQ(packPrefixRow(entry, GetParam(), words.data(), error), XP_NO_ERR) << error;
    const xpLpmPrefixEntry back = unpackPrefixRow(PrefixRow(words.data(), GetParam()));
    ASSERT_EQ(hex(back), hex(entry));
  }
}

TEST_P(PrefixRowOfWidth, leavesTheRowBehindAlone) {
  Random random;
  SCOPED_TRACE(random.seedText());
  RowWords words;
  words.fill(~U64{0});
  std::string error;
  ASSERT_EQ(packPrefixRow(randomEntry(random, GetParam()), GetParam(), words.data(), error),
            XP_NO_ERR);
  for (U32 word = GetParam() / 64; word < words.size(); ++word) {
    EXPECT_EQ(words[word], ~U64{0});
  }
}

TEST_P(PrefixRowOfWidth, anyBitsReadAsSomeRecord) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (int round = 0; round < 3000; ++round) {
    RowWords words;
    for (U64& word : words) {
      word = random.word();
    }
    const PrefixRow row(words.data(), GetParam());
    const xpLpmPrefixEntry entry = unpackPrefixRow(row);
    ASSERT_EQ(entry.branchLen, words[0] >> 4 & 0xff);
    ASSERT_EQ(entry.stride, words[0] >> 12 & 0xff);
    ASSERT_EQ(entry.nhiTile, words[0] >> 20 & 0x3f);
    ASSERT_EQ(entry.nhiOffset, words[0] >> 26 & 0x3fff);
    ASSERT_LE(kHeaderBits + row.branchLen() + row.slots() * row.stride(),
              std::max(GetParam(), kHeaderBits + row.branchLen()));
    for (U32 slot = row.slots(); slot < xpLpmPrefixEntry::kLeaves; ++slot) {
      ASSERT_EQ(entry.leafVal[slot] | entry.leafValHigh[slot], 0U) << "slot " << slot;
    }
  }
}

TEST_P(PrefixRowOfWidth, aBranchMayFillTheRowUpToOneLeaf) {
  xpLpmPrefixEntry entry = smallEntry();
  const U32 usable = GetParam() - kHeaderBits;
  entry.branchLen = std::min(144U, usable - 8);
  entry.stride = usable - entry.branchLen;
  entry.leafVal[0] = 1;
  EXPECT_EQ(refusal(entry, GetParam()), "");
  entry.leafVal[1] = 1;
  EXPECT_EQ(refusal(entry, GetParam()), "leaf in slot 1, expected 1 slots with branch length " +
                                            std::to_string(entry.branchLen) + " and stride " +
                                            std::to_string(entry.stride));
}

INSTANTIATE_TEST_SUITE_P(PrefixRow,
                         PrefixRowOfWidth,
                         testing::Values(128U, 256U),
                         testing::PrintToStringParamName());

TEST(PrefixRow, layoutOfTheHeaderAndTheFieldsBehindIt) {
  xpLpmPrefixEntry entry;
  entry.keySize = 2;
  entry.mode = 1;
  entry.branchLen = 12;
  entry.stride = 8;
  entry.nhiTile = 5;
  entry.nhiOffset = 0x2001;
  entry.branch[0] = 0xbc;
  entry.branch[1] = 0x0a;
  entry.leafVal[0] = 0x11;
  entry.leafVal[1] = 0x22;
  RowWords words{};
  std::string error;
  ASSERT_EQ(packPrefixRow(entry, 128, words.data(), error), XP_NO_ERR) << error;
  // The second leaf begins at bit 60: half of it is in the first word, half in the second.
  EXPECT_EQ(words[0], U64{0x2} << 60 | U64{0x11} << 52 | U64{0xabc} << 40 | U64{0x2001} << 26 |
                          5U << 20 | 8U << 12 | 12U << 4 | 1U << 2 | 2U);
  EXPECT_EQ(words[1], 0x2U);
}

TEST(PrefixRow, aFieldThatDoesNotFitIsRefused) {
  struct Case {
    U32 width;
    void (*spoil)(xpLpmPrefixEntry&);
    const char* error;
  };

  const Case cases[] = {
      {256, [](xpLpmPrefixEntry& e) { e.keySize = 4; }, "key size code 4, expected at most 3"},
      {256, [](xpLpmPrefixEntry& e) { e.mode = 4; }, "mode code 4, expected at most 3"},
      {256, [](xpLpmPrefixEntry& e) { e.branchLen = 256; },
       "branch length 256, expected at most 255"},
      {256, [](xpLpmPrefixEntry& e) { e.stride = 256; }, "stride 256, expected at most 255"},
      {256, [](xpLpmPrefixEntry& e) { e.stride = 129; }, "stride 129, expected at most 128"},
      {256, [](xpLpmPrefixEntry& e) { e.nhiTile = 64; }, "NHI tile 64, expected at most 63"},
      {256, [](xpLpmPrefixEntry& e) { e.nhiTile = 255; }, "NHI tile 255, expected at most 63"},
      {256, [](xpLpmPrefixEntry& e) { e.nhiOffset = 16384; },
       "NHI offset 16384, expected at most 16383"},
      {256, [](xpLpmPrefixEntry& e) { e.branchLen = 207; },
       "branch length 207 + stride 10, expected at most 216 bits in a row of 256"},
      {128, [](xpLpmPrefixEntry& e) { e.branchLen = 79; },
       "branch length 79 + stride 10, expected at most 88 bits in a row of 128"},
      {256, [](xpLpmPrefixEntry& e) { e.branch[4] = 8; },
       "branch has bits above bit 35, expected no more than its length"},
      {256, [](xpLpmPrefixEntry& e) { e.branch[27] = 128; },
       "branch has bits above bit 35, expected no more than its length"},
      {256, [](xpLpmPrefixEntry& e) { e.leafVal[3] = 1024; },
       "leaf of 11 bits in slot 3, expected at most the stride of 10"},
      {256, [](xpLpmPrefixEntry& e) { e.leafValHigh[0] = 1; },
       "leaf of 65 bits in slot 0, expected at most the stride of 10"},
      {256, [](xpLpmPrefixEntry& e) { e.leafVal[18] = 1; },
       "leaf in slot 18, expected 18 slots with branch length 35 and stride 10"},
      {128, [](xpLpmPrefixEntry& e) { e.leafVal[5] = 1; },
       "leaf in slot 5, expected 5 slots with branch length 35 and stride 10"},
      {256,
       [](xpLpmPrefixEntry& e) {
         e.stride = 0;
         e.leafVal[0] = 1;
       },
       "leaf in slot 0, expected 0 slots with branch length 35 and stride 0"},
  };
  for (const Case& one : cases) {
    xpLpmPrefixEntry entry = smallEntry();
    ASSERT_EQ(refusal(entry, one.width), "");
    one.spoil(entry);
    EXPECT_EQ(refusal(entry, one.width), one.error);
  }
}

TEST(PrefixRow, theHighestValuesOfEveryFieldFit) {
  xpLpmPrefixEntry entry = smallEntry();
  entry.keySize = 3;
  entry.mode = 3;
  entry.nhiTile = 63;
  entry.nhiOffset = 16383;
  entry.branch[0] = entry.branch[1] = entry.branch[2] = entry.branch[3] = 255;
  entry.branch[4] = 7;
  entry.leafVal[0] = entry.leafVal[17] = 1023;
  EXPECT_EQ(refusal(entry, 256), "");
  entry.leafVal[17] = 0;
  entry.leafVal[4] = 1023;
  EXPECT_EQ(refusal(entry, 128), "");
}

TEST(PrefixRow, ofADamagedStrideOnlyTheLow128BitsOfALeafAreRead) {
  // Branch length 24 and stride 192: one leaf, which fills the last three words.
  const RowWords words{U64{192} << 12 | 24U << 4, 0x11, 0x22, 0x44};
  const PrefixRow row(words.data(), 256);
  ASSERT_EQ(row.slots(), 1U);
  EXPECT_EQ(row.leaf(0).low, 0x11U);
  EXPECT_EQ(row.leaf(0).high, 0x22U);
}

TEST(PrefixRow, rowOfZerosIsEmptyAndReadsAsZeros) {
  const RowWords words{};
  const PrefixRow row(words.data(), 256);
  EXPECT_TRUE(row.empty());
  EXPECT_EQ(row.slots(), 0U);
  EXPECT_EQ(hex(unpackPrefixRow(row)), hex(xpLpmPrefixEntry()));
}

}  // namespace
}  // namespace XdkSim
