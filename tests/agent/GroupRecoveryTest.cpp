// Groups that come back from their list, on a table without routes: who leads where is told by the
// test.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/NextHopGroups.h"
#include "agent/source/Random.h"
#include "tests/agent/LastingChip.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::TestFolder;

constexpr U32 kRows = 96;

/// The rows of a next-hop table.
class Rows : public xpIpRouteLpmMgr {
 public:
  XP_STATUS readNextHopEntry(U32, U32 row, xpNextHopEntry* entry) override {
    *entry = rows[row];
    return XP_NO_ERR;
  }

  XP_STATUS writeNextHopEntry(U32, U32 row, xpNextHopEntry* entry) override {
    rows[row] = *entry;
    ++writes;
    return XP_NO_ERR;
  }

  std::array<xpNextHopEntry, kRows> rows;
  U64 writes = 0;
};

/// Groups over a table, with one route to each that the test holds.
class Table {
 public:
  explicit Table(Rows& rows) : rows_(rows) {
    const auto config = TarnletNextHop::configFactory("nextHops");
    config->tableSizeIs(kRows);
    groups.emplace(config, GroupLimits{.maxWays = 31, .maxBase = 65535}, &rows_, faults_,
                   NextHopGroups::Owner{.followMoves = [this](auto moves) { follow(moves); },
                                        .canFollow = [] { return true; }});
  }

  GroupRecovery recover(const std::filesystem::path& list, const std::vector<SwId>& led) {
    std::vector<AdoptedBlock> adopted;
    const GroupList::Contents contents = GroupList::read(list, "chip");
    EXPECT_EQ(contents.fault, "");
    std::map<U64, NextHopBlock> blocks;
    for (const GroupRecord& record : contents.groups) {
      blocks[record.group.value()] = record.block;
    }
    for (const SwId group : led) {
      adopted.push_back({.block = blocks.at(group.value()), .routes = 1});
    }
    const GroupRecovery recovery = groups->recover(contents.groups, adopted);
    keepIn(list);
    return recovery;
  }

  void keepIn(const std::filesystem::path& list) {
    groups->listIs(std::make_unique<GroupList>(list, "chip", faults_));
  }

  std::optional<NextHopGroups> groups;
  U64 moves = 0;

 private:
  void follow(std::span<const GroupMove> moved) {
    for (const GroupMove& move : moved) {
      groups->rowsAreMoved(move);
      groups->rowsAreLeft(move);
      ++moves;
    }
  }

  Rows& rows_;
  WriteFaults faults_;
};

std::vector<U64> randomList(Random& random) {
  return std::vector<U64>(1 + random.below(9), random.below(30));
}

TEST(GroupRecovery, everyGroupHasItsOldRowsAndTheNextOnesTheSameAsWithoutARestart) {
  Random random(Tarnlet::Testing::testSeed());
  U64 moves = 0;
  for (int history = 0; history < 60; ++history) {
    TestFolder folder;
    const auto list = folder / "groups";
    Rows rows;
    auto table = std::make_unique<Table>(rows);
    table->keepIn(list);
    std::vector<SwId> held;
    for (int round = 0; round < 6; ++round) {
      for (int step = 0; step < 60; ++step) {
        const U32 which = held.empty() ? 0 : random.below(static_cast<U32>(held.size()));
        if (held.empty() || random.chance(450)) {
          held.push_back(random.chance(200) ? table->groups->make(randomList(random))
                                            : table->groups->hold(randomList(random)));
          if (table->groups->refusal(held.back())) {
            table->groups->release(held.back());
            held.pop_back();
          }
        } else if (random.chance(300)) {
          (void)table->groups->change(held[which], randomList(random));
        } else {
          table->groups->release(held[which]);
          held.erase(held.begin() + which);
        }
      }
      // As many routes as holds, so that each group is held as often as before.
      Rows copy;
      copy.rows = rows.rows;
      auto next = std::make_unique<Table>(copy);
      const GroupRecovery recovery = next->recover(list, held);
      ASSERT_EQ(recovery.strangers, 0U);
      ASSERT_EQ(recovery.dropped, 0U);
      ASSERT_EQ(copy.writes, 0U) << "everything stood there already";
      ASSERT_EQ(next->groups->statistics().groups, table->groups->statistics().groups);
      ASSERT_EQ(next->groups->statistics().rowsUsed, table->groups->statistics().rowsUsed);
      next->groups->adoptedAreReleased();
      for (const SwId group : held) {
        ASSERT_EQ(next->groups->block(group), table->groups->block(group))
            << "group " << group.value() << " in round " << round;
        ASSERT_EQ(next->groups->kind(group), table->groups->kind(group));
      }
      // The same request finds the same rows, in a gap or behind a compaction.
      const std::vector<U64> probe(1 + random.below(12), 1000 + round);
      const SwId probed = table->groups->hold(probe);
      const SwId probedNext = next->groups->hold(probe);
      ASSERT_EQ(next->groups->block(probedNext), table->groups->block(probed));
      ASSERT_EQ(next->groups->refusal(probedNext), table->groups->refusal(probed));
      for (const SwId group : held) {
        ASSERT_EQ(next->groups->block(group), table->groups->block(group)) << "behind the probe";
      }
      moves += table->moves;
      if (next->groups->refusal(probedNext)) {
        next->groups->release(probedNext);
      } else {
        held.push_back(probedNext);
      }
      rows.rows = copy.rows;
      table = std::make_unique<Table>(rows);
      next.reset();
      table->recover(list, held);
      table->groups->adoptedAreReleased();
    }
  }
  EXPECT_GT(moves, 100U) << "the tables were never compacted";
}

/// What is taken over from these records with these blocks led to.
class Recovered : public ::testing::Test {
 protected:
  void put(U64 number, U32 base, const std::vector<U64>& nextHops, NextHopBlock from = {}) {
    records_.push_back({.group = SwId(number),
                        .kind = GroupKind::shared,
                        .block = NextHopBlock(base, static_cast<U16>(nextHops.size())),
                        .nextHops = nextHops,
                        .former = {},
                        .from = from});
  }

  /// Fills rows from `first` on, 0 for an empty one. A group's rows count their ways from 0.
  void rowsAre(U32 first, const std::vector<U64>& nextHops) {
    for (U32 way = 0; way < nextHops.size(); ++way) {
      if (nextHops[way] != 0) {
        rows.rows[first + way] = {.valid = 1, .way = way, .nextHopId = nextHops[way]};
      }
    }
  }

  GroupRecovery recover(const std::vector<AdoptedBlock>& adopted) {
    return table.groups->recover(records_, adopted);
  }

  std::string text(U32 count) const {
    std::string result;
    for (U32 row = 0; row < count; ++row) {
      result += (row == 0 ? "" : " ") +
                (rows.rows[row].valid == 0 ? "." : std::to_string(rows.rows[row].nextHopId));
    }
    return result;
  }

  Rows rows;
  Table table{rows};
  std::vector<GroupRecord> records_;
};

TEST_F(Recovered, strangersMayOverlapAndTheirRowsComeFreeOneByOne) {
  rowsAre(10, {1, 2, 3, 4, 5, 6});
  const GroupRecovery recovery = recover({{.block = NextHopBlock(10, 4), .routes = 2},
                                          {.block = NextHopBlock(12, 4), .routes = 1},
                                          {.block = NextHopBlock(12, 2), .routes = 1}});
  EXPECT_EQ(recovery.strangers, 3U);
  EXPECT_EQ(recovery.strangerRoutes, 4U);
  NextHopGroups& groups = *table.groups;
  EXPECT_EQ(groups.statistics().rowsUsed, 6U);
  const SwId low = groups.groupAt(NextHopBlock(10, 4));
  const SwId high = groups.groupAt(NextHopBlock(12, 4));
  const SwId middle = groups.groupAt(NextHopBlock(12, 2));
  EXPECT_NE(high, middle) << "two that begin at one row";
  groups.release(high);
  EXPECT_EQ(text(16).substr(20), "1 2 3 4 . .");
  EXPECT_EQ(groups.statistics().rowsUsed, 4U);
  groups.release(low);
  EXPECT_EQ(text(16).substr(20), "1 2 3 4 . .") << "held for each of its two routes";
  groups.release(low);
  EXPECT_EQ(text(16).substr(20), ". . 3 4 . .");
  groups.release(middle);
  EXPECT_EQ(text(16).substr(20), ". . . . . .");
  EXPECT_EQ(groups.statistics().rowsUsed, 0U);
  EXPECT_EQ(groups.statistics().strangers, 0U);
}

TEST_F(Recovered, aStrangerBehindTheTableHoldsNoRow) {
  recover({{.block = NextHopBlock(kRows - 1, 4), .routes = 1},
           {.block = NextHopBlock(kRows + 7, 1), .routes = 1},
           {.block = NextHopBlock(3, 0), .routes = 1}});
  EXPECT_EQ(table.groups->statistics().rowsUsed, 1U);
  for (const NextHopBlock& block :
       {NextHopBlock(kRows - 1, 4), NextHopBlock(kRows + 7, 1), NextHopBlock(3, 0)}) {
    table.groups->release(table.groups->groupAt(block));
  }
  EXPECT_EQ(table.groups->statistics().rowsUsed, 0U);
  EXPECT_EQ(table.groups->statistics().strangers, 0U);
}

TEST_F(Recovered, aGroupWhoseRowsHoldSomethingElseIsAStranger) {
  put(0, 4, {1, 2});
  put(1, 8, {3, 4});
  rowsAre(4, {1, 9});
  rowsAre(8, {3, 4});
  const GroupRecovery recovery = recover(
      {{.block = NextHopBlock(4, 2), .routes = 1}, {.block = NextHopBlock(8, 2), .routes = 1}});
  EXPECT_EQ(recovery.known, 1U);
  EXPECT_EQ(recovery.dropped, 1U);
  EXPECT_EQ(recovery.strangers, 1U);
  EXPECT_EQ(text(12), ". . . . 1 9 . . 3 4 . .") << "what routes lead to is not touched";
  EXPECT_NE(table.groups->hold(std::vector<U64>{1, 2}), SwId(0));
  EXPECT_EQ(table.groups->hold(std::vector<U64>{3, 4}), SwId(1));
}

TEST_F(Recovered, aChangeHalfWrittenIsWrittenOut) {
  put(0, 4, {7, 8, 9});
  records_[0].former = {1, 2, 3};
  rowsAre(4, {7, 2, 3});
  const GroupRecovery recovery = recover({{.block = NextHopBlock(4, 3), .routes = 1}});
  EXPECT_EQ(recovery.known, 1U);
  EXPECT_EQ(recovery.rowsRewritten, 2U);
  EXPECT_EQ(text(8), ". . . . 7 8 9 .");
}

TEST_F(Recovered, aGroupThatSlidHalfWayArrives) {
  put(0, 3, {7, 8, 9}, /*from=*/NextHopBlock(4, 3));
  rowsAre(4, {7, 8, 9});
  rows.rows[3] = {.valid = 1, .way = 0, .nextHopId = 7};
  rows.rows[4] = {.valid = 1, .way = 1, .nextHopId = 8};  // 7 8 8 9
  const GroupRecovery recovery = recover({{.block = NextHopBlock(4, 3), .routes = 5}});
  EXPECT_EQ(recovery.known, 1U);
  EXPECT_EQ(recovery.strangers, 0U);
  EXPECT_EQ(recovery.movesFinished, 1U);
  EXPECT_EQ(text(8), ". . . 7 8 9 . .");
  EXPECT_EQ(table.groups->block(SwId(0)), NextHopBlock(3, 3));
  EXPECT_EQ(table.groups->statistics().strangers, 0U);
  EXPECT_EQ(table.groups->statistics().rowsUsed, 3U);
}

TEST_F(Recovered, aGroupBehindTheTablesEndIsGone) {
  put(0, kRows - 1, {1, 2});
  put(1, 0, std::vector<U64>(32, 5));
  const GroupRecovery recovery = recover({});
  EXPECT_EQ(recovery.known, 0U);
  EXPECT_EQ(recovery.dropped, 2U);
}

TEST_F(Recovered, aGroupWithoutRoutesMakesWayForAStranger) {
  put(0, 4, {1, 2});
  rowsAre(4, {1, 2});
  const GroupRecovery recovery = recover({{.block = NextHopBlock(5, 2), .routes = 1}});
  EXPECT_EQ(recovery.known, 0U);
  EXPECT_EQ(text(8), ". . . . . 2 . .");
}

TEST_F(Recovered, ofTwoGroupsWithOneListTheOlderIsTheOneItIsKnownBy) {
  put(3, 0, {1});
  put(8, 1, {1});
  rowsAre(0, {1});
  rowsAre(1, {1});
  recover({{.block = NextHopBlock(1, 1), .routes = 1}});
  EXPECT_EQ(table.groups->hold(std::vector<U64>{1}), SwId(3));
  EXPECT_EQ(table.groups->hold(std::vector<U64>{2}), SwId(0)) << "numbers between come first";
}

}  // namespace
}  // namespace Quarle::Agent
