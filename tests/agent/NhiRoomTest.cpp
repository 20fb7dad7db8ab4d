// Room in the NHI memory: what is kept back, from whom, and what it prevents.

#include "agent/NhiRoom.h"

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/TiledFamily.h"
#include "tests/support/Words.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using namespace Tarnlet;
using namespace Tarnlet::Testing;
using Tiles = TiledFamily::Tiles;

constexpr HeadroomOptions kNothing{.share = 0, .minLargestBlocks = 0};

/// 10.k.0.0/19 has row k to itself; the largest row's pairs take three NHI entries.
ChipShape shapeOf(U8 tiles, U16 entriesPerTile, U8 pairs = 8) {
  std::map<std::string, U32> rows;
  for (U32 k = 0; k < 40; ++k) {
    rows["10." + std::to_string(k) + ".0.0/19"] = k;
  }
  return {.tables = {{.id = 0, .tread = 35, .depth = 40, .rows = rows}},
          .pairsPerEntry = pairs,
          .tiles = tiles,
          .entriesPerTile = entriesPerTile};
}

/// The first and the second prefix of row k.
std::string row(U32 k) { return "10." + std::to_string(k) + ".0.0/20"; }

std::string second(U32 k) { return "10." + std::to_string(k) + ".1.0/24"; }

U64 entriesForRoutes(U8 tiles, U16 entriesPerTile, const HeadroomOptions& options = {}) {
  return TiledFamily(shapeOf(tiles, entriesPerTile), Tiles::oneInView, options)
      .room()
      .entriesForRoutes();
}

// ---- how much ----

TEST(NhiRoom, aShareOfTheMemoryIsKeptBack) {
  EXPECT_EQ(entriesForRoutes(16, 16384), 5243U) << "two per cent, rounded up";
  EXPECT_EQ(entriesForRoutes(16, 16384, {.share = 0.25}), 65536U);
}

TEST(NhiRoom, neverLessThanTheLargestBlocksTake) {
  EXPECT_EQ(entriesForRoutes(2, 2000), 192U) << "64 blocks of 3, more than two per cent";
  EXPECT_EQ(entriesForRoutes(2, 2000, {.minLargestBlocks = 100}), 300U);
  EXPECT_EQ(entriesForRoutes(2, 2000, {.minLargestBlocks = 0}), 80U);
}

TEST(NhiRoom, butTheBlocksTakeNoMoreThanAnEighthOfATinyMemory) {
  EXPECT_EQ(entriesForRoutes(1, 100), 12U);
  EXPECT_EQ(entriesForRoutes(2, 8), 2U);
  EXPECT_EQ(entriesForRoutes(1, 1), 1U) << "the share, rounded up";
  EXPECT_EQ(entriesForRoutes(1, 1, kNothing), 0U);
}

TEST(NhiRoom, updatesMayUseHalfOfIt) {
  const TiledFamily family(shapeOf(1, 100), Tiles::oneInView, {});
  EXPECT_EQ(family.room().entriesForUpdates(), 6U);
}

TEST(NhiRoom, aShareMustBeAShare) {
  for (const double share : {-0.01, 1.0, 17.0}) {
    EXPECT_THROW(entriesForRoutes(1, 8, {.share = share}), std::invalid_argument) << share;
  }
  try {
    entriesForRoutes(1, 8, {.share = 1.5});
    FAIL() << "accepted";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(),
                 "NHI headroom: a share of 1.500000, expected at least 0 and less than 1");
  }
}

// ---- new routes ----

TEST(NhiRoom, newRoutesStopWhileFewerEntriesAreFree) {
  TiledFamily family(shapeOf(4, 8), Tiles::oneInView, {.share = 0.25, .minLargestBlocks = 0});
  ASSERT_EQ(family.room().entriesForRoutes(), 8U);
  U32 placed = 0;
  while (family.route(row(placed), placed) == "placed") {
    ++placed;
  }
  EXPECT_EQ(family.window().freeEntries(), 7U);
  EXPECT_EQ(placed, 25U);
  EXPECT_EQ(family.route(row(placed), placed), "headroom");
  EXPECT_EQ(family.withdraw(row(3)), "withdrawn");
  EXPECT_EQ(family.route(row(placed), placed), "placed") << "room has returned";
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(NhiRoom, aTinyChipTakesRoutesWithTheUsualOptions) {
  TiledFamily family(shapeOf(1, 16), Tiles::oneInView, {});
  for (U32 k = 0; k < 15; ++k) {
    EXPECT_EQ(family.route(row(k), k), "placed") << k;
  }
  EXPECT_EQ(family.route(row(15), 15), "headroom");
}

// ---- updates ----

TEST(NhiRoom, updatesOfRowsThatShareStopAtHalf) {
  TiledFamily family(shapeOf(1, 32), Tiles::oneInView, {.share = 0.25, .minLargestBlocks = 0});
  ASSERT_EQ(family.room().entriesForUpdates(), 4U);
  for (U32 k = 0; k < 40; ++k) {
    ASSERT_EQ(family.route(row(k), 1), "placed");
  }
  ASSERT_EQ(family.window().freeEntries(), 31U) << "one block for all";
  U32 updated = 0;
  while (updated < 40 && family.route(row(updated), 100 + updated) == "updated") {
    ++updated;
  }
  EXPECT_EQ(updated, 28U) << "each takes a block and frees none";
  EXPECT_EQ(family.window().freeEntries(), 3U);
  EXPECT_EQ(family.route(row(39), 200), "headroom");
  EXPECT_EQ(family.route(row(0), 200), "updated") << "its block is its own: nothing is lost";
  EXPECT_EQ(family.window().freeEntries(), 3U);
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(NhiRoom, anUpdateWithoutAnyRoomIsNotAskedFor) {
  TiledFamily family(shapeOf(1, 2), Tiles::oneInView, kNothing);
  family.route(row(1), 1);
  family.route(row(2), 2);
  EXPECT_EQ(family.route(row(1), 3), "headroom");
  family.withdraw(row(2));
  EXPECT_EQ(family.route(row(1), 3), "updated");
}

// ---- withdrawals ----

/// Three entries: one is shared by rows 1 and 2 of two prefixes each, the others are rows 3's and
/// 4's.
void fillWithSharers(TiledFamily& family) {
  for (const U32 k : {1, 2}) {
    ASSERT_EQ(family.route(row(k), 1), "placed");
    ASSERT_EQ(family.route(second(k), 2), "placed");
  }
  ASSERT_EQ(family.route(row(3), 3), "placed");
  ASSERT_EQ(family.route(row(4), 4), "placed");
  ASSERT_EQ(family.sm().nhiBaseIdxToBlks(), 3U);
}

TEST(NhiRoom, aWithdrawalThatFindsNoBlockWaitsForOneThatNeedsNone) {
  TiledFamily family(shapeOf(1, 3), Tiles::oneInView, kNothing);
  fillWithSharers(family);
  EXPECT_EQ(family.withdraw(second(1)), "headroom") << "what stays of the row has no block";
  EXPECT_EQ(family.lookup("10.1.1.1"), "2") << "the route is still there";
  EXPECT_EQ(family.withdraw(row(3)), "withdrawn") << "an empty row needs none";
  EXPECT_EQ(family.withdraw(second(1)), "withdrawn");
  EXPECT_EQ(family.lookup("10.1.1.1"), "1");
  EXPECT_EQ(family.thoroughFaults(), "");
}

TEST(NhiRoomDeathTest, aWithdrawalThatIsNotAskedForEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  TiledFamily family(shapeOf(1, 3), Tiles::allInView);
  fillWithSharers(family);
  EXPECT_DEATH(family.withdraw(second(1)), "updateNhiInfoForSubTrie\\( subTrie \\)");
}

TEST(NhiRoom, whatIsNotInstalledCanBeWithdrawn) {
  TiledFamily family(shapeOf(1, 1), Tiles::oneInView, kNothing);
  family.route(row(1), 1);
  family.window().narrow();
  const ConfigV4::Ptr config = configV4Factory("other");
  EXPECT_TRUE(family.room().forDelete(config->lpmPrefixIs({0, Corsel::Prefix("10.0.0.0/8")})));
}

// ---- one block ----

TEST(NhiRoom, aBlockMustFitTheTileInView) {
  TiledFamily family(shapeOf(2, 8, 8), Tiles::oneInView, kNothing);
  for (U32 k = 0; k < 14; ++k) {
    family.route(row(k), k);
  }
  ASSERT_EQ(family.window().freeEntries(), 2U);
  family.window().narrow();
  const U32 inView = family.window().freeEntriesShown();
  EXPECT_EQ(inView, 1U) << "one in each tile";
  EXPECT_TRUE(family.room().forBlock(0));
  EXPECT_TRUE(family.room().forBlock(8));
  EXPECT_FALSE(family.room().forBlock(9)) << "two entries, though two are free";
}

TEST(NhiRoom, piecesOfATileCount) {
  TiledFamily family(shapeOf(1, 8, 8), Tiles::oneInView, kNothing);
  for (U32 k = 0; k < 8; ++k) {
    family.route(row(k), k);
  }
  family.withdraw(row(1));
  family.withdraw(row(5));
  family.window().narrow();
  EXPECT_TRUE(family.room().forBlock(16)) << "the tile is compacted for it";
  EXPECT_FALSE(family.room().forBlock(17));
}

}  // namespace
}  // namespace Quarle::Agent
