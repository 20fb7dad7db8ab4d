// The chip's rows changed behind the SDK's back: whatever differs from what the software believes
// is found and named.

#include "tests/audit/AuditedChip.h"
#include "xdksim/Damage.h"

namespace Quarle::Agent {
namespace {

using Testing::textOf;

class ChipFaults : public Testing::Damaged {
 protected:
  ChipFaults() : table(subTrie->table()->tableId().value()), row(subTrie->index().value()) {}

  xpLpmPrefixEntry rowAt(U32 itsRow) const {
    xpLpmPrefixEntry entry;
    EXPECT_EQ(chip.chip.readPrefixRow(XdkSim::Family::ipv4, table, itsRow, entry), XP_NO_ERR);
    return entry;
  }

  void write(U32 itsRow, const xpLpmPrefixEntry& entry) {
    ASSERT_EQ(chip.chip.writePrefixRow(XdkSim::Family::ipv4, table, itsRow, entry), XP_NO_ERR)
        << chip.chip.lastError();
  }

  void writeNextHop(U32 itsRow, const xpNextHopEntry& entry) {
    ASSERT_EQ(chip.chip.writeNextHopRow(itsRow, entry), XP_NO_ERR);
  }

  std::string rowText(U32 itsRow) const {
    return "IPv4 table " + std::to_string(table) + " row " + std::to_string(itsRow);
  }

  void expectDifference(const xpLpmPrefixEntry& entry, const std::string& words) {
    write(row, entry);
    expectFault("the chip's row differs", rowText(row), words);
  }

  const U32 table;
  const U32 row;
};

TEST_F(ChipFaults, aClearedRow) { expectDifference(xpLpmPrefixEntry(), "it is clear"); }

TEST_F(ChipFaults, aRowThatReadsAnotherBlock) {
  xpLpmPrefixEntry entry = rowAt(row);
  entry.nhiOffset += 3;
  expectDifference(entry, "nhiOffset " + std::to_string(base.offset() + 3) + ", expected " +
                              std::to_string(base.offset()));
  entry.nhiOffset -= 3;
  entry.nhiTile ^= 1;
  expectDifference(entry, "nhiTile");
}

TEST_F(ChipFaults, aRowWithAnotherLeaf) {
  xpLpmPrefixEntry entry = rowAt(row);
  const U64 leaf = entry.leafVal[1];
  entry.leafVal[1] = 0;
  expectDifference(entry, "leaf 1 0, expected " + std::to_string(leaf));
}

TEST_F(ChipFaults, aRowWithAnotherBranch) {
  xpLpmPrefixEntry entry = rowAt(row);
  entry.branch[1] ^= 1;
  expectDifference(entry, "other bits of the branch");
}

TEST_F(ChipFaults, aRowThatNoSubTrieHas) {
  const U32 other = row == 0 ? 1 : row - 1;
  ASSERT_EQ(rowAt(other).branchLen, 0U);
  write(other, rowAt(row));
  expectFault("a row of the chip that no sub-trie has", rowText(other),
              "NHI " + std::string(base.str().str()));
}

TEST_F(ChipFaults, anNhiEntryWithAnotherPair) {
  xpLpmNhiEntry entry;
  ASSERT_EQ(chip.chip.readNhiRow(XdkSim::Family::ipv4, base.tile().value(), base.offset(), entry),
            XP_NO_ERR);
  const U32 before = entry.base[1];
  entry.base[1] = 60;
  ASSERT_EQ(chip.chip.writeNhiRow(XdkSim::Family::ipv4, base.tile().value(), base.offset(), entry),
            XP_NO_ERR);
  expectFault("the chip's NHI entry differs", nhiText(base),
              "pair 1 is 60+" + std::to_string(entry.size[1]) + ", expected " +
                  std::to_string(before) + "+");
}

TEST_F(ChipFaults, aPairBehindTheLastSlot) {
  xpLpmNhiEntry entry;
  ASSERT_EQ(chip.chip.readNhiRow(XdkSim::Family::ipv4, base.tile().value(), base.offset(), entry),
            XP_NO_ERR);
  entry.base[5] = 0;
  entry.size[5] = 1;
  ASSERT_EQ(chip.chip.writeNhiRow(XdkSim::Family::ipv4, base.tile().value(), base.offset(), entry),
            XP_NO_ERR);
  expectFault("the chip's NHI entry differs", nhiText(base), "pair 5 is 0+1, expected");
}

TEST_F(ChipFaults, anEntryOfNoBlockIsNobodysBusiness) {
  xpLpmNhiEntry entry;
  entry.base[0] = 1;
  entry.size[0] = 1;
  ASSERT_EQ(chip.chip.writeNhiRow(XdkSim::Family::ipv4, 2, 63, entry), XP_NO_ERR);
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
}

TEST_F(ChipFaults, aNextHopRowThatIsNotTheGroups) {
  writeNextHop(2, {.valid = 1, .way = 1, .nextHopId = 99});
  const SwId group = *chip.client->family(Family::ipv4).groupOf(Testing::keyOf("10.1.1.0/24"));
  expectFault("the chip's next-hop row differs", "group " + std::to_string(group.value()),
              "row 2 is way 1 to 99, expected way 1 to 8");
  writeNextHop(2, xpNextHopEntry());
  expectFault("the chip's next-hop row differs", "group " + std::to_string(group.value()),
              "row 2 is clear, expected way 1 to 8");
}

TEST_F(ChipFaults, aNextHopRowOfNoGroup) {
  writeNextHop(30, {.valid = 1, .way = 0, .nextHopId = 5});
  expectFault("the chip's next-hop row differs", "next-hop row 30",
              "row 30 is way 0 to 5, expected clear");
}

TEST_F(ChipFaults, everyFlippedBitOfARowIsFound) {
  const std::vector<XdkSim::RowPlace> places =
      XdkSim::usedRows(chip.chip, XdkSim::RowKind::prefix, XdkSim::Family::ipv4);
  ASSERT_FALSE(places.empty());
  U32 harmless = 0;
  for (U32 bit = 0; bit < 256; ++bit) {
    XdkSim::flipBit(chip.chip, {.place = places.front(), .bit = bit});
    if (audit().passed()) {
      ++harmless;
    }
    XdkSim::flipBit(chip.chip, {.place = places.front(), .bit = bit});
  }
  // What a read of the row does not tell no audit can see: bits behind the last leaf.
  EXPECT_LT(harmless, 40U);
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
}

/// A manager that cannot read some rows.
class BlindLpmMgr final : public xpIpRouteLpmMgr {};

TEST_F(ChipFaults, rowsThatCannotBeRead) {
  BlindLpmMgr blind;
  const AuditReport report = auditAll(
      *chip.client, {.systemStatus = {}, .ipv4 = &blind, .ipv6 = nullptr}, {.limit = 1000});
  const std::string text = textOf(report);
  EXPECT_NE(text.find(rowText(row) + ": the chip's row cannot be read: the read answered 1\n"),
            std::string::npos);
  EXPECT_NE(
      text.find(nhiText(base) + ": the chip's NHI entry cannot be read: the read answered 1\n"),
      std::string::npos);
  EXPECT_NE(
      text.find("next-hop row 0: the chip's next-hop row cannot be read: the read answered 1\n"),
      std::string::npos);
  EXPECT_TRUE(report.complete);
}

TEST_F(ChipFaults, severalInBothFamiliesAreEachNamed) {
  write(row, xpLpmPrefixEntry());
  writeNextHop(30, {.valid = 1, .way = 0, .nextHopId = 5});
  const auto ipv6 = XdkSim::usedRows(chip.chip, XdkSim::RowKind::prefix, XdkSim::Family::ipv6);
  ASSERT_EQ(ipv6.size(), 1U);
  ASSERT_EQ(chip.chip.writePrefixRow(XdkSim::Family::ipv6, ipv6[0].table, ipv6[0].row,
                                     xpLpmPrefixEntry()),
            XP_NO_ERR);
  const AuditReport report = audit();
  EXPECT_EQ(textOf(report), rowText(row) + ": the chip's row differs: it is clear\n" +
                                "IPv6 table " + std::to_string(ipv6[0].table) + " row " +
                                std::to_string(ipv6[0].row) +
                                ": the chip's row differs: it is clear\n" +
                                "next-hop row 30: the chip's next-hop row differs: row 30 is way 0 "
                                "to 5, expected clear\n");
  EXPECT_EQ(report.faultCount, 3U);
}

}  // namespace
}  // namespace Quarle::Agent
