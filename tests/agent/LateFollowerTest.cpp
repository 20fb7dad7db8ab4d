// A group that the next-hop table moves although a route has no NHI room to follow. The client does
// not let it come to that; here one family stands alone with a table that asks nobody.

#include <string>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/FamilyClient.h"
#include "config/TarnletConfigurator.h"
#include "tests/agent/ChipClient.h"
#include "xdksim/SimLpmMgr.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::Environment;
using Testing::keyOf;

/// Two rows, for one VRF each.
XdkSim::ChipProfile twoRows() {
  return Testing::tinyProfile({{.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 0},
                               {.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 1}},
                              /*nextHopRows=*/8);
}

class LateFollower : public ::testing::Test {
 protected:
  // 10.2.0.0/16 and vrf 1 10.3.0.0/16 take both entries of the tile.
  LateFollower() {
    const SwId first = hold({1});
    route("10.2.0.0/16", {2, 2});  // 1 2 2 . . . . .
    route("10.3.0.0/16", {3}, 1);  // 1 2 2 3 . . . .
    groups_.release(first);        // . 2 2 3 . . . .
  }

  void TearDown() override {
    while (!others_.empty()) {
      groups_.release(others_.back());
      others_.pop_back();
    }
    withdraw("10.3.0.0/16", 1);
    withdraw("10.2.0.0/16");
    EXPECT_TRUE(family_.refused().empty());
    EXPECT_EQ(family_.statistics().nhiEntriesUsed, 0U);
    EXPECT_EQ(groups_.statistics().rowsUsed, 0U);
  }

  SwId hold(const std::vector<U64>& nextHops) { return groups_.hold(nextHops); }

  std::string route(const std::string& prefix, const std::vector<U64>& nextHops, U32 vrf = 0) {
    return Testing::toText(family_.routeIs(keyOf(prefix, vrf), nextHops));
  }

  std::string withdraw(const std::string& prefix, U32 vrf = 0) {
    return Testing::toText(family_.routeDel(keyOf(prefix, vrf)));
  }

  /// Takes all free rows, which moves the groups of both routes.
  void compact() {
    const NextHopStatistics now = groups_.statistics();
    others_.push_back(hold(std::vector<U64>(now.rowCapacity - now.rowsUsed, 4)));
    EXPECT_GE(groups_.statistics().shuffles, 2U);
  }

  std::string lookup(U16 vrf = 0) const {
    const RoutePrefix prefix = keyOf(vrf == 0 ? "10.2.0.0/16" : "10.3.0.0/16").prefix;
    std::string text;
    const XdkSim::Explanation seen =
        chip_.explain(XdkSim::Family::ipv4, vrf, prefix.address.data());
    for (const XdkSim::NextHopExplanation& nextHop : seen.nextHops) {
      text += std::to_string(nextHop.entry.nextHopId) + " ";
    }
    return text;
  }

  const RefusedWishes& refused() const { return family_.refused(); }

 private:
  struct Configs {
    explicit Configs(const XdkSim::Chip& chip) {
      const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
      tarnletConfiguratorFactory(systemStatusOf(chip), ipv4, ipv6, nextHops, treads)->doConfig();
    }

    Tarnlet::ConfigV4::Ptr ipv4 = Tarnlet::configV4Factory("ipv4");
    Tarnlet::ConfigV6::Ptr ipv6 = Tarnlet::configV6Factory("ipv6");
    TarnletNextHop::Config::Ptr nextHops = TarnletNextHop::configFactory("nextHops");
  };

  void follow(std::span<const GroupMove> moves) {
    const auto routes = family_.routesOf(moves);
    for (std::size_t i = 0; i < moves.size(); ++i) {
      groups_.rowsAreMoved(moves[i]);
      family_.groupMoved(routes[i], moves[i]);
      groups_.rowsAreLeft(moves[i]);
    }
  }

  const Environment twoEntries_{"NHI_TABLE_SIZE", "2"};
  XdkSim::Chip chip_{twoRows()};
  XdkSim::SimLpmMgr manager_{chip_, XdkSim::Family::ipv4};
  Configs configs_{chip_};
  WriteFaults faults_;
  AnswerHandler noHandler_;
  NextHopGroups groups_{
      configs_.nextHops,
      {.maxWays = 31, .maxBase = 65535},
      &manager_,
      faults_,
      {.followMoves = [this](auto moves) { follow(moves); }, .canFollow = [] { return true; }}};
  FamilyClient family_{configs_.ipv4,
                       {groups_, faults_, noHandler_, [this] { family_.retryGroups(); }},
                       &manager_,
                       {.maxLength = 19, .headroom = {.share = 0, .minLargestBlocks = 0}}};
  std::vector<SwId> others_;
};

TEST_F(LateFollower, isOnTheListOfRefusedAndFollowsAsRoomReturns) {
  compact();
  EXPECT_EQ(refused().count(RefusalReason::nhiTableFull), 2U);
  EXPECT_EQ(withdraw("10.3.0.0/16", 1), "withdrawn");
  EXPECT_EQ(lookup(), "2 2 ");
  EXPECT_TRUE(refused().empty());
  EXPECT_EQ(route("10.2.0.0/16", {2, 2}), "unchanged");
}

TEST_F(LateFollower, followsWhenItIsAskedForAgain) {
  compact();
  EXPECT_EQ(route("10.2.0.0/16", {2, 2}), "refused nhiTableFull") << "it does not lead there yet";
  EXPECT_EQ(refused().size(), 2U);
}

TEST_F(LateFollower, canGoElsewhere) {
  compact();
  EXPECT_EQ(route("10.2.0.0/16", {3}), "refused nhiTableFull");
  EXPECT_EQ(withdraw("10.3.0.0/16", 1), "withdrawn");
  EXPECT_EQ(lookup(), "3 ");
}

TEST_F(LateFollower, keepsTheWishThatItHad) {
  EXPECT_EQ(route("10.2.0.0/16", {5, 5}), "refused nhiTableFull");
  compact();
  EXPECT_EQ(withdraw("10.3.0.0/16", 1), "withdrawn");
  EXPECT_EQ(lookup(), "5 5 ");
}

}  // namespace
}  // namespace Quarle::Agent
