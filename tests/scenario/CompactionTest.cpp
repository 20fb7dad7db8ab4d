#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet::Testing;

/// One tile, two pairs to an entry: a third prefix asks for a second entry. 10.k.0.0/20 has row k
/// to itself and goes via k.
class Compaction : public ChipTest {
 protected:
  Compaction() {
    std::map<std::string, U32> rows;
    for (U32 k = 0; k < 16; ++k) {
      rows["10." + std::to_string(k) + ".0.0/19"] = k;
    }
    chip.tables({{.id = 0, .tread = 35, .depth = 16, .rows = rows}}).pairsPerEntry(2);
  }

  void one(U32 k) { chip.route("10." + std::to_string(k) + ".0.0/20", via(k)); }

  void without(U32 k) { chip.withdraw("10." + std::to_string(k) + ".0.0/20"); }
};

TEST_F(Compaction, theGrownSubTriesOwnOldBlockMovesTooAndWhatItSpillsIsHealed) {
  chip.tiles(1, 5);
  one(1);                              // 1 . . . .
  one(6);                              // 1 6 . . .
  chip.route("10.6.1.0/24", via(16));  // 1 . 6 . .
  one(3);                              // 1 3 6 . .
  one(4);
  one(5);  // 1 3 6 4 5
  without(1);
  without(4);  // . 3 6 . 5
  chip.drain();
  EXPECT_EQ(chip.blocks(), "0:1+1 0:2+1 0:4+1");

  // The third prefix needs two entries. While they are made free, sub-trie 6 is written at its
  // moved old block in its new size, one entry too many, which the block behind then takes over.
  chip.route("10.6.2.0/24", via(26));  // 3 (6) 5 6 6
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 3/1
      prefix t0[3] branch=10.3.0.0/20 stride=8 [10.3.0.0/20] nhi=0:0
      nhi 0:1 = 6/1 16/1
      nhi 0:2 = 26/1
      prefix t0[6] branch=10.6.0.0/20 stride=8 [10.6.0.0/20, 10.6.1.0/24, 10.6.2.0/24] nhi=0:1
      nhi 0:2 = 5/1
      prefix t0[5] branch=10.5.0.0/20 stride=8 [10.5.0.0/20] nhi=0:2
      nhi 0:3 = 6/1 16/1
      nhi 0:4 = 26/1
      prefix t0[6] branch=10.6.0.0/20 stride=8 [10.6.0.0/20, 10.6.1.0/24, 10.6.2.0/24] nhi=0:3)");
  EXPECT_EQ(chip.sm().numNhiBlockDefrag(), 3U);
  EXPECT_EQ(chip.blocks(), "0:0+1 0:2+1 0:3+2");
  EXPECT_EQ(chip.lookup("10.6.2.1"), "26/1");
  EXPECT_EQ(chip.lookup("10.5.0.1"), "5/1");
}

TEST_F(Compaction, aSharedBlockEndsWithWhatItsOtherUsersExpect) {
  chip.tiles(1, 5);
  one(1);                             // 1
  one(6);                             // 1 6
  chip.route("10.6.1.0/24", via(6));  // 1 . 6
  chip.route("10.7.0.0/20", via(6));  // 1 7 6
  chip.route("10.7.1.0/24", via(6));  // 1 . 67, shared
  one(3);                             // 1 3 67
  one(4);
  one(5);  // 1 3 67 4 5
  without(1);
  without(4);  // . 3 67 . 5
  chip.drain();
  EXPECT_EQ(chip.subTrie("10.7.0.0/20")->nhiBaseIdx(), chip.subTrie("10.6.0.0/20")->nhiBaseIdx());

  // Sub-trie 6 grows while the block moves: it is written first, in its new state, and sub-trie 7
  // after it, so that the block stays with what 7 has in it.
  chip.route("10.6.2.0/24", via(26));  // 3 7 5 6 6
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 3/1
      prefix t0[3] branch=10.3.0.0/20 stride=8 [10.3.0.0/20] nhi=0:0
      nhi 0:1 = 6/1 6/1
      nhi 0:2 = 26/1
      prefix t0[6] branch=10.6.0.0/20 stride=8 [10.6.0.0/20, 10.6.1.0/24, 10.6.2.0/24] nhi=0:1
      nhi 0:1 = 6/1 6/1
      prefix t0[7] branch=10.7.0.0/20 stride=8 [10.7.0.0/20, 10.7.1.0/24] nhi=0:1
      nhi 0:2 = 5/1
      prefix t0[5] branch=10.5.0.0/20 stride=8 [10.5.0.0/20] nhi=0:2
      nhi 0:3 = 6/1 6/1
      nhi 0:4 = 26/1
      prefix t0[6] branch=10.6.0.0/20 stride=8 [10.6.0.0/20, 10.6.1.0/24, 10.6.2.0/24] nhi=0:3)");
  EXPECT_EQ(chip.blocks(), "0:0+1 0:1+1 0:2+1 0:3+2");
}

TEST_F(Compaction, anUpdateInASharedBlockLeavesTheOthersTheirContent) {
  // Three slots each: blocks of two entries.
  chip.tiles(1, 8);
  one(1);
  for (const char* net : {"10.6.", "10.7."}) {
    chip.route(std::string(net) + "0.0/20", via(6));
    chip.route(std::string(net) + "1.0/24", via(7));
    chip.route(std::string(net) + "2.0/24", via(8));
  }
  one(2);
  one(3);
  one(4);
  one(5);
  const std::string shared = textOf(chip.subTrie("10.6.0.0/20")->nhiBaseIdx());
  EXPECT_EQ(textOf(chip.subTrie("10.7.0.0/20")->nhiBaseIdx()), shared);
  without(1);
  without(3);
  without(4);
  chip.drain();
  const U64 before = chip.sm().numNhiBlockDefrag();
  chip.route("10.6.1.0/24", via(9));
  EXPECT_EQ(chip.lookup("10.6.1.1"), "9/1");
  EXPECT_EQ(chip.lookup("10.7.1.1"), "7/1");
  EXPECT_EQ(chip.lookup("10.7.2.1"), "8/1");
  EXPECT_GT(chip.sm().numNhiBlockDefrag(), before) << chip.blocks();
}

TEST_F(Compaction, aTileWithoutHolesBetweenBlocksIsLeftAlone) {
  chip.tiles(1, 4);
  one(1);
  one(6);
  chip.route("10.6.1.0/24", via(16)).drain();  // 1 . 6 .
  without(1);                                  // . . 6 .
  chip.drain();
  chip.route("10.6.2.0/24", via(26));  // 6 6 (6) .
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 6/1 16/1
      nhi 0:1 = 26/1
      prefix t0[6] branch=10.6.0.0/20 stride=8 [10.6.0.0/20, 10.6.1.0/24, 10.6.2.0/24] nhi=0:0)");
  EXPECT_EQ(chip.sm().numNhiBlockDefrag(), 0U);
}

}  // namespace
