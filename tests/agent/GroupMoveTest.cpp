// Compaction of the next-hop table under routes that use it.

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

const std::vector<XdkSim::PrefixTableProfile> kTables = {{.tread = 16, .rows = 1}};

TEST(GroupMove, routesOfBothFamiliesFollowTheirGroup) {
  ChipClient chip(tinyProfile(kTables, /*nextHopRows=*/8), tinyOptions());
  chip.route("10.1.0.0/16", {1, 1});  // 1 1 . . . . . .
  chip.route("10.2.0.0/16", {2, 2});  // 1 1 2 2 . . . .
  chip.route("10.3.0.0/16", {3, 3});  // 1 1 2 2 3 3 . .
  chip.route("10.4.0.0/16", {4, 4});  // 1 1 2 2 3 3 4 4
  chip.route("2001:db8::/32", {4, 4});
  chip.route("10.5.0.0/16", {4, 4});
  chip.withdraw("10.1.0.0/16");
  chip.withdraw("10.3.0.0/16");                               // . . 2 2 . . 4 4
  EXPECT_EQ(chip.route("10.6.0.0/16", {6, 6, 6}), "placed");  // 2 2 4 4 6 6 6 .
  EXPECT_EQ(chip.client.groups().statistics().shuffles, 2U);
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2 2");
  EXPECT_EQ(chip.lookup("10.4.0.0"), "10.4.0.0/16 to 4 4");
  EXPECT_EQ(chip.lookup("2001:db8::"), "2001:db8::/32 to 4 4");
  EXPECT_EQ(chip.lookup("10.6.0.0"), "10.6.0.0/16 to 6 6 6");
  EXPECT_EQ(chip.wrongLookups(), "");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(GroupMove, groupsCanMoveAgainAndEndAtTheirNewPlace) {
  ChipClient chip(tinyProfile(kTables, /*nextHopRows=*/8), tinyOptions());
  chip.route("10.1.0.0/16", {1});
  chip.route("10.2.0.0/16", {2});
  chip.route("10.3.0.0/16", {3, 3, 3});
  chip.route("10.4.0.0/16", {4, 4, 4});  // 1 2 3 3 3 4 4 4
  chip.withdraw("10.1.0.0/16");
  chip.withdraw("10.3.0.0/16");             // . 2 . . . 4 4 4
  chip.route("10.5.0.0/16", {5, 5, 5, 5});  // 2 4 4 4 5 5 5 5
  EXPECT_EQ(chip.wrongLookups(), "");
  chip.withdraw("10.2.0.0/16");    // . 4 4 4 5 5 5 5
  chip.route("10.4.0.0/16", {6});  // 6 . . . 5 5 5 5
  EXPECT_EQ(chip.wrongLookups(), "");
  chip.route("10.7.0.0/16", {7});        // 6 7 . . 5 5 5 5
  chip.withdraw("10.4.0.0/16");          // . 7 . . 5 5 5 5
  chip.route("10.8.0.0/16", {8, 8, 8});  // 7 5 5 5 5 8 8 8
  EXPECT_EQ(chip.wrongLookups(), "");
  EXPECT_EQ(chip.leftOvers(), "");
}

TEST(GroupMove, theTableIsNotCompactedWhileRoutesCouldNotFollow) {
  const Environment twoEntries("NHI_TABLE_SIZE", "2");
  // Without headroom: the room to follow is asked for whatever is kept back.
  ChipClient chip(tinyProfile(kTables, /*nextHopRows=*/4), tinyOptions());
  const SwId first = chip.client.groupIs(std::vector<U64>{1});
  chip.route("10.2.0.0/16", {2, 2});  // 1 2 2 .
  chip.client.groupDel(first);        // . 2 2 .
  EXPECT_EQ(chip.route("2001:db8::/32", {3, 3}), "refused headroom");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2 2");
  EXPECT_EQ(chip.client.groups().statistics().shuffles, 0U);
  EXPECT_EQ(chip.withdraw("10.2.0.0/16"), "withdrawn");
  chip.events();
  EXPECT_EQ(chip.client.retryRefused(8), 1U);
  EXPECT_EQ(chip.events(), "retry 2001:db8::/32 placed\n");
  EXPECT_EQ(chip.wrongLookups(), "");
  EXPECT_EQ(chip.leftOvers(), "");
}

}  // namespace
}  // namespace Quarle::Agent
