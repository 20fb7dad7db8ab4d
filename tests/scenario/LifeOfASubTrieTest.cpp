#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;

/// One row of tread 35, 8 pairs to an entry.
class LifeOfASubTrie : public ChipTest {
 protected:
  LifeOfASubTrie() { chip.tables({{.id = 0, .tread = 35, .depth = 1}}); }
};

TEST_F(LifeOfASubTrie, fromTheFirstPrefixToTheLast) {
  chip.route("10.1.0.0/24", via(7));  // the prefix itself is the branch
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0)");

  chip.route("10.1.0.128/25", via(8));  // below it, in reach: in place
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1 8/1
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24, 10.1.0.128/25] nhi=0:1)");

  chip.route("10.1.2.0/24", via(7));  // beside it: the branch shrinks to what both share
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1 8/1 7/1
      prefix t0[0] branch=10.1.0.0/22 stride=10 [10.1.0.0/24, 10.1.0.128/25, 10.1.2.0/24] nhi=0:0)");

  chip.route("10.1.0.128/25", via(9, 4));  // another group: another block, the row points there
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1 9/4 7/1
      prefix t0[0] branch=10.1.0.0/22 stride=10 [10.1.0.0/24, 10.1.0.128/25, 10.1.2.0/24] nhi=0:1)");

  chip.withdraw("10.1.0.0/24");  // slots 1 and 2 are left, 2 is walked first
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1 9/4
      prefix t0[0] branch=10.1.0.0/22 stride=10 [10.1.2.0/24, 10.1.0.128/25] nhi=0:0)");
  EXPECT_EQ(chip.lookup("10.1.0.200"), "9/4");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "none");

  chip.withdraw("10.1.0.128/25");  // branch and stride stay as they are
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 7/1
      prefix t0[0] branch=10.1.0.0/22 stride=10 [10.1.2.0/24] nhi=0:1)");

  chip.withdraw("10.1.2.0/24");
  EXPECT_COMMANDS(chip, "clear t0[0] branch=10.1.0.0/22 stride=10 [-] nhi=0:1");
  EXPECT_EQ(chip.freeEntries(), 64U);
}

TEST_F(LifeOfASubTrie, theLongestOfNestedPrefixesWinsAllAlong) {
  chip.route("10.1.0.0/19", via(1)).route("10.1.0.0/24", via(2)).route("10.1.0.0/28", via(3));
  EXPECT_EQ(chip.lookup("10.1.0.1"), "3/1");
  EXPECT_EQ(chip.lookup("10.1.0.17"), "2/1");
  EXPECT_EQ(chip.lookup("10.1.1.1"), "1/1");
  chip.withdraw("10.1.0.0/24");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "3/1");
  EXPECT_EQ(chip.lookup("10.1.0.17"), "1/1");
  chip.withdraw("10.1.0.0/28");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "1/1");
}

TEST_F(LifeOfASubTrie, aFullRowMakesRoomByTheTighterLayout) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1, .type = prefixTableNarrow128b}});
  // The /20 has stretched branch and stride to 36 and 12: four leaves in 52 bits.
  chip.route("10.1.0.0/24", via(1)).route("10.1.0.0/20", via(2)).withdraw("10.1.0.0/20");
  chip.route("10.1.1.0/24", via(3)).route("10.1.2.0/24", via(4)).route("10.1.3.0/24", via(5));
  chip.drain();
  // A fifth makes them share what they do share, 37 bits, and a stride of 8 is enough.
  chip.route("10.1.4.0/24", via(6));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 1/1 4/1 3/1 5/1 6/1
      prefix t0[0] branch=10.1.0.0/21 stride=8 [10.1.0.0/24, 10.1.2.0/24, 10.1.1.0/24, 10.1.3.0/24, 10.1.4.0/24] nhi=0:0)");
}

TEST_F(LifeOfASubTrie, sixteenMoreBitsOfVrfChangeNothing) {
  chip.ipv6();
  chip.tables({{.id = 0, .tread = 60, .depth = 1}});
  chip.route("7|2001:db8::/48", via(1)).route("7|2001:db8:0:80::/57", via(2));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 1/1
      prefix t0[0] branch=7|2001:db8::/48 stride=8 [7|2001:db8::/48] nhi=0:0
      nhi 0:1 = 1/1 2/1
      prefix t0[0] branch=7|2001:db8::/48 stride=10 [7|2001:db8::/48, 7|2001:db8:0:80::/57] nhi=0:1)");
  EXPECT_EQ(chip.lookup("7|2001:db8:0:ff::1"), "2/1");
  EXPECT_EQ(chip.lookup("7|2001:db8:0:100::1"), "1/1");
}

}  // namespace
