#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

/// One row, so that everything meets in it.
class TableInsertion : public ChipTest {
 protected:
  TableInsertion& row(U8 tread, PrefixTableType type = prefixTableWide256b) {
    chip.tables({{.id = 0, .tread = tread, .depth = 1, .type = type}});
    return *this;
  }

  LpmPrefix::Ptr wanted(const std::string& text) {
    chip.wantSilently(text, via(9));
    return chip.prefix(text);
  }
};

using TableInsertionDeathTest = TableInsertion;

TEST_F(TableInsertion, theFirstPrefixTakesTheSmallestStrideAndItsLengthAsBranch) {
  row(35);
  chip.strides({0, 9, 20}).config()->availableStrideIs(9, false);  // the value plays no part
  TraceLines trace("TarnletSm", {3, 6});
  chip.route("10.1.0.0/24", via(7));
  // Never in place: the compaction makes the bitmap.
  EXPECT_TRUE(says(
      trace.take(),
      {" prefixTableIdx 0\n", "3: prefixTableIdx not in subTrie ", "3: creating subtrie ",
       "3: newNumPrefixes 1\n", "3: disable inplace update - changed stride or branchlen ",
       "3: disable inplace update - no nhi or more nhi rqd ",
       "3: update inPlace 0 newStride 9 newBranchLen 40\n", "6: SubTrie::compactPrefixes subtrie ",
       "6: compacted subtrie ", "6: SubTrie::addPrefix subtrie ", "3: inserted prefix in subtrie ",
       "3: ret pass\n", "3: ret pass\n", "3: insert - ret pass"}));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1
      prefix t0[0] branch=10.1.0.0/24 stride=9 [10.1.0.0/24] nhi=0:0)");
  // (216 - 40) / 9
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->prefixBitmap()->size(), 19U);
}

TEST_F(TableInsertion, aLongKeyInANarrowEntryGivesBranchBitsToItsLeaf) {
  chip.ipv6();
  row(60, prefixTableNarrow128b);
  // 85 key bits leave 3 of 88, too few for a leaf of 8: the branch is cut to 85 + 1 - 8.
  chip.route("2001:db8:1:2:800::/69", via(7));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1
      prefix t0[0] branch=2001:db8:1::/62 stride=8 [2001:db8:1:2:800::/69] nhi=0:0)");
}

TEST_F(TableInsertion, theBranchMayBeCutToTheTreadItself) {
  chip.ipv6();
  row(78, prefixTableNarrow128b);
  chip.route("2001:db8:1:2:800::/69", via(7));
  EXPECT_EQ(chip.subTrie("2001:db8:1:2:800::/69")->branchLen(), 78);
}

TEST_F(TableInsertion, theBranchIsNotCutBelowTheTread) {
  chip.ipv6();
  row(79, prefixTableNarrow128b);
  chip.route("2001:db8:1:2:800::/69", via(7));
  EXPECT_FALSE(chip.installed("2001:db8:1:2:800::/69"));
  EXPECT_EQ(chip.table(0)->subTries(), 0U);
  EXPECT_COMMANDS(chip, "");
}

TEST_F(TableInsertion, aBranchOfTheWholeEntryLeavesNoRoomForAStrideOfOne) {
  chip.ipv6().strides({1});
  row(60, prefixTableNarrow128b);
  TraceLines trace("TarnletSm", {3});
  chip.route("2001:db8:1:2:100::/72", via(7));  // 88 key bits
  EXPECT_TRUE(says(trace.take(), {" full prefix table ", " ret full\n", " failing for table ",
                                  " ret full\n", " insert - fail "}));
}

TEST_F(TableInsertionDeathTest, aPrefixLongerThanTheEntryAborts) {
  chip.ipv6();
  row(60, prefixTableNarrow128b);
  chip.start();
  EXPECT_DEATH(chip.route("2001:db8:1:2:80::/73", via(7)),
               assertion("table()->tableConfig()->entrySize() >= branchLen"));
}

TEST_F(TableInsertionDeathTest, aPrefixShorterThanTheTreadMakesNoSubTrie) {
  row(35);
  chip.start();
  EXPECT_DEATH(chip.sm().createSubTrieWithPrefix(chip.prefix("10.0.0.0/18"), chip.table(0)),
               failure("branchLen >= tread", " lpmPrefix vrf 0 prefix 10.0.0.0/18 tread 35"));
}

TEST_F(TableInsertion, aSecondPrefixWithinTheReachGoesInPlace) {
  row(35);
  chip.route("10.1.0.0/20", via(7)).drain();
  TraceLines trace("TarnletSm", {3, 6});
  chip.route("10.1.1.0/27", via(8));  // 36 + 8 - 1 = 43 key bits, the longest that fits
  const std::string lines = trace.take();
  EXPECT_TRUE(
      says(lines, {"3: newNumPrefixes 2\n", "3: update inPlace 1 newStride 8 newBranchLen 36\n",
                   "6: SubTrie::addPrefix subtrie "}));
  EXPECT_EQ(lines.find("compactPrefixes"), std::string::npos) << lines;
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1 8/1
      prefix t0[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20, 10.1.1.0/27] nhi=0:1)");
}

TEST_F(TableInsertion, oneBitBeyondTheReachWidensTheStride) {
  row(35);
  chip.route("10.1.0.0/20", via(7)).drain();
  chip.route("10.1.1.0/28", via(8));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1 8/1
      prefix t0[0] branch=10.1.0.0/20 stride=9 [10.1.0.0/20, 10.1.1.0/28] nhi=0:1)");
}

TEST_F(TableInsertion, aShorterPrefixShrinksTheBranchAndWidensTheStride) {
  row(35);
  chip.route("10.1.0.0/24", via(7)).drain();
  chip.route("10.1.0.0/20", via(8));  // 8 + 4 bits
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1 8/1
      prefix t0[0] branch=10.1.0.0/20 stride=12 [10.1.0.0/24, 10.1.0.0/20] nhi=0:1)");
  chip.route("10.1.0.0/19", via(9));  // 13 bits: the next stride is 14; the tread is 35
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1 8/1 9/1
      prefix t0[0] branch=10.1.0.0/19 stride=14 [10.1.0.0/24, 10.1.0.0/20, 10.1.0.0/19] nhi=0:0)");
}

TEST_F(TableInsertion, aPrefixBelowTheTreadCollides) {
  row(35);
  chip.route("10.1.0.0/24", via(7)).drain();
  EXPECT_EQ(chip.sm().insertPrefixToTable(wanted("10.1.0.0/18"), chip.table(0)),
            RouteReturnCode::hashCollision);
}

TEST_F(TableInsertion, otherTreadBitsCollideEvenAtTheTreadsOwnLength) {
  row(35);
  chip.route("10.1.0.0/24", via(7)).drain();
  TraceLines trace("TarnletSm", {3});
  EXPECT_EQ(chip.sm().insertPrefixToTable(wanted("10.1.32.0/19"), chip.table(0)),
            RouteReturnCode::hashCollision);
  EXPECT_TRUE(says(trace.take(), {" hash collision "}));
}

TEST_F(TableInsertion, aCommonLengthOfExactlyTheTreadIsNoCollision) {
  row(35);
  chip.route("10.1.0.0/24", via(7)).drain();
  chip.route("10.1.16.0/24", via(8));  // differs in key bit 35, the first behind the tread
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1 8/1
      prefix t0[0] branch=10.1.0.0/19 stride=14 [10.1.0.0/24, 10.1.16.0/24] nhi=0:1)");
}

TEST_F(TableInsertion, aLargerBlockCompactsAlthoughTheGeometryStays) {
  row(35);
  chip.pairsPerEntry(6);
  chip.route("10.1.0.0/20", via(1));
  for (U32 i = 1; i < 6; ++i) {
    chip.route("10.1." + std::to_string(i) + ".0/24", via(i + 1));
  }
  chip.drain();  // slots 0 to 5 in the order of arrival
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.6.0/24", via(7));
  const std::string lines = trace.take();
  EXPECT_EQ(lines.find("changed stride or branchlen"), std::string::npos) << lines;
  EXPECT_TRUE(says(lines, {" disable inplace update - no nhi or more nhi rqd ",
                           " update inPlace 0 newStride 8 newBranchLen 36\n"}));
  // Compaction takes the old slots in bit-reversed order: 0 4 2 1 5 3.
  EXPECT_COMMANDS(chip, R"(
      nhi 0:2 = 1/1 5/1 3/1 2/1 6/1 4/1
      nhi 0:3 = 7/1
      prefix t0[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20, 10.1.4.0/24, 10.1.2.0/24, 10.1.1.0/24, 10.1.5.0/24, 10.1.3.0/24, 10.1.6.0/24] nhi=0:2)");
}

TEST_F(TableInsertion, aNinthPrefixExceedsTheOneEntryWhateverRoomThereIs) {
  row(35);
  chip.oneEntryPerSubTrie();
  for (U32 i = 0; i < 8; ++i) {
    chip.route("10.1." + std::to_string(i) + ".0/24", via(i));
  }
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.8.0/24", via(8));
  EXPECT_TRUE(
      says(trace.take(), {" exceeded NHI entry's capacity ", " prefixTableIdx in subTrie ",
                          " ret subTriePresent\n", " failing for table ", " insert - fail "}));
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->prefixs(), 8U);
  EXPECT_FALSE(chip.installed("10.1.8.0/24"));
}

TEST_F(TableInsertion, aStrideBeyondEveryLengthLeavesNoBranchAndAllCollide) {
  row(35, prefixTableNarrow128b);
  chip.strides({64});
  // 40 + 64 bits do not fit into 88, and 40 is below 64: no branch bit is left.
  chip.route("10.1.0.0/24", via(7));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1
      prefix t0[0] branch=vrf bits 0x0000/0 stride=64 [10.1.0.0/24] nhi=0:0)");
  EXPECT_EQ(chip.sm().insertPrefixToTable(wanted("10.1.1.0/24"), chip.table(0)),
            RouteReturnCode::hashCollision);
  chip.forgetSilently("10.1.1.0/24");
  EXPECT_EQ(chip.lookup("10.1.0.5"), "7/1");
}

TEST_F(TableInsertion, whenNoStrideIsWideEnoughTheRowIsFull) {
  row(16);
  chip.strides({8});
  chip.route("10.1.0.0/24", via(7)).drain();
  TraceLines trace("TarnletSm", {3, 6});
  chip.route("10.0.0.0/8", via(8));
  EXPECT_TRUE(says(trace.take(),
                   {"6: SubTrie::fit subtrie ",
                    " branchLen 24 stride 255 numPrefixes 2 mode modeSparse "
                    "entrySize 216\n",
                    "6:   usedBits 510 availBits 192\n", " branchLen 0 stride 255 numPrefixes 2 ",
                    "6:   usedBits 510 availBits 216\n", "3: full prefix table "}));
  EXPECT_FALSE(chip.installed("10.0.0.0/8"));
}

TEST_F(TableInsertion, collisionsWithShufflingOffReadSubTriePresent) {
  row(35);
  chip.route("10.1.0.0/24", via(7)).drain();
  chip.sm().hashShufflingEnabledIs(false);
  EXPECT_EQ(chip.sm().insertPrefixInternal(wanted("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::subTriePresent);
  TraceLines trace("TarnletSm", {3});
  chip.notify("10.9.0.0/24");
  EXPECT_TRUE(says(trace.take(), {" hash collision ", " ret subTriePresent\n"}));
}

TEST_F(TableInsertion, aSubTrieNarrowsOnlyWhenTheWideLayoutHasNoRoom) {
  // After the /19 has gone, branch 35 and stride 14 stay: 12 leaves in 216 - 35 bits.
  row(35);
  chip.route("10.1.0.0/24", via(0)).route("10.1.0.0/19", via(1)).withdraw("10.1.0.0/19").drain();
  for (U32 i = 1; i < 12; ++i) {
    chip.route("10.1.0." + std::to_string(16 * i) + "/28", via(i));
  }
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->stride(), 14);
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->branchLen(), 35);
  chip.drain();
  chip.route("10.1.0.192/28", via(12));
  // All begin with the /24 and reach 4 bits behind it: stride 8 from 44 + 1 - 8 on.
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->stride(), 8);
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->branchLen(), 37);
  EXPECT_EQ(chip.subTrie("10.1.0.0/24")->prefixs(), 13U);
}

TEST_F(TableInsertion, bitsBehindTheCommonBranchMayStaySet) {
  row(35);
  chip.route("10.1.0.0/32", via(7)).route("10.1.31.255/32", via(8));
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.31.255/32");
  EXPECT_EQ(subTrie->branchLen(), 35);
  // The byte in which they differ is cut, the one behind it is the newcomer's.
  EXPECT_EQ(subTrie->branch(), SubTrieBranch(0x00000a01, 0x00ff0000, 0, 0, 0));
}

TEST_F(TableInsertion, aRefusalForLackOfEntriesComesBeforeAnyChange) {
  row(35);
  chip.tiles(1, 1);
  chip.route("10.1.0.0/20", via(7)).drain();
  const std::string before = chip.subTrie("10.1.0.0/20")->str().str();
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.1.0/24", via(8));
  EXPECT_TRUE(says(trace.take(), {" update inPlace 1 ", " full NHI table "}));
  EXPECT_EQ(chip.subTrie("10.1.0.0/20")->str(), before.c_str());
  EXPECT_COMMANDS(chip, "");
}

TEST_F(TableInsertionDeathTest, aPromisedBlockThatIsNotToBeHadIsFatal) {
  // The promise counts free entries, and the allocator's limit is below the block.
  row(35);
  chip.pairsPerEntry(2);
  chip.route("10.1.0.0/20", via(1)).route("10.1.1.0/24", via(2)).drain();
  chip.sm().nhiAllocatorIs(0, new Brumel::BestFitAllocator("nhiAllocator", 64, 0, 1));
  EXPECT_DEATH(chip.route("10.1.2.0/24", via(3)), assertion("blk"));
  chip.endMachine();
}

}  // namespace
