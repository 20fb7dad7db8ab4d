// What only the whole shows, provoked in the library by reflection: each check finds its fault and
// names the place.

#include "tests/audit/AuditedChip.h"
#include "tests/restart/RestartChip.h"

namespace Quarle::Agent {
namespace {

using Testing::textOf;
using namespace Tarnlet;

constexpr const char* kRoute = "IPv4 10.1.0.0/24";

class WholeFaults : public Testing::Damaged {
 protected:
  std::string row() { return rowOf(*subTrie); }

  SubTrieSet::Ptr usersOfBase() { return engine->nhiBaseIdxToSubTrie(base); }

  /// Writes a request that the machine does not hear of.
  void requestSilently(const LpmPrefix::Ptr& wanted, const NextHopBlock& block) {
    engine->vellorDoZombieReactors(true);
    engine->config()->requestIs(wanted, block);
    engine->vellorDoZombieReactors(false);
  }
};

// ---- rows and slots ----

TEST_F(WholeFaults, aSubTrieThatNamesAnotherRow) {
  const std::string where = row();
  const U32 index = subTrie->index().value();
  set(subTrie, "index", PrefixTableIdx(index + 1));
  expectFault("a sub-trie that names another place", where, "row " + std::to_string(index + 1));
}

TEST_F(WholeFaults, aSubTrieBehindTheTable) {
  const PrefixTable::Ptr table = subTrie->table();
  insert(table, "subTrie", {PrefixTableIdx(70), subTrie});
  expectFault("a sub-trie behind the table",
              "IPv4 table " + std::to_string(table->tableId().value()) + " row 70", "row 70");
}

TEST_F(WholeFaults, aRowOnRecordWithoutASubTrie) {
  const PrefixTable::Ptr table = subTrie->table();
  insert(table, "subTrie", {PrefixTableIdx(1), SubTrie::Ptr()});
  expectFault("a row on record without a sub-trie",
              "IPv4 table " + std::to_string(table->tableId().value()) + " row 1", "");
}

TEST_F(WholeFaults, aSubTrieWithoutAPrefix) {
  remove(subTrie, "prefix", {subTrie->prefixToSlot(prefix)});
  remove(subTrie, "prefix", {subTrie->prefixToSlot(prefixOf("10.1.1.0/24"))});
  expectFault("a sub-trie without a prefix", row(), "");
}

TEST_F(WholeFaults, slotsThatAreNotDense) {
  set(subTrie, "maxPrefixSlot", U8(subTrie->prefixs() + 1));
  expectFault("maxPrefixSlot", row(), "3, expected 2");
}

TEST_F(WholeFaults, aPrefixWithoutASlot) {
  remove(subTrie, "prefixToSlot", {prefix});
  expectFault("prefixToSlot", row(), "10.1.0.0/24 in slot");
  expectFault("prefixToSlot of another size", row(), "");
}

TEST_F(WholeFaults, aPrefixInAnotherSlot) {
  insert(subTrie, "prefixToSlot", {prefix, U8{9}});
  expectFault("prefixToSlot", row(), "stands there in slot 9");
}

TEST_F(WholeFaults, aSlotWithoutAPrefix) {
  insert(subTrie, "prefix", {subTrie->prefixToSlot(prefix), LpmPrefix::Ptr()});
  expectFault("a slot without a prefix", row(), "slot ");
}

TEST_F(WholeFaults, aBitThatIsNotSet) {
  const U32 slot = subTrie->prefixToSlot(prefix);
  subTrie->prefixBitmap()->clearBit(slot);
  expectFault("prefixBitmap", row(), "bit " + std::to_string(slot) + " is clear, expected set");
}

TEST_F(WholeFaults, aBitmapOfAnotherSize) {
  subTrie->prefixBitmapIs(U64{0}, U32{3}, Brumel::HBitmap::BitState::bitClear);
  expectFault("prefixBitmap of another size", row(), "3, expected");
}

TEST_F(WholeFaults, aSubTrieWithoutABitmap) {
  remove(subTrie, "prefixBitmap", {});
  expectFault("a sub-trie without prefixBitmap", row(), "");
}

TEST_F(WholeFaults, aStrideOfNothing) {
  set(subTrie, "stride", U8{0});
  expectFault("stride", row(), "it is 0");
}

TEST_F(WholeFaults, aSubTrieWiderThanItsRow) {
  set(subTrie, "stride", U8{200});
  expectFault("a sub-trie wider than its row", row(), "slots of 200 bits");
}

TEST_F(WholeFaults, aStrideThatIsTooShortForAPrefix) {
  set(subTrie, "stride", U8{1});
  expectFault("a prefix that branch and stride cannot spell", row(), "bits, expected");
}

TEST_F(WholeFaults, anotherBranch) {
  SubTrieBranch branch = subTrie->branch();
  branch.word0Is(branch.word0() ^ 1);
  set(subTrie, "branch", branch);
  expectFault("a prefix that does not begin with the branch", row(), "10.1.0.0/24");
}

TEST_F(WholeFaults, bitsBehindTheBranchMeanNothing) {
  SubTrieBranch branch = subTrie->branch();
  branch.word4Is(0x5555);
  set(subTrie, "branch", branch);
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
}

TEST_F(WholeFaults, aBranchBelowTheTread) {
  set(subTrie, "branchLen", U8{3});
  expectFault("a branch below the tread", row(), "3, expected");
}

TEST_F(WholeFaults, aPrefixThatHashesToAnotherRow) {
  const SubTrie::Ptr other = engine->prefixToSubTrie(prefixOf("10.3.0.0/24"));
  ASSERT_NE(other, subTrie);
  insert(other, "prefix", {U8{0}, prefixOf("10.1.0.0/24")});
  expectFault("a prefix that hashes to another row", rowOf(*other), "10.1.0.0/24");
}

TEST_F(WholeFaults, withAShortBranchEachPrefixIsHashed) {
  set(subTrie, "branchLen", U8{0});
  insert(subTrie, "prefix", {U8{2}, prefixOf("10.3.0.0/24")});
  expectFault("a prefix that hashes to another row", row(), "10.3.0.0/24");
}

TEST_F(WholeFaults, aTableOfAnotherConfiguration) {
  remove(engine->config(), "prefixTableConfig", {subTrie->table()->tableId()});
  expectFault("a table of another configuration",
              "IPv4 table " + std::to_string(subTrie->table()->tableId().value()), "");
}

// ---- the maps of routes ----

TEST_F(WholeFaults, aPlacedRouteThatPrefixToSubTrieLacks) {
  remove(engine, "prefixToSubTrie", {prefix});
  expectFault("prefixToSubTrie", row(), "is absent there");
}

TEST_F(WholeFaults, aRouteWithAnotherSubTrie) {
  insert(engine, "prefixToSubTrie", {prefix, engine->prefixToSubTrie(prefixOf("10.3.0.0/24"))});
  expectFault("prefixToSubTrie", row(), "has another sub-trie there");
  expectFault("prefixToSubTrie names a sub-trie without the prefix", kRoute, "");
}

TEST_F(WholeFaults, aSubTrieThatStandsInNoRow) {
  const PrefixTable::Ptr table = subTrie->table();
  const std::string where = row();
  remove(table, "subTrie", {subTrie->index()});
  expectFault("a route whose sub-trie stands in no row", kRoute, "");
  expectFault("a row of the chip that no sub-trie has", where, "NHI ");
}

TEST_F(WholeFaults, aPlacedRouteThatTheStatusLacks) {
  engine->status()->prefixToNextHopBlockDel(prefix);
  expectFault("prefixToNextHopBlock lacks a placed route", kRoute, "");
}

TEST_F(WholeFaults, aRouteOfTheStatusThatIsNotPlaced) {
  const LpmPrefix::Ptr stranger = lpmPrefixV4Factory({0, Corsel::Prefix(0x0a630000, 16)});
  engine->status()->prefixToNextHopBlockIs(stranger, NextHopBlock(0, 1));
  expectFault("prefixToNextHopBlock has a route that is not placed", "IPv4 10.99.0.0/16", "");
  expectFault("subTrie", "IPv4 10.99.0.0/16", "prefix vrf 0 prefix 10.99.0.0/16");
}

TEST_F(WholeFaults, anotherBlockInTheStatus) {
  engine->status()->prefixToNextHopBlockIs(prefix, NextHopBlock(1, 2));
  expectFault("request and prefixToNextHopBlock differ", kRoute, "block 1,2, requested 0,1");
  expectFault("the NHI content and prefixToNextHopBlock differ", kRoute, "in the content 0,1");
}

TEST_F(WholeFaults, aRouteToNextHopRowsOfNoGroup) {
  engine->status()->prefixToNextHopBlockIs(prefix, NextHopBlock(50, 1));
  expectFault("a route to next-hop rows of no group", kRoute, "block 50,1");
  engine->status()->prefixToNextHopBlockIs(prefix, NextHopBlock(5000, 1));
  expectFault("a route to next-hop rows of no group", kRoute, "block 5000,1");
}

TEST_F(WholeFaults, aRequestThatIsNotPlaced) {
  const LpmPrefix::Ptr stranger = lpmPrefixV4Factory({0, Corsel::Prefix(0x0a630000, 16)});
  requestSilently(stranger, NextHopBlock(0, 1));
  expectFault("request has a route that is not placed", "IPv4 10.99.0.0/16", "");
  const AuditReport report =
      auditFamily({.family = Family::ipv4, .engine = *engine, .refusedStayRequested = true});
  EXPECT_TRUE(report.passed()) << textOf(report);
}

TEST_F(WholeFaults, aRequestAheadOfTheRoute) {
  requestSilently(prefix, NextHopBlock(1, 2));
  expectFault("request and prefixToNextHopBlock differ", kRoute, "block 0,1, requested 1,2");
}

TEST(FamilyFaults, aCommandThatWaits) {
  Testing::RestartChip chip(/*longKey=*/false);
  chip.start(/*warm=*/false);
  chip.route("10.1.0.0/24", 7);
  const AuditedFamily family{.family = Family::ipv4, .engine = *chip.sm, .manager = &chip.sdk};
  const std::string text = textOf(auditFamily(family));
  EXPECT_NE(text.find("IPv4 command queue: commands that have not reached the chip: 2, expected 0"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("the chip's row differs: it is clear"), std::string::npos) << text;
  EXPECT_NE(text.find("the chip's NHI entry differs: pair 0 is 0+0, expected 7+1"),
            std::string::npos)
      << text;
  chip.write();
  const AuditReport report = auditFamily(family);
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.routesVerified, 1U);
}

// ---- NHI blocks ----

TEST_F(WholeFaults, anNhiContentOfAnotherSize) {
  NhiInfoKey key = subTrie->nhiInfoKey();
  key.slotToNextHopBlockIs(U8{20}, NextHopBlock(0, 1));
  set(subTrie, "nhiInfoKey", key);
  expectFault("an NHI content of another size", row(), "3, expected 2");
  expectFault("an NHI content without a record", row(), key.str().str());
}

TEST_F(WholeFaults, anNhiBaseThatIsNotItsContents) {
  set(subTrie, "nhiBaseIdx", NhiTableIdx(2, 60));
  expectFault("an NHI base that is not its content's", row(), "2,60, expected");
  expectFault("a set of sub-tries of another size", nhiText(base), "2, expected 1");
}

TEST_F(WholeFaults, aBlockSizeThatIsTooSmall) {
  set(subTrie, "nhiBlkSize", U8{0});
  expectFault("nhiBlkSize", row(), "0, expected 1");
}

TEST_F(WholeFaults, aCountOfUsersThatIsNotTheirs) {
  set(info, "subTrieCount", U32{5});
  expectFault("subTrieCount", nhiText(base), "5, expected 2");
}

TEST_F(WholeFaults, aRecordThatNobodyUses) {
  NhiInfoKey key;
  key.slotToNextHopBlockIs(U8{0}, NextHopBlock(1, 2));
  const NhiInfo::Ptr unused = engine->sharedNhiIs(key);
  unused->nhiBaseIdxIs(NhiTableIdx(1, 40));
  expectFault("subTrieCount", "IPv4 NHI tile 1 entry 40", "0, expected 0");
  expectFault("an NHI record has no block", "IPv4 NHI tile 1 entry 40", "");
}

TEST_F(WholeFaults, twoRecordsOfOneBlock) {
  const SubTrie::Ptr other = engine->prefixToSubTrie(prefixOf("10.3.0.0/24"));
  set(engine->sharedNhi(other->nhiInfoKey()), "nhiBaseIdx", base);
  expectFault("two NHI records name one block", nhiText(base), "");
}

TEST_F(WholeFaults, aRecordOutsideOfTheTiles) {
  set(info, "nhiBaseIdx", NhiTableIdx(7, 0));
  expectFault("an NHI record lies in no tile", "IPv4 NHI tile 7 entry 0", "");
}

TEST_F(WholeFaults, aSetThatLacksAUser) {
  remove(usersOfBase(), "subTrie", {subTrie});
  expectFault("the set of its NHI block lacks the sub-trie", nhiText(base), subTrie->str().str());
}

TEST_F(WholeFaults, aSetWithAStranger) {
  insert(usersOfBase(), "subTrie", {engine->prefixToSubTrie(prefixOf("10.3.0.0/24")), true});
  expectFault("a set of sub-tries of another size", nhiText(base), "3, expected 2");
}

TEST_F(WholeFaults, anEmptySet) {
  insert(engine, "nhiBaseIdxToSubTrie", {NhiTableIdx(1, 3), subTrieSetFactory()});
  expectFault("an empty set of sub-tries", "IPv4 NHI tile 1 entry 3", "");
  expectFault("a set of sub-tries without an NHI record", "IPv4 NHI tile 1 entry 3", "");
}

TEST_F(WholeFaults, aBlockOfNobody) {
  const Brumel::BFA::Blk::Ptr block = engine->nhiAllocator(1)->alloc(2);
  insert(engine, "nhiBaseIdxToBlk", {NhiTableIdx(1, static_cast<U16>(block->offset())), block});
  expectFault("a block without an NHI record",
              "IPv4 NHI tile 1 entry " + std::to_string(block->offset()), "");
}

TEST_F(WholeFaults, aBlockThatOnlyTheTileKnows) {
  const Brumel::BFA::Blk::Ptr block = engine->nhiAllocator(1)->alloc(2);
  expectFault("free entries", "IPv4 NHI tile 1", "16382, expected 16384");
}

TEST_F(WholeFaults, aBlockNamedAfterAnotherTile) {
  const Brumel::BFA::Blk::Ptr block = engine->nhiBaseIdxToBlkDel(base);
  const U8 other = base.tile().value() == 2 ? 1 : 2;
  const NhiTableIdx name(other, base.offset());
  insert(engine, "nhiBaseIdxToBlk", {name, block});
  expectFault("free entries", "IPv4 NHI tile " + std::to_string(other), "16384, expected 16383");
}

TEST_F(WholeFaults, aBlockUnderAnotherName) {
  const Brumel::BFA::Blk::Ptr block = engine->nhiBaseIdxToBlk(base);
  const NhiTableIdx name(base.tile(), 33);
  insert(engine, "nhiBaseIdxToBlk", {name, block});
  expectFault("a block under another name than its place", nhiText(name),
              "it begins at entry " + std::to_string(base.offset()));
  const AuditReport report = audit();
  EXPECT_NE(textOf(report).find("blocks overlap: entry " + std::to_string(base.offset())),
            std::string::npos)
      << textOf(report);
}

TEST_F(WholeFaults, aNameWithoutABlock) {
  insert(engine, "nhiBaseIdxToBlk", {base, Brumel::BFA::Blk::Ptr()});
  expectFault("no block under its name", nhiText(base), "");
}

TEST_F(WholeFaults, aBlockOutOfItsTile) {
  const Brumel::BestFitAllocator::Ptr larger(new Brumel::BestFitAllocator("larger", 20000, 0, 8));
  const Brumel::BFA::Blk::Ptr block = larger->realloc(16383, 4);
  insert(engine, "nhiBaseIdxToBlk", {NhiTableIdx(1, 16383), block});
  expectFault("a block reaches out of its tile", "IPv4 NHI tile 1 entry 16383",
              "16387, expected 16384 or less");
}

TEST_F(WholeFaults, aBlockOfAnotherSize) {
  const Brumel::BFA::Blk::Ptr block = engine->nhiAllocator(base.tile())->realloc(base.offset(), 3);
  ASSERT_NE(block, nullptr) << "its neighbour is in the way";
  expectFault("an NHI block of another size", nhiText(base), "3, expected 1");
}

// ---- groups ----

TEST_F(WholeFaults, nextHopRowsOfNoGroup) {
  const auto groups = chip.client->groups().engineForDiagnosis();
  groups->status()->swIdToNextHopBlockIs(TarnletNextHop::SwId(77), NextHopBlock(40, 2));
  expectFault("next-hop rows of no group", "next-hop row 40", "block 40,2");
  expectFault("next-hop rows in use", "next-hop table", "");
}

TEST_F(WholeFaults, twoGroupsThatShareARow) {
  const auto groups = chip.client->groups().engineForDiagnosis();
  groups->status()->swIdToNextHopBlockIs(TarnletNextHop::SwId(77), NextHopBlock(0, 2));
  const AuditReport report = audit();
  EXPECT_NE(textOf(report).find("two groups share next-hop rows"), std::string::npos)
      << textOf(report);
}

TEST_F(WholeFaults, nextHopRowsBehindTheTable) {
  const auto groups = chip.client->groups().engineForDiagnosis();
  groups->status()->swIdToNextHopBlockIs(TarnletNextHop::SwId(77), NextHopBlock(63, 2));
  expectFault("next-hop rows behind the table", "next-hop row 63", "65, expected 64 or less");
}

// ---- several ----

TEST_F(WholeFaults, severalAtOnceInBothFamilies) {
  set(info, "subTrieCount", U32{5});
  remove(engine, "prefixToSubTrie", {prefixOf("10.3.0.0/24")});
  const LpmSm::Ptr ipv6 = chip.client->family(Family::ipv6).engineForDiagnosis(/*changes=*/false);
  SubTrie::Ptr longOne;
  for (auto table = ipv6->prefixTableIterator(); table; ++table) {
    for (auto standing = table.ptr()->subTrieIterator(); standing; ++standing) {
      longOne = standing.ptr();
    }
  }
  set(longOne, "maxPrefixSlot", U8{0});
  expectFault("subTrieCount", nhiText(base), "5, expected 2");
  expectFault("subTrieSet->subTries() == nhiInfo->subTrieCount()", kRoute, "");
  expectFault("subTrieSet->subTries() == nhiInfo->subTrieCount()", "IPv4 10.2.1.0/24", "");
  expectFault("subTrie", "IPv4 10.3.0.0/24", "");
  expectFault("subTrie->maxPrefixSlot() > 0", "IPv6 2001:db8::/48", "");
}

TEST_F(WholeFaults, theLimitEndsTheListAndNotTheCount) {
  set(info, "subTrieCount", U32{5});
  const AuditReport all = audit();
  ASSERT_GT(all.faultCount, 4U);
  EXPECT_TRUE(all.complete);
  const AuditReport some = audit(/*limit=*/2);
  EXPECT_EQ(some.faults.size(), 2U);
  EXPECT_GE(some.faultCount, 2U);
  EXPECT_FALSE(some.complete) << "not every route was verified";
  EXPECT_LT(some.counts.routesVerified, all.counts.routesVerified);
  EXPECT_FALSE(some.passed());
  const AuditReport one = audit(/*limit=*/1);
  EXPECT_EQ(one.faults.size(), 1U);
  EXPECT_FALSE(one.complete);
  EXPECT_LT(one.counts.routesVerified, some.counts.routesVerified);
}

}  // namespace
}  // namespace Quarle::Agent
