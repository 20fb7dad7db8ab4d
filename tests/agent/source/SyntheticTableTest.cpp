#include "agent/source/SyntheticTable.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "agent/source/RouteText.h"

namespace Quarle::Agent {
namespace {

std::uint64_t checksum(const RouteTable& table) {
  std::uint64_t sum = 0;
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    for (const RouteEntry& route : table.routes(family)) {
      sum = mixed(sum + hashOf(route.prefix, 1));
    }
  }
  return sum;
}

/// How the routes of one family lie under covers of one length.
struct Covers {
  std::size_t count = 0;
  double mean = 0;
  std::uint32_t p50 = 0;
  std::uint32_t p90 = 0;
  std::uint32_t p99 = 0;
  std::uint32_t max = 0;
};

Covers coversOf(const std::vector<RouteEntry>& sorted, unsigned length) {
  std::vector<std::uint32_t> sizes;
  std::size_t routes = 0;
  AddressBits last;
  for (const RouteEntry& route : sorted) {
    if (route.prefix.length < length) {
      continue;
    }
    const AddressBits cover = route.prefix.bits().masked(length);
    if (sizes.empty() || cover != last) {
      sizes.push_back(0);
      last = cover;
    }
    ++sizes.back();
    ++routes;
  }
  std::sort(sizes.begin(), sizes.end());
  const auto part = [&](std::size_t percent) { return sizes[sizes.size() * percent / 100]; };
  return {.count = sizes.size(),
          .mean = static_cast<double>(routes) / static_cast<double>(sizes.size()),
          .p50 = part(50),
          .p90 = part(90),
          .p99 = part(99),
          .max = sizes.back()};
}

/// The share of routes that another route covers.
double nestedShare(const std::vector<RouteEntry>& sorted) {
  std::vector<RoutePrefix> above;
  std::size_t nested = 0;
  for (const RouteEntry& route : sorted) {
    const AddressBits bits = route.prefix.bits();
    while (!above.empty() && bits.masked(above.back().length) != above.back().bits()) {
      above.pop_back();
    }
    nested += !above.empty();
    above.push_back(route.prefix);
  }
  return static_cast<double>(nested) / static_cast<double>(sorted.size());
}

std::map<unsigned, std::uint32_t> lengthsOf(const std::vector<RouteEntry>& routes) {
  std::map<unsigned, std::uint32_t> lengths;
  for (const RouteEntry& route : routes) {
    ++lengths[route.prefix.length];
  }
  return lengths;
}

void expectWithin(double percent, double value, double wanted, const std::string& what) {
  EXPECT_NEAR(value, wanted, wanted * percent / 100) << what;
}

void expectCovers(const std::vector<RouteEntry>& sorted, unsigned length, const Covers& real) {
  const std::string what = "/" + std::to_string(length) + " ";
  const Covers made = coversOf(sorted, length);
  expectWithin(10, static_cast<double>(made.count), static_cast<double>(real.count),
               what + "count");
  expectWithin(10, made.mean, real.mean, what + "mean");
  EXPECT_EQ(made.p50, real.p50) << what << "p50";
  expectWithin(15, made.p90, real.p90, what + "p90");
  expectWithin(20, made.p99, real.p99, what + "p99");
}

/// A table of the size of the measured one, made once.
class SyntheticFullTable : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    table_ = new RouteTable(makeSyntheticTable({.ipv4 = 901'899, .ipv6 = 160'147}, 2));
  }

  static void TearDownTestSuite() {
    delete table_;
    table_ = nullptr;
  }

  static RouteTable* table_;
};

RouteTable* SyntheticFullTable::table_ = nullptr;

TEST_F(SyntheticFullTable, ipv4RoutesClusterAsInTheRealTable) {
  expectCovers(table_->ipv4, 12,
               {.count = 3049, .mean = 295.7, .p50 = 161, .p90 = 728, .p99 = 2069, .max = 3412});
  expectCovers(table_->ipv4, 16,
               {.count = 33013, .mean = 27.19, .p50 = 7, .p90 = 83, .p99 = 195, .max = 341});
  expectCovers(table_->ipv4, 19,
               {.count = 114570, .mean = 7.524, .p50 = 4, .p90 = 20, .p99 = 32, .max = 112});
  expectWithin(15, coversOf(table_->ipv4, 19).max, 112, "/19 max");
  expectWithin(15, nestedShare(table_->ipv4), 0.507, "nested share");
}

TEST_F(SyntheticFullTable, ipv6RoutesClusterAsInTheRealTable) {
  expectCovers(table_->ipv6, 27,
               {.count = 16433, .mean = 9.740, .p50 = 1, .p90 = 13, .p99 = 131, .max = 4101});
  expectCovers(table_->ipv6, 35,
               {.count = 16372, .mean = 7.724, .p50 = 2, .p90 = 12, .p99 = 99, .max = 1876});
  expectCovers(table_->ipv6, 44,
               {.count = 39661, .mean = 2.469, .p50 = 1, .p90 = 6, .p99 = 16, .max = 60});
  expectWithin(15, nestedShare(table_->ipv6), 0.569, "nested share");
}

TEST_F(SyntheticFullTable, lengthsAreThoseOfTheRealTable) {
  const std::map<unsigned, std::uint32_t> real4 = {
      {16, 13490}, {17, 8235},   {18, 13798}, {19, 24870},  {20, 42611},
      {21, 50750}, {22, 108623}, {23, 96510}, {24, 537698}, {32, 886}};
  const std::map<unsigned, std::uint32_t> real6 = {{29, 4371},  {32, 22548}, {36, 5996},
                                                   {40, 13418}, {44, 14365}, {48, 75488}};
  const auto check = [](const auto& real, const std::vector<RouteEntry>& routes) {
    std::map<unsigned, std::uint32_t> made = lengthsOf(routes);
    for (const auto& [length, count] : real) {
      expectWithin(10, made[length], count, "/" + std::to_string(length));
    }
  };
  check(real4, table_->ipv4);
  check(real6, table_->ipv6);
  EXPECT_EQ(lengthsOf(table_->ipv4).begin()->first, 8u);
  EXPECT_EQ(lengthsOf(table_->ipv6).rbegin()->first, 128u);
}

TEST_F(SyntheticFullTable, routesStandInPublicAddressSpace) {
  for (const RouteEntry& route : table_->ipv4) {
    const unsigned top = route.prefix.address[0];
    ASSERT_TRUE(top >= 1 && top <= 223 && top != 10 && top != 127) << toText(route.prefix);
  }
  for (const RouteEntry& route : table_->ipv6) {
    ASSERT_EQ(route.prefix.address[0] >> 5, 1) << toText(route.prefix);
  }
}

TEST(SyntheticTable, aSeedGivesTheSameTableEverywhere) {
  EXPECT_EQ(checksum(makeSyntheticTable({.ipv4 = 50'000, .ipv6 = 20'000}, 1)), 0x63ed4ef10bf48ce0);
  EXPECT_EQ(checksum(makeSyntheticTable({.ipv4 = 50'000, .ipv6 = 20'000}, 2)), 0xcbb1f5be95019070);
}

TEST(SyntheticTable, aFamilyDoesNotDependOnTheOther) {
  EXPECT_EQ(makeSyntheticTable({.ipv4 = 5000, .ipv6 = 0}, 1).ipv4,
            makeSyntheticTable({.ipv4 = 5000, .ipv6 = 5000}, 1).ipv4);
  EXPECT_EQ(makeSyntheticTable({.ipv4 = 0, .ipv6 = 5000}, 1).ipv6,
            makeSyntheticTable({.ipv4 = 5000, .ipv6 = 5000}, 1).ipv6);
}

TEST(SyntheticTable, everySizeIsMetWithDistinctSortedRoutes) {
  for (const std::uint32_t size : {0u, 1u, 2u, 3u, 10u, 100u, 1000u, 30'000u, 300'000u}) {
    for (std::uint64_t seed = 0; seed < (size > 1000 ? 1u : 20u); ++seed) {
      const RouteTable table = makeSyntheticTable({.ipv4 = size, .ipv6 = size}, seed);
      for (const Family family : {Family::ipv4, Family::ipv6}) {
        const std::vector<RouteEntry>& routes = table.routes(family);
        ASSERT_EQ(routes.size(), size) << "seed " << seed;
        for (std::size_t i = 0; i < routes.size(); ++i) {
          const RoutePrefix& prefix = routes[i].prefix;
          ASSERT_EQ(prefix.family, family);
          ASSERT_EQ(prefix, RoutePrefix::of(family, prefix.bits(), prefix.length));
          ASSERT_TRUE(i == 0 || routes[i - 1].prefix < prefix)
              << toText(prefix) << " of " << size << " seed " << seed;
        }
      }
    }
  }
}

TEST(SyntheticTable, aSmallTableHasFewerClustersOfTheSameKind) {
  const RouteTable table = makeSyntheticTable({.ipv4 = 90'190, .ipv6 = 16'015}, 3);
  expectWithin(15, coversOf(table.ipv4, 19).mean, 7.524, "/19 mean");
  expectWithin(25, coversOf(table.ipv6, 44).mean, 2.469, "/44 mean");
}

TEST(SyntheticTable, moreRoutesThanTheAddressSpaceHoldsAreRefused) {
  try {
    makeSyntheticTable({.ipv4 = 1000, .ipv6 = 4'000'001}, 1);
    FAIL() << "no error";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(),
                 "a synthetic table of 4000001 IPv6 routes, expected at most 4000000");
  }
}

}  // namespace
}  // namespace Quarle::Agent
