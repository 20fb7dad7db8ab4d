// Refusals on chips that are too small, each for one reason.

#include "agent/Refusal.h"

#include <string>
#include <vector>

#include "tests/agent/ChipClient.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::ChipClient;
using Testing::Environment;
using Testing::tinyOptions;
using Testing::tinyProfile;

// One row for all routes of all VRFs.
const std::vector<XdkSim::PrefixTableProfile> kOneRow = {{.tread = 16, .rows = 1}};

std::string slash16(int i) { return "10." + std::to_string(i) + ".0.0/16"; }

TEST(Refusal, aRowOfAnotherBranchIsNoRow) {
  ChipClient chip(tinyProfile(kOneRow), tinyOptions());
  EXPECT_EQ(chip.route("10.0.0.0/8", {1}, 1), "placed");
  EXPECT_EQ(chip.route("10.0.0.0/8", {1}, 2), "refused noRow");
  EXPECT_EQ(chip.withdraw("10.0.0.0/8", 1), "withdrawn");
  EXPECT_EQ(chip.route("10.0.0.0/8", {1}, 2), "unchanged") << "it has come in by itself";
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, noRoomForALeafIsAFullRow) {
  ChipClient chip(tinyProfile(kOneRow), tinyOptions());
  int placed = 0;
  std::string answer;
  for (int i = 0; answer.empty(); ++i) {
    const std::string now = chip.route(slash16(i), {1});
    (now == "placed" ? placed : i) += 1;
    answer = now == "placed" ? "" : now;
  }
  EXPECT_EQ(answer, "refused rowFull");
  EXPECT_GT(placed, 6);
  EXPECT_EQ(chip.wrongLookups({Testing::keyOf(slash16(placed)).prefix}), "");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, aFullNhiTileIsTold) {
  const Environment oneEntry("NHI_TABLE_SIZE", "1");
  ChipClient chip(tinyProfile(kOneRow), tinyOptions());
  EXPECT_EQ(chip.route(slash16(1), {1}), "placed");
  EXPECT_EQ(chip.route(slash16(2), {1}), "refused nhiTableFull")
      << "the row would need a second block beside its own for a moment";
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 1");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "none");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, aRefusedUpdateLeavesTheRouteWhereItWas) {
  const Environment oneEntry("NHI_TABLE_SIZE", "1");
  ChipClient chip(tinyProfile(kOneRow), tinyOptions());
  FamilyClient& ipv4 = chip.client.family(Family::ipv4);
  EXPECT_EQ(chip.route(slash16(1), {1, 2}), "placed");
  EXPECT_EQ(chip.route(slash16(1), {3}), "refused nhiTableFull");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 1 2");
  const auto& request = ipv4.engine().config()->requestCollection();
  const auto& installed = ipv4.engine().status()->prefixToNextHopBlockCollection();
  ASSERT_EQ(request.count(), 1U);
  EXPECT_EQ((*request.begin()).value, (*installed.begin()).value)
      << "a wish that stood in the requests would reach the chip by a neighbour's change";
  EXPECT_EQ(ipv4.refused().size(), 1U) << "the wish is kept";
  EXPECT_EQ(chip.route(slash16(1), {1, 2}), "unchanged");
  EXPECT_EQ(ipv4.refused().size(), 0U) << "the old next hops are what is wanted again";
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, aRowOfOneNhiEntryIsAtItsCapacity) {
  ClientOptions options = tinyOptions();
  options.multiEntryRows = false;
  ChipClient chip(tinyProfile(kOneRow), options);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(chip.route(slash16(i), {1}), "placed") << i;
  }
  EXPECT_EQ(chip.route(slash16(6), {1}), "refused nhiCapacityExceeded");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, aFullNextHopTableRefusesTheRoute) {
  ChipClient chip(tinyProfile(kOneRow, /*nextHopRows=*/4), tinyOptions());
  EXPECT_EQ(chip.route(slash16(1), {1, 2, 3}), "placed");
  EXPECT_EQ(chip.route(slash16(2), {4, 5}), "refused nextHopTableFull");
  EXPECT_EQ(chip.route(slash16(2), {4}), "placed");
  EXPECT_EQ(chip.route(slash16(2), {4, 5}), "refused nextHopTableFull");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 4");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, prefixesBeyondTheClientsLengthAreInvalid) {
  ChipClient chip(tinyProfile(kOneRow), tinyOptions());
  EXPECT_EQ(chip.route("10.0.0.0/19", {1}), "placed");
  EXPECT_EQ(chip.route("10.0.0.0/20", {1}), "refused invalid") << "kept from treads below 30";
  EXPECT_EQ(chip.withdraw("10.0.0.0/20"), "withdrawn");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, aChipThatCannotServeTheClientsLengthsIsNotStarted) {
  ClientOptions options = tinyOptions();
  options.maxLengthV4 = 20;
  EXPECT_THROW(ChipClient(tinyProfile(kOneRow), options), ProfileError);
  EXPECT_THROW(ChipClient(tinyProfile({{.tread = 28, .rows = 4}}), tinyOptions()), ProfileError)
      << "no table takes a default route";
}

TEST(Refusal, aChipThatServesShortIpv6PrefixesAloneIsStartedForThese) {
  XdkSim::ChipProfile profile = tinyProfile(kOneRow);
  profile.ipv6.tables = {{.tread = 16, .rows = 4, .sramWidth = 128},
                         {.tread = 60, .rows = 4, .sramWidth = 128}};
  ClientOptions options = tinyOptions();
  EXPECT_THROW(ChipClient(profile, options), ProfileError) << "a narrow row has 88 bits";
  options.maxLengthV6 = 64;
  ChipClient chip(profile, options);
  EXPECT_EQ(chip.route("2001:db8::/64", {1}), "placed");
  EXPECT_EQ(chip.route("2001:db8::/65", {1}), "refused invalid");
  EXPECT_EQ(chip.wrongLookups(), "");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(Refusal, aCollisionIsMadeRoomForUnlessShufflingIsOff) {
  // Two tables of one row each: the first VRF moves to the second table.
  const std::vector<XdkSim::PrefixTableProfile> tables = {
      {.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 0},
      {.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 1}};
  for (const bool shuffling : {true, false}) {
    ClientOptions options = tinyOptions();
    options.hashShuffling = shuffling;
    ChipClient chip(tinyProfile(tables), options);
    EXPECT_EQ(chip.route("10.0.0.0/8", {1}, 1), "placed");
    EXPECT_EQ(chip.route("10.0.0.0/8", {2}, 2), "placed");
    EXPECT_EQ(chip.route("10.0.0.0/8", {3}, 3), "refused noRow");
    EXPECT_EQ(chip.lookup("10.0.0.0", 1), "vrf 1 10.0.0.0/8 to 1");
    EXPECT_EQ(chip.lookup("10.0.0.0", 2), "vrf 2 10.0.0.0/8 to 2");
    const FamilyStatistics statistics = chip.client.family(Family::ipv4).statistics();
    EXPECT_EQ(statistics.shuffleSuccesses, shuffling ? 1U : 0U);
    EXPECT_EQ(chip.leftOvers(), "");
  }
}

TEST(Refusal, reasonsHaveOneWordEach) {
  std::string words;
  for (const RefusalReason reason : kRefusalReasons) {
    words += toText(reason) + std::string(" ");
  }
  EXPECT_EQ(words,
            "noRow rowFull nhiTableFull nhiCapacityExceeded nextHopTableFull headroom invalid ");
}

}  // namespace
}  // namespace Quarle::Agent
