#include "agent/NextHopGroups.h"

#include <map>
#include <string>
#include <vector>

#include "agent/CommandConsumer.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

/// The rows of a next-hop table as they were written.
class RowManager : public xpIpRouteLpmMgr {
 public:
  XP_STATUS writeNextHopEntry(U32 /*device*/, U32 row, xpNextHopEntry* entry) override {
    if (answer == XP_NO_ERR) {
      rows[row] = entry->valid == 0 ? 0 : entry->nextHopId;
    }
    return answer;
  }

  /// "7 8 . 9": the next hop of each row, '.' for a free one.
  std::string text(U32 count) const {
    std::string result;
    for (U32 row = 0; row < count; ++row) {
      const auto place = rows.find(row);
      result += (row == 0 ? "" : " ") + (place == rows.end() || place->second == 0
                                             ? std::string(".")
                                             : std::to_string(place->second));
    }
    return result;
  }

  std::map<U32, U64> rows;
  XP_STATUS answer = XP_NO_ERR;
};

class NextHopGroupsTest : public ::testing::Test {
 protected:
  static constexpr U32 kRows = 8;

  NextHopGroupsTest() { config_->tableSizeIs(kRows); }

  NextHopGroups& groups(GroupLimits limits = {.maxWays = 31, .maxBase = 65535}) {
    if (!groups_) {
      groups_.emplace(config_, limits, &manager, [this](std::span<const GroupMove> moves) {
        for (const GroupMove& move : moves) {
          story += move.from.str().charPtr() + std::string(" to ") + move.to.str().charPtr() + "\n";
          groups_->rowsAreMoved(move);
          story += "  " + manager.text(kRows) + "\n";
          groups_->rowsAreLeft(move);
          story += "  " + manager.text(kRows) + "\n";
        }
      });
    }
    return *groups_;
  }

  SwId hold(const std::vector<U64>& nextHops) { return groups().hold(nextHops); }

  RowManager manager;
  std::string story;

 private:
  TarnletNextHop::Config::Ptr config_ = TarnletNextHop::configFactory("nextHops");
  std::optional<NextHopGroups> groups_;
};

TEST_F(NextHopGroupsTest, aNewGroupsRowsAreWritten) {
  const SwId group = hold({7, 8, 7});
  EXPECT_EQ(groups().block(group), NextHopBlock(0, 3));
  EXPECT_EQ(groups().groupAt(groups().block(group)), group);
  EXPECT_EQ(manager.text(kRows), "7 8 7 . . . . .");
}

TEST_F(NextHopGroupsTest, equalListsAreOneGroupAndOrderCounts) {
  const SwId group = hold({7, 8});
  EXPECT_EQ(hold({7, 8}), group);
  EXPECT_NE(hold({8, 7}), group);
  EXPECT_EQ(groups().statistics().groups, 2U);
}

TEST_F(NextHopGroupsTest, rowsAreClearedWithTheLastHoldAlone) {
  const SwId group = hold({7, 8});
  hold({7, 8});
  groups().hold(group);
  groups().release(group);
  groups().release(group);
  EXPECT_EQ(manager.text(kRows), "7 8 . . . . . .");
  groups().release(group);
  EXPECT_EQ(manager.text(kRows), ". . . . . . . .");
  EXPECT_EQ(groups().statistics().groups, 0U);
  EXPECT_EQ(groups().statistics().rowsUsed, 0U);
}

TEST_F(NextHopGroupsTest, anEndedGroupsListMakesANewGroup) {
  groups().release(hold({7, 8}));
  const SwId other = hold({9});
  const SwId again = hold({7, 8});
  EXPECT_NE(again, other);
  EXPECT_EQ(manager.text(kRows), "9 7 8 . . . . .");
}

TEST_F(NextHopGroupsTest, aGroupWithoutRoomIsRefusedAndLeavesTheTableAlone) {
  hold({1, 2, 3, 4, 5, 6});
  const SwId refused = hold({7, 8, 9});
  EXPECT_EQ(groups().refusal(refused), RefusalReason::nextHopTableFull);
  EXPECT_EQ(groups().block(refused), NextHopBlock());
  EXPECT_EQ(manager.text(kRows), "1 2 3 4 5 6 . .");
  groups().release(refused);
  EXPECT_FALSE(groups().refusal(hold({7, 8})));
  EXPECT_EQ(manager.text(kRows), "1 2 3 4 5 6 7 8");
}

TEST_F(NextHopGroupsTest, aRefusedGroupIsAskedForAnewOnceItEnded) {
  const SwId first = hold({1, 2, 3, 4, 5, 6});
  groups().release(hold({7, 8, 9}));
  groups().release(first);
  EXPECT_FALSE(groups().refusal(hold({7, 8, 9})));
}

TEST_F(NextHopGroupsTest, sizesThatNoPairCanNameAreInvalid) {
  groups({.maxWays = 3, .maxBase = 65535});
  EXPECT_EQ(groups().refusal(hold({})), RefusalReason::invalid);
  EXPECT_EQ(groups().refusal(hold({1, 2, 3, 4})), RefusalReason::invalid);
  EXPECT_FALSE(groups().refusal(hold({1, 2, 3})));
  EXPECT_EQ(groups().statistics().rowsUsed, 3U);
}

TEST_F(NextHopGroupsTest, rowsThatNoPairCanNameAreRefused) {
  groups({.maxWays = 31, .maxBase = 3});
  hold({1, 2});
  EXPECT_FALSE(groups().refusal(hold({3}))) << "row 2";
  EXPECT_FALSE(groups().refusal(hold({4, 5}))) << "rows 3 and 4, named by row 3";
  EXPECT_EQ(groups().refusal(hold({6})), RefusalReason::nextHopTableFull);
  EXPECT_EQ(groups().statistics().rowsUsed, 5U);
}

TEST_F(NextHopGroupsTest, theRunThatReadsAsNoNextHopIsRefused) {
  groups({.maxWays = 3, .maxBase = 3});
  hold({1, 2});
  hold({3});
  EXPECT_EQ(groups().refusal(hold({4, 5, 6})), RefusalReason::nextHopTableFull);
}

TEST_F(NextHopGroupsTest, compactionMovesOneGroupAfterTheOtherBeforeTheNewcomerIsWritten) {
  const SwId a = hold({1, 1});
  const SwId b = hold({2, 2});
  const SwId c = hold({3, 3});
  const SwId d = hold({4, 4});
  groups().release(a);
  groups().release(c);
  EXPECT_EQ(manager.text(kRows), ". . 2 2 . . 4 4");
  const SwId e = hold({5, 5, 5});
  EXPECT_EQ(story,
            "2,2 to 0,2\n"
            "  2 2 2 2 . . 4 4\n"
            "  2 2 . . . . 4 4\n"
            "6,2 to 2,2\n"
            "  2 2 4 4 . . 4 4\n"
            "  2 2 4 4 . . . .\n");
  EXPECT_EQ(manager.text(kRows), "2 2 4 4 5 5 5 .");
  EXPECT_EQ(groups().groupAt(NextHopBlock(0, 2)), b);
  EXPECT_EQ(groups().groupAt(NextHopBlock(2, 2)), d);
  EXPECT_EQ(groups().groupAt(NextHopBlock(4, 3)), e);
  EXPECT_EQ(groups().statistics().shuffles, 2U);
}

TEST_F(NextHopGroupsTest, rowsThatAMovedGroupStillUsesAreNotCleared) {
  const SwId a = hold({1, 1});
  hold({2, 2, 2});
  const SwId c = hold({3});
  hold({4, 4});
  groups().release(a);
  groups().release(c);
  // ". . 2 2 2 . 4 4" slides to "2 2 2 4 4 . . ."
  hold({5, 5, 5});
  EXPECT_EQ(story,
            "2,3 to 0,3\n"
            "  2 2 2 2 2 . 4 4\n"
            "  2 2 2 . . . 4 4\n"
            "6,2 to 3,2\n"
            "  2 2 2 4 4 . 4 4\n"
            "  2 2 2 4 4 . . .\n");
  EXPECT_EQ(manager.text(kRows), "2 2 2 4 4 5 5 5");
}

TEST_F(NextHopGroupsTest, aRefusedRowWriteIsTold) {
  manager.answer = XP_ERR_OUT_OF_RANGE;
  try {
    hold({7});
    FAIL() << "nothing was raised";
  } catch (const ChipWriteError& error) {
    EXPECT_STREQ(error.what(),
                 "next-hop row 0: the SDK answered 3 to the write, expected 0, 9 or 42");
  }
}

}  // namespace
}  // namespace Quarle::Agent
