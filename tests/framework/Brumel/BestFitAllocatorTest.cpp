#include <string>
#include <utility>
#include <vector>

#include "framework/Brumel/Brumel.h"
#include "tests/framework/Brumel/BlkText.h"

#include <gtest/gtest.h>

namespace {

using Brumel::BestFitAllocator;
using Brumel::BFA::Blk;
using Brumel::BFA::PendingCmds;
using Brumel::Testing::moves;
using Brumel::Testing::newAllocator;
using Brumel::Testing::text;

TEST(BestFitAllocator, newAllocatorIsAllFree) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8, 100);
  EXPECT_STREQ(tile->name().charPtr(), "test");
  EXPECT_EQ(tile->entriesCapacity(), 16u);
  EXPECT_EQ(tile->freeEntries(), 16u);
  EXPECT_EQ(tile->offset(), 100u);
  EXPECT_EQ(tile->maxBlkSz(), 8u);
}

TEST(BestFitAllocator, blocksAreCarvedFromTheLowEnd) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8, 100);
  const Blk::Ptr a = tile->alloc(3);
  const Blk::Ptr b = tile->alloc(8);
  EXPECT_EQ(text(a), "100+3");
  EXPECT_EQ(text(b), "103+8");
  EXPECT_EQ(tile->freeEntries(), 5u);
}

TEST(BestFitAllocator, sizesOfZeroAndAboveTheLimitYieldNull) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8);
  for (const U32 size : {0u, 9u, 17u, ~0u}) {
    EXPECT_FALSE(tile->canAlloc(size)) << size;
    EXPECT_EQ(text(tile->alloc(size)), "null") << size;
    EXPECT_EQ(text(tile->realloc(0, size)), "null") << size;
  }
  EXPECT_EQ(tile->freeEntries(), 16u);
}

TEST(BestFitAllocator, limitAboveTheCapacityLeavesTheCapacityAsLimit) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 1024);
  EXPECT_FALSE(tile->canAlloc(17));
  EXPECT_EQ(text(tile->alloc(17)), "null");
  EXPECT_EQ(text(tile->alloc(16)), "0+16");
}

TEST(BestFitAllocator, allocatorWithoutEntriesRefusesEverything) {
  const BestFitAllocator::Ptr tile = newAllocator(0, 8, 5);
  EXPECT_EQ(tile->freeEntries(), 0u);
  EXPECT_FALSE(tile->canAlloc(1));
  EXPECT_EQ(text(tile->alloc(1)), "null");
  EXPECT_EQ(text(tile->realloc(5, 1)), "null");
  EXPECT_EQ(tile->defragment()->pendingCmdLogs(), 0u);
}

TEST(BestFitAllocator, limitOfZeroRefusesEverything) {
  const BestFitAllocator::Ptr tile = newAllocator(8, 0);
  EXPECT_FALSE(tile->canAlloc(0));
  EXPECT_FALSE(tile->canAlloc(1));
  EXPECT_EQ(text(tile->alloc(1)), "null");
  EXPECT_EQ(tile->freeEntries(), 8u);
}

TEST(BestFitAllocator, smallestRunThatFitsIsTakenBeforeALowerLargerOne) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8);
  Blk::Ptr low = tile->alloc(4);
  const Blk::Ptr wall = tile->alloc(1);
  Blk::Ptr tight = tile->alloc(2);
  const Blk::Ptr rest = tile->alloc(8);
  low = nullptr;    // ----W22rrrrrrrr.
  tight = nullptr;  // ----W--rrrrrrrr.
  EXPECT_EQ(text(tile->alloc(2)), "5+2");
  EXPECT_EQ(text(tile->alloc(1)), "15+1");
  EXPECT_EQ(text(tile->alloc(3)), "0+3");
}

TEST(BestFitAllocator, lowestOfEqualRunsIsTaken) {
  const BestFitAllocator::Ptr tile = newAllocator(12, 4);
  std::vector<Blk::Ptr> blocks;
  for (int i = 0; i < 6; ++i) {
    blocks.push_back(tile->alloc(2));
  }
  blocks[4] = nullptr;
  blocks[2] = nullptr;
  blocks[0] = nullptr;  // ..bb..dd..ff
  EXPECT_EQ(text(blocks[0] = tile->alloc(2)), "0+2");
  EXPECT_EQ(text(blocks[2] = tile->alloc(1)), "4+1");
  EXPECT_EQ(text(tile->alloc(2)), "8+2");
}

TEST(BestFitAllocator, lastPtrFreesAndTheFreedRunJoinsBothNeighbours) {
  const BestFitAllocator::Ptr tile = newAllocator(9, 9);
  Blk::Ptr a = tile->alloc(3);
  Blk::Ptr b = tile->alloc(3);
  Blk::Ptr c = tile->alloc(3);
  Blk::Ptr second = b;
  a = nullptr;
  c = nullptr;
  b = nullptr;
  EXPECT_EQ(tile->freeEntries(), 6u) << "the other Ptr still holds the middle block";
  EXPECT_FALSE(tile->canAlloc(9));
  second = nullptr;
  EXPECT_EQ(tile->freeEntries(), 9u);
  EXPECT_EQ(text(tile->alloc(9)), "0+9");
}

TEST(BestFitAllocator, fullAllocatorRefusesUntilABlockEnds) {
  const BestFitAllocator::Ptr tile = newAllocator(4, 4);
  Blk::Ptr all = tile->alloc(4);
  EXPECT_EQ(tile->freeEntries(), 0u);
  EXPECT_FALSE(tile->canAlloc(1));
  EXPECT_EQ(text(tile->alloc(1)), "null");
  all = nullptr;
  EXPECT_TRUE(tile->canAlloc(4));
}

TEST(BestFitAllocator, reallocOfTheSameSizeYieldsTheSameBlock) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8, 10);
  const Blk::Ptr blk = tile->alloc(4);
  EXPECT_EQ(tile->realloc(10, 4), blk);
  EXPECT_EQ(tile->freeEntries(), 12u);
}

TEST(BestFitAllocator, reallocShrinksAndGrowsInPlace) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8);
  const Blk::Ptr blk = tile->alloc(4);
  EXPECT_EQ(tile->realloc(0, 1), blk);
  EXPECT_EQ(text(blk), "0+1");
  EXPECT_EQ(tile->freeEntries(), 15u);
  EXPECT_EQ(text(tile->realloc(1, 1)), "1+1") << "the freed tail can be claimed";
  EXPECT_EQ(tile->realloc(0, 8), blk);
  EXPECT_EQ(text(blk), "0+8");
  EXPECT_EQ(tile->freeEntries(), 8u);
}

TEST(BestFitAllocator, reallocGrowsUpToTheNextBlockAndNoFurther) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8);
  const Blk::Ptr a = tile->alloc(2);
  Blk::Ptr gap = tile->alloc(2);
  const Blk::Ptr b = tile->alloc(8);
  gap = nullptr;  // aa..bbbbbbbb....
  EXPECT_EQ(text(tile->realloc(0, 5)), "null");
  EXPECT_EQ(text(a), "0+2");
  EXPECT_EQ(tile->freeEntries(), 6u);
  EXPECT_EQ(tile->realloc(0, 4), a);
  EXPECT_EQ(tile->freeEntries(), 4u);
}

TEST(BestFitAllocator, reallocGrowsUpToTheEndAndNoFurther) {
  const BestFitAllocator::Ptr tile = newAllocator(4, 8);
  const Blk::Ptr blk = tile->alloc(3);
  EXPECT_EQ(text(tile->realloc(0, 5)), "null");
  EXPECT_EQ(tile->realloc(0, 4), blk);
  EXPECT_EQ(text(tile->realloc(0, 5)), "null");
  EXPECT_EQ(text(blk), "0+4");
}

TEST(BestFitAllocator, reallocClaimsAFreeRangeWhereverItLies) {
  const BestFitAllocator::Ptr tile = newAllocator(100, 8, 1000);
  const Blk::Ptr middle = tile->realloc(1050, 8);
  const Blk::Ptr low = tile->realloc(1000, 1);
  const Blk::Ptr high = tile->realloc(1099, 1);
  EXPECT_EQ(text(middle) + " " + text(low) + " " + text(high), "1050+8 1000+1 1099+1");
  EXPECT_EQ(tile->freeEntries(), 90u);
  EXPECT_EQ(text(tile->alloc(8)), "1058+8") << "41 free entries behind, 49 before";
}

TEST(BestFitAllocator, reallocRefusesWhatOverlapsOrLiesOutside) {
  const BestFitAllocator::Ptr tile = newAllocator(16, 8, 10);
  const Blk::Ptr blk = tile->realloc(14, 4);  // ....bbbb........
  for (const auto& [offset, size] : std::vector<std::pair<U32, U32>>{
           {11, 4}, {15, 1}, {17, 2}, {9, 2}, {0, 1}, {26, 1}, {25, 2}, {~0u, 1}}) {
    EXPECT_EQ(text(tile->realloc(offset, size)), "null") << offset << " " << size;
  }
  EXPECT_EQ(tile->freeEntries(), 12u);
  EXPECT_EQ(text(tile->realloc(10, 4)), "10+4");
  EXPECT_EQ(text(tile->realloc(25, 1)), "25+1");
}

TEST(BestFitAllocator, defragmentSlidesBlocksDownAndLogsTheMovedOnesByRisingOldOffset) {
  const BestFitAllocator::Ptr tile = newAllocator(12, 8, 100);
  const Blk::Ptr a = tile->alloc(2);
  Blk::Ptr gap1 = tile->alloc(3);
  const Blk::Ptr b = tile->alloc(1);
  const Blk::Ptr c = tile->alloc(2);
  Blk::Ptr gap2 = tile->alloc(1);
  const Blk::Ptr d = tile->alloc(2);
  gap1 = nullptr;
  gap2 = nullptr;  // aa...bcc.dd.
  EXPECT_FALSE(tile->canAlloc(5));
  const PendingCmds::Ptr cmds = tile->defragment();
  EXPECT_EQ(cmds->pendingCmdLogs(), 3u);
  EXPECT_EQ(moves(cmds), "105>102+1 106>103+2 109>105+2");
  EXPECT_EQ(text(a) + " " + text(b) + " " + text(c) + " " + text(d), "100+2 102+1 103+2 105+2");
  EXPECT_EQ(tile->freeEntries(), 5u);
  EXPECT_EQ(text(tile->alloc(5)), "107+5");
}

TEST(BestFitAllocator, defragmentWithoutHolesMovesNothing) {
  const BestFitAllocator::Ptr tile = newAllocator(8, 8);
  EXPECT_EQ(tile->defragment()->pendingCmdLogs(), 0u) << "empty";
  const Blk::Ptr a = tile->alloc(3);
  const Blk::Ptr b = tile->alloc(2);
  EXPECT_EQ(tile->defragment()->pendingCmdLogs(), 0u) << "free entries behind the blocks";
  const Blk::Ptr c = tile->alloc(3);
  EXPECT_EQ(tile->defragment()->pendingCmdLogs(), 0u) << "full";
  EXPECT_EQ(text(a) + " " + text(b) + " " + text(c), "0+3 3+2 5+3");
}

TEST(BestFitAllocator, movedBlocksFreeTheirNewPlace) {
  const BestFitAllocator::Ptr tile = newAllocator(8, 8);
  Blk::Ptr gap = tile->alloc(3);
  Blk::Ptr moved = tile->alloc(4);
  gap = nullptr;
  tile->defragment();
  EXPECT_EQ(text(moved), "0+4");
  EXPECT_EQ(tile->realloc(0, 4), moved);
  moved = nullptr;
  EXPECT_EQ(text(tile->alloc(8)), "0+8");
}

TEST(BestFitAllocator, logHoldsItsBlocksUntilTheyAreTakenOut) {
  const BestFitAllocator::Ptr tile = newAllocator(8, 8);
  Blk::Ptr gap = tile->alloc(3);
  Blk::Ptr moved = tile->alloc(4);
  gap = nullptr;
  const PendingCmds::Ptr cmds = tile->defragment();
  moved = nullptr;
  EXPECT_EQ(tile->freeEntries(), 4u);
  EXPECT_EQ(text(cmds->pendingCmdLogDeq().blk()), "0+4");
  EXPECT_EQ(tile->freeEntries(), 8u);
}

TEST(BestFitAllocator, emptyLogYieldsAMoveWithoutABlock) {
  const PendingCmds::Ptr cmds = new PendingCmds();
  EXPECT_EQ(cmds->pendingCmdLogDeq().blk(), nullptr);
  const BestFitAllocator::Ptr tile = newAllocator(8, 8);
  cmds->pendingCmdLogEnq(7, tile->alloc(1));
  EXPECT_EQ(moves(cmds), "7>0+1");
  EXPECT_EQ(cmds->pendingCmdLogDeq().blk(), nullptr);
}

TEST(BestFitAllocator, blockOutlivesItsAllocator) {
  BestFitAllocator::Ptr tile = newAllocator(8, 4, 50);
  Blk::Ptr gap = tile->alloc(2);
  Blk::Ptr blk = tile->alloc(3);
  gap = nullptr;
  PendingCmds::Ptr cmds = tile->defragment();
  tile = nullptr;
  EXPECT_EQ(text(blk), "50+3");
  blk = nullptr;
  EXPECT_EQ(moves(cmds), "52>50+3");
}

}  // namespace
