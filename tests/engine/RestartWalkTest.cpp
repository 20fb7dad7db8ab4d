#include "tests/engine/RestartFixture.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using ::testing::HasSubstr;
using Vellor::Testing::TraceLines;

TEST_F(RestartWalk, rowsWithNothingToReadAndEmptyRowsYieldNothing) {
  for (U32 index = 0; index < 16; ++index) {
    chip.rows[{1, index}] = xpLpmPrefixEntry();
  }
  TraceLines trace("TarnletSm", {5});
  walk(/*removeStale=*/true);
  std::string expected = "5:RestartHelperBase::doRestart\n";
  for (U32 index = 0; index < 16; ++index) {
    expected += "5: empty prefix entry\n";
  }
  EXPECT_EQ(trace.take(), expected);
  EXPECT_EQ(state(), "");
  EXPECT_TRUE(chip.writes.empty());
  EXPECT_TRUE(chip.nhiReads.empty());
}

TEST_F(RestartWalk, everyRowOfEveryTableIsReadOnceInTheOrderOfTheConfiguration) {
  shape.tables = {{.id = 0, .tread = 35, .depth = 2},
                  {.id = 1, .tread = 35, .depth = 1},
                  {.id = 2, .tread = 28, .depth = 2},
                  {.id = 3, .tread = 16, .depth = 1}};
  TraceLines trace("TarnletSm", {8});
  walk();
  // The configuration's map is walked in bit-reversed order of the ids.
  EXPECT_EQ(chip.reads,
            (std::vector<RecordChip::Place>{{0, 0}, {0, 1}, {2, 0}, {2, 1}, {1, 0}, {3, 0}}));
  EXPECT_EQ(trace.take(),
            "8: reading prefix table entry 0 in table 0\n"
            "8: reading prefix table entry 1 in table 0\n"
            "8: reading prefix table entry 0 in table 2\n"
            "8: reading prefix table entry 1 in table 2\n"
            "8: reading prefix table entry 0 in table 1\n"
            "8: reading prefix table entry 0 in table 3\n");
}

TEST_F(RestartWalk, aRowWithoutABranchButWithAStrideIsParsed) {
  row(2, 0, {.branch = "0.0.0.0/0", .stride = 24}).branchLen = 0;
  chip.rows[{2, 0}].leafVal[0] = 1U << 16;
  nhi(0, 0, {{5, 1}});
  walk();
  EXPECT_EQ(state(),
            "block 0:0+1\n"
            "t2[0] branch=vrf bits 0x0000/0 stride=24 [0.0.0.0/0 5/1] nhi=0:0\n"
            "used 0:0 by 1 of 1\n");
}

TEST_F(RestartWalk, aRowWithoutLeavesIsValidCreatesNothingAndIsNeverCleared) {
  mode = modeRestartTest;
  row(0, 3, {.branch = "10.1.0.0/19", .stride = 16, .tile = 99, .offset = 9999});
  TraceLines trace("TarnletSm", {5});
  walk(/*removeStale=*/true);
  EXPECT_EQ(trace.take(),
            "5:RestartHelperBase::doRestart\n"
            "5:parsePrefixTableEntry offset 3 branch 0: 0 1: 0 2: 0 3: 0 4: 0 tableId 0\n"
            "5: no prefix is allocated\n");
  EXPECT_EQ(helper->takeNotes(), "");
  EXPECT_EQ(state(), "");
  EXPECT_TRUE(chip.writes.empty());
}

TEST_F(RestartWalk, anAdoptedRowIsToldStepByStep) {
  soundRow();
  TraceLines trace("TarnletSm", {5});
  walk();
  const std::string lines = trace.take();
  EXPECT_TRUE(
      says(lines, {"5: valid 1 reason \n"
                   "5: valid prefix entry at offset 3 in table 0\n"
                   "5: created subTrie 3,35,16,modeSparse,1,2,2,11/0x0,0/0,4\n"
                   "5: recovered prefix vrf 0 prefix 10.1.0.0/24 nexthop block ",
                   " slot 0\n"
                   "5: recovered prefix vrf 0 prefix 10.1.1.0/24 nexthop block ",
                   " slot 1\n"
                   "5: prefix vrf 0 prefix 10.1.0.0/24 subtrie 3,35,16,modeSparse,1,2,2,",
                   "5: prefix vrf 0 prefix 10.1.1.0/24 subtrie 3,35,16,modeSparse,1,2,2,"}));
  EXPECT_EQ(state(), soundState);
}

TEST_F(RestartWalk, everythingOfASubTrieIsRebuilt) {
  soundRow();
  walk();
  const SubTrie::Ptr subTrie = sm->prefixTable(0)->subTrie(3);
  ASSERT_NE(subTrie, nullptr);
  EXPECT_EQ(subTrie->index(), PrefixTableIdx(3));
  EXPECT_EQ(subTrie->table(), sm->prefixTable(0).get());
  EXPECT_EQ(subTrie->mode(), modeSparse);
  EXPECT_EQ(subTrie->branchLen(), 35U);
  EXPECT_EQ(subTrie->branch(), prefix("10.1.0.0/19")->branch(35));
  EXPECT_EQ(subTrie->nhiBlkSize(), 1U);
  EXPECT_EQ(subTrie->maxPrefixSlot(), 2U);
  EXPECT_EQ(subTrie->nhiInfoKey(), sm->generateNhiInfoKey(subTrie));
  EXPECT_EQ(helper->lpmSm(), sm.get());
  EXPECT_EQ(sm->nhiAllocator(0)->freeEntries(), 63U);
}

TEST_F(RestartWalk, theKeyOmitsEmptySlotsUnlikeAGeneratedOne) {
  nhi(0, 4, {{7, 1}, {~0U, 0xffff}, {8, 2}});
  row(0, 3,
      {.branch = "10.1.0.0/19",
       .stride = 16,
       .leaves = {"10.1.0.0/24", "", "10.1.1.0/24"},
       .offset = 4});
  walk();
  const SubTrie::Ptr subTrie = sm->prefixTable(0)->subTrie(3);
  EXPECT_EQ(subTrie->nhiInfoKey().slotToNextHopBlocks(), 2U);
  EXPECT_EQ(subTrie->nhiInfoKey().slotToNextHopBlock(2), NextHopBlock(8, 2));
  EXPECT_EQ(sm->generateNhiInfoKey(subTrie).slotToNextHopBlocks(), 3U);
}

TEST_F(RestartWalk, aBlockOfSeveralEntriesIsReadEntryByEntry) {
  shape.pairsPerEntry = 2;
  row(0, 3,
      {.branch = "10.1.0.0/19",
       .stride = 12,
       .leaves = {"10.1.0.0/24", "", "", "10.1.1.0/24", "10.1.2.0/24"},
       .offset = 4});
  nhi(0, 4, {{1, 1}, {2, 1}, {99, 9}});
  nhi(0, 5, {{3, 1}, {4, 1}});
  nhi(0, 6, {{5, 1}, {6, 1}});
  walk();
  EXPECT_EQ(chip.nhiReads, (std::vector<RecordChip::Place>{{0, 4}, {0, 5}, {0, 6}}));
  EXPECT_EQ(state(),
            "block 0:4+3\n"
            "t0[3] branch=10.1.0.0/19 stride=12 [10.1.0.0/24 1/1, -, -, 10.1.1.0/24 4/1, "
            "10.1.2.0/24 5/1] nhi=0:4\n"
            "used 0:4 by 1 of 1\n");
}

TEST_F(RestartWalk, aPairsSizeIsCutTo16Bits) {
  soundRow();
  nhi(0, 4, {{0xdeadbeef, 0x12344}, {8, 2}});
  walk();
  EXPECT_EQ(config->request(prefix("10.1.0.0/24")), NextHopBlock(0xdeadbeef, 0x2344));
}

TEST_F(RestartWalk, aSubTrieOnASharedBlockJoinsItsUsers) {
  soundRow();
  twinRow();
  walk();
  EXPECT_EQ(sm->sharedNhis(), 1U);
  EXPECT_EQ(state(),
            "block 0:4+1\n"
            "t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n"
            "t1[9] branch=10.3.0.0/20 stride=12 [10.3.0.0/24 7/1, 10.3.1.0/24 8/2] nhi=0:4\n"
            "used 0:4 by 2 of 2\n");
  EXPECT_EQ(sm->sharedNhi(sm->prefixTable(0)->subTrie(3)->nhiInfoKey())->subTrieCount(), 2U);
  EXPECT_EQ(sm->nhiAllocator(0)->freeEntries(), 63U);
}

TEST_F(RestartWalk, aPlaceThatCannotBeClaimedIsTakenWithoutABlock) {
  shape.pairsPerEntry = 1;
  soundRow();
  nhi(0, 5, {{9, 1}});
  // Entry 5 belongs to the block at 4.
  row(1, 9, {.branch = "10.3.0.0/20", .stride = 12, .leaves = {"10.3.0.0/24"}, .offset = 5});
  walk();
  EXPECT_EQ(state(),
            "block 0:4+2\n"
            "t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 9/1] nhi=0:4\n"
            "t1[9] branch=10.3.0.0/20 stride=12 [10.3.0.0/24 9/1] nhi=0:5\n"
            "used 0:4 by 1 of 1\n"
            "used 0:5 by 1 of 1\n");
}

TEST_F(RestartWalk, theSecondRowOfAPrefixIsRefusedAndTheFirstStands) {
  soundRow();
  nhi(0, 9, {{9, 9}});
  row(1, 6,
      {.branch = "10.1.0.0/19",
       .stride = 16,
       .leaves = {"10.1.7.0/24", "10.1.1.0/24"},
       .offset = 9});
  TraceLines trace("TarnletSm", {5});
  walk();
  EXPECT_TRUE(says(trace.take(), {"5: valid prefix entry at offset 3 in table 0\n",
                                  "parsePrefixTableEntry offset 6", "tableId 1\n",
                                  "5: found prefix vrf 0 prefix 10.1.1.0/24\n"
                                  "5: valid 0 reason duplicate prefixes\n"}));
  EXPECT_EQ(state(), soundState);
  EXPECT_EQ(helper->takeNotes(),
            "create 10.1.0.0/24, create 10.1.1.0/24, create 10.1.7.0/24, create 10.1.1.0/24, "
            "delete 10.1.7.0/24");
}

TEST_F(RestartWalk, rowsOfPrefixesRequestedBeforeTheMachineAreRefused) {
  soundRow();
  prepare();
  config->requestIs(prefix("10.1.0.0/24"), NextHopBlock(3, 1));
  restart();
  // Only the sweep has served it: the row's other prefix is unknown.
  EXPECT_EQ(sm->prefixToSubTries(), 1U);
  EXPECT_EQ(status->prefixToNextHopBlock(prefix("10.1.0.0/24")), NextHopBlock(3, 1));
  EXPECT_EQ(helper->takeNotes(), "create 10.1.0.0/24");
}

TEST_F(RestartWalk, aRequestForTheInvalidBlockIsNoDuplicate) {
  soundRow();
  prepare();
  config->requestIs(prefix("10.1.0.0/24"), NextHopBlock());
  restart();
  EXPECT_EQ(state(), soundState);
}

TEST_F(RestartWalk, theCliModeBuildsNoSharingRecords) {
  mode = modeRestartCli;
  soundRow();
  twinRow();
  walk();
  EXPECT_EQ(sm->sharedNhis(), 0U);
  EXPECT_EQ(sm->nhiBaseIdxToSubTries(), 0U);
  EXPECT_EQ(sm->prefixToSubTries(), 4U);
  EXPECT_EQ(sm->nhiBaseIdxToBlks(), 1U);
  const SubTrie::Ptr subTrie = sm->prefixTable(0)->subTrie(3);
  EXPECT_EQ(subTrie->nhiInfoKey(), sm->generateNhiInfoKey(subTrie));
}

TEST_F(RestartWalk, theWalkTakesNothingFromTheModeOfNoRestart) {
  mode = modeNoRestart;
  soundRow();
  badRow();
  walk();
  EXPECT_EQ(state(), soundState);
}

TEST_F(RestartWalk, theWalkQueuesNothing) {
  soundRow();
  twinRow();
  badRow();
  prepare();
  sm = lpmSmFactory("sm", config, status, nullptr);
  sm->hasNotificationActiveIs(false);
  status->pendingCmdEnq(nhiCommandFactory(NhiTableIdx(0, 3), NextHopBlockList()));
  helper->doRestart(/*removeStale=*/true, sm.get());
  EXPECT_EQ(status->pendingCmds(), 1U);
  EXPECT_EQ(sm->prefixToSubTries(), 4U);
}

TEST_F(RestartWalk, aWarmStartAdoptsThenSweepsEachPrefixAsAnUpdate) {
  soundRow();
  TraceLines trace("TarnletSm", {3});
  restart();
  const std::string lines = trace.take();
  // The walk's own requests are dropped; the sweep's order is that of addresses.
  EXPECT_TRUE(says(lines, {"3: not initialized vrf 0 prefix 10.1.0.0/24\n"
                           "3: not initialized vrf 0 prefix 10.1.1.0/24\n"}));
  EXPECT_THAT(lines, HasSubstr("3: update prefix vrf 0 prefix 10.1.0.0/24\n"));
  EXPECT_THAT(lines, HasSubstr("3: update prefix vrf 0 prefix 10.1.1.0/24\n"));
  EXPECT_EQ(state(), soundState);
  std::string commands;
  while (const CommandBase::Ptr command = status->pendingCmdDeq()) {
    commands += textOf(*command, false) + "\n";
  }
  const std::string once =
      "nhi 0:4 = 7/1 8/2\n"
      "prefix t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24, 10.1.1.0/24] nhi=0:4\n";
  EXPECT_EQ(commands, once + once);
}

TEST_F(RestartWalk, aPairWithoutANextHopIsAdoptedAndWithdrawnByTheSweep) {
  soundRow();
  nhi(0, 4, {{7, 1}, {~0U, 0xffff}});
  restart();
  EXPECT_EQ(sm->prefixToSubTries(), 1U);
  EXPECT_EQ(status->prefixToNextHopBlocks(), 1U);
  EXPECT_EQ(sm->prefixToSubTrie(prefix("10.1.1.0/24")), nullptr);
}

TEST_F(RestartWalk, aRefusedRowStaysInTheChipAndItsPlaceCountsAsFree) {
  badRow();
  walk();
  EXPECT_TRUE(chip.writes.empty());
  EXPECT_EQ(sm->prefixTable(0)->subTries(), 0U);
}

TEST_F(RestartWalk, removeStaleClearsARefusedRowWithAllItsBytes) {
  soundRow();
  badRow();
  std::memset(static_cast<void*>(&chip.rows[{0, 7}]), 0xff, sizeof(xpLpmPrefixEntry));
  TraceLines trace("TarnletSm", {5});
  walk(/*removeStale=*/true);
  EXPECT_TRUE(says(trace.take(), {"5: valid 0 reason prefix hash does not match with offset\n"
                                  "5: clear prefix entry\n",
                                  "5: valid 0 reason wrong keySize\n"
                                  "5: clear prefix entry\n"}));
  EXPECT_EQ(chip.writes, (std::vector<RecordChip::Place>{{0, 5}, {0, 7}}));
  const xpLpmPrefixEntry empty;
  EXPECT_EQ(std::memcmp(&chip.rows[{0, 5}], &empty, sizeof empty), 0);
  EXPECT_EQ(std::memcmp(&chip.rows[{0, 7}], &empty, sizeof empty), 0);
  EXPECT_EQ(state(), soundState);
}

TEST_F(RestartWalk, clearingAndReadingPairsTolerateTheTwoMendedCodes) {
  for (const XP_STATUS code : {0, 9, 42}) {
    soundRow();
    badRow();
    chip.writes.clear();
    chip.writeStatus = code;
    chip.readNhiStatus = code;
    config = nullptr;
    walk(/*removeStale=*/true);
    EXPECT_EQ(chip.writes.size(), 1U) << code;
    EXPECT_EQ(state(), soundState) << code;
  }
}

TEST_F(RestartWalk, aReflectiveWalkOverARunningMachineTreatsEachPrefixAsNew) {
  soundRow();
  prepare();
  sm = lpmSmFactory("sm", config, status, nullptr);
  TraceLines trace("TarnletSm", {3});
  // Half-taken over, the sub-trie is changed under the walk: what becomes of it is not told.
  EXPECT_EXIT(
      {
        helper->doRestart(/*removeStale=*/false, sm.get());
        std::fprintf(stderr, "%s", trace.take().c_str());
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "3: insert prefix vrf 0 prefix 10.1.0.0/24\n");
}

TEST_F(RestartWalk, theBaseClassHasNoPrefixes) {
  soundRow();
  prepare();
  sm = lpmSmFactory("sm", config, status, nullptr);
  const RestartHelperBase::Ptr base = new RestartHelperBase(config, status);
  base->xdkLpmMgrIs(&chip);
  EXPECT_EQ(base->lpmConfig(), config);
  EXPECT_EQ(base->lpmStatus(), status);
  try {
    base->doRestart(/*removeStale=*/false, sm.get());
    ADD_FAILURE() << "nothing raised";
  } catch (const Vellor::NoImplementationException& error) {
    EXPECT_EQ(error.message(), "createPrefix must be implemented in the derived class");
  }
  EXPECT_EQ(base->lpmSm(), sm.get());
  try {
    base->deletePrefix(prefix("10.1.0.0/24"));
    ADD_FAILURE() << "nothing raised";
  } catch (const Vellor::NoImplementationException& error) {
    EXPECT_EQ(error.message(), "deletePrefix must be implemented in the derived class");
  }
}

}  // namespace
