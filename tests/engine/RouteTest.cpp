#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

using RouteOperations = ChipTest;
using RouteOperationsDeathTest = ChipTest;

constexpr const char* kUpdateCheck = "updateNhiInfoForSubTrie( subTrie )";

TEST_F(RouteOperations, theSameBlockAgainIsAnUpdateAndIsWrittenAgain) {
  chip.tables({{.id = 0, .tread = 35}});
  chip.route("10.1.0.0/24", via(7)).drain();
  const std::string again = "nhi 0:0 = 7/1\n" + chip.subTrie("10.1.0.0/24")->str().str();
  TraceLines trace("TarnletSm", {3});
  chip.notify("10.1.0.0/24");
  EXPECT_TRUE(says(trace.take(),
                   {" update prefix ", " new subTrieNhiInfoKey ", " nothing changed in subtrie "}));
  const std::string row = std::to_string(chip.subTrie("10.1.0.0/24")->index().value());
  const std::string commands =
      "nhi 0:0 = 7/1\nprefix t0[" + row + "] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0\n";
  EXPECT_EQ(chip.commands(), commands);
  chip.sm().handleRequest(chip.prefix("10.1.0.0/24"));
  EXPECT_EQ(chip.commands(), commands);
}

TEST_F(RouteOperations, theLongestTreadBelowTheLengthIsTriedFirst) {
  chip.tables({{.id = 0, .tread = 16, .depth = 1},
               {.id = 1, .tread = 24, .depth = 1},
               {.id = 2, .tread = 30, .depth = 1}});
  chip.route("10.1.0.0/24", via(1)).route("20.1.0.0/24", via(2)).route("30.1.0.0/24", via(3));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t2[0].0");
  EXPECT_EQ(chip.where("20.1.0.0/24"), "t1[0].0");
  EXPECT_EQ(chip.where("30.1.0.0/24"), "t0[0].0");
  chip.route("40.0.0.0/13", via(4));  // 29 key bits: not into the tread of 30
  EXPECT_EQ(chip.where("40.0.0.0/13"), "t0[0].1");
}

TEST_F(RouteOperations, theLeastTreadEndsTheWalk) {
  chip.tables({{.id = 0, .tread = 16, .depth = 1}, {.id = 1, .tread = 30, .depth = 1}})
      .leastTread(38, 30);
  chip.route("10.1.0.0/24", via(1));
  TraceLines trace("TarnletSm", {3});
  chip.route("20.1.0.0/24", via(2));
  EXPECT_TRUE(says(trace.take(), {" least tread 30\n", " ret hashCollision\n",
                                  " failing for table 1, tcfg 1,1,1,30\n",
                                  " skip - tread lesser than least tread 0, tcfg 0,1,1,16\n",
                                  " ret hashCollision\n", " insert - fail "}));
  EXPECT_FALSE(chip.installed("20.1.0.0/24"));
}

TEST_F(RouteOperations, aTableOfTheLengthsOwnTreadIsTheLastResort) {
  chip.tables({{.id = 0, .tread = 40, .depth = 1},
               {.id = 1, .tread = 35, .depth = 1},
               {.id = 2, .tread = 24, .depth = 1}});
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.0.0/24", via(1));
  EXPECT_TRUE(says(trace.take(), {" skip - tread is equal to prefix len 0, tcfg 0,1,1,40\n",
                                  " ret pass\n", " insert - ret pass"}));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t1[0].0");
  chip.route("20.1.0.0/24", via(2));
  EXPECT_EQ(chip.where("20.1.0.0/24"), "t2[0].0");
  trace.take();
  chip.route("30.1.0.0/24", via(3));  // all lower treads have refused it
  EXPECT_TRUE(
      says(trace.take(), {" skip - tread is equal to prefix len ", " failing for table 1,",
                          " failing for table 2,", " creating subtrie ", " insert - ret pass"}));
  EXPECT_EQ(chip.where("30.1.0.0/24"), "t0[0].0");
  chip.route("40.1.0.0/24", via(4));  // and so does this one now, and it
  EXPECT_TRUE(
      says(trace.take(), {" skip - tread is equal to prefix len ", " failing for table 1,",
                          " failing for table 2,", " failing for table 0,", " failing for table 1,",
                          " failing for table 2,", " ret hashCollision\n", " insert - fail "}));
}

TEST_F(RouteOperations, aShuffleFreesALastResortToo) {
  chip.tables({{.id = 0, .tread = 40, .depth = 1}, {.id = 1, .tread = 40, .depth = 1}});
  chip.route("10.1.0.0/24", via(1)).route("20.1.0.0/24", via(2));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t1[0].0");
  EXPECT_EQ(chip.where("20.1.0.0/24"), "t0[0].0");
}

TEST_F(RouteOperations, aTableOfTheLengthsTreadBelowTheLeastTreadIsSkipped) {
  chip.tables({{.id = 0, .tread = 40, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}})
      .leastTread(35, 35);
  chip.route("10.1.0.0/24", via(1));
  TraceLines trace("TarnletSm", {3});
  chip.route("20.1.0.0/19", via(2));  // 35 key bits: table 1 is its last and only resort
  EXPECT_TRUE(says(trace.take(), {" least tread 35\n", " skip - tread larger than prefix len 0,",
                                  " skip - tread is equal to prefix len 1,", " hash collision ",
                                  " insert - fail "}));
}

TEST_F(RouteOperationsDeathTest, aLengthThatNoTableMayHoldAborts) {
  chip.tables({{.id = 0, .tread = 24, .depth = 1}, {.id = 1, .tread = 20, .depth = 1}})
      .leastTread(38, 30)
      .start();
  // Every tread is below the least tread.
  EXPECT_DEATH(chip.route("10.1.0.0/24", via(1)),
               failure("prefixTableFound", " lpmPrefix vrf 0 prefix 10.1.0.0/24"));
  // Every tread is above the length.
  EXPECT_DEATH(chip.route("0.0.0.0/0", via(1)),
               failure("prefixTableFound", " lpmPrefix vrf 0 prefix 0.0.0.0/0"));
}

TEST_F(RouteOperations, amongEqualTreadsTheOccupantMovesBeforeTheNextTableIsTried) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(1));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  chip.route("20.1.0.0/24", via(2));
  EXPECT_EQ(chip.where("20.1.0.0/24"), "t0[0].0");
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t1[0].0");
}

TEST_F(RouteOperations, afterARefusalTheNextNotificationWalksFromTheFirstTable) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 24, .depth = 1}});
  chip.route("10.1.0.0/24", via(1)).route("20.1.0.0/24", via(2));  // t0=10.1 t1=20.1
  chip.route("30.1.0.0/24", via(3));
  EXPECT_FALSE(chip.installed("30.1.0.0/24"));
  chip.withdraw("10.1.0.0/24").notify("30.1.0.0/24");
  EXPECT_EQ(chip.where("30.1.0.0/24"), "t0[0].0");
}

TEST_F(RouteOperations, theLastPrefixTakesItsSubTrieOutOfTheTableBeforeTheClearIsBuilt) {
  chip.tables({{.id = 5, .tread = 35, .depth = 9, .rows = {{"10.1.0.0/19", 8}}}});
  chip.route("10.1.0.0/24", via(1)).drain();
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");

  // Seen from a reactor on the queue, when the clear is enqueued.
  class Watch : public Status::Notifiee {
   public:
    explicit Watch(PrefixTable::Ptr table) : table_(std::move(table)) {}

    void onPendingCmd(const U32&) override { rows = table_->subTries(); }

    U32 rows = 99;

   private:
    PrefixTable::Ptr table_;
  };

  const Vellor::Ptr<Watch> watch = new Watch(chip.table(5));
  watch->notifierIs(chip.status());
  watch->isRegisteredNotifieeIs(true);
  chip.config()->requestDel(chip.prefix("10.1.0.0/24"));
  EXPECT_EQ(watch->rows, 0U);
  EXPECT_COMMANDS(chip, "clear t5[8] branch=10.1.0.0/24 stride=8 [-] nhi=0:0");
  // What has gone keeps its slots' count and its stale base.
  EXPECT_EQ(subTrie->maxPrefixSlot(), 1);
  EXPECT_EQ(subTrie->nhiBaseIdx(), NhiTableIdx(0, 0));
}

TEST_F(RouteOperations, aDeleteLeavesBranchAndStrideAndClosesTheHole) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/20", via(1)).route("10.1.1.0/24", via(2)).route("10.1.2.0/28", via(3));
  chip.route("10.1.3.0/24", via(4)).drain();  // stride 9 for the /28
  TraceLines trace("TarnletSm", {3});
  chip.withdraw("10.1.0.0/20");
  EXPECT_TRUE(says(trace.take(), {" delete prefix ", " subtrie is compacted ",
                                  " new subTrieNhiInfoKey ", " allocating a new nhiInfo "}));
  EXPECT_EQ(chip.subTrie("10.1.1.0/24")->branchLen(), 36);
  EXPECT_EQ(chip.subTrie("10.1.1.0/24")->stride(), 9);
  EXPECT_EQ(chip.subTrie("10.1.1.0/24")->maxPrefixSlot(), 3);
  // The slots 1 to 3 of before are walked in bit-reversed order: 2 1 3.
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 3/1 2/1 4/1
      prefix t0[0] branch=10.1.0.0/20 stride=9 [10.1.2.0/28, 10.1.1.0/24, 10.1.3.0/24] nhi=0:0)");
  trace.take();
  chip.withdraw("10.1.1.0/24").withdraw("10.1.2.0/28").withdraw("10.1.3.0/24");
  EXPECT_TRUE(says(trace.take(), {" subtrie is empty, delete it "}));
}

TEST_F(RouteOperations, anUpdateWithoutRoomKeepsTheOldBlockEverywhere) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).tiles(1, 1);
  chip.route("10.1.0.0/24", via(1)).drain();
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.0.0/24", via(2));
  EXPECT_TRUE(says(trace.take(), {" update prefix ", " allocating a new nhiInfo ",
                                  " nhi block not available ", " update failed "}));
  EXPECT_COMMANDS(chip, "");
  EXPECT_EQ(chip.status()->prefixToNextHopBlock(chip.prefix("10.1.0.0/24")), via(1));
  EXPECT_EQ(chip.lookup("10.1.0.1"), "1/1");
  chip.route("10.1.0.0/24", via(1));  // the old block again needs no room
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 1/1
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0)");
}

TEST_F(RouteOperations, anUpdateNeverMovesThePrefix) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 24, .depth = 1}});
  chip.route("10.1.0.0/24", via(1)).route("20.1.0.0/24", via(2)).withdraw("10.1.0.0/24");
  chip.route("20.1.0.0/24", via(3));  // table 0 would have room now
  EXPECT_EQ(chip.where("20.1.0.0/24"), "t1[0].0");
  EXPECT_EQ(chip.lookup("20.1.0.1"), "3/1");
}

TEST_F(RouteOperations, aRefusalDumpsTheTablesAtLevelNine) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(1));
  TraceLines trace("TarnletSm", {9});
  chip.route("20.1.0.0/24", via(2));
  EXPECT_TRUE(says(trace.take(), {"9:Dump prefix table 0 tread 35\n", "9:-- SubTrie 0:\n",
                                  "9:    -- prefix slot 0 vrf 0 prefix 10.1.0.0/24\n"}));
}

TEST_F(RouteOperationsDeathTest, aDeleteThatLeavesSomethingBehindNeedsABlock) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).tiles(1, 2);
  chip.route("10.1.0.0/20", via(1)).route("10.1.1.0/24", via(2));
  chip.sm().allocateNhiBlock(1);
  const std::string subTrie = "0,36,8,modeSparse,1,1,1,22/";
  EXPECT_DEATH(
      chip.withdraw("10.1.1.0/24"),
      ::testing::AllOf(
          ::testing::HasSubstr(std::string("Failed(") + kUpdateCheck + ")  subtrie " + subTrie),
          ::testing::HasSubstr(" lpmPrefix vrf 0 prefix 10.1.1.0/24engine/LpmSm"),
          ::testing::HasSubstr(std::string("Assertion `! \"") + kUpdateCheck + "\"'")));
  chip.endMachine();
}

TEST_F(RouteOperationsDeathTest, onlyInstalledPrefixesAreUpdatedAndDeleted) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).start();
  EXPECT_DEATH(chip.sm().updatePrefix(chip.prefix("10.1.0.0/24")),
               failure("subTrie", " lpmPrefix vrf 0 prefix 10.1.0.0/24"));
  EXPECT_DEATH(chip.sm().deletePrefix(chip.prefix("10.1.0.0/24")),
               failure("subTrie", " lpmPrefix vrf 0 prefix 10.1.0.0/24"));
}

TEST_F(RouteOperationsDeathTest, aHoleInTheSortedTablesAborts) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 24, .depth = 1}});
  chip.route("10.1.0.0/24", via(1)).sm().hashShufflingEnabledIs(false);
  chip.config()->prefixTableSortedByTreadDel(1);
  EXPECT_DEATH(chip.route("20.1.0.0/24", via(2)),
               failure("prefixTable", " lpmPrefix vrf 0 prefix 20.1.0.0/24 i 1"));
}

}  // namespace
