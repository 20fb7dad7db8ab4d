#include "xdksim/Damage.h"

#include <algorithm>
#include <array>
#include <bit>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/xdksim/PrintRowPlace.h"
#include "tests/xdksim/SmallProfile.h"

namespace XdkSim {
namespace {

constexpr RowPlace kPrefixRow{
    .kind = RowKind::prefix, .family = Family::ipv4, .table = 1, .row = 3};
constexpr RowPlace kNhiRow{.kind = RowKind::nhi, .family = Family::ipv6, .table = 1, .row = 9};
constexpr RowPlace kNextHopRow{
    .kind = RowKind::nextHop, .family = Family::ipv4, .table = 0, .row = 5};

xpLpmPrefixEntry entryWith(U64 leaf) {
  xpLpmPrefixEntry entry;
  entry.mode = 1;
  entry.branchLen = 24;
  entry.stride = 64;
  entry.branch[0] = static_cast<U8>(leaf);
  for (U32 slot = 0; slot < 3; ++slot) {
    entry.leafVal[slot] = leaf;
  }
  return entry;
}

class ChipDamage : public testing::Test {
 protected:
  void SetUp() override {
    xpLpmNhiEntry nhi;
    nhi.base[0] = 7;
    ASSERT_EQ(chip_.writePrefixRow(Family::ipv4, 1, 3, entryWith(0x11)), XP_NO_ERR);
    ASSERT_EQ(chip_.writeNhiRow(Family::ipv6, 1, 9, nhi), XP_NO_ERR);
    ASSERT_EQ(chip_.writeNextHopRow(5, {.valid = 1, .way = 0, .nextHopId = 0}), XP_NO_ERR);
  }

  std::vector<U64> words() const {
    const std::span<const U64> all = chip_.memory().words();
    return {all.begin(), all.end()};
  }

  /// Bits by which the memory differs from `before`.
  U32 bitsChangedSince(const std::vector<U64>& before) const {
    const std::vector<U64> now = words();
    U32 bits = 0;
    for (std::size_t i = 0; i < now.size(); ++i) {
      bits += static_cast<U32>(std::popcount(now[i] ^ before[i]));
    }
    return bits;
  }

  Chip chip_{smallProfile()};
};

TEST_F(ChipDamage, rowsWithAnyBitSetAreUsed) {
  EXPECT_EQ(usedRows(chip_), (std::vector<RowPlace>{kPrefixRow, kNhiRow, kNextHopRow}));
  EXPECT_EQ(usedRows(chip_, RowKind::prefix, Family::ipv4), std::vector<RowPlace>{kPrefixRow});
  EXPECT_EQ(usedRows(chip_, RowKind::prefix, Family::ipv6), std::vector<RowPlace>());
  EXPECT_EQ(usedRows(chip_, RowKind::nhi, Family::ipv6), std::vector<RowPlace>{kNhiRow});
}

TEST_F(ChipDamage, rowsOfTheLayoutAreAllThereAndFillTheMemory) {
  const ChipLayout& layout = chip_.memory().layout();
  std::size_t next = 0;
  for (const RowPlace& place : layout.rows()) {
    ASSERT_TRUE(layout.has(place)) << toText(place);
    ASSERT_EQ(layout.wordsOf(place).first, next) << toText(place);
    next += layout.wordsOf(place).count;
  }
  EXPECT_EQ(next, chip_.memory().words().size());
  for (RowPlace place : {kPrefixRow, kNhiRow, kNextHopRow}) {
    place.row = 128;
    EXPECT_FALSE(layout.has(place)) << toText(place);
  }
  for (RowPlace place : {kPrefixRow, kNhiRow}) {
    place.table = 6;
    EXPECT_FALSE(layout.has(place)) << toText(place);
  }
}

TEST_F(ChipDamage, aFlippedBitShowsInTheRecord) {
  const std::vector<U64> before = words();
  // The lowest bit of the branch, which the header of 40 bits precedes.
  flipBit(chip_, {.place = kPrefixRow, .bit = 40});
  EXPECT_EQ(bitsChangedSince(before), 1U);
  xpLpmPrefixEntry entry;
  ASSERT_EQ(chip_.readPrefixRow(Family::ipv4, 1, 3, entry), XP_NO_ERR);
  EXPECT_EQ(entry.branch[0], 0x10);
  // The last of the row is the last of the last leaf.
  flipBit(chip_, {.place = kPrefixRow, .bit = 255});
  ASSERT_EQ(chip_.readPrefixRow(Family::ipv4, 1, 3, entry), XP_NO_ERR);
  EXPECT_EQ(U64{entry.leafVal[2]}, U64{1} << 63 | 0x11);
  flipBit(chip_, {.place = kNhiRow, .bit = 3});
  xpLpmNhiEntry nhi;
  ASSERT_EQ(chip_.readNhiRow(Family::ipv6, 1, 9, nhi), XP_NO_ERR);
  EXPECT_EQ(U32{nhi.base[0]}, 15U);
  flipBit(chip_, {.place = kNextHopRow, .bit = 64});
  xpNextHopEntry nextHop;
  ASSERT_EQ(chip_.readNextHopRow(5, nextHop), XP_NO_ERR);
  EXPECT_EQ(nextHop.valid, 0U);
}

TEST_F(ChipDamage, theChipKnowsWhichRowsAreOccupiedAfterwards) {
  RowPlace empty = kPrefixRow;
  empty.row = 4;
  flipBit(chip_, {.place = empty, .bit = 12});
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4), 2U);
  flipBit(chip_, {.place = empty, .bit = 12});
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4), 1U);
}

TEST_F(ChipDamage, randomBitsAreDifferentAndOfTheRowsAsked) {
  const std::vector<U64> before = words();
  const std::vector<RowPlace> rows = usedRows(chip_);
  // All bits of one row of 256 and two of 128.
  const std::vector<RowBit> flipped = flipRandomBits(chip_, rows, 512, 7);
  EXPECT_EQ(flipped.size(), 512U);
  EXPECT_EQ(bitsChangedSince(before), 512U);
  for (const RowBit& bit : flipped) {
    ASSERT_NE(std::ranges::find(rows, bit.place), rows.end()) << toText(bit.place);
    flipBit(chip_, bit);
  }
  EXPECT_EQ(bitsChangedSince(before), 0U);
}

TEST_F(ChipDamage, theSeedSettlesTheBits) {
  const std::vector<RowPlace> rows = usedRows(chip_);
  const std::vector<RowBit> first = flipRandomBits(chip_, rows, 20, 7);
  EXPECT_EQ(flipRandomBits(chip_, rows, 20, 7), first);
  EXPECT_NE(flipRandomBits(chip_, rows, 20, 8), first);
}

TEST_F(ChipDamage, halfAWriteChangesTheNamedWordsAlone) {
  for (U32 newWords = 0; newWords < 16; ++newWords) {
    ASSERT_EQ(chip_.writePrefixRow(Family::ipv4, 1, 3, entryWith(0x11)), XP_NO_ERR);
    const std::vector<U64> before = words();
    EXPECT_EQ(
        writeHalf(chip_, kPrefixRow, newWords,
                  [&] { return chip_.writePrefixRow(Family::ipv4, 1, 3, entryWith(0x2222)); }),
        XP_NO_ERR);
    const std::size_t first = chip_.memory().layout().wordsOf(kPrefixRow).first;
    U32 changed = 0;
    for (U32 word = 0; word < 4; ++word) {
      changed |= U32{words()[first + word] != before[first + word]} << word;
    }
    EXPECT_EQ(changed, newWords);
  }
}

TEST_F(ChipDamage, halfAClearingThatKeepsTheHeaderKeepsTheRowOccupied) {
  const auto clear = [&] { return chip_.writePrefixRow(Family::ipv4, 1, 3, xpLpmPrefixEntry()); };
  EXPECT_EQ(writeHalf(chip_, kPrefixRow, 0b1110, clear), XP_NO_ERR);
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4), 1U);
  EXPECT_EQ(writeHalf(chip_, kPrefixRow, 0b0001, clear), XP_NO_ERR);
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4), 0U);
}

TEST_F(ChipDamage, halfARefusedWriteChangesNothing) {
  const std::vector<U64> before = words();
  xpLpmPrefixEntry tooWide = entryWith(0x2222);
  tooWide.stride = 200;
  EXPECT_EQ(writeHalf(chip_, kPrefixRow, 0b0101,
                      [&] { return chip_.writePrefixRow(Family::ipv4, 1, 3, tooWide); }),
            XP_ERR_FIELD_TOO_WIDE);
  EXPECT_EQ(bitsChangedSince(before), 0U);
}

}  // namespace
}  // namespace XdkSim
