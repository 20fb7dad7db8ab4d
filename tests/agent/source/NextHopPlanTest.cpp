#include "agent/source/NextHopPlan.h"

#include <map>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "agent/source/RouteText.h"
#include "agent/source/SyntheticTable.h"

namespace Quarle::Agent {
namespace {

class NextHopPlanTest : public testing::Test {
 protected:
  const RouteTable table_ = makeSyntheticTable({.ipv4 = 20'000, .ipv6 = 20'000}, 1);
};

TEST_F(NextHopPlanTest, isAFunctionOfPrefixGroupsAndSeed) {
  const RoutePrefix prefix = parsePrefix("192.0.2.0/24").value;
  EXPECT_EQ(NextHopPlan(1000, 7).groupOf(prefix), NextHopPlan(1000, 7).groupOf(prefix));
  std::set<std::uint32_t> groups;
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    groups.insert(NextHopPlan(1000, seed).groupOf(prefix));
  }
  EXPECT_GT(groups.size(), 10u);
}

TEST_F(NextHopPlanTest, everyGroupIsUsedAndNoneBeyond) {
  const NextHopPlan plan(64, 7);
  std::set<std::uint32_t> used;
  for (const RouteEntry& route : table_.ipv4) {
    used.insert(plan.groupOf(route.prefix));
  }
  EXPECT_EQ(used.size(), 64u);
  EXPECT_EQ(*used.rbegin(), 63u);
}

TEST_F(NextHopPlanTest, fourInFiveTakeTheGroupOfTheirCover) {
  // With a million groups, two prefixes of one cover agree by their cover alone: 0.8 squared.
  const NextHopPlan plan(1'000'000, 7);
  for (const auto& [family, cover] : {std::pair{Family::ipv4, 12}, std::pair{Family::ipv6, 29}}) {
    const std::vector<RouteEntry>& routes = table_.routes(family);
    int pairs = 0;
    int agreeing = 0;
    for (std::size_t i = 1; i < routes.size(); ++i) {
      const RoutePrefix& left = routes[i - 1].prefix;
      const RoutePrefix& right = routes[i].prefix;
      if (left.bits().masked(cover) == right.bits().masked(cover)) {
        ++pairs;
        agreeing += plan.groupOf(left) == plan.groupOf(right);
      }
    }
    ASSERT_GT(pairs, 5000);
    EXPECT_NEAR(1.0 * agreeing / pairs, 0.64, 0.03) << "cover of " << cover << " bits";
  }
}

TEST_F(NextHopPlanTest, waysRunFromOneToEight) {
  const NextHopPlan plan(1000, 7);
  std::vector<int> counts(10);
  for (std::uint32_t group = 0; group < plan.groups(); ++group) {
    ++counts.at(plan.waysOf(group));
  }
  EXPECT_EQ(counts[0], 0);
  EXPECT_EQ(counts[9], 0);
  for (std::size_t ways = 1; ways <= 8; ++ways) {
    EXPECT_NEAR(counts[ways], 125, 50) << ways << " ways";
  }
}

TEST_F(NextHopPlanTest, changedMovesEveryPrefixAndKeepsGroupsTogether) {
  for (const std::uint32_t groups : {2u, 3u, 64u}) {
    for (std::uint64_t seed = 0; seed < 10; ++seed) {
      SCOPED_TRACE(testing::Message() << groups << " groups, seed " << seed);
      const NextHopPlan first(groups, seed);
      const NextHopPlan second = first.changed();
      const NextHopPlan third = second.changed();
      std::map<std::uint32_t, std::uint32_t> moves;
      for (const RouteEntry& route : table_.ipv6) {
        const std::uint32_t from = first.groupOf(route.prefix);
        const std::uint32_t to = second.groupOf(route.prefix);
        ASSERT_NE(from, to) << toText(route.prefix);
        ASSERT_NE(to, third.groupOf(route.prefix)) << toText(route.prefix);
        ASSERT_EQ(moves.try_emplace(from, to).first->second, to) << toText(route.prefix);
      }
      EXPECT_EQ(moves.size(), groups);
    }
  }
}

TEST_F(NextHopPlanTest, aSingleGroupStaysAsItIs) {
  const NextHopPlan plan(1, 7);
  EXPECT_EQ(plan.groupOf(table_.ipv4[0].prefix), 0u);
  EXPECT_EQ(plan.changed().groupOf(table_.ipv4[0].prefix), 0u);
}

}  // namespace
}  // namespace Quarle::Agent
