// What is whole passes the audit: freshly loaded, after churn and after a restart.

#include "agent/source/SyntheticTable.h"
#include "tests/audit/AuditedChip.h"
#include "tests/support/Random.h"

namespace Quarle::Agent {
namespace {

using Testing::auditOptions;
using Testing::auditProfile;
using Testing::LastingChip;
using Testing::textOf;

class WholeAudit : public ::testing::Test {
 protected:
  void load() {
    chip.start();
    for (U32 i = 0; i < 120; ++i) {
      route(i, 1 + i % 7);
    }
  }

  std::string prefixOf(U32 i) const {
    if (i % 4 == 3) {
      return "2001:db8:" + std::to_string(i) + "::/48";
    }
    return "10." + std::to_string(i % 6) + "." + std::to_string(i) + ".0/24";
  }

  void route(U32 i, U32 ways) {
    std::vector<U64> nextHops;
    for (U32 way = 0; way < ways % 3 + 1; ++way) {
      nextHops.push_back(100 * ways + way);
    }
    chip.route(prefixOf(i), nextHops);
  }

  AuditReport audit(const AuditOptions& options = {}) {
    return auditAll(*chip.client, chip.access(), options);
  }

  U64 routes() {
    return chip.client->family(Family::ipv4).routes() + chip.client->family(Family::ipv6).routes();
  }

  LastingChip chip{auditProfile(), auditOptions()};
  ::Random random;
};

TEST_F(WholeAudit, anEmptyChipPasses) {
  chip.start();
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.routesVerified, 0U);
  EXPECT_EQ(report.counts.nhiTiles, 5U);
  EXPECT_EQ(report.counts.prefixRows, 144U + 72U);
  EXPECT_EQ(report.counts.nextHopRows, 64U);
}

TEST_F(WholeAudit, aLoadedChipPassesAndEverythingIsCounted) {
  load();
  ASSERT_GT(routes(), 100U);
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.routes, routes());
  EXPECT_EQ(report.counts.routesVerified, routes());
  const FamilyStatistics ipv4 = chip.client->family(Family::ipv4).statistics();
  const FamilyStatistics ipv6 = chip.client->family(Family::ipv6).statistics();
  EXPECT_GT(ipv4.nhiShared + ipv6.nhiShared, 0U) << "some block is shared";
  EXPECT_EQ(report.counts.subTries, ipv4.rowsUsed + ipv6.rowsUsed);
  EXPECT_EQ(report.counts.nhiBlocks, ipv4.nhiBlocks + ipv6.nhiBlocks);
  EXPECT_EQ(report.counts.nhiEntries, ipv4.nhiEntriesUsed + ipv6.nhiEntriesUsed);
  EXPECT_EQ(report.counts.groups, chip.client->groups().statistics().groups);
}

TEST_F(WholeAudit, aChipAfterChurnPasses) {
  SCOPED_TRACE(random.seedText());
  load();
  for (U32 step = 0; step < 2000; ++step) {
    const U32 i = random.between(0, 199);
    if (random.oneIn(3)) {
      chip.withdraw(prefixOf(i));
    } else {
      route(i, random.between(1, 9));
    }
    if (step % 400 == 0) {
      const AuditReport report = audit();
      ASSERT_TRUE(report.passed()) << "after step " << step << "\n" << textOf(report);
    }
  }
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.routesVerified, routes());
}

TEST_F(WholeAudit, aChipAfterARestartPasses) {
  load();
  chip.withdraw(prefixOf(5));
  chip.restart();
  AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.routesVerified, routes());
  route(5, 8);
  chip.loseList();
  chip.restart();
  ASSERT_GT(chip.client->groups().statistics().strangers, 0U);
  report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
}

TEST(LargeWholeAudit, aTableThatNeedsSeveralChildrenPasses) {
  LastingChip chip(XdkSim::findProfile(TARNLET_SOURCE_DIR "/profiles/internet.json"));
  chip.start();
  RouteTable table = makeSyntheticTable({.ipv4 = 150000, .ipv6 = 2000}, /*seed=*/5);
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    for (const RouteEntry& route : table.routes(family)) {
      const std::vector<U64> nextHops = {route.prefix.address[2] % 16U};
      chip.client->family(family).routeIs({.vrf = 0, .prefix = route.prefix}, nextHops);
    }
  }
  const AuditReport report = auditAll(*chip.client, chip.access());
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.routesVerified, 152000U);
}

TEST_F(WholeAudit, changesNothing) {
  load();
  const std::vector<U64> memory = chip.memory();
  const U64 writes = chip.writes();
  audit();
  EXPECT_EQ(chip.writes(), writes);
  EXPECT_EQ(chip.memory(), memory);
  EXPECT_EQ(chip.route("10.77.0.0/16", {9}), "placed");
  const AuditReport report = audit();
  EXPECT_TRUE(report.passed()) << textOf(report);
}

TEST_F(WholeAudit, tellsHowFarItIs) {
  load();
  std::string steps;
  AuditOptions options;
  options.progress = [&steps](const AuditProgress& progress) {
    EXPECT_EQ(progress.done, progress.total) << progress.step;
    steps += std::string(progress.step) + " ";
  };
  audit(options);
  EXPECT_EQ(steps, "blocks routes blocks routes groups ");
}

TEST_F(WholeAudit, withoutAChipTheLibraryIsAudited) {
  load();
  const AuditReport report = auditAll(*chip.client, {});
  EXPECT_TRUE(report.passed()) << textOf(report);
  EXPECT_EQ(report.counts.prefixRows, 0U);
  EXPECT_EQ(report.counts.routesVerified, routes());
}

}  // namespace
}  // namespace Quarle::Agent
