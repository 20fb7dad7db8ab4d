#include "agent/source/RouteTable.h"

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "agent/source/RouteOrder.h"
#include "agent/source/RouteText.h"

namespace Quarle::Agent {
namespace {

RoutePrefix prefix(const char* text) { return parsePrefix(text).value; }

IpAddress address(const char* text) { return parseAddress(text).value; }

std::string text(const std::vector<RouteEntry>& routes) {
  std::string result;
  for (const RouteEntry& route : routes) {
    result += toText(route.prefix) + " set " + std::to_string(route.nextHopSet) + "\n";
  }
  return result;
}

TEST(NextHopSets, equalListsShareAnIdAndTheEmptyListIsZero) {
  NextHopSets sets;
  EXPECT_EQ(sets.idOf({}), 0u);
  EXPECT_EQ(sets.idOf({address("10.0.0.1")}), 1u);
  EXPECT_EQ(sets.idOf({address("10.0.0.1"), address("10.0.0.2")}), 2u);
  EXPECT_EQ(sets.idOf({address("10.0.0.1")}), 1u);
  EXPECT_EQ(sets.size(), 3u);
  EXPECT_EQ(toText(sets.at(2)[1]), "10.0.0.2");
}

TEST(NextHopSets, orderAndRepetitionCount) {
  NextHopSets sets;
  const std::uint32_t once = sets.idOf({address("10.0.0.1"), address("10.0.0.2")});
  EXPECT_NE(sets.idOf({address("10.0.0.2"), address("10.0.0.1")}), once);
  EXPECT_NE(sets.idOf({address("10.0.0.1"), address("10.0.0.1"), address("10.0.0.2")}), once);
}

TEST(RouteTableBuilder, aKnownPrefixTakesTheNewNextHopsInItsOldPlace) {
  RouteTableBuilder builder;
  EXPECT_TRUE(builder.routeIs(prefix("10.0.0.0/8"), 0));
  EXPECT_TRUE(builder.routeIs(prefix("10.0.0.0/9"), 1));
  EXPECT_TRUE(builder.routeIs(prefix("::/8"), 2));
  EXPECT_FALSE(builder.routeIs(prefix("10.0.0.0/8"), 3));
  const RouteTable table = builder.finish();
  EXPECT_EQ(text(table.ipv4), "10.0.0.0/8 set 3\n10.0.0.0/9 set 1\n");
  EXPECT_EQ(text(table.ipv6), "::/8 set 2\n");
  EXPECT_EQ(table.size(), 3u);
}

TEST(RouteTableBuilder, everyOneOfManyPrefixesIsFoundAgain) {
  RouteTableBuilder builder;
  constexpr std::uint32_t kRoutes = 20'000;
  const auto route = [](std::uint32_t i) {
    return RoutePrefix::of(Family::ipv4, {.high = std::uint64_t{i} << 40, .low = 0}, 24);
  };
  for (std::uint32_t i = 0; i < kRoutes; ++i) {
    ASSERT_TRUE(builder.routeIs(route(i), 0)) << i;
  }
  for (std::uint32_t i = 0; i < kRoutes; ++i) {
    ASSERT_FALSE(builder.routeIs(route(i), 1)) << i;
  }
  EXPECT_EQ(builder.finish().ipv4.size(), kRoutes);
}

TEST(RouteTableBuilder, isEmptyAfterFinish) {
  RouteTableBuilder builder;
  builder.routeIs(prefix("10.0.0.0/8"), builder.nextHopSets().idOf({address("10.0.0.1")}));
  EXPECT_EQ(builder.finish().nextHopSets.size(), 2u);
  EXPECT_TRUE(builder.routeIs(prefix("10.0.0.0/8"), 0));
  EXPECT_EQ(builder.nextHopSets().size(), 1u);
}

TEST(RouteOrder, sortedPutsACoveringPrefixFirst) {
  std::vector<RouteEntry> routes;
  for (const char* it : {"10.1.0.0/16", "10.0.0.0/16", "9.0.0.0/8", "10.0.0.0/8", "10.0.0.0/24"}) {
    routes.push_back({.prefix = prefix(it)});
  }
  sortRoutes(routes);
  EXPECT_EQ(text(routes),
            "9.0.0.0/8 set 0\n"
            "10.0.0.0/8 set 0\n"
            "10.0.0.0/16 set 0\n"
            "10.0.0.0/24 set 0\n"
            "10.1.0.0/16 set 0\n");
}

TEST(RouteOrder, shuffledKeepsTheRoutesAndDependsOnTheSeedAlone) {
  std::vector<RouteEntry> sorted;
  for (std::uint64_t i = 0; i < 1000; ++i) {
    sorted.push_back({.prefix = RoutePrefix::of(Family::ipv4, {.high = i << 40, .low = 0}, 24)});
  }
  std::vector<RouteEntry> one = sorted;
  std::vector<RouteEntry> same = sorted;
  std::vector<RouteEntry> other = sorted;
  shuffleRoutes(one, 1);
  shuffleRoutes(same, 1);
  shuffleRoutes(other, 2);
  EXPECT_EQ(text(one), text(same));
  EXPECT_NE(one, other);
  EXPECT_NE(one, sorted);
  sortRoutes(one);
  EXPECT_EQ(text(one), text(sorted));
}

TEST(RouteOrder, shuffledGivesEveryOrderOfThreeAlike) {
  std::map<std::string, int> counts;
  for (std::uint64_t seed = 0; seed < 6000; ++seed) {
    std::vector<RouteEntry> routes = {{.prefix = prefix("1.0.0.0/8")},
                                      {.prefix = prefix("2.0.0.0/8")},
                                      {.prefix = prefix("3.0.0.0/8")}};
    shuffleRoutes(routes, seed);
    ++counts[text(routes)];
  }
  EXPECT_EQ(counts.size(), 6u);
  for (const auto& [order, count] : counts) {
    EXPECT_NEAR(count, 1000, 150) << order;
  }
}

}  // namespace
}  // namespace Quarle::Agent
