#include "xdksim/Chip.h"

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/xdksim/SmallProfile.h"
#include "xdksim/SimLpmMgr.h"

namespace XdkSim {
namespace {

bool same(const xpLpmPrefixEntry& one, const xpLpmPrefixEntry& other) {
  return std::memcmp(&one, &other, sizeof one) == 0;
}

xpLpmPrefixEntry someEntry() {
  const LpmKey key{.words = {0x00000a0102030000, 0, 0}};
  xpLpmPrefixEntry entry;
  entry.mode = kSparseModeCode;
  entry.stride = 10;
  entry.nhiTile = 1;
  entry.nhiOffset = 7;
  setBranch(entry, key, 35);
  setLeaf(entry, 0, key, 40);
  return entry;
}

xpLpmNhiEntry someNhi() {
  xpLpmNhiEntry entry;
  entry.base[0] = 100;
  entry.size[0] = 4;
  return entry;
}

class ChipMemories : public testing::Test {
 protected:
  Chip chip_{smallProfile()};
  SimLpmMgr v4_{chip_, Family::ipv4};
  SimLpmMgr v6_{chip_, Family::ipv6};
};

TEST_F(ChipMemories, rowNeverWrittenReadsAsZeros) {
  xpLpmPrefixEntry entry = someEntry();
  EXPECT_EQ(v4_.readPrefixEntry(0, 1, 15, &entry, 0), XP_NO_ERR);
  EXPECT_TRUE(same(entry, xpLpmPrefixEntry()));
}

TEST_F(ChipMemories, rowGivesBackTheRecordAndOthersStayAsTheyAre) {
  xpLpmPrefixEntry written = someEntry();
  ASSERT_EQ(v4_.writePrefixEntry(0, 1, 3, &written), XP_NO_ERR) << chip_.lastError();
  for (U32 table = 0; table < 4; ++table) {
    for (U32 row = 0; row < chip_.profile().ipv4.tables[table].rows; ++row) {
      xpLpmPrefixEntry entry;
      ASSERT_EQ(v4_.readPrefixEntry(0, table, row, &entry, 0), XP_NO_ERR);
      const bool here = table == 1 && row == 3;
      EXPECT_TRUE(same(entry, here ? written : xpLpmPrefixEntry()))
          << "table " << table << " row " << row;
    }
  }
  xpLpmPrefixEntry other;
  ASSERT_EQ(v6_.readPrefixEntry(0, 1, 3, &other, 0), XP_NO_ERR);
  EXPECT_TRUE(same(other, xpLpmPrefixEntry()));
}

TEST_F(ChipMemories, allZeroRecordClearsTheRow) {
  xpLpmPrefixEntry entry = someEntry();
  xpLpmPrefixEntry zeros;
  ASSERT_EQ(v4_.writePrefixEntry(0, 0, 3, &entry), XP_NO_ERR);
  ASSERT_EQ(v4_.writePrefixEntry(0, 1, 4, &entry), XP_NO_ERR);
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4), 2U);
  ASSERT_EQ(v4_.writePrefixEntry(0, 0, 3, &zeros), XP_NO_ERR);
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4, 0), 0U);
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4, 1), 1U);
  ASSERT_EQ(v4_.readPrefixEntry(0, 0, 3, &entry, 0), XP_NO_ERR);
  EXPECT_TRUE(same(entry, zeros));
}

TEST_F(ChipMemories, refusedWriteChangesNothingAndTellsWhy) {
  xpLpmPrefixEntry entry = someEntry();
  ASSERT_EQ(v4_.writePrefixEntry(0, 2, 5, &entry), XP_NO_ERR) << chip_.lastError();
  EXPECT_EQ(chip_.lastError(), "");
  xpLpmPrefixEntry tooLong = someEntry();
  tooLong.branchLen = 80;
  EXPECT_EQ(v4_.writePrefixEntry(0, 2, 5, &tooLong), XP_ERR_FIELD_TOO_WIDE);
  EXPECT_EQ(
      chip_.lastError(),
      "ipv4 prefix table 2 row 5: branch length 80 + stride 10, expected at most 88 bits in a "
      "row of 128");
  xpLpmPrefixEntry back;
  ASSERT_EQ(v4_.readPrefixEntry(0, 2, 5, &back, 0), XP_NO_ERR);
  EXPECT_TRUE(same(back, entry));
  EXPECT_EQ(chip_.rowsUsed(Family::ipv4), 1U);
}

TEST_F(ChipMemories, writesToWhatDoesNotExistAreRefused) {
  xpLpmPrefixEntry entry = someEntry();
  EXPECT_EQ(v4_.writePrefixEntry(0, 4, 0, &entry), XP_ERR_OUT_OF_RANGE);
  EXPECT_EQ(chip_.lastError(), "ipv4 prefix table 4 row 0: no such table, expected one below 4");
  EXPECT_EQ(v6_.writePrefixEntry(0, 2, 4, &entry), XP_ERR_OUT_OF_RANGE);
  EXPECT_EQ(chip_.lastError(), "ipv6 prefix table 2 row 4: no such row, expected one below 4");
  xpLpmNhiEntry nhi = someNhi();
  EXPECT_EQ(v4_.writeNhiEntry(0, 2, 0, &nhi), XP_ERR_OUT_OF_RANGE);
  EXPECT_EQ(chip_.lastError(), "ipv4 NHI tile 2 row 0: no such tile, expected one below 2");
  EXPECT_EQ(v4_.writeNhiEntry(0, 1, 64, &nhi), XP_ERR_OUT_OF_RANGE);
  EXPECT_EQ(chip_.lastError(), "ipv4 NHI tile 1 row 64: no such row, expected one below 64");
  xpNextHopEntry nextHop;
  EXPECT_EQ(v4_.writeNextHopEntry(0, 128, &nextHop), XP_ERR_OUT_OF_RANGE);
  EXPECT_EQ(chip_.lastError(), "next-hop row 128: no such row, expected one below 128");
  EXPECT_EQ(chip_.counters().refusedWrites, 5U);
}

TEST_F(ChipMemories, readsOfWhatDoesNotExistFindNothing) {
  xpLpmPrefixEntry entry;
  EXPECT_EQ(v4_.readPrefixEntry(0, 4, 0, &entry, 0), XP_ERR_NOTHING_TO_READ);
  EXPECT_EQ(v4_.readPrefixEntry(0, 0, 16, &entry, 0), XP_ERR_NOTHING_TO_READ);
  xpLpmNhiEntry nhi;
  EXPECT_EQ(v4_.readNhiEntry(0, 2, 0, &nhi, 0), XP_ERR_NOTHING_TO_READ);
  EXPECT_EQ(v4_.readNhiEntry(0, 0, 64, &nhi, 0), XP_ERR_NOTHING_TO_READ);
  xpNextHopEntry nextHop;
  EXPECT_EQ(v4_.readNextHopEntry(0, 128, &nextHop), XP_ERR_NOTHING_TO_READ);
}

TEST_F(ChipMemories, nhiRowsOfTheFamiliesAndTilesAreApart) {
  xpLpmNhiEntry entry = someNhi();
  ASSERT_EQ(v6_.writeNhiEntry(0, 1, 63, &entry), XP_NO_ERR) << chip_.lastError();
  U32 found = 0;
  for (SimLpmMgr* mgr : {&v4_, &v6_}) {
    for (U32 tile = 0; tile < 2; ++tile) {
      for (U32 row = 0; row < 64; ++row) {
        xpLpmNhiEntry back;
        ASSERT_EQ(mgr->readNhiEntry(0, tile, row, &back, 0), XP_NO_ERR);
        found += U32{back.base[0] == 100 && back.size[0] == 4};
      }
    }
  }
  EXPECT_EQ(found, 1U);
}

TEST_F(ChipMemories, nhiPairThatDoesNotFitIsRefused) {
  xpLpmNhiEntry entry = someNhi();
  entry.size[3] = 512;
  EXPECT_EQ(v4_.writeNhiEntry(0, 0, 9, &entry), XP_ERR_FIELD_TOO_WIDE);
  EXPECT_EQ(chip_.lastError(), "ipv4 NHI tile 0 row 9: pair 3 has size 512, expected at most 511");
}

TEST_F(ChipMemories, nextHopRowsAreSharedByTheFamilies) {
  xpNextHopEntry entry;
  entry.valid = 1;
  entry.way = 65535;
  entry.nextHopId = 0xfedcba9876543210;
  ASSERT_EQ(v4_.writeNextHopEntry(0, 127, &entry), XP_NO_ERR) << chip_.lastError();
  xpNextHopEntry back;
  ASSERT_EQ(v6_.readNextHopEntry(0, 127, &back), XP_NO_ERR);
  EXPECT_EQ(back.valid, 1U);
  EXPECT_EQ(back.way, 65535U);
  EXPECT_EQ(back.nextHopId, 0xfedcba9876543210);
  entry.way = 65536;
  EXPECT_EQ(v4_.writeNextHopEntry(0, 127, &entry), XP_ERR_FIELD_TOO_WIDE);
  EXPECT_EQ(chip_.lastError(), "next-hop row 127: way 65536, expected at most 65535");
  entry.way = 0;
  entry.valid = 2;
  EXPECT_EQ(v4_.writeNextHopEntry(0, 127, &entry), XP_ERR_FIELD_TOO_WIDE);
  EXPECT_EQ(chip_.lastError(), "next-hop row 127: valid 2, expected 0 or 1");
}

TEST_F(ChipMemories, otherDevicesAndNullRecordsAreRefusedAtTheDoor) {
  xpLpmPrefixEntry prefix;
  xpLpmNhiEntry nhi;
  xpNextHopEntry nextHop;
  EXPECT_EQ(v4_.readPrefixEntry(1, 0, 0, &prefix, 0), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(v4_.writePrefixEntry(1, 0, 0, &prefix), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(v4_.readNhiEntry(1, 0, 0, &nhi, 0), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(v4_.writeNhiEntry(1, 0, 0, &nhi), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(v4_.readNextHopEntry(1, 0, &nextHop), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(v4_.writeNextHopEntry(1, 0, &nextHop), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(v4_.readPrefixEntry(0, 0, 0, nullptr, 0), XP_ERR_NULL_POINTER);
  EXPECT_EQ(v4_.writePrefixEntry(0, 0, 0, nullptr), XP_ERR_NULL_POINTER);
  EXPECT_EQ(v4_.readNhiEntry(0, 0, 0, nullptr, 0), XP_ERR_NULL_POINTER);
  EXPECT_EQ(v4_.writeNhiEntry(0, 0, 0, nullptr), XP_ERR_NULL_POINTER);
  EXPECT_EQ(v4_.readNextHopEntry(0, 0, nullptr), XP_ERR_NULL_POINTER);
  EXPECT_EQ(v4_.writeNextHopEntry(0, 0, nullptr), XP_ERR_NULL_POINTER);
}

TEST_F(ChipMemories, countersTellTheWritesByKind) {
  xpLpmPrefixEntry prefix = someEntry();
  xpLpmPrefixEntry zeros;
  xpLpmNhiEntry nhi = someNhi();
  xpNextHopEntry nextHop;
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(v4_.writePrefixEntry(0, 0, 3, &prefix), XP_NO_ERR);
  }
  ASSERT_EQ(v4_.writePrefixEntry(0, 0, 3, &zeros), XP_NO_ERR);
  ASSERT_EQ(v6_.writeNhiEntry(0, 0, 1, &nhi), XP_NO_ERR);
  ASSERT_EQ(v6_.writeNhiEntry(0, 0, 2, &nhi), XP_NO_ERR);
  ASSERT_EQ(v6_.writeNextHopEntry(0, 1, &nextHop), XP_NO_ERR);
  EXPECT_EQ(chip_.counters().prefixWrites, 4U);
  EXPECT_EQ(chip_.counters().prefixClears, 1U);
  EXPECT_EQ(chip_.counters().nhiWrites, 2U);
  EXPECT_EQ(chip_.counters().nextHopWrites, 1U);
  EXPECT_EQ(chip_.counters().refusedWrites, 0U);
  EXPECT_EQ(chip_.rowCapacity(Family::ipv4), 16U + 16 + 8 + 1);
}

TEST_F(ChipMemories, memoryAloneCarriesTheState) {
  xpLpmPrefixEntry prefix = someEntry();
  ASSERT_EQ(v4_.writePrefixEntry(0, 1, 3, &prefix), XP_NO_ERR);
  Chip other(smallProfile());
  const std::span<U64> from = chip_.memory().words();
  ASSERT_EQ(from.size(), other.memory().words().size());
  std::copy(from.begin(), from.end(), other.memory().words().begin());
  other.memoryChanged();
  EXPECT_EQ(other.rowsUsed(Family::ipv4, 1), 1U);
  xpLpmPrefixEntry back;
  ASSERT_EQ(other.readPrefixRow(Family::ipv4, 1, 3, back), XP_NO_ERR);
  EXPECT_TRUE(same(back, prefix));
}

TEST(ChipTableContext, fiftyAndFiftyOneTellTheFamilies) {
  ChipProfile profile = smallProfile(8, 14);
  profile.ipv6.nhi.tilesIs(11);
  const Chip chip(profile);
  xpLpmTableContext context;
  ASSERT_TRUE(chip.fillTableContext(50, &context));
  EXPECT_EQ(context.keyWidth, 48U);
  EXPECT_EQ(context.vrfIdWidth, 16);
  EXPECT_EQ(context.prefixTableRecord[2].valid, 1);
  EXPECT_EQ(context.prefixTableRecord[2].depth, 8U);
  EXPECT_EQ(context.prefixTableRecord[2].sramWidth, 128U);
  EXPECT_EQ(context.prefixTableRecord[2].tread, 28);
  EXPECT_EQ(context.prefixTableRecord[3].hashPolySelect, 3U);
  EXPECT_EQ(context.prefixTableRecord[4].valid, 0);
  EXPECT_EQ(context.nhiPairPerEntry, 8);
  EXPECT_EQ(context.nhiBlockBaseWidth, 14);
  EXPECT_EQ(context.nhiTableSize, 128U);
  EXPECT_EQ(context.nhiGroupMask, 1U);
  EXPECT_EQ(context.nhiTileBitmap[0], 3);
  ASSERT_TRUE(chip.fillTableContext(51, &context));
  EXPECT_EQ(context.keyWidth, 144U);
  EXPECT_EQ(context.prefixTableRecord[5].valid, 1);
  EXPECT_EQ(context.nhiGroupMask, 3U);
  EXPECT_EQ(context.nhiTileBitmap[0], 255);
  EXPECT_EQ(context.nhiTileBitmap[1], 7);
}

TEST(ChipTableContext, fiftyTwoTellsTheNextHopRows) {
  const Chip chip(smallProfile());
  xpNhTableContext context;
  ASSERT_TRUE(chip.fillTableContext(52, &context));
  EXPECT_EQ(context.rowBlkInc, 128U);
}

TEST(ChipTableContext, otherNumbersAndOtherRecordsAreNotFilled) {
  const Chip chip(smallProfile());
  xpLpmTableContext lpm;
  xpNhTableContext nextHop;
  EXPECT_FALSE(chip.fillTableContext(49, &lpm));
  EXPECT_FALSE(chip.fillTableContext(53, &lpm));
  EXPECT_FALSE(chip.fillTableContext(52, &lpm));
  EXPECT_FALSE(chip.fillTableContext(50, &nextHop));
  EXPECT_FALSE(chip.fillTableContext(50, nullptr));
  EXPECT_EQ(lpm.keyWidth, 0U);
  EXPECT_EQ(nextHop.rowBlkInc, 0U);
}

TEST(LpmMgr, operationsThatAChipLacksAnswerNotSupported) {
  xpIpRouteLpmMgr mgr;
  xpLpmPrefixEntry prefix;
  xpLpmNhiEntry nhi;
  xpNextHopEntry nextHop;
  EXPECT_EQ(mgr.readPrefixEntry(0, 0, 0, &prefix, 0), XP_ERR_NOT_SUPPORTED);
  EXPECT_EQ(mgr.writePrefixEntry(0, 0, 0, &prefix), XP_ERR_NOT_SUPPORTED);
  EXPECT_EQ(mgr.readNhiEntry(0, 0, 0, &nhi, 0), XP_ERR_NOT_SUPPORTED);
  EXPECT_EQ(mgr.writeNhiEntry(0, 0, 0, &nhi), XP_ERR_NOT_SUPPORTED);
  EXPECT_EQ(mgr.readNextHopEntry(0, 0, &nextHop), XP_ERR_NOT_SUPPORTED);
  EXPECT_EQ(mgr.writeNextHopEntry(0, 0, &nextHop), XP_ERR_NOT_SUPPORTED);
}

}  // namespace
}  // namespace XdkSim
