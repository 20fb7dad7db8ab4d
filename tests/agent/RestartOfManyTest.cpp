// Restarts of tables of some size, and of several NHI tiles.

#include <algorithm>
#include <string>
#include <vector>

#include "agent/restart/RestartHelperV4.h"
#include "config/TarnletConfigurator.h"
#include "tests/agent/LastingChip.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::keyOf;
using Testing::LastingChip;
using Testing::tinyOptions;
using Testing::tinyProfile;

/// Two NHI tiles with a row of the chip for each route, so that each has a block of its own.
XdkSim::ChipProfile twoTiles() {
  XdkSim::ChipProfile profile = tinyProfile({{.tread = 16, .rows = 256}});
  profile.ipv4.nhi.tilesIs(2);
  return profile;
}

class TwoTiles : public ::testing::Test {
 protected:
  TwoTiles() {
    chip.start();
    for (U32 vrf = 0; vrf < 20; ++vrf) {
      chip.client->family(Family::ipv4).routeIs(keyOf("10.0.0.0/8", vrf), std::vector<U64>{vrf});
    }
  }

  /// Of the first 20 routes, those that do not lead where they should.
  U32 wrong() const {
    U32 wrong = 0;
    for (U32 vrf = 0; vrf < 20; ++vrf) {
      const std::string seen = Testing::lookupIn(chip.chip, "10.0.0.1", static_cast<U16>(vrf));
      wrong += seen.ends_with("10.0.0.0/8 to " + std::to_string(vrf)) ? 0 : 1;
    }
    return wrong;
  }

  LastingChip chip{twoTiles(), tinyOptions()};
};

TEST_F(TwoTiles, theLibraryAloneOverwritesBlocksWithTheFirstNewOnesAfterARestart) {
  chip.client.reset();
  const Tarnlet::ConfigV4::Ptr ipv4 = Tarnlet::configV4Factory("ipv4");
  tarnletConfiguratorFactory(chip.access().systemStatus, ipv4, Tarnlet::configV6Factory("ipv6"),
                             TarnletNextHop::configFactory("nextHops"),
                             Config::LpmTreadCfg::Ptr(new Config::LpmTreadCfg()))
      ->doConfig();
  const Tarnlet::Status::Ptr status = Tarnlet::statusFactory("ipv4");
  WriteFaults faults;
  const CommandConsumer consumer(Family::ipv4, status, ipv4->keyType(), chip.access().ipv4, faults);
  const RestartHelperV4::Ptr helper(new RestartHelperV4(ipv4, status));
  helper->xdkLpmMgrIs(chip.access().ipv4);
  const Tarnlet::LpmSm::Ptr sm = Tarnlet::lpmSmFactory("ipv4", ipv4, status, helper);
  EXPECT_EQ(status->prefixToNextHopBlocks(), 20U);
  EXPECT_EQ(wrong(), 0U);
  for (U32 vrf = 20; vrf < 22; ++vrf) {
    ipv4->requestIs(ipv4->lpmPrefixIs({vrf, Corsel::Prefix("10.0.0.0/8")}), NextHopBlock(vrf, 1));
  }
  EXPECT_GE(wrong(), 1U) << "one is named after a tile that it does not lie in";
}

TEST_F(TwoTiles, theClientsBlocksGoWhereTheyAreNamed) {
  for (int round = 0; round < 3; ++round) {
    chip.restart();
    for (U32 vrf = 20; vrf < 40; ++vrf) {
      const RouteKey key = keyOf("10.0.0.0/8", vrf);
      chip.client->family(Family::ipv4).routeDel(key);
      EXPECT_EQ(
          Testing::toText(chip.client->family(Family::ipv4).routeIs(key, std::vector<U64>{vrf})),
          std::string("placed"));
    }
    EXPECT_EQ(wrong(), 0U);
  }
}

/// A table of some size, both families.
XdkSim::ChipProfile roomyProfile() {
  XdkSim::ChipProfile profile =
      tinyProfile({{.tread = 16, .rows = 512}, {.tread = 30, .rows = 512}},
                  /*nextHopRows=*/256);
  return profile;
}

class RestartOfMany : public ::testing::Test {
 protected:
  RestartOfMany() {
    chip.start();
    Random random(3);
    for (U32 i = 0; i < 2000; ++i) {
      RoutePrefix prefix{.family = Family::ipv4};
      prefix.address = {static_cast<U8>(random.below(20)), static_cast<U8>(random.below(256)), 0,
                        0};
      prefix.length = 16;
      chip.client->family(Family::ipv4)
          .routeIs({.vrf = random.below(3), .prefix = prefix},
                   std::vector<U64>(1 + random.below(4), random.below(20)));
    }
  }

  LastingChip chip{roomyProfile(), {.maxLengthV4 = 19}};
};

TEST_F(RestartOfMany, theChipIsTheSameBitForBitWhetherRewritesAreWrittenOrNot) {
  const std::vector<U64> memory = chip.memory();
  const U64 writes = chip.writes();
  chip.restart({.writesRewrites = false});
  const FamilyRecovery dropped = chip.client->family(Family::ipv4).recovery();
  EXPECT_EQ(chip.writes(), writes);
  EXPECT_EQ(chip.memory(), memory);
  chip.restart({.writesRewrites = true});
  const FamilyRecovery written = chip.client->family(Family::ipv4).recovery();
  EXPECT_EQ(chip.writes(), writes + written.rewrites.prefix + written.rewrites.nhi);
  EXPECT_EQ(chip.memory(), memory);
  EXPECT_EQ(written.rewrites, dropped.rewrites);
  EXPECT_GE(written.rewrites.prefix, written.routes) << "a full set for each prefix";
  EXPECT_GT(written.routes, 500U);
}

TEST_F(RestartOfMany, theQueueStaysShortAllTheWay) {
  chip.restart({.writesRewrites = true});
  const FamilyRecovery& recovery = chip.client->family(Family::ipv4).recovery();
  EXPECT_GT(recovery.rewrites.prefix, 500U);
  EXPECT_LE(recovery.longestQueue, 2U);
  EXPECT_EQ(recovery.rowsRead, chip.chip.rowCapacity(XdkSim::Family::ipv4));
}

TEST_F(RestartOfMany, theNextClientIsToldTheSameRoutes) {
  const auto told = [this] {
    std::string text;
    const FamilyClient& ipv4 = chip.client->family(Family::ipv4);
    std::vector<std::string> lines;
    for (const auto& request : ipv4.engine().config()->requestCollection()) {
      const RouteKey key = routeKeyOf(Family::ipv4, *request.key);
      const SwId group = *ipv4.groupOf(key);
      lines.push_back(toText(key) + " " + std::to_string(group.value()) + " " +
                      std::to_string(chip.client->groups().nextHops(group).size()) + "\n");
    }
    std::sort(lines.begin(), lines.end());
    for (const std::string& line : lines) {
      text += line;
    }
    return text;
  };
  const std::string before = told();
  chip.restart();
  EXPECT_EQ(told(), before);
}

}  // namespace
}  // namespace Quarle::Agent
