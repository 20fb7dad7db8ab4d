#include <array>
#include <string>

#include <gtest/gtest.h>

#include "tests/xdksim/SmallProfile.h"
#include "tests/xdksim/SoftwareRow.h"
#include "xdksim/Chip.h"

namespace XdkSim {
namespace {

class ChipLookup : public testing::Test {
 protected:
  static constexpr std::array<U8, 4> kAddress = {10, 1, 2, 3};

  LookupResult lookup() const { return chip_.lookup(Family::ipv4, 0, kAddress.data()); }

  /// The row of the address in `table`.
  U32 rowOf(U32 table) const {
    return softwareRow(chip_.profile().ipv4.tables[table], table, key_);
  }

  /// A row whose branch is the first `branchLen` bits of the address.
  xpLpmPrefixEntry entryWith(U32 branchLen, U32 stride, U32 nhiOffset) const {
    xpLpmPrefixEntry entry;
    entry.mode = kSparseModeCode;
    entry.stride = stride;
    entry.nhiOffset = nhiOffset;
    setBranch(entry, key_, branchLen);
    return entry;
  }

  void write(U32 table, const xpLpmPrefixEntry& entry) {
    ASSERT_EQ(chip_.writePrefixRow(Family::ipv4, table, rowOf(table), entry), XP_NO_ERR)
        << chip_.lastError();
  }

  void writePair(U32 nhiRow, U32 pair, NhiPair value) {
    xpLpmNhiEntry entry;
    ASSERT_EQ(chip_.readNhiRow(Family::ipv4, 0, nhiRow, entry), XP_NO_ERR);
    entry.base[pair] = value.base;
    entry.size[pair] = value.size;
    ASSERT_EQ(chip_.writeNhiRow(Family::ipv4, 0, nhiRow, entry), XP_NO_ERR) << chip_.lastError();
  }

  Chip chip_{smallProfile()};
  LpmKey key_ = LpmKey::of(0, kAddress.data(), 4);
};

TEST_F(ChipLookup, emptyChipMatchesNothing) {
  EXPECT_FALSE(lookup().matched);
  EXPECT_FALSE(lookup().hasNextHop());
}

TEST_F(ChipLookup, slotSevenIsPairOneOfTheSecondEntry) {
  xpLpmPrefixEntry entry = entryWith(36, 10, 20);
  setLeaf(entry, 7, key_, 40);
  write(0, entry);
  writePair(21, 1, {.base = 50, .size = 4});
  const LookupResult expected{.matched = true,
                              .matchLen = 40,
                              .table = 0,
                              .row = rowOf(0),
                              .slot = 7,
                              .tile = 0,
                              .nhiRow = 21,
                              .pair = 1,
                              .base = 50,
                              .size = 4};
  EXPECT_EQ(lookup(), expected);
  EXPECT_EQ(lookup().nextHopRow(0), 50U);
  EXPECT_EQ(lookup().nextHopRow(7), 53U);
}

TEST_F(ChipLookup, longestMatchOverAllTablesWins) {
  xpLpmPrefixEntry shorter = entryWith(35, 10, 0);
  setLeaf(shorter, 0, key_, 38);
  write(0, shorter);
  xpLpmPrefixEntry longer = entryWith(30, 20, 1);
  setLeaf(longer, 0, key_, 41);
  write(2, longer);
  EXPECT_EQ(lookup().matchLen, 41U);
  EXPECT_EQ(lookup().table, 2U);
}

TEST_F(ChipLookup, ofEquallyLongMatchesTheTableOfLowestNumberWins) {
  xpLpmPrefixEntry entry = entryWith(35, 10, 0);
  setLeaf(entry, 0, key_, 40);
  write(1, entry);
  write(0, entry);
  EXPECT_EQ(lookup().table, 0U);
}

TEST_F(ChipLookup, clearedRowMatchesNoMore) {
  xpLpmPrefixEntry entry = entryWith(35, 10, 0);
  setLeaf(entry, 0, key_, 40);
  write(0, entry);
  EXPECT_TRUE(lookup().matched);
  write(0, xpLpmPrefixEntry());
  EXPECT_FALSE(lookup().matched);
}

TEST_F(ChipLookup, rowsOfAnotherKeySizeOrModeArePassedOver) {
  xpLpmPrefixEntry entry = entryWith(35, 10, 0);
  setLeaf(entry, 0, key_, 40);
  entry.keySize = 2;
  write(0, entry);
  EXPECT_FALSE(lookup().matched);
  entry.keySize = 0;
  entry.mode = 2;
  write(0, entry);
  EXPECT_FALSE(lookup().matched);
  entry.mode = kSparseModeCode;
  write(0, entry);
  EXPECT_TRUE(lookup().matched);
}

TEST_F(ChipLookup, matchWithoutNextHopIsReportedAsSuch) {
  xpLpmPrefixEntry entry = entryWith(35, 10, 3);
  setLeaf(entry, 0, key_, 40);
  write(0, entry);
  writePair(3, 0, NhiPair());
  EXPECT_TRUE(lookup().matched);
  EXPECT_EQ(lookup().matchLen, 40U);
  EXPECT_FALSE(lookup().hasNextHop());
}

TEST_F(ChipLookup, rowThatPointsOutsideTheNhiMemoryHasNoNextHop) {
  xpLpmPrefixEntry entry = entryWith(35, 10, 64);
  setLeaf(entry, 0, key_, 40);
  write(0, entry);
  EXPECT_TRUE(lookup().matched);
  EXPECT_FALSE(lookup().hasNextHop());
  entry.nhiOffset = 0;
  entry.nhiTile = 2;
  write(0, entry);
  EXPECT_TRUE(lookup().matched);
  EXPECT_FALSE(lookup().hasNextHop());
}

TEST_F(ChipLookup, leafThatReachesBehindTheKeyMatchesNothing) {
  // The key is followed by zeros as it is compared, and so is the address by the leaf.
  xpLpmPrefixEntry entry = entryWith(35, 20, 0);
  setLeaf(entry, 0, key_, 49);
  write(0, entry);
  EXPECT_FALSE(lookup().matched);
  const Explanation seen = chip_.explain(Family::ipv4, 0, kAddress.data());
  EXPECT_TRUE(seen.tables[0].branchMatches);
  EXPECT_TRUE(seen.tables[0].leaves.empty());
}

TEST_F(ChipLookup, branchThatClaimsMoreBitsThanTheRowHasMatchesNothing) {
  // Table 4 of IPv6 has rows of 128 bits. The row's 88 bits and those of the rows behind it are
  // zero, as is the address.
  const std::array<U8, 16> zeros{};
  U64* row = chip_.memory().prefixTable(Family::ipv6, 4);
  row[0] = U64{8} << 12 | 100U << 4 | kSparseModeCode << 2 | keySizeCode(144);
  chip_.memoryChanged();
  const Explanation seen = chip_.explain(Family::ipv6, 0, zeros.data());
  ASSERT_TRUE(seen.tables[4].occupied);
  EXPECT_FALSE(seen.tables[4].branchMatches);
  EXPECT_FALSE(seen.result.matched);
}

TEST_F(ChipLookup, allBitsOfALeafLongerThanAWordCount) {
  std::array<U8, 16> address{};
  const LpmKey key = LpmKey::of(0, address.data(), 16);
  const PrefixTableProfile& shape = chip_.profile().ipv6.tables[0];
  xpLpmPrefixEntry entry;
  entry.keySize = keySizeCode(144);
  entry.mode = kSparseModeCode;
  entry.stride = 96;
  setBranch(entry, key, 60);
  setLeaf(entry, 0, key, 144);
  ASSERT_EQ(chip_.writePrefixRow(Family::ipv6, 0, softwareRow(shape, 0, key), entry), XP_NO_ERR)
      << chip_.lastError();
  EXPECT_EQ(chip_.lookup(Family::ipv6, 0, address.data()).matchLen, 144U);
  for (U32 bit = 60; bit < 144; ++bit) {
    address = {};
    address[bit / 8 - 2] = static_cast<U8>(0x80 >> bit % 8);
    EXPECT_FALSE(chip_.lookup(Family::ipv6, 0, address.data()).matched) << "bit " << bit;
  }
}

TEST_F(ChipLookup, vrfIsPartOfTheKey) {
  xpLpmPrefixEntry entry = entryWith(35, 10, 0);
  setLeaf(entry, 0, key_, 40);
  write(0, entry);
  for (U32 row = 0; row < 16; ++row) {
    ASSERT_EQ(chip_.writePrefixRow(Family::ipv4, 0, row, entry), XP_NO_ERR);
  }
  EXPECT_TRUE(lookup().matched);
  EXPECT_FALSE(chip_.lookup(Family::ipv4, 1, kAddress.data()).matched);
}

TEST_F(ChipLookup, explainTellsWhatEachTableSaw) {
  xpLpmPrefixEntry match = entryWith(35, 10, 20);
  setLeaf(match, 0, key_, 37);
  setLeaf(match, 2, key_, 40);
  setLeaf(match, 6, LpmKey{.words = {0x00000a0111000000, 0, 0}}, 41);
  write(0, match);
  writePair(20, 0, {.base = 16, .size = 1});
  writePair(20, 2, {.base = 50, .size = 4});
  writePair(21, 0, NhiPair());
  for (U32 way = 0; way < 3; ++way) {
    const xpNextHopEntry nextHop{.valid = 1, .way = way, .nextHopId = 7000 + way};
    ASSERT_EQ(chip_.writeNextHopRow(50 + way, nextHop), XP_NO_ERR) << chip_.lastError();
  }
  xpLpmPrefixEntry other = entryWith(36, 10, 0);
  setBranch(other, LpmKey{.words = {0x000bc0a800000000, 0, 0}}, 36);
  setLeaf(other, 0, LpmKey{.words = {0x000bc0a800000000, 0, 0}}, 40);
  write(2, other);
  xpLpmPrefixEntry bitmap = entryWith(10, 10, 0);
  bitmap.mode = 2;
  write(3, bitmap);
  EXPECT_EQ(chip_.explain(Family::ipv4, 0, kAddress.data()).toText(),
            R"(ipv4 10.1.2.3
table 0 tread 35 row 9: branch 10.1.0.0/19 stride 10, matches
  slot 0: 10.1.0.0/21, matches: tile 0 entry 20 pair 0, next-hop row 16
  slot 2: 10.1.2.0/24, matches: tile 0 entry 20 pair 2, next-hop rows 50 to 53
  slot 6: 10.1.17.0/25, other: tile 0 entry 21 pair 0, no next hop
table 1 tread 35 row 4: empty
table 2 tread 28 row 4: branch vrf 11 192.168.0.0/20 stride 10, another branch
  slot 0: vrf 11 192.168.0.0/24, other: tile 0 entry 0 pair 0, next-hop row 0
table 3 tread 16 row 0: branch 0x0000/10 stride 10, passed over
longest match 10.1.2.0/24 in table 0 row 9 slot 2: tile 0 entry 20 pair 2, next-hop rows 50 to 53
  next-hop row 50: way 0, next hop 7000
  next-hop row 51: way 1, next hop 7001
  next-hop row 52: way 2, next hop 7002
  next-hop row 53: free
)");
}

TEST_F(ChipLookup, explainOfNoMatchSaysSo) {
  const std::string text = chip_.explain(Family::ipv4, 9, kAddress.data()).toText();
  EXPECT_TRUE(text.starts_with("ipv4 vrf 9 10.1.2.3\ntable 0 tread 35 row ")) << text;
  EXPECT_TRUE(text.ends_with("table 3 tread 16 row 0: empty\nno match\n")) << text;
}

TEST(PrefixText, namesPrefixesOfBothFamilies) {
  const LpmKey key{.words = {0x00000a0102030000, 0, 0}};
  EXPECT_EQ(prefixText(Family::ipv4, key, 48), "10.1.2.3/32");
  EXPECT_EQ(prefixText(Family::ipv4, key, 32), "10.1.0.0/16");
  EXPECT_EQ(prefixText(Family::ipv4, key, 16), "0.0.0.0/0");
  const LpmKey key6{.words = {0x002a20010db80000, 0, U64{1} << 48}};
  EXPECT_EQ(prefixText(Family::ipv6, key6, 48), "vrf 42 2001:db8::/32");
  EXPECT_EQ(prefixText(Family::ipv6, key6, 144), "vrf 42 2001:db8::1/128");
  EXPECT_EQ(prefixText(Family::ipv6, key6, 12), "0x0020/12");
}

}  // namespace
}  // namespace XdkSim
