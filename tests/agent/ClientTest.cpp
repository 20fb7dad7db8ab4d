// The whole road on small chips: a request goes in, the chip's own look-up tells what came of it.

#include "agent/Client.h"

#include <string>
#include <vector>

#include "tests/agent/ChipClient.h"
#include "tests/support/Seed.h"
#include "xdksim/ChipProfile.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::ChipClient;
using Testing::keyOf;

XdkSim::ChipProfile labProfile() {
  return XdkSim::readProfile(TARNLET_SOURCE_DIR "/profiles/lab.json");
}

class Lab : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(lab.wrongLookups(), "");
    EXPECT_EQ(lab.leftOvers(), "");
  }

  ChipClient lab{labProfile()};
};

TEST_F(Lab, aRouteIsFoundByTheChip) {
  EXPECT_EQ(lab.route("10.1.0.0/16", {7, 8}), "placed");
  EXPECT_EQ(lab.lookup("10.1.2.3"), "10.1.0.0/16 to 7 8");
  EXPECT_EQ(lab.lookup("10.2.0.0"), "none");
}

TEST_F(Lab, theLongestOfNestedRoutesWins) {
  EXPECT_EQ(lab.route("0.0.0.0/0", {1}), "placed");
  EXPECT_EQ(lab.route("10.0.0.0/8", {2}), "placed");
  EXPECT_EQ(lab.route("10.1.0.0/20", {3}), "placed");
  EXPECT_EQ(lab.route("10.1.2.0/24", {4}), "placed");
  EXPECT_EQ(lab.route("10.1.2.3/32", {5}), "placed");
  EXPECT_EQ(lab.lookup("10.1.2.3"), "10.1.2.3/32 to 5");
  EXPECT_EQ(lab.lookup("10.1.2.4"), "10.1.2.0/24 to 4");
  EXPECT_EQ(lab.lookup("10.1.3.0"), "10.1.0.0/20 to 3");
  EXPECT_EQ(lab.lookup("10.9.0.0"), "10.0.0.0/8 to 2");
  EXPECT_EQ(lab.lookup("11.0.0.0"), "0.0.0.0/0 to 1");
}

TEST_F(Lab, ipv6RoutesOfEveryLengthAreFound) {
  EXPECT_EQ(lab.route("::/0", {1}), "placed");
  EXPECT_EQ(lab.route("2001:db8::/32", {2}), "placed");
  EXPECT_EQ(lab.route("2001:db8:1::/48", {3}), "placed");
  EXPECT_EQ(lab.route("2001:db8:1:2::/64", {4}), "placed");
  EXPECT_EQ(lab.route("2001:db8:1:2::3/128", {5}), "placed");
  EXPECT_EQ(lab.lookup("2001:db8:1:2::3"), "2001:db8:1:2::3/128 to 5");
  EXPECT_EQ(lab.lookup("2001:db8:1:2::4"), "2001:db8:1:2::/64 to 4");
  EXPECT_EQ(lab.lookup("2001:db8:1:3::"), "2001:db8:1::/48 to 3");
  EXPECT_EQ(lab.lookup("2001:db8:2::"), "2001:db8::/32 to 2");
  EXPECT_EQ(lab.lookup("2002::"), "::/0 to 1");
}

TEST_F(Lab, vrfsDoNotSeeOneAnother) {
  EXPECT_EQ(lab.route("10.1.2.0/24", {1}, 1), "placed");
  EXPECT_EQ(lab.route("10.1.2.0/24", {2}, 65535), "placed");
  EXPECT_EQ(lab.lookup("10.1.2.3", 1), "vrf 1 10.1.2.0/24 to 1");
  EXPECT_EQ(lab.lookup("10.1.2.3", 65535), "vrf 65535 10.1.2.0/24 to 2");
  EXPECT_EQ(lab.lookup("10.1.2.3", 0), "none");
  EXPECT_EQ(lab.withdraw("10.1.2.0/24", 1), "withdrawn");
  EXPECT_EQ(lab.lookup("10.1.2.3", 1), "none");
  EXPECT_EQ(lab.withdraw("10.1.2.0/24", 65535), "withdrawn");
}

TEST_F(Lab, addingTwiceChangesNothing) {
  lab.route("10.1.0.0/16", {7});
  const U64 writes = lab.chip.counters().prefixWrites;
  EXPECT_EQ(lab.route("10.1.0.0/16", {7}), "unchanged");
  EXPECT_EQ(lab.chip.counters().prefixWrites, writes);
}

TEST_F(Lab, aRouteChangesItsNextHops) {
  lab.route("10.1.0.0/16", {7});
  EXPECT_EQ(lab.route("10.1.0.0/16", {8, 9}), "updated");
  EXPECT_EQ(lab.lookup("10.1.0.0"), "10.1.0.0/16 to 8 9");
  EXPECT_EQ(lab.client.groups().statistics().groups, 1U) << "the old group has ended";
}

TEST_F(Lab, aWithdrawnRouteUncoversTheShorterOne) {
  lab.route("10.0.0.0/8", {1});
  lab.route("10.1.0.0/16", {2});
  EXPECT_EQ(lab.withdraw("10.1.0.0/16"), "withdrawn");
  EXPECT_EQ(lab.lookup("10.1.0.0"), "10.0.0.0/8 to 1");
  EXPECT_EQ(lab.withdraw("10.1.0.0/16"), "absent");
}

TEST_F(Lab, theLastRouteOfARowLeavesAnEmptyRow) {
  lab.route("10.1.2.0/24", {1});
  EXPECT_EQ(lab.chip.rowsUsed(XdkSim::Family::ipv4), 1U);
  lab.withdraw("10.1.2.0/24");
  EXPECT_EQ(lab.chip.rowsUsed(XdkSim::Family::ipv4), 0U);
  EXPECT_EQ(lab.chip.counters().prefixClears, 1U);
}

TEST_F(Lab, theMemoryOfAWithdrawnRouteReturns) {
  lab.route("10.1.2.0/24", {1});
  const auto config = lab.client.family(Family::ipv4).engine().config();
  const auto& ipv4 = static_cast<const Tarnlet::ConfigV4&>(*config);
  EXPECT_EQ(ipv4.lpmPrefixs(), 1U);
  lab.withdraw("10.1.2.0/24");
  EXPECT_EQ(ipv4.lpmPrefixs(), 0U);
}

TEST_F(Lab, aGroupLivesAsLongAsARouteLeadsThere) {
  lab.route("10.1.0.0/16", {7, 8});
  lab.route("10.2.0.0/16", {7, 8});
  EXPECT_EQ(lab.client.groups().statistics().groups, 1U);
  lab.withdraw("10.1.0.0/16");
  EXPECT_EQ(lab.client.groups().statistics().groups, 1U);
  lab.withdraw("10.2.0.0/16");
  EXPECT_EQ(lab.client.groups().statistics().groups, 0U);
}

TEST_F(Lab, groupOfTellsWhereAnInstalledRouteLeads) {
  FamilyClient& ipv4 = lab.client.family(Family::ipv4);
  EXPECT_FALSE(ipv4.groupOf(keyOf("10.1.0.0/16")));
  lab.route("10.1.0.0/16", {7, 8});
  const std::vector<U64> expected{7, 8};
  const std::span<const U64> nextHops =
      lab.client.groups().nextHops(*ipv4.groupOf(keyOf("10.1.0.0/16")));
  EXPECT_EQ(std::vector<U64>(nextHops.begin(), nextHops.end()), expected);
}

TEST_F(Lab, whatMakesNoSenseIsRefusedAtTheDoor) {
  FamilyClient& ipv4 = lab.client.family(Family::ipv4);
  const SwId group = lab.client.groupIs(std::vector<U64>{1});
  const std::string invalid = "refused invalid";
  EXPECT_EQ(lab.route("10.0.0.0/8", {1}, 65536), invalid);
  EXPECT_EQ(lab.route("10.0.0.0/8", {}), invalid);
  EXPECT_EQ(lab.route("10.0.0.0/8", std::vector<U64>(32, 1)), invalid);
  RouteKey hostBits = keyOf("10.0.0.0/8");
  hostBits.prefix.address[3] = 1;
  EXPECT_EQ(Testing::toText(ipv4.routeIs(hostBits, group)), invalid);
  RouteKey tooLong = keyOf("10.0.0.0/8");
  tooLong.prefix.length = 33;
  EXPECT_EQ(Testing::toText(ipv4.routeIs(tooLong, group)), invalid);
  lab.client.groupDel(group);
  EXPECT_EQ(lab.route("10.0.0.0/8", std::vector<U64>(31, 1)), "placed");
}

TEST_F(Lab, refusedWishesAreRememberedUntilTheyAreWithdrawn) {
  FamilyClient& ipv4 = lab.client.family(Family::ipv4);
  EXPECT_EQ(lab.route("10.0.0.0/8", std::vector<U64>(32, 1)), "refused invalid");
  ASSERT_EQ(ipv4.refused().size(), 1U);
  EXPECT_NE(ipv4.refused().find(keyOf("10.0.0.0/8")), nullptr);
  EXPECT_EQ(lab.withdraw("10.0.0.0/8"), "withdrawn");
  EXPECT_TRUE(ipv4.refused().empty());
  EXPECT_EQ(lab.withdraw("10.0.0.0/8"), "absent");
}

TEST_F(Lab, aWishThatIsServedAtLastIsNoRefusalAnyMore) {
  lab.route("10.0.0.0/8", std::vector<U64>(32, 1));
  EXPECT_EQ(lab.route("10.0.0.0/8", {1, 2}), "placed");
  EXPECT_TRUE(lab.client.family(Family::ipv4).refused().empty());
}

TEST_F(Lab, statisticsAgreeWithTheChip) {
  for (int i = 0; i < 12; ++i) {
    lab.route("10.1." + std::to_string(i) + ".0/24", {7});
    lab.route("10.4." + std::to_string(i) + ".0/24", {7});
  }
  const FamilyStatistics statistics = lab.client.family(Family::ipv4).statistics();
  EXPECT_EQ(statistics.routes, 24U);
  EXPECT_EQ(statistics.rowsUsed, lab.chip.rowsUsed(XdkSim::Family::ipv4));
  EXPECT_EQ(statistics.rowCapacity, lab.chip.rowCapacity(XdkSim::Family::ipv4));
  EXPECT_EQ(statistics.nhiEntryCapacity, 16384U);
  EXPECT_EQ(statistics.nhiTiles, 1U);
  EXPECT_EQ(statistics.nhiBlocks + statistics.nhiShared, statistics.rowsUsed)
      << "each row has a block of its own or shares one";
  EXPECT_EQ(statistics.nhiShared, 1U) << "the two rows lead the same ways";
  EXPECT_EQ(statistics.nhiEntriesUsed, 2U) << "12 pairs in entries of 6";
}

TEST_F(Lab, commandsAreCountedAsTheChipSeesThem) {
  for (int i = 0; i < 9; ++i) {
    lab.route("10.1." + std::to_string(i) + ".0/24", {U64(i) + 1});
  }
  lab.withdraw("10.1.4.0/24");
  const CommandCounts& commands = lab.client.family(Family::ipv4).commands();
  EXPECT_EQ(commands.prefix, lab.chip.counters().prefixWrites);
  EXPECT_EQ(commands.nhi, lab.chip.counters().nhiWrites);
  EXPECT_NE(commands.nhi, 0U);
}

TEST_F(Lab, randomChangesLeaveTheChipAsAPlainTableSays) {
  const U64 seed = Tarnlet::Testing::testSeed();
  Random random(seed);
  std::vector<RoutePrefix> seen;
  std::string story;
  const auto randomPrefix = [&] {
    // Few first bits, so that prefixes nest and rows fill up.
    const bool ipv6 = random.below(2) == 0;
    const unsigned length = random.below(ipv6 ? 129 : 33);
    AddressBits bits{.high = U64{0x0a} << 56, .low = 0};
    for (int i = 0; i < 4; ++i) {
      bits = bits.withBit(ipv6 ? 20 + random.below(60) : 8 + random.below(24));
    }
    return RoutePrefix::of(ipv6 ? Family::ipv6 : Family::ipv4, bits, length);
  };
  for (int step = 0; step < 3000; ++step) {
    const bool known = !seen.empty() && random.below(2) == 0;
    const RoutePrefix prefix =
        known ? seen[random.below(static_cast<U32>(seen.size()))] : randomPrefix();
    seen.push_back(prefix);
    if (random.below(5) < 2) {
      story += toText(prefix) + " " + lab.withdraw(toText(prefix)) + "\n";
    } else {
      const std::vector<U64> nextHops(1 + random.below(4), 1 + random.below(6));
      story += toText(prefix) + " " + lab.route(toText(prefix), nextHops) + "\n";
    }
    if (step % 50 == 49) {
      ASSERT_EQ(lab.wrongLookups(seen), "") << "seed " << seed << "\n" << story;
    }
  }
  EXPECT_EQ(lab.chip.lastError(), "");
}

}  // namespace
}  // namespace Quarle::Agent
