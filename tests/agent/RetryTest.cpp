// Refused wishes wait, and come in by themselves as room returns.

#include <optional>
#include <string>
#include <vector>

#include "tests/agent/ChipClient.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::ChipClient;
using Testing::Environment;
using Testing::keyOf;
using Testing::tinyOptions;
using Testing::tinyProfile;

/// IPv4 tables of one row each, which serve one VRF each.
std::vector<XdkSim::PrefixTableProfile> rows(U32 count) {
  std::vector<XdkSim::PrefixTableProfile> tables;
  for (U32 i = 0; i < count; ++i) {
    tables.push_back({.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = i % 2});
  }
  return tables;
}

class Retry : public ::testing::Test {
 protected:
  ChipClient& start(std::vector<XdkSim::PrefixTableProfile> tables,
                    const ClientOptions& options = tinyOptions(),
                    U32 nextHopRows = 64) {
    return chip_.emplace(tinyProfile(std::move(tables), nextHopRows), options);
  }

  void TearDown() override {
    EXPECT_EQ(chip_->wrongLookups(), "");
    EXPECT_EQ(chip_->leftOvers(), "");
  }

  FamilyClient& ipv4() { return chip_->client.family(Family::ipv4); }

 private:
  std::optional<ChipClient> chip_;
};

TEST_F(Retry, aWithdrawalLetsAWaitingRouteIn) {
  ChipClient& chip = start(rows(1));
  chip.route("10.0.0.0/8", {1}, 1);
  chip.route("10.0.0.0/8", {2}, 2);
  chip.withdraw("10.0.0.0/8", 1);
  EXPECT_EQ(chip.events(),
            "request vrf 1 10.0.0.0/8 placed\n"
            "request vrf 2 10.0.0.0/8 refused noRow\n"
            "request vrf 1 10.0.0.0/8 withdrawn\n"
            "retry vrf 2 10.0.0.0/8 placed\n");
  EXPECT_TRUE(ipv4().refused().empty());
  EXPECT_EQ(chip.lookup("10.0.0.0", 2), "vrf 2 10.0.0.0/8 to 2");
}

TEST_F(Retry, aWaitingRouteLeadsWhereItWasWishedLast) {
  ChipClient& chip = start(rows(1));
  chip.route("10.0.0.0/8", {1}, 1);
  chip.route("10.0.0.0/8", {2}, 2);
  chip.route("10.0.0.0/8", {3}, 2);
  EXPECT_EQ(ipv4().refused().size(), 1U);
  EXPECT_EQ(chip.client.groups().statistics().groups, 2U) << "the first wish's group has ended";
  chip.withdraw("10.0.0.0/8", 1);
  EXPECT_EQ(chip.lookup("10.0.0.0", 2), "vrf 2 10.0.0.0/8 to 3");
}

TEST_F(Retry, aWithdrawnWishDoesNotComeIn) {
  ChipClient& chip = start(rows(1));
  chip.route("10.0.0.0/8", {1}, 1);
  chip.route("10.0.0.0/8", {2}, 2);
  EXPECT_EQ(chip.withdraw("10.0.0.0/8", 2), "withdrawn");
  EXPECT_EQ(chip.withdraw("10.0.0.0/8", 1), "withdrawn");
  EXPECT_EQ(ipv4().routes(), 0U);
}

TEST_F(Retry, theListOfRefusedCanBeAskedByRouteAndByReason) {
  ChipClient& chip = start(rows(1), tinyOptions(), /*nextHopRows=*/4);
  chip.route("10.0.0.0/8", {1}, 1);
  chip.route("10.0.0.0/8", {1}, 2);
  chip.route("10.0.0.0/8", {1}, 3);
  chip.route("10.1.0.0/16", {1, 2, 3, 4}, 1);
  chip.route("10.1.0.0/20", {1}, 1);
  const RefusedWishes& refused = ipv4().refused();
  EXPECT_EQ(refused.size(), 4U);
  EXPECT_EQ(refused.count(RefusalReason::noRow), 2U);
  EXPECT_EQ(refused.count(RefusalReason::nextHopTableFull), 1U);
  EXPECT_EQ(refused.count(RefusalReason::invalid), 1U);
  EXPECT_EQ(refused.count(RefusalReason::rowFull), 0U);
  EXPECT_EQ(refused.of(RefusalReason::noRow).front().key, keyOf("10.0.0.0/8", 2));
  ASSERT_NE(refused.find(keyOf("10.1.0.0/16", 1)), nullptr);
  EXPECT_EQ(refused.find(keyOf("10.1.0.0/16", 1))->reason, RefusalReason::nextHopTableFull);
  EXPECT_EQ(refused.find(keyOf("10.0.0.0/8", 1)), nullptr) << "it is placed";
}

TEST_F(Retry, whatMakesNoSenseIsNeverTriedAgain) {
  ChipClient& chip = start(rows(2));
  chip.route("10.1.0.0/20", {1});
  chip.route("10.0.0.0/8", {1});
  chip.withdraw("10.0.0.0/8");
  EXPECT_EQ(chip.client.retryRefused(100), 0U);
  EXPECT_EQ(chip.events(),
            "request 10.1.0.0/20 refused invalid\n"
            "request 10.0.0.0/8 placed\n"
            "request 10.0.0.0/8 withdrawn\n");
}

// The row of tread 16 is VRF 0's to the end. That of tread 24 comes and goes, and is no help to
// prefixes as short as those that wait.
std::vector<XdkSim::PrefixTableProfile> shortAndLong() {
  return {{.tread = 16, .rows = 1}, {.tread = 24, .rows = 1}};
}

TEST_F(Retry, eachWaitingRouteGetsItsTurn) {
  ClientOptions options = tinyOptions();
  options.retriesPerEvent = 1;
  ChipClient& chip = start(shortAndLong(), options);
  chip.route("16.0.0.0/4", {1});
  for (U32 vrf = 1; vrf <= 3; ++vrf) {
    chip.route("16.0.0.0/4", {1}, vrf);
  }
  chip.route("10.0.0.0/16", {1}, 4);
  EXPECT_EQ(chip.route("10.0.0.0/16", {1}, 5), "refused noRow");
  // The line: VRF 1, 2, 3, 5; the last can use the row that comes free.
  chip.withdraw("10.0.0.0/16", 4);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(chip.lookup("10.0.0.0", 5), "none") << i;
    chip.route("10.0.0.0/16", {1}, 4);
    chip.withdraw("10.0.0.0/16", 4);
  }
  EXPECT_EQ(chip.lookup("10.0.0.0", 5), "vrf 5 10.0.0.0/16 to 1");
  EXPECT_EQ(ipv4().refused().size(), 3U);
}

TEST_F(Retry, eachReasonGetsItsTurn) {
  ClientOptions options = tinyOptions();
  options.retriesPerEvent = 1;
  ChipClient& chip = start(shortAndLong(), options);
  int full = 2;
  while (chip.route(std::to_string(full) + ".0.0.0/7", {1}) == "placed") {
    full += 2;
  }
  chip.route("10.0.0.0/16", {1}, 4);
  chip.route("10.0.0.0/16", {1}, 5);
  EXPECT_EQ(ipv4().refused().count(RefusalReason::rowFull), 1U) << "and no leaf comes free";
  EXPECT_EQ(ipv4().refused().count(RefusalReason::noRow), 1U);
  chip.withdraw("10.0.0.0/16", 4);
  chip.route("10.0.0.0/16", {1}, 4);
  chip.withdraw("10.0.0.0/16", 4);
  EXPECT_EQ(chip.lookup("10.0.0.0", 5), "vrf 5 10.0.0.0/16 to 1");
}

TEST_F(Retry, aRouteWithoutARowWaitsForOneToBeEmptied) {
  ClientOptions options = tinyOptions();
  options.retriesPerEvent = 1;
  ChipClient& chip = start(rows(1), options);
  chip.route("10.0.0.0/8", {1}, 1);
  chip.route("10.0.0.0/16", {1}, 1);
  chip.route("10.0.0.0/8", {1}, 2);
  chip.route("10.0.0.0/8", {1}, 3);
  const auto firstWaiting = [this] { return ipv4().refused().of(RefusalReason::noRow).front(); };
  chip.withdraw("10.0.0.0/8", 1);
  EXPECT_EQ(firstWaiting().key.vrf, 2U) << "not tried: the row is in use";
  chip.withdraw("10.0.0.0/16", 1);
  EXPECT_EQ(firstWaiting().key.vrf, 3U);
}

TEST_F(Retry, aFullRowTakesThoseThatWaitAsItsRoutesGo) {
  ChipClient& chip = start(rows(1));
  int full = 0;
  while (chip.route("10." + std::to_string(full) + ".0.0/16", {1}) == "placed") {
    ++full;
  }
  EXPECT_EQ(ipv4().refused().count(RefusalReason::rowFull), 1U);
  chip.withdraw("10.0.0.0/16");
  EXPECT_TRUE(ipv4().refused().empty());
}

TEST_F(Retry, oneEventTriesNoMoreThanItMay) {
  ChipClient& chip = start(rows(1), tinyOptions(), /*nextHopRows=*/16);
  const SwId all = chip.client.groupIs(std::vector<U64>(16, 1));
  for (U64 i = 0; i < 12; ++i) {
    EXPECT_EQ(chip.route("10." + std::to_string(i) + ".0.0/16", {100 + i}),
              "refused nextHopTableFull");
  }
  chip.client.groupDel(all);
  EXPECT_EQ(ipv4().routes(), 8U);
  EXPECT_EQ(ipv4().refused().size(), 4U);
  EXPECT_EQ(chip.client.retryRefused(3), 3U);
  EXPECT_EQ(chip.client.retryRefused(3), 1U);
  EXPECT_TRUE(ipv4().refused().empty());
}

TEST_F(Retry, anEventGivesUpOnceAQuarterOfItsTriesCameToNothing) {
  ChipClient& chip = start(shortAndLong());
  chip.route("16.0.0.0/4", {1});
  chip.route("10.0.0.0/16", {1});
  for (U32 vrf = 1; vrf <= 9; ++vrf) {
    chip.route("16.0.0.0/4", {1}, vrf);
  }
  const auto firstWaiting = [this] { return ipv4().refused().of(RefusalReason::noRow).front(); };
  EXPECT_EQ(firstWaiting().key.vrf, 1U);
  chip.withdraw("10.0.0.0/16");
  EXPECT_EQ(firstWaiting().key.vrf, 3U) << "two of at most eight failed";
}

TEST_F(Retry, nextHopRowsThatComeFreeServeBothFamilies) {
  ChipClient& chip = start(rows(1), tinyOptions(), /*nextHopRows=*/4);
  chip.route("10.0.0.0/8", {1, 2, 3, 4});
  chip.route("10.1.0.0/16", {5});
  chip.route("2001:db8::/32", {6, 7});
  chip.events();
  chip.withdraw("10.0.0.0/8");
  EXPECT_EQ(chip.events(),
            "request 10.0.0.0/8 withdrawn\n"
            "retry 10.1.0.0/16 placed\n"
            "retry 2001:db8::/32 placed\n");
}

TEST_F(Retry, anUpdateThatEndsItsOldGroupMakesRoomToo) {
  ChipClient& chip = start(rows(1), tinyOptions(), /*nextHopRows=*/4);
  chip.route("10.0.0.0/8", {1, 2, 3});
  chip.route("10.1.0.0/16", {4, 5});
  chip.events();
  chip.route("10.0.0.0/8", {4});
  EXPECT_EQ(chip.events(),
            "request 10.0.0.0/8 updated\n"
            "retry 10.1.0.0/16 placed\n");
}

TEST_F(Retry, anotherRefusalOfTheSameKindIsNotTold) {
  ChipClient& chip = start(rows(1));
  chip.route("10.0.0.0/8", {1});
  chip.route("10.0.0.0/8", {1}, 2);
  chip.events();
  EXPECT_EQ(chip.client.retryRefused(100), 0U);
  EXPECT_EQ(chip.events(), "");
}

TEST_F(Retry, aWishThatNeedsNothingAnyMoreIsDone) {
  const Environment oneEntry("NHI_TABLE_SIZE", "1");
  ChipClient& chip = start(rows(1));
  chip.route("10.1.0.0/16", {1});
  EXPECT_EQ(chip.route("10.1.0.0/16", {2}), "refused nhiTableFull");
  EXPECT_EQ(chip.route("10.1.0.0/16", {1}), "unchanged");
  EXPECT_TRUE(ipv4().refused().empty());
}

// The tile of 4 entries is taken by four rows with one block each: VRF 0's of six routes, VRF 1 to
// 3's of one.
class FullTile : public Retry {
 protected:
  FullTile() {
    ChipClient& full = start(rows(4));
    for (U64 i = 0; i < 6; ++i) {
      EXPECT_EQ(full.route("10." + std::to_string(i) + ".0.0/16", {i + 1}), "placed");
    }
    for (U32 vrf = 1; vrf <= 3; ++vrf) {
      EXPECT_EQ(full.route("10.0.0.0/8", {10 + vrf}, vrf), "placed");
    }
    EXPECT_EQ(ipv4().statistics().nhiEntriesUsed, 4U);
    full.events();
    chip = &full;
  }

  ChipClient* chip = nullptr;

 private:
  const Environment fourEntries_{"NHI_TABLE_SIZE", "4"};
};

TEST_F(FullTile, aWithdrawalThatNeedsABlockWaitsForOne) {
  EXPECT_EQ(chip->withdraw("10.3.0.0/16"), "refused headroom");
  EXPECT_EQ(chip->lookup("10.3.0.0"), "10.3.0.0/16 to 4") << "it stays until then";
  EXPECT_EQ(ipv4().refused().withdrawals().size(), 1U);
  EXPECT_EQ(ipv4().refused().count(RefusalReason::headroom), 1U);
  EXPECT_EQ(chip->withdraw("10.0.0.0/8", 1), "withdrawn") << "its row needs no block any more";
  EXPECT_EQ(chip->events(),
            "request 10.3.0.0/16 refused headroom\n"
            "request vrf 1 10.0.0.0/8 withdrawn\n"
            "retry 10.3.0.0/16 withdrawn\n");
  EXPECT_EQ(chip->lookup("10.3.0.0"), "none");
}

TEST_F(FullTile, aWaitingWithdrawalGoesBeforeWaitingRoutes) {
  EXPECT_EQ(chip->route("10.9.0.0/16", {1}), "refused nhiTableFull");
  EXPECT_EQ(chip->withdraw("10.3.0.0/16"), "refused headroom");
  chip->events();
  chip->withdraw("10.0.0.0/8", 1);
  EXPECT_EQ(chip->events(),
            "request vrf 1 10.0.0.0/8 withdrawn\n"
            "retry 10.3.0.0/16 withdrawn\n"
            "retry 10.9.0.0/16 placed\n");
}

TEST_F(FullTile, aWaitingWithdrawalIsTakenBackByAskingForTheRoute) {
  EXPECT_EQ(chip->withdraw("10.3.0.0/16"), "refused headroom");
  EXPECT_EQ(chip->route("10.3.0.0/16", {4}), "unchanged");
  EXPECT_TRUE(ipv4().refused().empty());
  chip->withdraw("10.0.0.0/8", 1);
  EXPECT_EQ(chip->lookup("10.3.0.0"), "10.3.0.0/16 to 4");
}

TEST_F(FullTile, ofAWithdrawalAndAnUpdateThatWaitTheLastCounts) {
  EXPECT_EQ(chip->withdraw("10.3.0.0/16"), "refused headroom");
  EXPECT_EQ(chip->route("10.3.0.0/16", {77}), "refused nhiTableFull");
  EXPECT_TRUE(ipv4().refused().withdrawals().empty());
  EXPECT_EQ(chip->withdraw("10.3.0.0/16"), "refused headroom");
  EXPECT_EQ(ipv4().refused().size(), 1U);
  EXPECT_EQ(ipv4().refused().withdrawals().size(), 1U);
  EXPECT_EQ(chip->client.groups().statistics().groups, 9U) << "77's has ended";
}

TEST_F(FullTile, aRefusedUpdateComesInAsRoomReturns) {
  EXPECT_EQ(chip->route("10.3.0.0/16", {77}), "refused nhiTableFull");
  chip->events();
  chip->withdraw("10.0.0.0/8", 1);
  EXPECT_EQ(chip->events(),
            "request vrf 1 10.0.0.0/8 withdrawn\n"
            "retry 10.3.0.0/16 updated\n");
}

TEST_F(FullTile, everyWithdrawalIsAnsweredAndAllGoInTheEnd) {
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(chip->withdraw("10." + std::to_string(i) + ".0.0/16"), "refused headroom");
  }
  chip->withdraw("10.0.0.0/8", 2);
  EXPECT_EQ(ipv4().routes(), 2U) << "the six went one after the other";
}

using FullTileDeathTest = FullTile;

TEST_F(FullTileDeathTest, theLibraryItselfWouldNotSurviveTheWithdrawal) {
  const auto config = ipv4().engine().config();
  const auto& ipv4Config = static_cast<const Tarnlet::ConfigV4&>(*config);
  Tarnlet::LpmPrefix::Ptr prefix;
  for (const auto& member : ipv4Config.lpmPrefixCollection()) {
    if (routeKeyOf(Family::ipv4, *member.value) == keyOf("10.3.0.0/16")) {
      prefix = member.value;
    }
  }
  ASSERT_NE(prefix, nullptr);
  EXPECT_DEATH(config->requestDel(prefix), "updateNhiInfoForSubTrie");
}

TEST(Headroom, newRoutesStopWhileUpdatesAndWithdrawalsGoOn) {
  const Environment twentyEntries("NHI_TABLE_SIZE", "20");
  ClientOptions options = tinyOptions();
  options.headroom = {.share = 0.25, .minLargestBlocks = 0};
  ChipClient chip(tinyProfile({{.tread = 16, .rows = 64}}), options);
  FamilyClient& ipv4 = chip.client.family(Family::ipv4);
  U32 placed = 0;
  while (chip.route("10.0.0.0/8", {placed}, placed) == "placed") {
    ++placed;
  }
  EXPECT_EQ(placed, 16U) << "the next one would find 4 entries, and 5 are kept back";
  EXPECT_EQ(ipv4.refused().count(RefusalReason::headroom), 1U);
  EXPECT_EQ(chip.route("10.0.0.0/8", {77}, 3), "updated");
  EXPECT_EQ(chip.withdraw("10.0.0.0/8", 5), "withdrawn");
  EXPECT_TRUE(ipv4.refused().empty()) << "the one that waited has come in";
  EXPECT_EQ(ipv4.routes(), 16U);
  EXPECT_EQ(chip.leftOvers(), "");
}

}  // namespace
}  // namespace Quarle::Agent
