#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

/// Tables whose rows the tests say; 10.1, 10.9 and 10.17 meet in row 0 of table 0.
class HashShuffling : public ChipTest {
 protected:
  std::string counters() {
    return std::to_string(chip.sm().numHashShufflingAttempt()) + " tried, " +
           std::to_string(chip.sm().numHashShufflingSuccess()) + " moved";
  }
};

using HashShufflingDeathTest = HashShuffling;

TEST_F(HashShuffling, aSingleTableOfATreadOnlyCountsTheAttempt) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 24, .depth = 0x7fff}});
  chip.route("10.1.0.0/24", via(7)).drain();
  chip.wantSilently("10.9.0.0/24", via(8));
  EXPECT_EQ(chip.sm().insertPrefixInternal(chip.prefix("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::hashCollision);
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  EXPECT_COMMANDS(chip, "");
  EXPECT_EQ(counters(), "1 tried, 0 moved");
}

TEST_F(HashShuffling, theOccupantGoesToTheOtherTableAndTheNewcomerGetsItsRow) {
  chip.tables({{.id = 0, .tread = 35, .depth = 4, .rows = {{"10.1.0.0/19", 3}, {"10.9.0.0/19", 3}}},
               {.id = 1, .tread = 35, .depth = 4, .rows = {{"10.1.0.0/19", 2}}}});
  chip.route("10.1.0.0/24", via(7)).drain();  // t0[3]=10.1.0.0/24
  TraceLines trace("TarnletSm", {3});
  chip.route("10.9.0.0/24", via(8));  // t0[3]=10.9.0.0/24 t1[2]=10.1.0.0/24
  EXPECT_TRUE(says(
      trace.take(),
      {" hash collision ", " numHashShufflingAttempt 1\n", " srcPrefixTableIdx 3\n",
       "  i 0 dstPrefixTable 0, tcfg 0,1,4,35\n", " skip - src and dst are same ",
       "  i 1 dstPrefixTable 1, tcfg 1,1,4,35\n", " dstPrefixTableIdx 2\n",
       " insert to 1, tcfg 1,1,4,35/2\n", "   moving slot 0 lpmPrefix vrf 0 prefix 10.1.0.0/24\n",
       " delete from 0, tcfg 0,1,4,35/3\n", " moved pass\n", " subTrieMoved pass\n",
       " numHashShufflingSuccess 1\n", " ret retry\n", " failing for table ",
       " prefixTableIdx not in subTrie ", " ret pass\n", " insert - ret "}));
  EXPECT_COMMANDS(chip, R"(
      prefix t1[2] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0
      clear t0[3] branch=10.1.0.0/24 stride=8 [-] nhi=0:0
      nhi 0:1 = 8/1
      prefix t0[3] branch=10.9.0.0/24 stride=8 [10.9.0.0/24] nhi=0:1)");
  EXPECT_EQ(counters(), "1 tried, 1 moved");
}

TEST_F(HashShuffling, anOccupiedTargetIsNotDisplaced) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).route("10.9.0.0/24", via(8)).drain();
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t1[0].0");
  EXPECT_EQ(chip.where("10.9.0.0/24"), "t0[0].0");
  TraceLines trace("TarnletSm", {3});
  chip.route("10.17.0.0/24", via(9));
  EXPECT_TRUE(says(trace.take(),
                   {" skip - src and dst are same ",
                    " skip - subtrie already present 0,40,8,modeSparse,", " moved fail\n",
                    " subTrieMoved fail\n", " numHashShufflingSuccess 1\n", " ret hashCollision\n",
                    " skip - subtrie already present ", " moved fail\n", " insert - fail "}));
  EXPECT_COMMANDS(chip, "");
  EXPECT_EQ(counters(), "3 tried, 1 moved");
}

TEST_F(HashShuffling, tablesOfAnotherTreadAreNeverTargets) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 34, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  TraceLines trace("TarnletSm", {3});
  chip.route("10.9.0.0/24", via(8));
  EXPECT_TRUE(says(trace.take(), {" skip - src and dst are same ", " skip - tread are different ",
                                  " moved fail\n", " ret hashCollision\n"}));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  EXPECT_EQ(chip.where("10.9.0.0/24"), "t1[0].0");  // the walk goes on to the lower tread
}

TEST_F(HashShuffling, theRetryGoesToTheSameTable) {
  // Table 1 has a free row for the newcomer too; the row made free in table 0 comes first.
  chip.tables(
      {{.id = 0, .tread = 35, .depth = 1},
       {.id = 1, .tread = 35, .depth = 2, .rows = {{"10.1.0.0/19", 0}, {"10.9.0.0/19", 1}}}});
  chip.route("10.1.0.0/24", via(7)).route("10.9.0.0/24", via(8));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t1[0].0");
  EXPECT_EQ(chip.where("10.9.0.0/24"), "t0[0].0");
}

TEST_F(HashShuffling, theFirstFreeRowInTheSortedTablesWins) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1},
               {.id = 1, .tread = 35, .depth = 1},
               {.id = 2, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).route("10.9.0.0/24", via(8));  // sorted: t0 t2 t1
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t2[0].0");
  chip.route("10.17.0.0/24", via(9));
  EXPECT_EQ(chip.where("10.9.0.0/24"), "t1[0].0");
  EXPECT_EQ(chip.where("10.17.0.0/24"), "t0[0].0");
}

TEST_F(HashShuffling, switchedOffItLeavesCountersAndOccupantAlone) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.sm().hashShufflingEnabledIs(false);
  chip.route("10.1.0.0/24", via(7));
  TraceLines trace("TarnletSm", {3});
  chip.route("10.9.0.0/24", via(8));
  EXPECT_TRUE(says(trace.take(), {" hash collision ", " prefixTableIdx in subTrie ",
                                  " ret subTriePresent\n", " ret pass\n"}));
  EXPECT_EQ(counters(), "0 tried, 0 moved");
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  EXPECT_EQ(chip.where("10.9.0.0/24"), "t1[0].0");
}

TEST_F(HashShuffling, aSubTrieOfManyPrefixesCostsTheSameTwoCommands) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  for (U32 i = 0; i < 5; ++i) {
    chip.route("10.1." + std::to_string(i) + ".0/24", via(i));
  }
  const SubTrie::Ptr occupant = chip.subTrie("10.1.0.0/24");
  const std::string before = occupant->str().str();
  chip.drain();
  chip.route("10.9.0.0/24", via(9));
  EXPECT_COMMANDS(chip, R"(
      prefix t1[0] branch=10.1.0.0/21 stride=11 [10.1.0.0/24, 10.1.2.0/24, 10.1.1.0/24, 10.1.3.0/24, 10.1.4.0/24] nhi=0:0
      clear t0[0] branch=10.1.0.0/21 stride=11 [-, -, -, -, -] nhi=0:0
      nhi 0:1 = 9/1
      prefix t0[0] branch=10.9.0.0/24 stride=8 [10.9.0.0/24] nhi=0:1)");
  // The same object, with everything but its place.
  EXPECT_EQ(chip.subTrie("10.1.4.0/24"), occupant);
  EXPECT_EQ(occupant->str(), before.c_str());
  EXPECT_EQ(occupant->table(), chip.table(1).get());
}

TEST_F(HashShuffling, theClearNamesTheOldPlaceThoughTheSubTrieKnowsOnlyTheNew) {
  chip.tables({{.id = 0, .tread = 35, .depth = 4, .rows = {{"10.1.0.0/19", 3}, {"10.9.0.0/19", 3}}},
               {.id = 1, .tread = 35, .depth = 4, .rows = {{"10.1.0.0/19", 2}}}});
  chip.route("10.1.0.0/24", via(7)).drain();
  const SubTrie::Ptr occupant = chip.subTrie("10.1.0.0/24");
  EXPECT_EQ(chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::pass);
  EXPECT_EQ(occupant->index(), PrefixTableIdx(2));
  EXPECT_EQ(occupant->table(), chip.table(1).get());
  EXPECT_EQ(chip.table(0)->subTries(), 0U);
  EXPECT_COMMANDS(chip, R"(
      prefix t1[2] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0
      clear t0[3] branch=10.1.0.0/24 stride=8 [-] nhi=0:0)");
}

TEST_F(HashShuffling, aMovedSubTrieMayMoveBack) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).route("10.9.0.0/24", via(8));  // t0=10.9 t1=10.1
  chip.withdraw("10.9.0.0/24");
  EXPECT_EQ(chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(1)),
            RouteReturnCode::pass);
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
}

TEST_F(HashShuffling, aMoveStaysDoneWhenTheInsertFailsAfterAll) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}}).tiles(1, 1);
  chip.route("10.1.0.0/24", via(7)).drain();
  TraceLines trace("TarnletSm", {3});
  chip.route("10.9.0.0/24", via(8));  // no entry is left
  EXPECT_TRUE(says(trace.take(), {" moved pass\n", " full NHI table ", " ret nhiTableFull\n"}));
  EXPECT_FALSE(chip.installed("10.9.0.0/24"));
  EXPECT_EQ(chip.table(1)->subTries(), 0U);
  // The newcomer frees table 0, is refused there, and then frees table 1 as well.
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  EXPECT_COMMANDS(chip, R"(
      prefix t1[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0
      clear t0[0] branch=10.1.0.0/24 stride=8 [-] nhi=0:0
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0
      clear t1[0] branch=10.1.0.0/24 stride=8 [-] nhi=0:0)");
  EXPECT_EQ(counters(), "2 tried, 2 moved");
}

TEST_F(HashShuffling, theTargetsEntrySizeIsNotLookedAt) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1},
               {.id = 1, .tread = 35, .depth = 1, .type = prefixTableNarrow128b}});
  chip.route("10.1.0.0/20", via(0));
  for (U32 i = 1; i < 8; ++i) {
    chip.route("10.1." + std::to_string(i) + ".0/24", via(i));
  }
  chip.drain();  // 8 leaves of 8 behind 36 bits: more than 88
  EXPECT_EQ(chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::pass);
  EXPECT_EQ(chip.where("10.1.0.0/20"), "t1[0].0");
  chip.drain();
  EXPECT_TRUE(says(chip.takeFaults(), {"the row is wider than the entry: prefix t1[0] "}));
  chip.endMachine();
}

TEST_F(HashShufflingDeathTest, aRowWithoutSubTrieCannotMove) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).start();
  EXPECT_DEATH(
      chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(0)),
      failure("srcSubTrie", " lpmPrefix vrf 0 prefix 10.9.0.0/24 srcPrefixTable 0, tcfg 0,1,1,35"));
}

TEST_F(HashShufflingDeathTest, aSubTrieWithoutPrefixCannotMove) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).start();
  const LpmPrefix::Ptr prefix = chip.prefix("10.9.0.0/24");
  const SubTrie::Ptr empty =
      subTrieFactory(0, prefix->branch(40), 40, 8, modeSparse, chip.table(0));
  chip.table(0)->subTrieIs(0, empty);
  const std::string words =
      " lpmPrefix vrf 0 prefix 10.9.0.0/24 srcPrefixTable 0, tcfg 0,1,1,35 subTrie 0,40,8,"
      "modeSparse,0,0,0,";
  EXPECT_DEATH(chip.sm().moveSubTrie(prefix, chip.table(0)),
               failure("srcLpmPrefix", words + "0/0x0,0/255,65535"));
  empty->allocatePrefixBitmap();
  EXPECT_DEATH(chip.sm().moveSubTrie(prefix, chip.table(0)),
               failure("srcLpmPrefix", words + "22/0x0,0/255,65535"));
  chip.table(0)->subTrieDel(0);
}

TEST_F(HashShufflingDeathTest, aHoleInTheSortedTablesAborts) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7));
  chip.config()->prefixTableSortedByTreadDel(1);
  EXPECT_DEATH(chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(0)),
               failure("dstPrefixTable", " lpmPrefix vrf 0 prefix 10.9.0.0/24 i 1"));
}

}  // namespace
