// Groups that get other next hops while routes of both families lead there.

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

const std::vector<XdkSim::PrefixTableProfile> kOneRow = {{.tread = 16, .rows = 1}};

class GroupChange : public ::testing::Test {
 protected:
  void SetUp() override {
    group = chip.client.groupIs(std::vector<U64>{7, 8});
    chip.routeTo("10.1.0.0/16", group);
    chip.route("10.2.0.0/16", {9});
    chip.routeTo("2001:db8::/32", group);
    chip.events();
  }

  void TearDown() override {
    EXPECT_EQ(chip.wrongLookups(), "");
    chip.client.groupDel(group);
    EXPECT_EQ(chip.leftOvers(), "");
  }

  ChipClient chip{tinyProfile(kOneRow, /*nextHopRows=*/8), tinyOptions()};
  SwId group;
};

TEST_F(GroupChange, otherNextHopsOfTheSameNumberAreARewriteOfTheRows) {
  const U64 prefixWrites = chip.chip.counters().prefixWrites;
  EXPECT_EQ(chip.changeGroup(group, {7, 6}), "updated");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 7 6");
  EXPECT_EQ(chip.lookup("2001:db8::"), "2001:db8::/32 to 7 6");
  EXPECT_EQ(chip.chip.counters().prefixWrites, prefixWrites);
  EXPECT_EQ(chip.events(), "") << "no route has moved";
}

TEST_F(GroupChange, moreNextHopsBringEveryRouteToNewRows) {
  EXPECT_EQ(chip.changeGroup(group, {7, 8, 5}), "updated");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 7 8 5");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 9");
  EXPECT_EQ(chip.lookup("2001:db8::"), "2001:db8::/32 to 7 8 5");
  EXPECT_EQ(chip.events(),
            "groupMove 10.1.0.0/16 updated\n"
            "groupMove 2001:db8::/32 updated\n");
  EXPECT_EQ(chip.client.groups().statistics().rowsUsed, 4U);
  EXPECT_EQ(chip.client.family(Family::ipv4).groupOf(keyOf("10.1.0.0/16")), group);
  EXPECT_EQ(chip.routeTo("10.1.0.0/16", group), "unchanged");
}

TEST_F(GroupChange, theSameNextHopsChangeNothing) {
  const U64 writes = chip.chip.counters().nextHopWrites;
  EXPECT_EQ(chip.changeGroup(group, {7, 8}), "unchanged");
  EXPECT_EQ(chip.chip.counters().nextHopWrites, writes);
}

TEST_F(GroupChange, aRefusedChangeLeavesTheRoutesWhereTheyAre) {
  EXPECT_EQ(chip.changeGroup(group, {1, 2, 3, 4, 5, 6}), "refused nextHopTableFull");
  EXPECT_EQ(chip.changeGroup(group, {}), "refused invalid");
  EXPECT_EQ(chip.changeGroup(group, std::vector<U64>(32, 1)), "refused invalid");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 7 8");
  EXPECT_EQ(chip.events(), "");
}

TEST_F(GroupChange, theListOfAnotherGroupDoesNotMakeThemOne) {
  EXPECT_EQ(chip.changeGroup(group, {9}), "updated");
  EXPECT_EQ(chip.client.groups().statistics().groups, 2U);
  EXPECT_EQ(chip.changeGroup(group, {4}), "updated");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 4");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 9") << "it asked for that list";
}

TEST_F(GroupChange, aGroupOfOnesOwnMovesNobodyElse) {
  const SwId own = chip.client.ownGroupIs(std::vector<U64>{9});
  chip.routeTo("10.3.0.0/16", own);
  EXPECT_EQ(chip.changeGroup(own, {3, 4}), "updated");
  EXPECT_EQ(chip.lookup("10.3.0.0"), "10.3.0.0/16 to 3 4");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 9");
  chip.client.groupDel(own);
}

TEST_F(GroupChange, wishesForAGroupWithoutRowsAreServedByAListThatFits) {
  const SwId large = chip.client.ownGroupIs(std::vector<U64>{1, 2, 3, 4, 5, 6});
  EXPECT_EQ(chip.routeTo("10.3.0.0/16", large), "refused nextHopTableFull");
  chip.events();
  EXPECT_EQ(chip.changeGroup(large, {1, 2}), "updated");
  EXPECT_EQ(chip.events(), "retry 10.3.0.0/16 placed\n");
  chip.client.groupDel(large);
}

TEST_F(GroupChange, aGroupThatShrinksGivesRowsToThoseThatWait) {
  EXPECT_EQ(chip.route("2001:db8:1::/48", {1, 2, 3, 4, 5, 6}), "refused nextHopTableFull");
  chip.events();
  EXPECT_EQ(chip.changeGroup(group, {8}), "updated");  // . . 9 8 . . . .
  EXPECT_EQ(chip.events(),
            "groupMove 10.1.0.0/16 updated\n"
            "groupMove 2001:db8::/32 updated\n"
            "groupMove 10.2.0.0/16 updated\n"
            "groupMove 10.1.0.0/16 updated\n"
            "groupMove 2001:db8::/32 updated\n"
            "retry 2001:db8:1::/48 placed\n");
}

TEST(GroupChangeWithoutRoom, aRouteThatCannotFollowStaysWithTheOldNextHops) {
  const Environment oneEntry("NHI_TABLE_SIZE", "1");
  ChipClient chip(tinyProfile(kOneRow, /*nextHopRows=*/8), tinyOptions());
  const SwId group = chip.client.groupIs(std::vector<U64>{7, 8});
  chip.routeTo("10.1.0.0/16", group);
  chip.routeTo("2001:db8::/32", group);
  chip.events();
  EXPECT_EQ(chip.changeGroup(group, {9}), "updated");
  EXPECT_EQ(chip.events(),
            "groupMove 10.1.0.0/16 refused nhiTableFull\n"
            "groupMove 2001:db8::/32 refused nhiTableFull\n");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 7 8");
  EXPECT_EQ(chip.lookup("2001:db8::"), "2001:db8::/32 to 7 8");
  // The old rows are not anybody else's.
  const SwId others = chip.client.groupIs(std::vector<U64>{1, 2, 3, 4, 5});
  EXPECT_EQ(chip.client.groups().block(others).base().value(), 3U);
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 7 8");
  chip.client.groupDel(others);
  EXPECT_EQ(chip.withdraw("10.1.0.0/16"), "withdrawn");
  EXPECT_EQ(chip.withdraw("2001:db8::/32"), "withdrawn");
  EXPECT_EQ(chip.client.groups().statistics().rowsUsed, 1U);
  EXPECT_EQ(chip.routeTo("10.1.0.0/16", group), "placed");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 9");
  chip.client.groupDel(group);
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(GroupChangeWithoutRoom, theRowsEndAsTheLastRouteFollows) {
  // Two rows of two VRFs take both NHI entries.
  const Environment twoEntries("NHI_TABLE_SIZE", "2");
  const std::vector<XdkSim::PrefixTableProfile> tables = {
      {.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 0},
      {.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 1}};
  ChipClient chip(tinyProfile(tables, /*nextHopRows=*/8), tinyOptions());
  const SwId group = chip.client.groupIs(std::vector<U64>{7, 8});
  chip.routeTo("10.1.0.0/16", group);
  chip.route("10.2.0.0/16", {5}, 1);
  EXPECT_EQ(chip.changeGroup(group, {9}), "updated");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 7 8");
  EXPECT_EQ(chip.client.groups().statistics().rowsUsed, 4U);
  chip.events();
  EXPECT_EQ(chip.withdraw("10.2.0.0/16", 1), "withdrawn");
  EXPECT_EQ(chip.events(),
            "request vrf 1 10.2.0.0/16 withdrawn\n"
            "retry 10.1.0.0/16 updated\n");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 9");
  EXPECT_EQ(chip.client.groups().statistics().rowsUsed, 1U);
  chip.client.groupDel(group);
  EXPECT_EQ(chip.leftOvers(), "");
}

}  // namespace
}  // namespace Quarle::Agent
