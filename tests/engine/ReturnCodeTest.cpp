#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;

/// The steps of a placement called one by one. The routes are wanted before, so that a step that
/// passes finds its block, and the machine does not hear of it.
class RouteReturnCodes : public ChipTest {
 protected:
  LpmPrefix::Ptr wanted(const std::string& text, NextHopBlock block = via(9)) {
    chip.wantSilently(text, block);
    return chip.prefix(text);
  }

  SubTrie::Ptr inRow(U8 table, U32 row) { return chip.table(table)->subTrie(row); }

  /// What a refusal must leave as it was.
  std::string picture() {
    return chip.hardware().text() + chip.blocks() + "\n" + chip.commands() +
           std::to_string(chip.sm().prefixToSubTries()) + " placed";
  }
};

TEST_F(RouteReturnCodes, passWhenThePrefixJoinsTheSubTrie) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/20", via(7)).drain();
  EXPECT_EQ(chip.sm().insertPrefixToSubTrie(wanted("10.1.1.0/24"), inRow(0, 0)),
            RouteReturnCode::pass);
  chip.settle();
  EXPECT_EQ(chip.lookup("10.1.1.1"), "9/1");
}

TEST_F(RouteReturnCodes, passWhenTheSubTrieMoves) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  EXPECT_EQ(chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::pass);
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t1[0].0");
}

TEST_F(RouteReturnCodes, failWhenThereIsNoPlaceToMoveTo) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  const std::string before = picture();
  EXPECT_EQ(chip.sm().moveSubTrie(chip.prefix("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::fail);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, retryWhenTheCollidingSubTrieHasGone) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  EXPECT_EQ(chip.sm().insertPrefixInternal(wanted("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::retry);
  EXPECT_EQ(inRow(0, 0), nullptr);
  EXPECT_EQ(chip.sm().insertPrefixInternal(wanted("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::pass);
  chip.settle();
}

TEST_F(RouteReturnCodes, subTrieNotPresentWhenTheRowIsFree) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  const std::string before = picture();
  EXPECT_EQ(chip.sm().insertPrefixToTable(wanted("10.1.0.0/24"), chip.table(0)),
            RouteReturnCode::subTrieNotPresent);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, subTriePresentWhenTheRowIsTaken) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  const std::string before = picture();
  EXPECT_EQ(chip.sm().createSubTrieWithPrefix(wanted("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::subTriePresent);
  // Its own sub-trie is no better.
  EXPECT_EQ(chip.sm().createSubTrieWithPrefix(wanted("10.1.1.0/24"), chip.table(0)),
            RouteReturnCode::subTriePresent);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, nhiTableFullWhenNoTileHasTheEntries) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).tiles(1, 1);
  chip.route("10.1.0.0/20", via(7)).drain();
  const std::string before = picture();
  EXPECT_EQ(chip.sm().insertPrefixToSubTrie(wanted("10.1.1.0/24"), inRow(0, 0)),
            RouteReturnCode::nhiTableFull);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, nhiCapacityExceededWhenOneEntryIsNotEnough) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).pairsPerEntry(2).oneEntryPerSubTrie();
  chip.route("10.1.0.0/20", via(7)).route("10.1.1.0/24", via(8)).drain();
  const std::string before = picture();
  EXPECT_EQ(chip.sm().insertPrefixToSubTrie(wanted("10.1.2.0/24"), inRow(0, 0)),
            RouteReturnCode::nhiCapacityExceeded);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, fullWhenTheEntryHasNoRoom) {
  // A narrow entry: 88 - 36 bits take six leaves of 8.
  chip.tables({{.id = 0, .tread = 35, .depth = 1, .type = prefixTableNarrow128b}});
  chip.route("10.1.0.0/20", via(1));
  for (U32 i = 1; i < 6; ++i) {
    chip.route("10.1." + std::to_string(i) + ".0/24", via(i));
  }
  chip.drain();
  const std::string before = picture();
  EXPECT_EQ(chip.sm().insertPrefixToSubTrie(wanted("10.1.6.0/24"), inRow(0, 0)),
            RouteReturnCode::full);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, hashCollisionWhenTheFirstBitsDiffer) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  const std::string before = picture();
  EXPECT_EQ(chip.sm().insertPrefixToSubTrie(wanted("10.9.0.0/24"), inRow(0, 0)),
            RouteReturnCode::hashCollision);
  EXPECT_EQ(picture(), before);
}

TEST_F(RouteReturnCodes, aCollisionStaysOneWhenTheMoveFails) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}});
  chip.route("10.1.0.0/24", via(7)).drain();
  EXPECT_EQ(chip.sm().insertPrefixInternal(wanted("10.9.0.0/24"), chip.table(0)),
            RouteReturnCode::hashCollision);
}

TEST_F(RouteReturnCodes, whatAStandingSubTrieRefusesReadsSubTriePresent) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).pairsPerEntry(2).oneEntryPerSubTrie();
  chip.route("10.1.0.0/20", via(7)).route("10.1.1.0/24", via(8)).drain();
  EXPECT_EQ(chip.sm().insertPrefixInternal(wanted("10.1.2.0/24"), chip.table(0)),
            RouteReturnCode::subTriePresent);
}

TEST_F(RouteReturnCodes, whatANewSubTrieRefusesIsSeenAndTheRowIsFreeAgain) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1}}).tiles(1, 0);
  EXPECT_EQ(chip.sm().createSubTrieWithPrefix(wanted("10.1.0.0/24"), chip.table(0)),
            RouteReturnCode::nhiTableFull);
  EXPECT_EQ(inRow(0, 0), nullptr);
  EXPECT_EQ(chip.sm().insertPrefixInternal(wanted("10.1.0.0/24"), chip.table(0)),
            RouteReturnCode::nhiTableFull);
  EXPECT_EQ(inRow(0, 0), nullptr);
  EXPECT_COMMANDS(chip, "");
}

TEST_F(RouteReturnCodes, theyAreNumberedInThisOrder) {
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::pass), 0U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::fail), 1U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::retry), 2U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::subTrieNotPresent), 3U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::subTriePresent), 4U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::nhiTableFull), 5U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::nhiCapacityExceeded), 6U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::full), 7U);
  EXPECT_EQ(static_cast<U32>(RouteReturnCode::hashCollision), 8U);
}

}  // namespace
