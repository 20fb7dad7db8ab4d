// why against what the library then does, over random routes on a chip that is too small for them.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/shell/ShellFixture.h"
#include "tests/support/Random.h"

namespace Quarle::Cli {
namespace {

using Agent::Family;

/// Rows for more routes than there are NHI entries.
const char* const kLittleNhi = R"({
  "name": "littleNhi",
  "description": "More rows than NHI entries.",
  "ipv4": {
    "keyWidth": 48, "vrfIdWidth": 16,
    "tables": [{"count": 2, "tread": 35, "rows": 16384, "sramWidth": 128},
               {"count": 1, "tread": 16, "rows": 1, "sramWidth": 128}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 1}
  },
  "ipv6": {
    "keyWidth": 144, "vrfIdWidth": 16,
    "tables": [{"count": 1, "tread": 60, "rows": 16, "sramWidth": 256},
               {"count": 1, "tread": 16, "rows": 4, "sramWidth": 256}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 1}
  },
  "nextHopTable": {"rows": 32768}
})";

class Why : public Testing::ShellTest {
 protected:
  explicit Why(const char* profile = Testing::kSmallProfile) : ShellTest(profile) {}

  /// Prefixes that often share branches, of lengths that several tables take.
  std::string anyPrefix() {
    const Family family = random.oneIn(3) ? Family::ipv6 : Family::ipv4;
    std::array<U8, 16> bytes{};
    const bool isV4 = family == Family::ipv4;
    bytes[0] = isV4 ? static_cast<U8>(random.between(10, 12)) : 0x20;
    bytes[1] = static_cast<U8>(random.between(0, 3) * 16);
    bytes[2] = static_cast<U8>(random.between(0, 255));
    bytes[3] = static_cast<U8>(random.between(0, 3) * 64);
    bytes[7] = random.byte();
    const U32 length = isV4 ? random.between(9, 32) : random.between(17, 64);
    return Agent::toText(Agent::RoutePrefix::of(family, Agent::AddressBits::of(bytes), length));
  }

  Agent::RouteKey keyOf(const std::string& prefix) const {
    return {.vrf = 0, .prefix = Agent::parsePrefix(prefix).value};
  }

  bool isInstalled(const std::string& prefix) {
    return objects("show route " + prefix)[0]["installed"] == true;
  }

  Agent::Answer withdraw(const std::string& prefix) {
    const Agent::RouteKey key = keyOf(prefix);
    return session.client().family(key.prefix.family).routeDel(key);
  }

  /// Routes that an answer would have withdrawn; empty when it names no routes, or not all.
  static std::vector<std::string> routesToWithdraw(const std::string& help) {
    constexpr std::string_view kBegin = "withdraw ";
    if (!help.starts_with(kBegin) || help.find('/') == help.npos ||
        help.find(" and ") != help.npos) {
      return {};
    }
    const std::string list = help.substr(kBegin.size());
    std::vector<std::string> routes;
    for (std::size_t begin = 0; begin < list.size();) {
      const std::size_t end = std::min(list.find(", ", begin), list.size());
      routes.push_back(list.substr(begin, end - begin));
      begin = end + 2;
    }
    return routes;
  }

  /// Requests prefix after prefix, and withdraws those that stand.
  void compareWithTheLibrary(U32 prefixes, U32 groups) {
    for (U32 i = 0; i < prefixes; ++i) {
      const std::string prefix = anyPrefix();
      if (isInstalled(prefix)) {
        withdraw(prefix);
        continue;
      }
      const Json told = objects("why " + prefix)[0];
      const std::string text = run("why " + prefix);
      const Agent::Answer answer = route(prefix, {1 + i % groups});
      ASSERT_EQ(told["fits_now"], !answer.refused()) << prefix << "\n"
                                                     << text << run("why " + prefix);
      if (answer.refused()) {
        ++refused[answer.reason];
      } else {
        ++placed;
      }
    }
  }

  U32 placed = 0;
  std::map<Agent::RefusalReason, U32> refused;
  ::Random random;
};

class WhyOfLittleNhi : public Why {
 protected:
  WhyOfLittleNhi() : Why(kLittleNhi) {}
};

TEST_F(Why, saysOfEachPrefixWhatTheLibraryThenDoes) {
  SCOPED_TRACE(random.seedText());
  compareWithTheLibrary(1500, 5);
  EXPECT_GT(placed, 100U);
  EXPECT_GT(refused[Agent::RefusalReason::noRow], 100U);
  EXPECT_GT(refused[Agent::RefusalReason::rowFull], 10U);
}

TEST_F(WhyOfLittleNhi, tellsOfEntriesThatAreKeptForUpdates) {
  // No two share a branch, and so each takes a row and an NHI entry.
  constexpr U32 kRoutes = 16384;
  const auto prefixAt = [](U32 i) {
    return std::to_string(20 + i / 2048) + "." + std::to_string(i / 8 % 256) + "." +
           std::to_string(i % 8 * 32) + ".0/24";
  };
  U32 i = 0;
  for (Agent::Answer answer; i < kRoutes && !answer.refused(); ++i) {
    answer = route(prefixAt(i), {1 + i});
  }
  ASSERT_LT(i, kRoutes) << "everything was placed";
  EXPECT_EQ(objects("why " + prefixAt(i - 1))[0]["refused"], "headroom");
  const std::string fresh = prefixAt(kRoutes);
  EXPECT_EQ(objects("why " + fresh)[0]["fits_now"], false);
  EXPECT_NE(run("why " + fresh).find("are taken, and the rest is kept for updates"),
            std::string::npos);
  withdraw(prefixAt(i - 1));
  withdraw(prefixAt(0));
  EXPECT_EQ(objects("why " + fresh)[0]["fits_now"], true) << run("why " + fresh);
  EXPECT_FALSE(route(fresh, {1}).refused());
}

TEST_F(Why, theLeastThatHelpsIsTheFewestRoutes) {
  SCOPED_TRACE(random.seedText());
  U32 seen = 0;
  for (U32 i = 0; i < 600; ++i) {
    const std::string prefix = anyPrefix();
    if (isInstalled(prefix) || !route(prefix, {1}).refused()) {
      continue;
    }
    const std::vector<Json> told = objects("why " + prefix);
    std::size_t fewest = ~std::size_t{0};
    for (std::size_t table = 1; table < told.size(); ++table) {
      const std::vector<std::string> way = routesToWithdraw(told[table]["help"]);
      fewest = way.empty() ? fewest : std::min(fewest, way.size());
    }
    if (fewest == ~std::size_t{0}) {
      continue;
    }
    ASSERT_EQ(routesToWithdraw(told[0]["help"]).size(), fewest) << run("why " + prefix);
    EXPECT_NE(
        run("why " + prefix).find("the least that helps: " + told[0]["help"].get<std::string>()),
        std::string::npos);
    ++seen;
  }
  EXPECT_GT(seen, 100U);
}

TEST_F(Why, tellsOfALengthThatTheChipCannotHold) {
  const Json told = objects("why 2001:db8::1/128")[0];
  EXPECT_EQ(told["fits_now"], !route("2001:db8::1/128", {1}).refused()) << told.dump();
}

TEST_F(Why, whatWouldHelpHelps) {
  SCOPED_TRACE(random.seedText());
  U32 rowHelped = 0;
  U32 leafHelped = 0;
  for (U32 i = 0; i < 1500; ++i) {
    const std::string prefix = anyPrefix();
    if (isInstalled(prefix) || !route(prefix, {1 + i % 5}).refused()) {
      continue;
    }
    const std::vector<Json> told = objects("why " + prefix);
    const std::string text = run("why " + prefix);
    // No wish stands that could take the room.
    withdraw(prefix);
    std::vector<std::vector<std::string>> ways;
    std::vector<bool> isOfFullRow;
    for (std::size_t table = 1; table < told.size(); ++table) {
      std::vector<std::string> way = routesToWithdraw(told[table]["help"].get<std::string>());
      if (!way.empty()) {
        ways.push_back(std::move(way));
        isOfFullRow.push_back(told[table]["missing"].get<std::string>().find(" bits: ") !=
                              std::string::npos);
      }
    }
    if (ways.empty()) {
      continue;
    }
    const U32 chosen = random.between(0, static_cast<U32>(ways.size()) - 1);
    const std::vector<std::string>& routes = ways[chosen];
    for (const std::string& one : routes) {
      ASSERT_TRUE(isInstalled(one)) << one << "\n" << text;
      ASSERT_FALSE(withdraw(one).refused()) << one;
    }
    ASSERT_FALSE(route(prefix, {1}).refused()) << prefix << "\n" << text << run("why " + prefix);
    ++(isOfFullRow[chosen] ? leafHelped : rowHelped);
  }
  EXPECT_GT(rowHelped, 50U);
  EXPECT_GT(leafHelped, 10U);
}

}  // namespace
}  // namespace Quarle::Cli
