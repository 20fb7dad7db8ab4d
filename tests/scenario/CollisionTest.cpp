#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet::Testing;

using Collision = ChipTest;

TEST_F(Collision, occupantMovesToAFreeRowOfTheSameTread) {
  chip.tables(
      {{.id = 0, .tread = 35, .depth = 4, .rows = {{"10.1.0.0/19", 3}, {"10.9.0.0/19", 3}}},
       {.id = 1, .tread = 35, .depth = 4, .rows = {{"10.1.0.0/19", 2}, {"10.9.0.0/19", 0}}}});
  chip.route("10.1.0.0/24", via(7)).route("10.1.1.0/24", via(6)).drain();  // t0[3]=10.1
  chip.route("10.9.0.0/24", via(8));                                       // t0[3]=10.9 t1[2]=10.1
  EXPECT_COMMANDS(chip, R"(
      prefix t1[2] branch=10.1.0.0/23 stride=9 [10.1.0.0/24, 10.1.1.0/24] nhi=0:1
      clear t0[3] branch=10.1.0.0/23 stride=9 [-, -] nhi=0:1
      nhi 0:0 = 8/1
      prefix t0[3] branch=10.9.0.0/24 stride=8 [10.9.0.0/24] nhi=0:0)");

  // More of 10.1 is tried in table 0 first, and frees its row there: a second sub-trie of one net.
  chip.route("10.1.2.0/24", via(5));  // t0[3]=10.1' t1[0]=10.9 t1[2]=10.1
  EXPECT_COMMANDS(chip, R"(
      prefix t1[0] branch=10.9.0.0/24 stride=8 [10.9.0.0/24] nhi=0:0
      clear t0[3] branch=10.9.0.0/24 stride=8 [-] nhi=0:0
      nhi 0:2 = 5/1
      prefix t0[3] branch=10.1.2.0/24 stride=8 [10.1.2.0/24] nhi=0:2)");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "7/1");
  EXPECT_EQ(chip.lookup("10.1.1.1"), "6/1");
  EXPECT_EQ(chip.lookup("10.1.2.1"), "5/1");

  // What has moved is served at its new place.
  chip.withdraw("10.1.0.0/24").drain();
  chip.withdraw("10.1.1.0/24");
  EXPECT_COMMANDS(chip, "clear t1[2] branch=10.1.0.0/23 stride=9 [-] nhi=0:3");
  EXPECT_EQ(chip.lookup("10.9.0.1"), "8/1");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "none");
}

TEST_F(Collision, threeMeetInTwoTablesAndTheThirdGoesToALowerTread) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1},
               {.id = 1, .tread = 35, .depth = 1},
               {.id = 2, .tread = 28, .depth = 1}});
  chip.route("10.1.0.0/24", via(1)).route("10.9.0.0/24", via(2)).drain();  // t0=10.9 t1=10.1
  chip.route("10.17.0.0/24", via(3));                                      // t2=10.17
  EXPECT_COMMANDS(chip, R"(
      nhi 0:2 = 3/1
      prefix t2[0] branch=10.17.0.0/24 stride=8 [10.17.0.0/24] nhi=0:2)");

  // A fourth finds no place: three collisions, nothing moves.
  chip.route("10.64.0.0/24", via(4));
  EXPECT_COMMANDS(chip, "");
  EXPECT_FALSE(chip.installed("10.64.0.0/24"));
  EXPECT_EQ(chip.sm().numHashShufflingSuccess(), 1U);

  // Nobody comes back to it when there is room again, until it is asked for again.
  chip.withdraw("10.1.0.0/24").drain();  // t0=10.9 t1=-
  EXPECT_FALSE(chip.installed("10.64.0.0/24"));
  chip.notify("10.64.0.0/24");  // t0=10.64 t1=10.9
  EXPECT_COMMANDS(chip, R"(
      prefix t1[0] branch=10.9.0.0/24 stride=8 [10.9.0.0/24] nhi=0:1
      clear t0[0] branch=10.9.0.0/24 stride=8 [-] nhi=0:1
      nhi 0:0 = 4/1
      prefix t0[0] branch=10.64.0.0/24 stride=8 [10.64.0.0/24] nhi=0:0)");
}

TEST_F(Collision, twoVrfsOfOneAddressMeetAndPart) {
  chip.tables({{.id = 0, .tread = 35, .depth = 1},
               {.id = 1, .tread = 16, .depth = 4, .rows = {{"0.0.0.0/0", 0}, {"7|0.0.0.0/0", 1}}}});
  chip.route("10.1.0.0/24", via(1)).route("7|10.1.0.0/24", via(2));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  EXPECT_EQ(chip.where("7|10.1.0.0/24"), "t1[1].0");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "1/1");
  EXPECT_EQ(chip.lookup("7|10.1.0.1"), "2/1");
  EXPECT_EQ(chip.lookup("3|10.1.0.1"), "none");
}

}  // namespace
