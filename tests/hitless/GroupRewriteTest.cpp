// Groups that are given other next hops: as many, and their rows are rewritten one by one; more or
// fewer, and their routes go to other rows.

#include <functional>

#include "tests/agent/ChipClient.h"
#include "tests/hitless/WatchedLoad.h"

#include <gmock/gmock.h>

namespace Quarle::Agent {
namespace {

using Testing::Environment;
using ::testing::HasSubstr;
using Testing::keyOf;
using Testing::WatchedLoad;

/// Passes writes on, but next-hop rows as it is told to.
class RowWriter final : public xpIpRouteLpmMgr {
 public:
  using Write = std::function<void(U32 row, xpNextHopEntry entry)>;

  explicit RowWriter(xpIpRouteLpmMgr& manager) : manager_(manager) {}

  XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override {
    return manager_.writePrefixEntry(device, table, row, entry);
  }

  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) override {
    return manager_.writeNhiEntry(device, tile, row, entry);
  }

  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override {
    if (!rows) {
      return manager_.writeNextHopEntry(device, row, entry);
    }
    rows(row, *entry);
    return XP_NO_ERR;
  }

  /// Writes without being told how.
  void write(U32 row, xpNextHopEntry entry) { manager_.writeNextHopEntry(0, row, &entry); }

  Write rows;

 private:
  xpIpRouteLpmMgr& manager_;
};

/// Two routes to one group of three, at rows 0 to 2, and one to another group of the same next
/// hops, at rows 3 to 5.
class GroupRewrite : public ::testing::Test {
 protected:
  GroupRewrite() {
    EXPECT_TRUE(load.routeTo(keyOf("10.1.0.0/16").prefix, group));
    EXPECT_TRUE(load.routeTo(keyOf("2001:db8::/32").prefix, group));
    EXPECT_TRUE(load.routeTo(keyOf("10.2.0.0/16").prefix, other));
    EXPECT_EQ(load.client.groups().block(other).base().value(), 3U);
  }

  const HitlessCounts& counts() const { return load.check.counts(); }

  std::string firstFault() const {
    return load.check.faults().empty() ? "" : load.check.faults().front();
  }

  std::vector<std::unique_ptr<RowWriter>> writers;
  RowWriter* writer = nullptr;
  WatchedLoad load{Testing::tinyProfile({{.tread = 16, .rows = 4}, {.tread = 35, .rows = 16}}, 16),
                   [this](xpIpRouteLpmMgr& manager, Family) {
                     writers.push_back(std::make_unique<RowWriter>(manager));
                     // The client writes next hops through the IPv4 one.
                     writer = writers.front().get();
                     return writers.back().get();
                   }};
  SwId group = load.client.ownGroupIs(std::vector<U64>{1, 2, 3});
  SwId other = load.client.ownGroupIs(std::vector<U64>{1, 2, 3});
};

TEST_F(GroupRewrite, waysMayBeOldAndNewUntilAllRowsAreWritten) {
  const HitlessCounts before = counts();
  EXPECT_TRUE(load.changeGroup(group, {4, 5, 6}));
  EXPECT_EQ(counts().wrong, 0U) << load.faults();
  EXPECT_EQ(counts().nextHopWrites, before.nextHopWrites + 3);
  EXPECT_EQ(counts().prefixWrites, before.prefixWrites) << "the routes stay where they are";
  // First and last address of two routes, after the first row and after the second.
  EXPECT_EQ(counts().mixed, 8U);
  EXPECT_EQ(counts().allExcused(), 0U);
}

TEST_F(GroupRewrite, oneOtherWayIsOldOrNewAndNothingBetween) {
  EXPECT_TRUE(load.changeGroup(group, {1, 9, 3}));
  EXPECT_EQ(counts().wrong, 0U) << load.faults();
  EXPECT_EQ(counts().mixed, 0U);
}

TEST_F(GroupRewrite, moreOrFewerWaysAreNeverMixed) {
  EXPECT_TRUE(load.changeGroup(group, {4, 5, 6, 7}));
  EXPECT_TRUE(load.changeGroup(group, {8}));
  EXPECT_EQ(counts().wrong, 0U) << load.faults();
  EXPECT_EQ(counts().mixed, 0U);
}

TEST_F(GroupRewrite, aRefusedChangeLeavesTheRoutesAsTheyAre) {
  EXPECT_FALSE(load.changeGroup(group, WatchedLoad::NextHops(17, 1)));
  EXPECT_TRUE(load.changeGroup(group, {4, 5, 6}));
  EXPECT_EQ(counts().wrong, 0U) << load.faults();
}

TEST_F(GroupRewrite, aWayThatStaysOldIsReportedAtTheEnd) {
  writer->rows = [this](U32 row, const xpNextHopEntry& entry) {
    if (row != 1) {
      writer->write(row, entry);
    }
  };
  load.changeGroup(group, {4, 5, 6});
  EXPECT_EQ(counts().wrong, 4U) << "first and last address of two routes";
  EXPECT_THAT(firstFault(), HasSubstr("the last of the request"));
  EXPECT_THAT(firstFault(), HasSubstr(", in the change of a group to next hops 4 5 6: 10.1.0.0: "
                                      "expected a match of 10.1.0.0/16 to next hops 4 5 6, "));
}

TEST_F(GroupRewrite, aRowThatIsClearedFirstIsReported) {
  writer->rows = [this](U32 row, const xpNextHopEntry& entry) {
    writer->write(row, xpNextHopEntry());
    writer->write(row, entry);
  };
  load.changeGroup(group, {4, 5, 6});
  EXPECT_EQ(counts().wrong, 12U) << "four look-ups at each of three cleared rows";
  EXPECT_THAT(firstFault(), HasSubstr("to next hops 1 2 3 or a match of 10.1.0.0/16 to next hops 4 "
                                      "5 6 or to some of each, "));
}

TEST_F(GroupRewrite, aWayAtAnothersPlaceIsReported) {
  writer->rows = [this](U32 row, const xpNextHopEntry& entry) { writer->write(2 - row, entry); };
  load.changeGroup(group, {4, 5, 6});
  EXPECT_GT(counts().wrong, 0U);
}

TEST_F(GroupRewrite, aNextHopOfNeitherListIsReported) {
  writer->rows = [this](U32 row, xpNextHopEntry entry) {
    writer->write(row, {.valid = 1, .way = entry.way, .nextHopId = 77});
    writer->write(row, entry);
  };
  load.changeGroup(group, {4, 5, 6});
  EXPECT_EQ(counts().wrong, 12U);
}

TEST_F(GroupRewrite, rowsOfAnotherGroupOfTheSameListMustStay) {
  writer->rows = [this](U32 row, const xpNextHopEntry& entry) {
    writer->write(3 + row, entry);
    writer->write(row, entry);
  };
  load.changeGroup(group, {4, 5, 6});
  EXPECT_GT(counts().wrong, 0U);
  EXPECT_THAT(firstFault(),
              HasSubstr(": 10.2.0.0: expected a match of 10.2.0.0/16 to next hops 1 2 "
                        "3, "));
}

TEST_F(GroupRewrite, aRouteThatTheChangeForgetsIsReported) {
  writer->rows = [this](U32 row, const xpNextHopEntry& entry) {
    writer->write(row, entry);
    // As if nobody had led there.
    load.check.followed(keyOf("10.1.0.0/16"), /*toNew=*/false);
  };
  load.changeGroup(group, {4, 5, 6});
  EXPECT_GT(counts().wrong, 0U);
}

TEST(GroupRewriteWithoutRoom, aRouteThatCannotFollowWaitsAndFollowsLater) {
  // Two rows take both NHI entries.
  const Environment twoEntries("NHI_TABLE_SIZE", "2");
  WatchedLoad load(Testing::tinyProfile({{.tread = 16, .rows = 4}, {.tread = 35, .rows = 16}}, 16));
  const SwId group = load.client.ownGroupIs(std::vector<U64>{7, 8});
  EXPECT_TRUE(load.routeTo(keyOf("10.1.0.0/20").prefix, group));
  EXPECT_TRUE(load.route(keyOf("10.64.0.0/20").prefix, {5}));
  EXPECT_TRUE(load.changeGroup(group, {9}));
  EXPECT_EQ(load.client.family(Family::ipv4).refused().size(), 1U);
  load.withdrawNow(keyOf("10.64.0.0/20").prefix);
  EXPECT_EQ(load.client.family(Family::ipv4).refused().size(), 0U);
  EXPECT_TRUE(load.changeGroup(group, {10}));
  EXPECT_EQ(load.check.counts().wrong, 0U) << load.faults();
}

}  // namespace
}  // namespace Quarle::Agent
