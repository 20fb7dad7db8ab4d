#include <string>
#include <vector>

#include "nexthop/TarnletNextHopSm.h"
#include "tests/nexthop/NextHopTable.h"
#include "tests/support/TraceLines.h"

#include <gtest/gtest.h>

namespace {

using namespace Quarle::TarnletNextHop;
using Quarle::TarnletNextHop::Testing::NextHopTable;
using Vellor::Testing::TraceLines;

/// Groups 1 to 4 of two rows each fill a table of 8.
NextHopTable fullTableOfFour() {
  NextHopTable table(8);
  table.start().want(1, 2).want(2, 2).want(3, 2).want(4, 2);
  return table;
}

TEST(LpmNextHopSm, insertionsTakeTheLowestRowsInTurn) {
  NextHopTable table(10);
  table.start().want(1, 2).want(2, 1).want(3, 4);
  EXPECT_EQ(table.groups(), "1@0+2 2@2+1 3@3+4");
  EXPECT_EQ(table.moves(), "") << "a plain insertion moves nothing";
  EXPECT_EQ(table.freeRows(), 3U);
  table.audit();
}

TEST(LpmNextHopSm, deletionGivesTheRowsBack) {
  NextHopTable table = fullTableOfFour();
  table.withdraw(2);
  EXPECT_EQ(table.groups(), "1@0+2 3@4+2 4@6+2");
  EXPECT_EQ(table.freeRows(), 2U);
  EXPECT_EQ(table.sm->baseIdxToSwId(2), SwId());
  table.want(5, 2);
  EXPECT_EQ(table.groups(), "1@0+2 5@2+2 3@4+2 4@6+2");
  EXPECT_EQ(table.moves(), "");
  table.audit();
}

TEST(LpmNextHopSm, fragmentedRowsAreCompactedForALargerGroup) {
  NextHopTable table = fullTableOfFour();  // 1 1 2 2 3 3 4 4
  table.withdraw(1).withdraw(3);           // . . 2 2 . . 4 4
  TraceLines trace("TarnletNextHop", {7});
  table.want(5, 3);  // 2 2 4 4 5 5 5 .
  EXPECT_EQ(
      trace.take(),
      "7:NextHop table needs defragmentation\n"
      "7:oldIdx = 2, newIdx = 0\n"
      "7:oldIdx = 6, newIdx = 2\n"
      "7:allocated block Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 4, 'size': "
      "3}) for swId 5\n");
  EXPECT_EQ(table.groups(), "2@0+2 4@2+2 5@4+3");
  EXPECT_EQ(table.moves(), "2:2+2>0+2 4:6+2>2+2");
  EXPECT_EQ(table.sm->baseIdxToSwIds(), 3U) << "a move takes its old base along";
  table.audit();
}

TEST(LpmNextHopSm, aRefusedGroupIsNotBroughtInByALaterDeletion) {
  NextHopTable table = fullTableOfFour();
  TraceLines trace("TarnletNextHop", {7});
  table.want(5, 1);
  EXPECT_EQ(trace.take(), "7:Not enough NextHop entries\n");
  EXPECT_EQ(table.groups(), "1@0+2 2@2+2 3@4+2 4@6+2");
  table.withdraw(1);
  EXPECT_EQ(table.groups(), "2@2+2 3@4+2 4@6+2");
  EXPECT_EQ(table.config->request(5), Nway(1)) << "the request stays";
  table.want(5, 2);
  EXPECT_EQ(table.groups(), "5@0+2 2@2+2 3@4+2 4@6+2") << "a changed request is tried again";
  table.audit();
}

TEST(LpmNextHopSm, aRefusedGroupComesInWhenItsRequestIsNotifiedAgain) {
  NextHopTable table = fullTableOfFour();
  table.want(5, 2).withdraw(3);
  EXPECT_EQ(table.groups(), "1@0+2 2@2+2 4@6+2");
  table.config->requestNotify(5);
  EXPECT_EQ(table.groups(), "1@0+2 2@2+2 5@4+2 4@6+2");
}

TEST(LpmNextHopSm, aRequestOf65535WaysIsNoRequest) {
  NextHopTable table(8);
  table.start().want(1, 65535);
  EXPECT_EQ(table.groups(), "");
  EXPECT_EQ(table.freeRows(), 8U);
  table.want(2, 3).want(2, 65535);
  EXPECT_EQ(table.groups(), "");
  EXPECT_EQ(table.freeRows(), 8U);
  EXPECT_EQ(table.sm->swIdToBlocks(), 0U);
  EXPECT_EQ(table.sm->baseIdxToSwIds(), 0U);
}

TEST(LpmNextHopSm, withdrawingAnUnknownGroupDoesNothing) {
  NextHopTable table = fullTableOfFour();
  TraceLines trace("TarnletNextHop", {7, 8});
  table.withdraw(9);
  EXPECT_EQ(trace.take(), "") << "nothing was removed, so nobody is told";
  table.sm->handleRequest(9);
  EXPECT_EQ(trace.take(), "8: swId 9\n");
  EXPECT_EQ(table.groups(), "1@0+2 2@2+2 3@4+2 4@6+2");
}

TEST(LpmNextHopSm, theSameSizeAgainChangesNothing) {
  NextHopTable table = fullTableOfFour();
  const U32 version = table.status->version();
  TraceLines trace("TarnletNextHop", {7});
  table.want(2, 2);
  EXPECT_EQ(trace.take(), "") << "an equal request is silent";
  table.config->requestNotify(2);
  EXPECT_EQ(trace.take(), "7:NextHopBlock size doesn't change. No need to update.\n");
  EXPECT_EQ(table.groups(), "1@0+2 2@2+2 3@4+2 4@6+2");
  EXPECT_EQ(table.status->version(), version);
}

TEST(LpmNextHopSm, aResizeNeedsItsNewRowsBesidesTheOld) {
  NextHopTable table(8);
  table.start().want(1, 3).want(2, 1);  // 1 1 1 2 . . . .
  table.want(1, 4);                     // . . . 2 1 1 1 1
  EXPECT_EQ(table.groups(), "2@3+1 1@4+4") << "just the new size is free";
  EXPECT_EQ(table.freeRows(), 3U) << "the old rows are free afterwards";
  table.audit();
  TraceLines trace("TarnletNextHop", {7});
  table.want(1, 5);
  EXPECT_EQ(trace.take(), "7:Not enough NextHop entries\n");
  EXPECT_EQ(table.groups(), "2@3+1 1@4+4") << "the old block stays";
  EXPECT_EQ(table.freeRows(), 3U);
  table.audit();
}

TEST(LpmNextHopSm, shrinkingMovesTheGroupToo) {
  NextHopTable table(8);
  table.start().want(1, 4).want(1, 2);
  EXPECT_EQ(table.groups(), "1@4+2");
  EXPECT_EQ(table.moves(), "") << "a resize is no move";
  EXPECT_EQ(table.freeRows(), 6U);
  table.audit();
}

TEST(LpmNextHopSm, aResizeLeavesItsOldBaseInTheReverseMap) {
  NextHopTable table(8);
  table.start().want(1, 2).want(1, 3);  // . . 1 1 1 . . .
  EXPECT_EQ(table.groups(), "1@2+3");
  EXPECT_EQ(table.sm->baseIdxToSwId(0), SwId(1)) << "left over";
  EXPECT_EQ(table.sm->baseIdxToSwId(2), SwId(1));
  table.want(2, 2);
  EXPECT_EQ(table.groups(), "2@0+2 1@2+3");
  EXPECT_EQ(table.sm->baseIdxToSwId(0), SwId(2)) << "overwritten by the next block there";
  table.audit();
}

TEST(LpmNextHopSm, aCompactionDuringAResizeShowsTheNewSizeAtTheOldRows) {
  NextHopTable table(12);
  table.start().want(1, 2).want(2, 2).want(3, 2).want(4, 2).want(5, 2);
  table.withdraw(1).withdraw(3);  // . . 2 2 . . 4 4 5 5 . .
  table.want(2, 3);               // . . 4 4 5 5 2 2 2 . . .
  EXPECT_EQ(table.moves(), "2:2+3>0+3 4:6+2>2+2 5:8+2>4+2");
  EXPECT_EQ(table.groups(), "4@2+2 5@4+2 2@6+3");
  EXPECT_EQ(table.sm->baseIdxToSwId(0), SwId(2)) << "left over";
  EXPECT_EQ(table.freeRows(), 5U);
  table.audit();
}

TEST(LpmNextHopSm, aRefusedResizeShowsItsSizeAtTheNextCompaction) {
  NextHopTable table(9);
  table.start().want(1, 2).want(2, 2).want(3, 2).want(4, 2);
  table.want(2, 3);
  EXPECT_EQ(table.groups(), "1@0+2 2@2+2 3@4+2 4@6+2") << "refused";
  table.withdraw(1).withdraw(3).want(5, 3);
  EXPECT_EQ(table.moves(), "2:2+3>0+3 4:6+2>2+2") << "the size is the request's";
  EXPECT_EQ(table.groups(), "2@0+3 4@2+2 5@4+3");
  EXPECT_EQ(table.sm->swIdToBlock(2)->blkSz(), 2U);
  table.audit();
}

TEST(LpmNextHopSm, groupNumbersDifferingAbove32BitsAreDifferentGroups) {
  NextHopTable table(8);
  table.start().want(7, 1).want(7 + (U64{1} << 32), 2);
  EXPECT_EQ(table.groups(), "7@0+1 4294967303@1+2");
  table.withdraw(7);
  EXPECT_EQ(table.groups(), "4294967303@1+2");
  table.audit();
}

TEST(LpmNextHopSm, theLargestGroupHas1024Rows) {
  NextHopTable table(3000);
  table.start().want(1, 1024);
  EXPECT_EQ(table.groups(), "1@0+1024");
  EXPECT_EQ(table.sm->allocator()->maxBlkSz(), 1024U);
  EXPECT_EQ(table.sm->allocator()->entriesCapacity(), 3000U);
  EXPECT_EQ(table.sm->allocator()->offset(), 0U);
  EXPECT_EQ(table.sm->allocator()->name(), "allocator");
}

TEST(LpmNextHopSm, requestsInFrontOfTheMachineAreServedInTheMapsOrder) {
  NextHopTable table(7);
  for (const U64 group : {0, 1, 2, 3}) {
    table.want(group, 2);  // the order of the map is 0 2 1 3
  }
  EXPECT_EQ(table.groups(), "");
  TraceLines trace("TarnletNextHop", {1, 7});
  table.start();
  EXPECT_EQ(table.groups(), "0@0+2 2@2+2 1@4+2") << "the last of the walk found no rows";
  EXPECT_NE(trace.take().find("7:Not enough NextHop entries\n"), std::string::npos);
  EXPECT_TRUE(table.sm->initialized());
  table.audit();
}

TEST(LpmNextHopSm, constructionClearsTheStatus) {
  NextHopTable table(8);
  table.status->swIdToNextHopBlockIs(9, NextHopBlock(3, 1));
  table.status->shuffleCmdEnq(shuffleCmdFactory(9, NextHopBlock(3, 1), NextHopBlock(5, 1)));
  table.start();
  EXPECT_EQ(table.groups(), "");
  EXPECT_EQ(table.status->shuffleCmds(), 0U);
}

TEST(LpmNextHopSm, aNewMachineServesWhatAnEarlierOneRefused) {
  NextHopTable table(6);
  table.start().want(1, 4).want(2, 4);
  EXPECT_EQ(table.groups(), "1@0+4");
  table.want(1, 2);
  EXPECT_EQ(table.groups(), "1@4+2");
  table.start();
  EXPECT_EQ(table.groups(), "2@0+4 1@4+2");
  table.audit();
}

TEST(LpmNextHopSm, handlingInitializationAgainStartsOver) {
  NextHopTable table = fullTableOfFour();
  table.withdraw(1);
  const Brumel::BestFitAllocator::Ptr former = table.sm->allocator();
  table.sm->handleInitialized();
  EXPECT_NE(table.sm->allocator(), former);
  EXPECT_EQ(table.groups(), "4@0+2 2@2+2 3@4+2") << "in the map's order";
  table.audit();
}

TEST(LpmNextHopSm, theStatusChangesBeforeTheMoveIsQueued) {
  /// Notes every change that a client of the status sees.
  class Diary : public Status::Notifiee {
   public:
    void onSwIdToNextHopBlock(const SwId& group) override {
      const NextHopBlock block = notifier()->swIdToNextHopBlock(group);
      text += std::to_string(group.value()) + "@" +
              (block == NextHopBlock() ? "none" : NextHopTable::text(block)) + "\n";
    }

    void onShuffleCmd(const U32& index) override {
      const ShuffleCmd::Ptr cmd = notifier()->shuffleCmd(index);
      text += "move " + std::to_string(cmd->swId().value()) + "\n";
    }

    std::string text;
  };

  NextHopTable table = fullTableOfFour();
  table.withdraw(1);
  const Vellor::Ptr<Diary> diary = new Diary;
  diary->notifierIs(table.status);
  diary->isRegisteredNotifieeIs(true);
  table.withdraw(3).want(5, 4);
  EXPECT_EQ(diary->text,
            "3@none\n"
            "2@0+2\n"
            "move 2\n"
            "4@2+2\n"
            "move 4\n"
            "5@4+4\n");
}

TEST(LpmNextHopSm, theRowsAreFreeWhenTheStatusTellsOfADeletion) {
  /// Asks for the waiting group as soon as any group has gone.
  class Retry : public Status::Notifiee {
   public:
    explicit Retry(Config::Ptr requests) : config(std::move(requests)) {}

    void onSwIdToNextHopBlock(const SwId& group) override {
      if (notifier()->swIdToNextHopBlock(group) == NextHopBlock()) {
        config->requestIs(5, 2);
      }
    }

    Config::Ptr config;
  };

  NextHopTable table = fullTableOfFour();
  const Vellor::Ptr<Retry> retry = new Retry(table.config);
  retry->notifierIs(table.status);
  retry->isRegisteredNotifieeIs(true);
  table.withdraw(2);
  EXPECT_EQ(table.groups(), "1@0+2 5@2+2 3@4+2 4@6+2");
  table.audit();
}

TEST(LpmNextHopSm, aHeldBlockKeepsItsRowsFromTheNextGroup) {
  NextHopTable table = fullTableOfFour();
  Brumel::BFA::Blk::Ptr held = table.sm->swIdToBlock(2);
  table.withdraw(2);
  EXPECT_EQ(table.freeRows(), 0U);
  held = nullptr;
  EXPECT_EQ(table.freeRows(), 2U);
}

TEST(LpmNextHopSm, theReactorCanBeSwitchedOff) {
  NextHopTable table(8);
  table.start();
  table.sm->hasNotificationActiveIs(false);
  table.want(1, 2);
  EXPECT_EQ(table.groups(), "");
  table.sm->hasNotificationActiveIs(true);
  EXPECT_EQ(table.groups(), "") << "what was missed is not made up for";
  table.want(2, 2);
  EXPECT_EQ(table.groups(), "2@0+2");
}

TEST(LpmNextHopSm, aZombieReactorDoesNothing) {
  NextHopTable table(8);
  table.start();
  table.sm->vellorDoZombieReactors(true);
  table.want(1, 2);
  EXPECT_EQ(table.groups(), "");
  table.sm->vellorDoZombieReactors(false);
  table.want(2, 2);
  EXPECT_EQ(table.groups(), "2@0+2");
}

TEST(LpmNextHopSm, theReactorServesNeitherAsAZombieNorWithoutItsMachine) {
  NextHopTable table(8);
  table.start();
  table.sm->hasNotificationActiveIs(false);
  table.want(1, 2);
  const LpmNextHopSm::VellorConfig::Ptr reactor = new LpmNextHopSm::VellorConfig;
  reactor->onRequest(1);
  EXPECT_EQ(table.groups(), "");
  reactor->lpmNextHopSmIs(table.sm.get());
  reactor->isZombieIs(true);
  reactor->onRequest(1);
  EXPECT_EQ(table.groups(), "");
  reactor->isZombieIs(false);
  reactor->onRequest(1);
  EXPECT_EQ(table.groups(), "1@0+2");
}

TEST(LpmNextHopSm, aMachineThatAnEarlierNotifieeDroppedHearsNothing) {
  class Dropper : public Config::Notifiee {
   public:
    explicit Dropper(NextHopTable& table) : table_(table) {}

    void onRequest(const SwId&) override { table_.sm = nullptr; }

   private:
    NextHopTable& table_;
  };

  NextHopTable table(8);
  const Vellor::Ptr<Dropper> dropper = new Dropper(table);
  dropper->notifierIs(table.config);
  dropper->isRegisteredNotifieeIs(true);
  table.start().want(1, 2);
  EXPECT_EQ(table.groups(), "");
}

TEST(LpmNextHopSm, droppingTheLastPointerEndsMachineAndReactor) {
  NextHopTable table(8);
  table.start().want(1, 2);
  const U32 holders = table.config->references();
  table.sm = nullptr;
  EXPECT_LT(table.config->references(), holders) << "the configuration is let go";
  table.want(2, 2);
  EXPECT_EQ(table.groups(), "1@0+2") << "the status keeps what was last written";
}

TEST(LpmNextHopSm, aBlockOutlivesItsMachine) {
  NextHopTable table(8);
  table.start().want(1, 2).want(2, 3);
  const Brumel::BFA::Blk::Ptr blk = table.sm->swIdToBlock(2);
  table.sm = nullptr;
  EXPECT_EQ(blk->offset(), 2U);
  EXPECT_EQ(blk->blkSz(), 3U);
}

TEST(LpmNextHopSm, attributesStandInDeclarationOrder) {
  const std::vector<std::string> expected = {"name",        "config",           "status",
                                             "allocator",   "swIdToBlock",      "baseIdxToSwId",
                                             "initialized", "vellorFwkActivity"};
  std::vector<std::string> names;
  for (const Vellor::AttributeRecord& record : Vellor::attributeRecords<LpmNextHopSm>) {
    names.emplace_back(record.name);
  }
  EXPECT_EQ(names, expected);
  NextHopTable table(8);
  table.start();
  EXPECT_EQ(table.sm->name(), "nextHopSm");
  EXPECT_EQ(table.sm->config(), table.config);
  EXPECT_EQ(table.sm->status(), table.status);
  EXPECT_EQ(table.sm->vellorFwkActivity(), nullptr);
  EXPECT_STREQ(table.sm->fwkType()->name, "Quarle::TarnletNextHop::LpmNextHopSm");
}

TEST(LpmNextHopSmTrace, everyStepNamesItsGroup) {
  NextHopTable table(4);
  table.start();
  TraceLines trace("TarnletNextHop", {7, 8});
  table.want(1, 2);
  EXPECT_EQ(
      trace.take(),
      "8: swId 1\n"
      "8: swId 1 nway 2\n"
      "7:allocated block Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 0, 'size': "
      "2}) for swId 1\n");
  EXPECT_EQ(trace.facilityOfLast(), "TarnletNextHop");
  EXPECT_NE(trace.fileOfLast().find("TarnletNextHopSm"), std::string::npos) << trace.fileOfLast();
  table.want(1, 3);
  EXPECT_EQ(trace.take(),
            "8: swId 1\n"
            "8: swId 1\n"
            "8: swId 1 nway 3\n"
            "7:Not enough NextHop entries\n");
  table.withdraw(1);
  EXPECT_EQ(trace.take(),
            "8: swId 1\n"
            "8: swId 1\n");
}

TEST(LpmNextHopSmTrace, aCompactionNamesItsOperation) {
  NextHopTable table = fullTableOfFour();
  table.withdraw(1).withdraw(3);
  TraceLines trace("TarnletNextHop", {8});
  table.want(5, 3);
  EXPECT_EQ(trace.take(),
            "8: swId 5\n"
            "8: swId 5 nway 3\n"
            "8:processDefrag\n");
}

TEST(LpmNextHopSmDeathTest, aGroupWithoutABlockCannotBeDeleted) {
  NextHopTable table(8);
  table.start();
  EXPECT_DEATH(table.sm->deleteEntry(1), "deleteEntry: Assertion `blk' failed\\.");
}

TEST(LpmNextHopSmDeathTest, aGroupWithoutABlockCannotBeUpdated) {
  NextHopTable table(8);
  table.start();
  EXPECT_DEATH(table.sm->updateEntry(1, 2), "updateEntry: Assertion `blk' failed\\.");
}

TEST(LpmNextHopSmDeathTest, aGroupAboveTheLargestBlockEndsTheProcess) {
  NextHopTable table(3000);
  table.start();
  EXPECT_DEATH(table.want(1, 1025), "insertEntry: Assertion `blk' failed\\.");
}

TEST(LpmNextHopSmDeathTest, aGroupOfNoRowsEndsTheProcess) {
  NextHopTable table(8);
  table.start();
  EXPECT_DEATH(table.want(1, 0), "insertEntry: Assertion `blk' failed\\.");
}

TEST(LpmNextHopSmDeathTest, aMoveNeedsAnOwner) {
  NextHopTable table(8);
  table.start();
  const Brumel::BFA::PendingCmds::Ptr cmds = new Brumel::BFA::PendingCmds;
  cmds->pendingCmdLogEnq(6, table.sm->allocator()->alloc(1));
  EXPECT_DEATH(table.sm->processDefrag(cmds),
               "processDefrag: Assertion `shuffledSwId != SwId\\(\\)' failed\\.");
}

}  // namespace
