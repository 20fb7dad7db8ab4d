// The smallest chips and routes that show each window of a compaction.

#include "tests/agent/ChipClient.h"
#include "tests/hitless/WatchedLoad.h"

namespace Quarle::Agent {
namespace {

using Testing::Environment;
using Testing::keyOf;
using Testing::WatchedLoad;

/// One large table, so that each 10.k.0.0/19 has a row to itself, and one NHI tile of entries of
/// six pairs: a seventh route in a row asks for a second entry.
class Windows : public ::testing::Test {
 protected:
  Windows(const char* entries, U32 nextHopRows) : tileSize_("NHI_TABLE_SIZE", entries) {
    XdkSim::ChipProfile profile =
        Testing::tinyProfile({{.tread = 16, .rows = 4, .sramWidth = 256, .hashPolySelect = 0},
                              {.tread = 35, .rows = 4096, .sramWidth = 256, .hashPolySelect = 0}},
                             nextHopRows);
    load_ = std::make_unique<WatchedLoad>(std::move(profile));
  }

  /// The only route of row `k`.
  void one(U32 k) { route(k, 0, {k}); }

  /// Route `i` of row `k`.
  void route(U32 k, U32 i, const WatchedLoad::NextHops& nextHops) {
    EXPECT_TRUE(load_->route(prefix(k, i), nextHops));
  }

  void without(U32 k) { load_->withdrawNow(prefix(k, 0)); }

  const HitlessCounts& counts() const { return load_->check.counts(); }

  void expectExcused(U64 slidBlock, U64 changedRow, U64 slidGroup) const {
    EXPECT_EQ(counts().wrong, 0U) << load_->faults();
    EXPECT_EQ(counts().excusedBy(Window::slidBlock), slidBlock);
    EXPECT_EQ(counts().excusedBy(Window::changedRow), changedRow);
    EXPECT_EQ(counts().excusedBy(Window::slidGroup), slidGroup);
  }

 private:
  static RoutePrefix prefix(U32 k, U32 i) {
    const std::string net = "10." + std::to_string(k) + ".";
    return keyOf(i == 0 ? net + "0.0/20" : net + std::to_string(i) + ".0/24").prefix;
  }

  Environment tileSize_;
  std::unique_ptr<WatchedLoad> load_;
};

class BlockWindows : public Windows {
 protected:
  BlockWindows() : Windows("8", 64) {}
};

TEST_F(BlockWindows, aBlockOfTwoEntriesSlidesByOne) {
  one(1);  // 1
  for (U32 i = 0; i < 7; ++i) {
    route(6, i, {60 + i});  // 1 . . 6 6
  }
  one(2);
  one(3);
  one(4);
  one(5);      // 1 2 3 6 6 4 5
  without(3);  // 1 2 . 6 6 4 5 .
  expectExcused(0, 0, 0);
  // The six routes in the first entry read the second one's pairs until the row is rewritten.
  route(6, 1, {99});  // 1 2 4 5 . . 6 6
  EXPECT_EQ(counts().wrong, 0U);
  EXPECT_GT(counts().excusedBy(Window::slidBlock), 0U);
  EXPECT_EQ(counts().excusedBy(Window::changedRow), 0U);
}

class GrowthWindows : public Windows {
 protected:
  GrowthWindows() : Windows("5", 64) {}
};

TEST_F(GrowthWindows, aGrownRowSpillsAtItsMovedBlock) {
  one(1);  // 1
  for (U32 i = 0; i < 6; ++i) {
    route(6, i, {60 + i});  // 1 . 6
  }
  one(3);
  one(4);
  one(5);  // 1 3 6 4 5
  without(1);
  without(4);  // . 3 6 . 5
  expectExcused(0, 0, 0);
  // The seventh pair stands in an entry that row 5 takes over before row 6 has its final block.
  route(6, 6, {66});  // 3 . 5 6 6
  EXPECT_EQ(counts().wrong, 0U);
  EXPECT_GT(counts().excusedBy(Window::slidBlock), 0U);
  EXPECT_GT(counts().excusedBy(Window::changedRow), 0U);
}

class GroupWindows : public Windows {
 protected:
  GroupWindows() : Windows("64", 8) {}
};

TEST_F(GroupWindows, aGroupOfThreeSlidesByOne) {
  route(1, 0, {1});           // 1
  route(2, 0, {21, 22, 23});  // 1 2 2 2
  route(3, 0, {31, 32});      // 1 2 2 2 3 3
  route(4, 0, {41, 42});      // 1 2 2 2 3 3 4 4
  without(1);
  without(3);  // . 2 2 2 . . 4 4
  expectExcused(0, 0, 0);
  // Rows 1 and 2 hold the second and third next hop while the route still leads to rows 1 to 3.
  route(5, 0, {51, 52, 53});  // 2 2 2 4 4 5 5 5
  EXPECT_EQ(counts().wrong, 0U);
  EXPECT_EQ(counts().excusedBy(Window::slidBlock), 0U);
  EXPECT_GT(counts().excusedBy(Window::slidGroup), 0U);
}

}  // namespace
}  // namespace Quarle::Agent
