// A table that is too large for its chip, in random order: thousands of routes are refused, the
// rest is right, and those that wait come in as others go.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "agent/LookupCheck.h"
#include "agent/source/RouteOrder.h"
#include "agent/source/SyntheticTable.h"
#include "tests/agent/ChipClient.h"
#include "tests/support/Seed.h"
#include "xdksim/SimLpmMgr.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

constexpr U32 kFewEntries = 2400;
constexpr U32 kManyEntries = 3200;

/// The profile `compact` with a sixteenth of its rows, and two NHI tiles.
XdkSim::ChipProfile crowdedProfile() {
  XdkSim::ChipProfile profile = XdkSim::readProfile(TARNLET_SOURCE_DIR "/profiles/compact.json");
  for (XdkSim::FamilyProfile* family : {&profile.ipv4, &profile.ipv6}) {
    for (XdkSim::PrefixTableProfile& table : family->tables) {
      table.rows = std::max(table.rows / 16, 16U);
    }
    family->nhi.tilesIs(2);
  }
  return profile;
}

/// By entries of an NHI tile: with few of them the NHI memory is the first to be full, with more
/// the rows are.
class CrowdedChip : public ::testing::TestWithParam<U32> {
 protected:
  static constexpr U32 kRoutes4 = 30000;
  static constexpr U32 kRoutes6 = 6000;
  static constexpr U32 kGroups = 40;

  CrowdedChip() {
    client.answerHandlerIs([this](const RouteEvent& event) { note(event); });
    for (U32 i = 0; i < kGroups; ++i) {
      groups.push_back(client.groupIs(std::vector<U64>(1 + i % 4, i)));
    }
    RouteTable table = makeSyntheticTable({.ipv4 = kRoutes4, .ipv6 = kRoutes6}, seed);
    for (std::vector<RouteEntry>* routes : {&table.ipv4, &table.ipv6}) {
      shuffleRoutes(*routes, seed);
      for (const RouteEntry& route : *routes) {
        wanted.push_back({.vrf = 0, .prefix = route.prefix});
      }
    }
  }

  void announceAll() {
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      client.family(wanted[i].prefix.family).routeIs(wanted[i], groups[i % kGroups]);
    }
  }

  U64 placed() const {
    return client.family(Family::ipv4).routes() + client.family(Family::ipv6).routes();
  }

  U64 refused() const {
    return client.family(Family::ipv4).refused().size() +
           client.family(Family::ipv6).refused().size();
  }

  U64 refused(RefusalReason reason) const {
    return client.family(Family::ipv4).refused().count(reason) +
           client.family(Family::ipv6).refused().count(reason);
  }

  /// Looks every wanted route up: those that the answers told to be placed are found, and what the
  /// others would have hidden is.
  std::string wrongLookups() const {
    ReferenceTrie expected;
    for (const auto& [key, group] : routes) {
      expected.insert(key.prefix, static_cast<U32>(group.value()));
    }
    LookupCheck check(chip, expected, [this](ReferenceTrie::Value group) {
      return client.groups().block(SwId(group));
    });
    for (const RouteKey& key : wanted) {
      check.checkPrefix(key.prefix);
    }
    EXPECT_GE(check.lookups(), wanted.size());
    return check.wrong() == 0 ? "" : check.faults().front();
  }

  const U64 seed = Tarnlet::Testing::testSeed();
  const Testing::Environment tileSize{"NHI_TABLE_SIZE", std::to_string(GetParam())};
  XdkSim::Chip chip{crowdedProfile()};
  XdkSim::SimLpmMgr manager4{chip, XdkSim::Family::ipv4};
  XdkSim::SimLpmMgr manager6{chip, XdkSim::Family::ipv6};
  Client client{{.systemStatus = systemStatusOf(chip), .ipv4 = &manager4, .ipv6 = &manager6}};
  std::vector<SwId> groups;
  std::vector<RouteKey> wanted;
  // By the answers alone.
  std::map<RouteKey, SwId> routes;
  U64 retried = 0;

 private:
  void note(const RouteEvent& event) {
    const Outcome outcome = event.answer.outcome;
    if (outcome == Outcome::withdrawn) {
      routes.erase(event.key);
    } else if (outcome == Outcome::placed || outcome == Outcome::updated) {
      routes[event.key] = event.group;
      retried += event.cause == Cause::retry ? 1 : 0;
    }
  }
};

TEST_P(CrowdedChip, thousandsAreRefusedAndTheRestIsRight) {
  announceAll();
  EXPECT_EQ(placed() + refused(), wanted.size()) << "seed " << seed;
  EXPECT_EQ(placed(), routes.size());
  EXPECT_GT(refused(), 1000U) << "seed " << seed;
  U64 sum = 0;
  for (const RefusalReason reason : kRefusalReasons) {
    sum += refused(reason);
  }
  EXPECT_EQ(sum, refused());
  const bool fewEntries = GetParam() == kFewEntries;
  EXPECT_GT(refused(fewEntries ? RefusalReason::headroom : RefusalReason::noRow), 1000U);
  EXPECT_GT(refused(RefusalReason::noRow), 0U);
  EXPECT_EQ(refused(RefusalReason::invalid), 0U);
  EXPECT_EQ(wrongLookups(), "") << "seed " << seed;
  EXPECT_EQ(retried, 0U) << "nothing has made room";
}

TEST_P(CrowdedChip, thoseThatWaitComeInAsOthersGo) {
  announceAll();
  const U64 waiting = refused();
  // Half of the placed ones go, and stay away.
  std::vector<RouteKey> going;
  for (const auto& [key, group] : routes) {
    if (going.size() * 2 < routes.size()) {
      going.push_back(key);
    }
  }
  Random random(seed);
  shuffle(going, random);
  for (const RouteKey& key : going) {
    ASSERT_EQ(client.family(key.prefix.family).routeDel(key).outcome, Outcome::withdrawn);
  }
  EXPECT_EQ(placed() + refused(), wanted.size() - going.size()) << "seed " << seed;
  EXPECT_EQ(retried, waiting - refused()) << "seed " << seed;
  EXPECT_GT(retried, waiting / 2) << "by themselves, seed " << seed;
  EXPECT_EQ(wrongLookups(), "") << "seed " << seed;
  const U64 served = client.retryRefused(wanted.size());
  EXPECT_EQ(retried, waiting - refused()) << "seed " << seed;
  EXPECT_LE(refused(), waiting / 10) << served << " served by hand, seed " << seed;
  EXPECT_EQ(wrongLookups(), "") << "seed " << seed;
}

TEST_P(CrowdedChip, churnWithGroupChangesStaysRightAndEndsEmpty) {
  announceAll();
  Random random(seed);
  for (int i = 0; i < 20000; ++i) {
    const std::size_t at = random.below(static_cast<U32>(wanted.size()));
    FamilyClient& family = client.family(wanted[at].prefix.family);
    if (i % 500 == 499) {
      const SwId group = groups[random.below(kGroups)];
      client.groupNextHopsAre(group, std::vector<U64>(1 + random.below(6), 1000 + U64(i)));
    } else if (random.below(2) == 0) {
      family.routeDel(wanted[at]);
    } else {
      family.routeIs(wanted[at], groups[random.below(kGroups)]);
    }
  }
  EXPECT_EQ(placed(), routes.size()) << "seed " << seed;
  EXPECT_EQ(wrongLookups(), "") << "seed " << seed;
  for (const RouteKey& key : wanted) {
    client.family(key.prefix.family).routeDel(key);
  }
  EXPECT_EQ(placed() + refused(), 0U) << "seed " << seed;
  for (const SwId group : groups) {
    client.groupDel(group);
  }
  EXPECT_EQ(client.groups().statistics().rowsUsed, 0U) << "seed " << seed;
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    EXPECT_EQ(chip.rowsUsed(chipFamily(family)), 0U) << "seed " << seed;
    EXPECT_EQ(client.family(family).statistics().nhiEntriesUsed, 0U) << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Of,
                         CrowdedChip,
                         ::testing::Values(kFewEntries, kManyEntries),
                         [](const auto& tile) {
                           return tile.param == kFewEntries ? "fewNhiEntries" : "fewRows";
                         });

}  // namespace
}  // namespace Quarle::Agent
