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
    ++writes;
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
  int writes = 0;
};

class NextHopGroupsTest : public ::testing::Test {
 protected:
  static constexpr U32 kRows = 8;

  NextHopGroupsTest() { config_->tableSizeIs(kRows); }

  NextHopGroups& groups(GroupLimits limits = {.maxWays = 31, .maxBase = 65535}) {
    if (!groups_) {
      groups_.emplace(config_, limits, &manager, faults_,
                      NextHopGroups::Owner{.followMoves = [this](auto moves) { follow(moves); },
                                           .canFollow = [this] { return canFollow; }});
    }
    return *groups_;
  }

  std::string fault() {
    try {
      faults_.raiseIfAny();
    } catch (const ChipWriteError& error) {
      return error.what();
    }
    return "none";
  }

  std::vector<U64> listOf(SwId group) {
    const std::span<const U64> nextHops = groups().nextHops(group);
    return {nextHops.begin(), nextHops.end()};
  }

  std::optional<RefusalReason> change(SwId group, const std::vector<U64>& nextHops) {
    return groups().change(group, nextHops);
  }

  SwId hold(const std::vector<U64>& nextHops) { return groups().hold(nextHops); }

  RowManager manager;
  std::string story;
  bool canFollow = true;
  // Of a changed group, how many routes stay behind.
  int staying = 0;
  SwId left;

 private:
  void follow(std::span<const GroupMove> moves) {
    for (const GroupMove& move : moves) {
      story += move.from.str().charPtr() + std::string(" to ") + move.to.str().charPtr() + "\n";
      groups_->rowsAreMoved(move);
      story += "  " + manager.text(kRows) + "\n";
      left = move.left;
      for (int i = 0; i < staying; ++i) {
        groups_->routeIsLeft(move);
      }
      groups_->rowsAreLeft(move);
      story += "  " + manager.text(kRows) + "\n";
    }
  }

  WriteFaults faults_;
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

TEST_F(NextHopGroupsTest, rowsThatNoPairCanNameAreNotHandedOut) {
  groups({.maxWays = 31, .maxBase = 3});
  EXPECT_EQ(groups().statistics().rowCapacity, 4U);
  hold({1, 2});
  EXPECT_EQ(groups().refusal(hold({3, 4, 5})), RefusalReason::nextHopTableFull);
  EXPECT_FALSE(groups().refusal(hold({3, 4}))) << "rows 2 and 3";
}

TEST_F(NextHopGroupsTest, theRowThatReadsAsNoNextHopIsNotHandedOut) {
  groups({.maxWays = 1, .maxBase = 3});
  EXPECT_EQ(groups().statistics().rowCapacity, 3U) << "row 3, one way, is all ones in a pair";
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

TEST_F(NextHopGroupsTest, aCompactionIsNotBegunWhenRoutesCouldNotFollow) {
  const SwId a = hold({1, 1});
  hold({2, 2});
  const SwId c = hold({3, 3});
  hold({4, 4});
  groups().release(a);
  groups().release(c);
  canFollow = false;
  const SwId e = hold({5, 5, 5});
  EXPECT_EQ(groups().refusal(e), RefusalReason::headroom);
  EXPECT_EQ(manager.text(kRows), ". . 2 2 . . 4 4");
  EXPECT_FALSE(groups().refusal(hold({6, 6}))) << "it fits without";
  canFollow = true;
  EXPECT_EQ(groups().tryAgain(e), RefusalReason::nextHopTableFull);
  EXPECT_EQ(manager.text(kRows), "6 6 2 2 . . 4 4");
}

TEST_F(NextHopGroupsTest, aRefusedGroupIsTriedAgainWhenItIsAskedFor) {
  const SwId first = hold({1, 2, 3, 4, 5, 6});
  const SwId refused = hold({7, 8, 9});
  EXPECT_EQ(groups().tryAgain(refused), RefusalReason::nextHopTableFull);
  EXPECT_FALSE(groups().takeRoom());
  groups().release(first);
  EXPECT_TRUE(groups().takeRoom());
  EXPECT_FALSE(groups().takeRoom());
  EXPECT_EQ(hold({7, 8, 9}), refused);
  EXPECT_FALSE(groups().refusal(refused));
  EXPECT_EQ(manager.text(kRows), "7 8 9 . . . . .");
}

TEST_F(NextHopGroupsTest, aListOfAsManyWaysIsRewrittenInPlace) {
  const SwId group = hold({7, 8, 9});
  EXPECT_EQ(change(group, {7, 6, 9}), std::nullopt);
  EXPECT_EQ(manager.text(kRows), "7 6 9 . . . . .");
  EXPECT_EQ(manager.writes, 4) << "the changed row alone is written";
  EXPECT_EQ(groups().block(group), NextHopBlock(0, 3));
  EXPECT_EQ(story, "");
}

TEST_F(NextHopGroupsTest, aListOfOtherWaysGetsNewRowsBeforeTheOldOnesGo) {
  const SwId group = hold({7, 8});
  EXPECT_EQ(change(group, {7, 8, 9}), std::nullopt);
  EXPECT_EQ(story,
            "0,2 to 2,3\n"
            "  7 8 7 8 9 . . .\n"
            "  7 8 7 8 9 . . .\n");
  EXPECT_EQ(manager.text(kRows), ". . 7 8 9 . . .");
  EXPECT_EQ(groups().block(group), NextHopBlock(2, 3));
  EXPECT_EQ(groups().groupAt(NextHopBlock(2, 3)), group);
  EXPECT_EQ(groups().statistics().groups, 1U);
  EXPECT_TRUE(groups().takeRoom());
  EXPECT_EQ(change(group, {5}), std::nullopt);
  EXPECT_EQ(manager.text(kRows), "5 . . . . . . .");
}

TEST_F(NextHopGroupsTest, theOldRowsStayForRoutesThatCouldNotFollow) {
  const SwId group = hold({7, 8});
  groups().hold(group);
  groups().hold(group);
  staying = 2;
  EXPECT_EQ(change(group, {9}), std::nullopt);
  EXPECT_EQ(manager.text(kRows), "7 8 9 . . . . .");
  EXPECT_EQ(groups().groupAt(NextHopBlock(0, 2)), left);
  EXPECT_EQ(listOf(left), (std::vector<U64>{7, 8}));
  EXPECT_NE(hold({7, 8}), left) << "the old list makes a group of its own";
  groups().release(left);
  EXPECT_EQ(manager.text(kRows), "7 8 9 7 8 . . .");
  groups().release(left);
  EXPECT_EQ(manager.text(kRows), ". . 9 7 8 . . .");
  groups().release(group);
  EXPECT_EQ(manager.text(kRows), ". . . 7 8 . . .");
}

TEST_F(NextHopGroupsTest, aRefusedChangeLeavesEverythingAsItWas) {
  const SwId group = hold({7, 8, 9});
  hold({1, 2, 3, 4});
  EXPECT_EQ(change(group, {1, 2}), RefusalReason::nextHopTableFull);
  EXPECT_EQ(change(group, {}), RefusalReason::invalid);
  EXPECT_EQ(change(group, std::vector<U64>(32, 1)), RefusalReason::invalid);
  EXPECT_EQ(manager.text(kRows), "7 8 9 1 2 3 4 .");
  EXPECT_EQ(hold({7, 8, 9}), group);
  EXPECT_EQ(groups().statistics().groups, 2U);
}

TEST_F(NextHopGroupsTest, aChangeMayCompactTheTableFirst) {
  const SwId a = hold({1, 1});
  const SwId b = hold({2, 2});
  const SwId c = hold({3});
  hold({4});
  groups().release(a);
  groups().release(c);
  // ". . 2 2 . 4 . ." has room for three in pieces alone.
  EXPECT_EQ(change(b, {5, 5, 5}), std::nullopt);
  EXPECT_EQ(story,
            "2,2 to 0,2\n"
            "  2 2 2 2 . 4 . .\n"
            "  2 2 . . . 4 . .\n"
            "5,1 to 2,1\n"
            "  2 2 4 . . 4 . .\n"
            "  2 2 4 . . . . .\n"
            "0,2 to 3,3\n"
            "  2 2 4 5 5 5 . .\n"
            "  2 2 4 5 5 5 . .\n");
  EXPECT_EQ(manager.text(kRows), ". . 4 5 5 5 . .");
}

TEST_F(NextHopGroupsTest, aRefusedGroupCanBeGivenAListThatFits) {
  hold({1, 2, 3, 4, 5, 6});
  const SwId refused = hold({7, 8, 9});
  EXPECT_EQ(change(refused, {7, 8}), std::nullopt);
  EXPECT_FALSE(groups().refusal(refused));
  EXPECT_EQ(manager.text(kRows), "1 2 3 4 5 6 7 8");
  groups().release(refused);
  EXPECT_EQ(manager.text(kRows), "1 2 3 4 5 6 . .");
  EXPECT_EQ(groups().statistics().groups, 1U);
}

TEST_F(NextHopGroupsTest, aChangedGroupIsKnownByItsNewListAlone) {
  const SwId group = hold({7, 8});
  change(group, {5, 6});
  EXPECT_EQ(hold({5, 6}), group);
  EXPECT_NE(hold({7, 8}), group);
}

TEST_F(NextHopGroupsTest, twoGroupsThatComeToHaveOneListStayTwo) {
  const SwId older = hold({5, 6});
  const SwId group = hold({7, 8});
  change(group, {5, 6});
  EXPECT_EQ(manager.text(kRows), "5 6 5 6 . . . .");
  EXPECT_EQ(hold({5, 6}), older);
  groups().release(older);
  groups().release(older);
  EXPECT_EQ(manager.text(kRows), ". . 5 6 . . . .");
  EXPECT_EQ(hold({5, 6}), group) << "the list is its alone now";
}

TEST_F(NextHopGroupsTest, aGroupOfItsMakersAloneIsNotFoundByItsList) {
  const std::vector<U64> list{7, 8};
  const SwId own = groups().make(list);
  const SwId shared = hold(list);
  EXPECT_NE(own, shared);
  EXPECT_NE(groups().make(list), own);
  change(own, {5, 6});
  EXPECT_EQ(listOf(shared), list);
  EXPECT_NE(hold({5, 6}), own);
}

TEST_F(NextHopGroupsTest, refusedRowWritesAreNotedAndTheRestIsWritten) {
  manager.answer = XP_ERR_OUT_OF_RANGE;
  const SwId group = hold({7});
  EXPECT_EQ(fault(), "next-hop row 0: the SDK answered 3 to the write, expected 0, 9 or 42");
  manager.answer = XP_NO_ERR;
  EXPECT_EQ(groups().block(group), NextHopBlock(0, 1)) << "the group is whole all the same";
  groups().release(group);
  EXPECT_EQ(fault(), "none");
  EXPECT_EQ(groups().statistics().groups, 0U);
}

}  // namespace
}  // namespace Quarle::Agent
