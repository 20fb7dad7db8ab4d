// The window over an engine's NHI tiles, and what the engine does without it.

#include "agent/TileWindow.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TiledFamily.h"
#include "tests/support/Words.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using namespace Tarnlet;
using namespace Tarnlet::Testing;
using Tiles = TiledFamily::Tiles;

/// 10.k.0.0/19 has row k to itself. With two pairs to an NHI entry three prefixes of a row take two
/// entries, and the largest row takes 11; with eight pairs it takes 3.
ChipShape shapeOf(U8 tiles, U16 entriesPerTile, U8 pairs = 2) {
  std::map<std::string, U32> rows;
  for (U32 k = 0; k < 32; ++k) {
    rows["10." + std::to_string(k) + ".0.0/19"] = k;
  }
  return {.tables = {{.id = 0, .tread = 35, .depth = 32, .rows = rows}},
          .pairsPerEntry = pairs,
          .tiles = tiles,
          .entriesPerTile = entriesPerTile};
}

std::string row(U32 k) { return "10." + std::to_string(k) + ".0.0/20"; }

/// The first address behind row(k).
std::string address(U32 k) { return "10." + std::to_string(k) + ".0.0"; }

/// "0=3 1=4": tile and free entries of what the engine sees.
std::string inView(TiledFamily& family) {
  std::map<U32, U32> freeByTile;
  for (const auto& tile : family.sm().nhiAllocatorCollection()) {
    freeByTile[tile.memberKey().value()] = tile.value->freeEntries();
  }
  std::string text;
  for (const auto& [tile, free] : freeByTile) {
    text += (text.empty() ? "" : " ") + std::to_string(tile) + "=" + std::to_string(free);
  }
  return text;
}

/// Turns the process's rotation so that the next walk over several tiles begins at tile 1.
void nextWalkBeginsAtTile1() {
  TiledFamily oneTile(shapeOf(1, 2), Tiles::allInView);
  ASSERT_EQ(oneTile.route(row(0), 1), "placed");
}

// ---- the engine alone ----

TEST(TilesInView, aTileThatFillsUpMakesTheEngineRepeatAName) {
  nextWalkBeginsAtTile1();
  TiledFamily family(shapeOf(2, 2), Tiles::allInView);
  family.route(row(1), 1);
  family.route(row(2), 2);
  EXPECT_EQ(family.block(row(1)), "1:0 in 0:0") << "named after the walk's first, lies in its last";
  EXPECT_EQ(family.block(row(2)), "0:0 in 1:0");
  family.withdraw(row(2));
  family.route(row(3), 3);
  EXPECT_EQ(family.block(row(3)), "1:1 in 0:1") << "tile 0 is full now";
  family.route(row(4), 4);
  EXPECT_EQ(family.block(row(4)), "0:0 in 1:0");
  EXPECT_EQ(family.lookup(address(3)), "3");
  EXPECT_EQ(family.route(row(5), 5), "placed");
  EXPECT_EQ(family.block(row(5)), "1:1 in 1:1") << "only tile 1 could serve";
  EXPECT_EQ(family.block(row(3)), family.block(row(5))) << "one name for two blocks";
  EXPECT_EQ(family.lookup(address(3)), "5") << "the chip has one entry for the two";
  EXPECT_TRUE(says(family.faults(), {"two contents at 1:1\n", "3 blocks for 4 contents\n",
                                     "10.3.0.0/20 leads to 5/1, expected 3/1\n"}));
}

TEST(TilesInView, requestsOfTheOtherFamilyMakeTheEngineRepeatAName) {
  nextWalkBeginsAtTile1();
  TiledFamily one(shapeOf(2, 2), Tiles::allInView);
  TiledFamily other(shapeOf(2, 2), Tiles::allInView);
  one.route(row(1), 1);
  other.route(row(1), 1);
  one.route(row(2), 2);
  other.route(row(2), 2);
  EXPECT_EQ(one.block(row(1)), "1:0 in 0:0");
  EXPECT_EQ(one.block(row(2)), "1:1 in 0:1") << "the walk begins at tile 1 again";
  one.route(row(3), 3);
  EXPECT_EQ(one.block(row(3)), "1:0 in 1:0");
  EXPECT_EQ(one.lookup(address(1)), "3") << "half of the memory is free";
}

TEST(TilesInViewDeathTest, theFirstCompactionLooksForRowsUnderAnotherTilesName) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto compacting = [] {
    nextWalkBeginsAtTile1();
    TiledFamily family(shapeOf(2, 3), Tiles::allInView);
    for (const U32 k : {1, 2, 3, 4, 5, 6}) {
      family.route(row(k), k);  // 1 3 5 in tile 0, named 1:0 and on; 2 4 6 in tile 1, named 0:0
    }
    for (const U32 k : {1, 2, 5, 6}) {
      family.withdraw(row(k));  // . 3 .   . 4 .
    }
    family.route("10.3.1.0/24", 13);  // 3 . .   . 4 .
    family.route("10.3.2.0/24", 23);  // two entries: tile 1 is compacted
  };
  EXPECT_DEATH(compacting(), "subTrieSetOld");
}

// ---- the same through the window ----

TEST(TileWindow, aTileThatFillsUpHandsOverToTheNext) {
  nextWalkBeginsAtTile1();
  TiledFamily family(shapeOf(2, 2));
  for (const U32 k : {1, 2, 3, 4}) {
    EXPECT_EQ(family.route(row(k), k), "placed");
  }
  EXPECT_EQ(family.block(row(1)), "0:0 in 0:0");
  EXPECT_EQ(family.block(row(2)), "1:0 in 1:0") << "tile 0 can no more serve two entries";
  EXPECT_EQ(family.block(row(3)), "1:1 in 1:1") << "of tiles with equal room the present one stays";
  EXPECT_EQ(family.block(row(4)), "0:1 in 0:1");
  EXPECT_EQ(family.route(row(5), 5), "refused");
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(TileWindow, requestsOfTheOtherFamilyDoNotMatter) {
  nextWalkBeginsAtTile1();
  TiledFamily one(shapeOf(2, 2));
  TiledFamily other(shapeOf(3, 2));
  for (const U32 k : {1, 2, 3, 4}) {
    EXPECT_EQ(one.route(row(k), k), "placed");
    EXPECT_EQ(other.route(row(k), k), "placed");
    EXPECT_EQ(one.faults() + other.faults(), "") << k;
  }
  EXPECT_EQ(one.thoroughFaults() + other.thoroughFaults(), "");
}

TEST(TileWindow, aCompactionMovesTheBlocksOfItsOwnTile) {
  TiledFamily family(shapeOf(2, 3));
  family.route(row(2), 2);
  family.route("10.2.1.0/24", 12);
  for (const U32 k : {1, 4, 5, 6, 7}) {
    family.route(row(k), k);  // 1 4 7   2 5 6
  }
  family.withdraw(row(1));
  family.withdraw(row(7));  // . 4 .   2 5 6
  EXPECT_EQ(family.sm().numNhiBlockDefrag(), 0U);
  EXPECT_EQ(family.route("10.2.2.0/24", 22), "placed");
  EXPECT_EQ(family.sm().numNhiBlockDefrag(), 1U);
  EXPECT_EQ(family.block(row(4)), "0:0 in 0:0");
  EXPECT_EQ(family.block(row(2)), "0:1 in 0:1");
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(TileWindow, blocksGoBackToATileThatIsOutOfView) {
  TiledFamily family(shapeOf(2, 8, 8));
  for (U32 k = 0; k < 7; ++k) {
    family.route(row(k), k);
  }
  ASSERT_EQ(family.block(row(0)), "0:0 in 0:0");
  ASSERT_EQ(inView(family), "1=7");
  EXPECT_EQ(family.withdraw(row(0)), "withdrawn");
  EXPECT_EQ(inView(family), "1=7");
  EXPECT_EQ(family.window().freeEntries(), 10U);
  family.window().widen();
  EXPECT_EQ(inView(family), "0=3 1=7");
}

// ---- which tile ----

TEST(TileWindow, startsWideAndIsNarrowFromTheFirstRequestOn) {
  TiledFamily family(shapeOf(3, 4));
  EXPECT_EQ(inView(family), "0=4 1=4 2=4");
  family.window().narrow();
  EXPECT_EQ(inView(family), "0=4");
  family.window().widen();
  EXPECT_EQ(inView(family), "0=4 1=4 2=4");
  family.window().widen();
  EXPECT_EQ(inView(family), "0=4 1=4 2=4");
  family.window().narrow();
  EXPECT_EQ(inView(family), "0=4");
}

TEST(TileWindow, aTileStaysWhileItCanServeTheLargestBlock) {
  TiledFamily family(shapeOf(3, 8, 8));
  ASSERT_EQ(family.window().largestBlock(), 3U);
  std::string tiles;
  for (U32 k = 0; k < 18; ++k) {
    ASSERT_EQ(family.route(row(k), k), "placed");
    tiles += family.block(row(k)).substr(0, 1);
  }
  EXPECT_EQ(tiles, "000000111111222222");
  EXPECT_EQ(family.window().freeEntries(), 6U);
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(TileWindow, lookingDoesNotChangeTheTile) {
  TiledFamily family(shapeOf(3, 8, 8));
  for (U32 k = 0; k < 7; ++k) {
    family.route(row(k), k);
    family.window().widen();
  }
  family.withdraw(row(0));
  family.window().widen();
  family.window().narrow();
  EXPECT_EQ(inView(family), "1=7") << "tile 2 has more, but tile 1 was there first";
}

TEST(TileWindow, aRunForTheLargestBlockComesBeforeMoreEntriesInPieces) {
  TiledFamily family(shapeOf(2, 8, 8));
  for (U32 k = 0; k < 11; ++k) {
    family.route(row(k), k);  // 0 1 2 3 4 5 . .   6 7 8 9 10 . . .
  }
  ASSERT_EQ(family.block(row(6)), "1:0 in 1:0");
  family.withdraw(row(1));
  family.withdraw(row(3));  // 0 . 2 . 4 5 . .   6 7 8 9 10 . . .
  family.windowAnew();
  EXPECT_EQ(inView(family), "0=4 1=3");
  family.window().narrow();
  EXPECT_EQ(inView(family), "1=3");
  family.route(row(11), 11);  // 0 . 2 . 4 5 . .   6 7 8 9 10 11 . .
  family.window().narrow();
  EXPECT_EQ(inView(family), "0=4") << "no tile has a run of three: the most entries decide";
}

TEST(TileWindow, ofTilesThatCanServeTheOneWithMostFreeEntriesComes) {
  TiledFamily family(shapeOf(3, 8, 8));
  for (U32 k = 0; k < 17; ++k) {
    family.route(row(k), k);  // six in tile 0, six in tile 1, five in tile 2
  }
  for (const U32 k : {0, 1, 6, 7, 8}) {
    family.withdraw(row(k));  // four free in tile 0, five in tile 1
  }
  family.route(row(17), 17);
  EXPECT_EQ(family.block(row(17)).substr(0, 1), "2");
  family.window().narrow();
  EXPECT_EQ(inView(family), "1=5");
}

TEST(TileWindow, aBlockIsRefusedOnlyWhenNoTileHasRoom) {
  TiledFamily family(shapeOf(4, 2));
  U32 placed = 0;
  while (placed < 20 && family.route(row(placed), placed) == "placed") {
    ++placed;
  }
  EXPECT_EQ(placed, 8U);
  EXPECT_EQ(family.window().freeEntries(), 0U);
  family.withdraw(row(5));
  EXPECT_EQ(family.route(row(9), 9), "placed");
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(TileWindow, itsEndPutsAllTilesBackAndTheNextTakesThemOver) {
  TiledFamily family(shapeOf(3, 8, 8));
  const LpmSm::Ptr sm(&family.sm());
  family.route(row(1), 1);
  {
    TileWindow window(sm);
    EXPECT_EQ(window.tiles().size(), 1U) << "what the other has left in view";
  }
  family.windowAnew();
  EXPECT_EQ(inView(family), "0=7 1=8 2=8");
  EXPECT_EQ(family.window().freeEntries(), 23U);
  EXPECT_EQ(family.window().capacity(), 24U);
  EXPECT_EQ(family.route(row(2), 2), "placed");
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(TileWindow, tilesAreListedByRisingIndex) {
  TiledFamily family(shapeOf(16, 4));
  std::string indices;
  for (const TileWindow::Tile& tile : family.window().tiles()) {
    indices += std::to_string(tile.index.value()) + " ";
  }
  EXPECT_EQ(indices, "0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 ");
}

TEST(TileWindow, withoutTilesNothingIsShown) {
  TiledFamily family(shapeOf(0, 4));
  family.window().narrow();
  EXPECT_EQ(inView(family), "");
  EXPECT_EQ(family.window().freeEntries(), 0U);
}

// ---- the largest block ----

U32 largestOf(std::vector<TableShape> tables, std::vector<U8> strides, U8 pairs = 6) {
  return largestNhiBlock(*makeConfig({.longKey = true,
                                      .tables = std::move(tables),
                                      .strides = std::move(strides),
                                      .pairsPerEntry = pairs}));
}

TEST(LargestNhiBlock, isThatOfTheRowWithMostLeaves) {
  const TableShape wide16{.id = 0, .tread = 16};
  const TableShape wide128{.id = 1, .tread = 128};
  const TableShape narrow16{.id = 2, .tread = 16, .type = prefixTableNarrow128b};
  EXPECT_EQ(largestOf({wide16}, {8}), 5U) << "25 leaves of 8 bits in 200";
  EXPECT_EQ(largestOf({wide16}, {8}, 10), 3U);
  EXPECT_EQ(largestOf({wide128}, {8}), 2U) << "11 leaves of 8 bits in 88";
  EXPECT_EQ(largestOf({narrow16}, {8}), 2U) << "9 leaves of 8 bits in 72";
  EXPECT_EQ(largestOf({wide128, narrow16, wide16}, {8}), 5U);
}

TEST(LargestNhiBlock, countsNoMorePrefixesThanAStrideTells) {
  const TableShape wide16{.id = 0, .tread = 16};
  EXPECT_EQ(largestOf({wide16}, {1}), 1U) << "a single prefix";
  EXPECT_EQ(largestOf({wide16}, {2}, 1), 3U);
  EXPECT_EQ(largestOf({wide16}, {5}, 1), 31U);
  EXPECT_EQ(largestOf({wide16}, {6}, 1), 33U) << "33 leaves of 6 bits in 200";
  EXPECT_EQ(largestOf({wide16}, {0}), 1U) << "no leaf at all";
}

TEST(LargestNhiBlock, allowsForARowThatHasGivenUpItsBranch) {
  EXPECT_EQ(largestOf({{.id = 0, .tread = 16}}, {24}, 1), 9U) << "of all 216 bits, not of 200";
}

TEST(LargestNhiBlock, isOneEntryWhereRowsMayNotSpanSeveral) {
  const ConfigBase::Ptr config = makeConfig(shapeOf(1, 8));
  EXPECT_EQ(largestNhiBlock(*config), 11U);
  config->supportMultiNhiEntriesPerSubTrieIs(false);
  EXPECT_EQ(largestNhiBlock(*config), 1U);
}

}  // namespace
}  // namespace Quarle::Agent
