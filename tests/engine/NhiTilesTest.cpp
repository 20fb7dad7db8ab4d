#include <cstdlib>

#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

/// Pairs of two, so that a third prefix asks for a second entry. 10.k.0.0/16 has row k to itself.
class NhiTiles : public ChipTest {
 protected:
  NhiTiles() {
    std::map<std::string, U32> rows;
    for (U32 k = 0; k < 32; ++k) {
      rows["10." + std::to_string(k) + ".0.0/19"] = k;
    }
    chip.tables({{.id = 0, .tread = 35, .depth = 32, .rows = rows}}).pairsPerEntry(2);
  }

  /// A sub-trie of one prefix, 10.k.0.0/20 via k.
  void one(U32 k) { chip.route(prefix(k), via(k)); }

  void without(U32 k) { chip.withdraw(prefix(k)); }

  static std::string prefix(U32 k) { return "10." + std::to_string(k) + ".0.0/20"; }

  /// Entries 0 to 5: 1 6 . 3 . 5, where sub-trie 6 has two prefixes.
  void sixEntriesInPieces() {
    chip.tiles(1, 6);
    one(6);
    chip.route("10.6.1.0/24", via(16));  // . 6
    one(1);                              // 1 6
    one(2);
    one(3);
    one(4);
    one(5);  // 1 6 2 3 4 5
    without(2);
    without(4);
    chip.drain();
  }

  std::string baseOf(U32 k) { return textOf(chip.subTrie(prefix(k))->nhiBaseIdx()); }
};

using NhiTilesDeathTest = NhiTiles;

TEST_F(NhiTiles, aTileInPiecesCanServeAndIsCompactedAheadOfTheNewBlock) {
  sixEntriesInPieces();
  EXPECT_EQ(chip.freeEntries(), 2U);
  EXPECT_TRUE(chip.sm().isNhiBlockAvailable(3));
  EXPECT_FALSE(chip.sm().isNhiBlockAvailable(5));
  TraceLines trace("TarnletSm", {7});
  chip.route("10.6.2.0/24", via(26));  // 1 (6) 3 5 6 6
  EXPECT_TRUE(
      says(trace.take(),
           {"7: allocate a block of 2\n", "7: tile 0 free entries 2\n",
            "7: allocate a block of 2\n", "7: trying to allocate in tile 0 free entries 2\n",
            "7: tile needs defragmentation 0\n", "7: tile 0\n", "7: subTrie at table 3,36,",
            "7: subTrie at table 5,36,", "7: allocated a block of 2 nhiIdx 0,4 free entries 0\n",
            "7: release a block of 1 nhiIdx 0,1\n"}));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:2 = 3/1
      prefix t0[3] branch=10.3.0.0/20 stride=8 [10.3.0.0/20] nhi=0:2
      nhi 0:3 = 5/1
      prefix t0[5] branch=10.5.0.0/20 stride=8 [10.5.0.0/20] nhi=0:3
      nhi 0:4 = 6/1 16/1
      nhi 0:5 = 26/1
      prefix t0[6] branch=10.6.0.0/20 stride=8 [10.6.0.0/20, 10.6.1.0/24, 10.6.2.0/24] nhi=0:4)");
  EXPECT_EQ(chip.sm().numNhiBlockDefrag(), 2U);
}

TEST_F(NhiTiles, aSharedBlockMovesOnceWithAllItsSubTries) {
  chip.tiles(1, 5);
  one(6);
  chip.route("10.6.1.0/24", via(16));
  one(1);
  one(2);
  one(3);
  chip.route(prefix(13), via(3)).route(prefix(23), via(3));
  one(4);  // 1 6 2 3 4
  without(2);
  without(4);
  chip.drain();
  const NhiInfo::Ptr info = chip.sm().sharedNhi(chip.subTrie(prefix(3))->nhiInfoKey());
  EXPECT_EQ(info->subTrieCount(), 3U);
  chip.route("10.6.2.0/24", via(26));
  EXPECT_EQ(chip.sm().numNhiBlockDefrag(), 1U);
  EXPECT_EQ(info->subTrieCount(), 3U);
  EXPECT_EQ(textOf(info->nhiBaseIdx()), "0:2");
  for (const U32 k : {3U, 13U, 23U}) {
    EXPECT_EQ(baseOf(k), "0:2");
  }
  // Written once for each of them; which comes first is nobody's business.
  const std::string commands = chip.commands();
  const std::string write = "nhi 0:2 = 3/1\nprefix t0[";
  std::size_t writes = 0;
  for (std::size_t at = commands.find(write); at != std::string::npos;
       at = commands.find(write, at + 1)) {
    ++writes;
  }
  EXPECT_EQ(writes, 3U) << commands;
}

TEST_F(NhiTiles, aCompactionThatMovesNothingLeavesNoMark) {
  chip.tiles(1, 6);
  one(1);
  one(2);
  chip.drain();
  chip.sm().processNhiDefrag(0, chip.sm().nhiAllocator(0)->defragment());
  EXPECT_EQ(chip.sm().numNhiBlockDefrag(), 0U);
  EXPECT_COMMANDS(chip, "");
}

TEST_F(NhiTiles, aBlockThatCannotBeHadLeavesTilesAndRotationAlone) {
  chip.tiles(2, 4).start();
  LpmSm& sm = chip.sm();
  const NhiTableIdx first = sm.allocateNhiBlock(1);
  const U32 free0 = chip.freeEntries(0);
  const U32 free1 = chip.freeEntries(1);
  TraceLines trace("TarnletSm", {7});
  EXPECT_EQ(sm.allocateNhiBlock(9), NhiTableIdx());
  EXPECT_TRUE(says(trace.take(), {" allocate a block of 5\n", " trying to allocate in tile ",
                                  " trying to allocate in tile ", " all nhi tiles are full "}));
  EXPECT_EQ(chip.freeEntries(0), free0);
  EXPECT_EQ(chip.freeEntries(1), free1);
  const NhiTableIdx second = sm.allocateNhiBlock(1);
  EXPECT_NE(second.tile(), first.tile());
  sm.releaseNhiBlock(first);
  sm.releaseNhiBlock(second);
}

TEST_F(NhiTiles, withTwoTilesTheNameIsOnesAndTheEntriesAreTheOthers) {
  chip.tiles(2, 8).start();
  LpmSm& sm = chip.sm();
  const NhiTableIdx first = sm.allocateNhiBlock(3);
  const U8 a = first.tile().value();
  const U8 b = static_cast<U8>(1 - a);
  EXPECT_EQ(first.offset(), 0);
  EXPECT_EQ(chip.freeEntries(a), 8U);
  EXPECT_EQ(chip.freeEntries(b), 6U);
  const NhiTableIdx second = sm.allocateNhiBlock(1);
  EXPECT_EQ(second.tile(), NhiTileIdx(b));
  EXPECT_EQ(chip.freeEntries(a), 7U);
  sm.releaseNhiBlock(first);
  EXPECT_EQ(chip.freeEntries(b), 8U);
  sm.releaseNhiBlock(second);
}

TEST_F(NhiTiles, namesGoRoundInTheOrderOfTheMap) {
  chip.tiles(4, 8).start();
  LpmSm& sm = chip.sm();
  const std::map<U32, U32> next = {{0, 2}, {2, 1}, {1, 3}, {3, 0}};
  std::vector<NhiTableIdx> blocks = {sm.allocateNhiBlock(1)};
  for (U32 i = 0; i < 4; ++i) {
    const U8 before = blocks.back().tile().value();
    blocks.push_back(sm.allocateNhiBlock(1));
    EXPECT_EQ(blocks.back().tile().value(), next.at(before));
  }
  for (const NhiTableIdx& block : blocks) {
    sm.releaseNhiBlock(block);
  }
}

TEST_F(NhiTiles, tilesThatAreTooFullAreLeftOut) {
  chip.tiles(2, 2).start();
  LpmSm& sm = chip.sm();
  const NhiTableIdx first = sm.allocateNhiBlock(1);  // named a, from b
  const U8 a = first.tile().value();
  const NhiTableIdx second = sm.allocateNhiBlock(3);  // b has one entry left: from a, named b
  EXPECT_EQ(second.tile().value(), 1 - a);
  EXPECT_EQ(chip.freeEntries(a), 0U);
  const NhiTableIdx third = sm.allocateNhiBlock(1);  // what is left in b
  EXPECT_EQ(third.tile().value(), a);
  EXPECT_FALSE(sm.isNhiBlockAvailable(1));
  for (const NhiTableIdx& block : {first, second, third}) {
    sm.releaseNhiBlock(block);
  }
}

TEST_F(NhiTiles, oneRotationServesAllMachines) {
  chip.tiles(2, 8).start();
  ChipStory other({.tables = {{.id = 0, .tread = 35}}, .tiles = 2});
  const NhiTableIdx mine = chip.sm().allocateNhiBlock(1);
  const NhiTableIdx theirs = other.sm().allocateNhiBlock(1);
  EXPECT_NE(theirs.tile(), mine.tile());
  const NhiTableIdx mineAgain = chip.sm().allocateNhiBlock(1);
  EXPECT_EQ(mineAgain.tile(), mine.tile());
  chip.sm().releaseNhiBlock(mine);
  chip.sm().releaseNhiBlock(mineAgain);
  other.sm().releaseNhiBlock(theirs);
}

TEST_F(NhiTiles, aTileThatTheMachineLacksReadsAsTheEndOfTheMap) {
  chip.tiles(2, 8).start();
  ChipStory other({.tables = {{.id = 0, .tread = 35}}, .tiles = 1});
  std::vector<NhiTableIdx> mine = {chip.sm().allocateNhiBlock(1)};
  if (mine[0].tile() == NhiTileIdx(0)) {
    mine.push_back(chip.sm().allocateNhiBlock(1));
  }
  ASSERT_EQ(mine.back().tile(), NhiTileIdx(1));
  const NhiTableIdx theirs = other.sm().allocateNhiBlock(1);
  EXPECT_EQ(theirs.tile(), NhiTileIdx(0));
  mine.push_back(chip.sm().allocateNhiBlock(1));  // behind tile 0, the last success of all
  EXPECT_EQ(mine.back().tile(), NhiTileIdx(1));
  other.sm().releaseNhiBlock(theirs);
  for (const NhiTableIdx& block : mine) {
    chip.sm().releaseNhiBlock(block);
  }
}

TEST_F(NhiTiles, aTileInPiecesIsCompactedThoughAnotherCouldServe) {
  sixEntriesInPieces();
  chip.sm().nhiAllocatorIs(1, new Brumel::BestFitAllocator("nhiAllocator", 6, 0, 6));
  TraceLines trace("TarnletSm", {7});
  chip.config()->requestIs(chip.prefix("10.6.2.0/24"), via(26));
  EXPECT_TRUE(says(trace.take(), {" tile needs defragmentation 0\n"}));
  EXPECT_EQ(chip.sm().numNhiBlockDefrag(), 2U);
  chip.endMachine();
}

TEST_F(NhiTiles, aReleaseGivesTheEntriesBackWithoutACommand) {
  chip.tiles(1, 8).start();
  const NhiTableIdx block = chip.sm().allocateNhiBlock(5);
  EXPECT_EQ(chip.freeEntries(), 5U);
  TraceLines trace("TarnletSm", {7});
  chip.sm().releaseNhiBlock(block);
  EXPECT_EQ(trace.take(), "7: release a block of 3 nhiIdx 0,0\n");
  EXPECT_EQ(chip.freeEntries(), 8U);
  EXPECT_COMMANDS(chip, "");
}

TEST_F(NhiTiles, aMaximalSubTrieFitsIntoOneBlock) {
  chip.pairsPerEntry(8).tiles(1, 64).start();
  EXPECT_EQ(chip.sm().nhiBlockSize(216), 27);
  EXPECT_EQ(chip.config()->nhiMaxBlockSize(), 27);
  const NhiTableIdx block = chip.sm().allocateNhiBlock(216);
  EXPECT_EQ(chip.sm().nhiBaseIdxToBlk(block)->blkSz(), 27U);
  chip.sm().releaseNhiBlock(block);
}

TEST_F(NhiTiles, aBlockIsResizedWhereItStands) {
  chip.tiles(1, 8).start();
  const NhiTableIdx block = chip.sm().allocateNhiBlock(2);
  TraceLines trace("TarnletSm", {7});
  chip.sm().reallocNhiBlock(block, 6);
  EXPECT_TRUE(says(trace.take(), {" reallocate a block of 3"}));
  EXPECT_EQ(chip.blocks(), "0:0+3");
  chip.sm().reallocNhiBlock(block, 2);
  EXPECT_EQ(chip.blocks(), "0:0+1");
  // A free range is claimed.
  chip.sm().reallocNhiBlock(NhiTableIdx(0, 4), 4);
  EXPECT_EQ(chip.blocks(), "0:0+1 0:4+2");
  EXPECT_EQ(chip.freeEntries(), 5U);
  chip.sm().releaseNhiBlock(block);
  chip.sm().releaseNhiBlock(NhiTableIdx(0, 4));
}

TEST_F(NhiTiles, theFirstAllocationOfAProcessStartsAtTheFirstTile) {
  // In a process of its own: nothing has allocated there before.
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        ChipStory fresh({.tables = {{.id = 0, .tread = 35}}, .tiles = 3});
        const NhiTableIdx first = fresh.sm().allocateNhiBlock(1);
        std::fprintf(stderr, "named %s", first.str().charPtr());
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "named 0,0");
  ::testing::FLAGS_gtest_death_test_style = "fast";
}

TEST_F(NhiTilesDeathTest, aMachineWithoutTilesCannotAllocate) {
  chip.tiles(0, 8).start();
  EXPECT_FALSE(chip.sm().isNhiBlockAvailable(1));
  EXPECT_DEATH(chip.sm().allocateNhiBlock(1), assertion("allocatorIter"));
}

TEST_F(NhiTilesDeathTest, aBlockAboveTheLimitIsFatalThoughTheEntriesAreThere) {
  setenv("NHI_MAX_BLOCK_SIZE", "2", 1);
  chip.tiles(1, 8).start();
  unsetenv("NHI_MAX_BLOCK_SIZE");
  EXPECT_TRUE(chip.sm().isNhiBlockAvailable(5));
  EXPECT_DEATH(chip.sm().allocateNhiBlock(5), assertion("blk"));
}

TEST_F(NhiTilesDeathTest, anUnknownBaseCannotBeReleased) {
  chip.start();
  EXPECT_DEATH(chip.sm().releaseNhiBlock(NhiTableIdx(0, 5)), failure("blk", " baseIdx 0,5"));
}

TEST_F(NhiTilesDeathTest, resizingNeedsTileAndRoom) {
  chip.tiles(1, 8).start();
  EXPECT_DEATH(chip.sm().reallocNhiBlock(NhiTableIdx(7, 0), 1), assertion("allocator"));
  EXPECT_DEATH(chip.sm().reallocNhiBlock(NhiTableIdx(0, 7), 3), assertion("blk"));
}

TEST_F(NhiTilesDeathTest, aReplayNeedsALogOfKnownBlocks) {
  chip.tiles(1, 8);
  one(1);
  EXPECT_DEATH(chip.sm().processNhiDefrag(0, nullptr), assertion("defragCmds"));
  const Brumel::BFA::PendingCmds::Ptr log = new Brumel::BFA::PendingCmds();
  log->pendingCmdLogEnq(5, chip.sm().nhiBaseIdxToBlk(NhiTableIdx(0, 0)));
  EXPECT_DEATH(chip.sm().processNhiDefrag(0, log), failure("subTrieSetOld", " oldNhiIdx 0,5"));
}

TEST_F(NhiTilesDeathTest, aReplayNeedsTheKeysOfItsSubTries) {
  chip.tiles(1, 8);
  one(1);
  one(2);
  without(1);
  const SubTrie::Ptr subTrie = chip.subTrie(prefix(2));
  const NhiInfoKey key = subTrie->nhiInfoKey();
  const NhiTableIdx base = subTrie->nhiBaseIdx();
  subTrie->nhiInfoKeyIs(NhiInfoKey());
  EXPECT_DEATH(
      chip.sm().processNhiDefrag(0, chip.sm().nhiAllocator(0)->defragment()),
      failure("nhiInfoKey != NhiInfoKey()",
              " subtrie " + subTrie->str().str() + " nhiidx old " + base.str().str() + " new 0,0"));
  subTrie->nhiInfoKeyIs(key);
}

}  // namespace
