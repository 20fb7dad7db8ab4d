// Every write of a load and of random changes afterwards is followed by look-ups of all that it
// may have touched.

#include <cstdlib>
#include <filesystem>

#include "agent/source/RibFile.h"
#include "agent/source/SyntheticTable.h"
#include "tests/agent/ChipClient.h"
#include "tests/hitless/WatchedLoad.h"

namespace Quarle::Agent {
namespace {

using Testing::Environment;
using Testing::WatchedLoad;

constexpr U32 kRoutes = 20'000;
constexpr U32 kChanges = 20'000;
// NHI entries of a family so few that its tile is compacted again and again.
constexpr U32 kTightEntries = 56;

/// Every n-th route, so that `count` are left.
std::vector<RouteEntry> spread(const std::vector<RouteEntry>& routes, std::size_t count) {
  std::vector<RouteEntry> some;
  for (std::size_t i = 0; i < count && routes.size() >= count; ++i) {
    some.push_back(routes[i * routes.size() / count]);
  }
  return some;
}

std::vector<RouteEntry> synthetic(U32 ipv4, U32 ipv6) {
  RouteTable table = makeSyntheticTable({.ipv4 = ipv4, .ipv6 = ipv6}, 7);
  std::vector<RouteEntry> routes = std::move(table.ipv4);
  routes.insert(routes.end(), table.ipv6.begin(), table.ipv6.end());
  Random random(7);
  shuffle(routes, random);
  return routes;
}

void expectHitless(const WatchedLoad& load) {
  EXPECT_EQ(load.check.counts().wrong, 0U) << load.faults();
  EXPECT_GT(load.check.counts().lookups, load.check.counts().prefixWrites);
}

U64 moves(const WatchedLoad& load) {
  return load.client.family(Family::ipv4).engine().numNhiBlockDefrag() +
         load.client.family(Family::ipv6).engine().numNhiBlockDefrag();
}

TEST(EveryCommand, ofASyntheticTableAndItsChangesIsHitless) {
  WatchedLoad load(XdkSim::findProfile("internet"));
  load.run(synthetic(kRoutes, kRoutes), kChanges, 1);
  expectHitless(load);
  EXPECT_EQ(moves(load), 0U);
  EXPECT_EQ(load.check.counts().allExcused(), 0U) << "nothing is excused without a compaction";
}

TEST(EveryCommand, ofARealTableAndItsChangesIsHitless) {
  const char* named = std::getenv("TARNLET_RIB");
  const std::string path =
      named != nullptr ? named : TARNLET_SOURCE_DIR "/../shared/ribs/tier1-full.txt.gz";
  if (!std::filesystem::exists(path)) {
    GTEST_SKIP() << path << " is not there; name a routing table in TARNLET_RIB";
  }
  const RibLoad rib = loadRibFile(path, {});
  std::vector<RouteEntry> routes = spread(rib.table.ipv4, kRoutes);
  const std::vector<RouteEntry> ipv6 = spread(rib.table.ipv6, kRoutes);
  routes.insert(routes.end(), ipv6.begin(), ipv6.end());
  Random random(3);
  shuffle(routes, random);
  WatchedLoad load(XdkSim::findProfile("internet"));
  load.run(routes, kChanges, 2);
  expectHitless(load);
  EXPECT_EQ(load.check.counts().allExcused(), 0U) << "nothing is excused without a compaction";
}

/// A chip with one NHI tile in each family and a small next-hop table.
XdkSim::ChipProfile tightChip(U32 nextHopRows) {
  XdkSim::ChipProfile profile = XdkSim::findProfile("lab");
  profile.nextHopRows = nextHopRows;
  return profile;
}

TEST(EveryCommand, ofATightTileIsHitlessButForTheWindowsOfCompactions) {
  const Environment smallTile("NHI_TABLE_SIZE", std::to_string(kTightEntries));
  WatchedLoad load(tightChip(1024));
  load.run(synthetic(400, 400), kChanges, 5);
  expectHitless(load);
  EXPECT_GT(moves(load), 0U);
  EXPECT_GT(load.check.counts().excusedBy(Window::slidBlock), 0U);
  EXPECT_EQ(load.check.counts().excusedBy(Window::slidGroup), 0U);
}

class SeveralTiles : public ::testing::TestWithParam<U32> {};

TEST_P(SeveralTiles, thatAreTightAreHitlessButForTheWindowsOfCompactions) {
  const U32 tiles = GetParam();
  const Environment smallTiles("NHI_TABLE_SIZE", std::to_string(kTightEntries / tiles));
  XdkSim::ChipProfile profile = tightChip(1024);
  profile.ipv4.nhi.tilesIs(tiles);
  profile.ipv6.nhi.tilesIs(tiles);
  WatchedLoad load(profile);
  load.run(synthetic(400, 400), kChanges, tiles);
  expectHitless(load);
  EXPECT_GT(moves(load), 0U);
  EXPECT_GT(load.check.counts().excusedBy(Window::slidBlock), 0U);
  EXPECT_EQ(load.check.counts().excusedBy(Window::slidGroup), 0U);
  for (const auto& tile : load.client.family(Family::ipv4).engine().nhiAllocatorCollection()) {
    EXPECT_LT(tile.value->freeEntries(), tile.value->entriesCapacity()) << "a tile is idle";
  }
}

INSTANTIATE_TEST_SUITE_P(Tiles, SeveralTiles, ::testing::Values(2, 3, 4));

TEST(EveryCommand, whileGroupsComeGoAndMoveIsHitlessButForTheirWindow) {
  WatchedLoad load(tightChip(200));
  load.lists = 400;
  load.run(synthetic(60, 60), 5'000, 9);
  expectHitless(load);
  EXPECT_GT(load.client.groups().statistics().shuffles, 0U);
}

TEST(EveryCommand, whileGroupsGetOtherNextHopsIsHitless) {
  WatchedLoad load(XdkSim::findProfile("internet"));
  load.changingGroups = 20;
  load.run(synthetic(400, 400), 5'000, 11);
  expectHitless(load);
  EXPECT_GT(load.check.counts().mixed, 0U);
  EXPECT_EQ(load.check.counts().allExcused(), 0U) << "nothing is excused without a compaction";
}

TEST(EveryCommand, whileGroupsGetOtherNextHopsInATightTileIsHitlessButForTheWindows) {
  const Environment smallTile("NHI_TABLE_SIZE", std::to_string(kTightEntries));
  WatchedLoad load(tightChip(1024));
  load.changingGroups = 20;
  load.run(synthetic(400, 400), 10'000, 13);
  expectHitless(load);
  EXPECT_GT(load.check.counts().mixed, 0U);
  EXPECT_GT(moves(load), 0U);
}

TEST(EveryCommand, whileGroupsGetOtherNextHopsAndMoveIsHitlessButForTheWindows) {
  WatchedLoad load(tightChip(200));
  load.lists = 400;
  load.changingGroups = 20;
  load.run(synthetic(60, 60), 5'000, 15);
  expectHitless(load);
  EXPECT_GT(load.check.counts().mixed, 0U);
  EXPECT_GT(load.client.groups().statistics().shuffles, 0U);
}

}  // namespace
}  // namespace Quarle::Agent
