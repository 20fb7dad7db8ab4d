#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet::Testing;

/// Two entries for everything; 10.k.0.0/19 has row k to itself.
class FullTile : public ChipTest {
 protected:
  FullTile() {
    std::map<std::string, U32> rows;
    for (U32 k = 0; k < 16; ++k) {
      rows["10." + std::to_string(k) + ".0.0/19"] = k;
    }
    chip.tables({{.id = 0, .tread = 35, .depth = 16, .rows = rows}}).tiles(1, 2);
  }
};

TEST_F(FullTile, whatSharesABlockStillFindsRoom) {
  chip.route("10.1.0.0/20", via(1)).route("10.2.0.0/20", via(2)).drain();  // 1 2
  chip.route("10.3.0.0/20", via(3));
  EXPECT_FALSE(chip.installed("10.3.0.0/20"));
  // Even a known content is refused to a newcomer: room for a whole block is asked for first.
  chip.route("10.4.0.0/20", via(1));
  EXPECT_FALSE(chip.installed("10.4.0.0/20"));
  EXPECT_COMMANDS(chip, "");
  // An update to a known content needs none.
  chip.route("10.2.0.0/20", via(1));  // 12 .
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 1/1
      prefix t0[2] branch=10.2.0.0/20 stride=8 [10.2.0.0/20] nhi=0:0)");
  chip.notify("10.4.0.0/20");
  EXPECT_EQ(chip.lookup("10.4.0.1"), "1/1");
  EXPECT_EQ(chip.blocks(), "0:0+1");
}

TEST_F(FullTile, aRefusedUpdateThatIsLeftStandingShowsWithTheNextRewrite) {
  chip.route("10.1.0.0/20", via(1)).route("10.2.0.0/20", via(2)).drain();  // 1 2
  chip.route("10.1.0.0/20", via(9));
  EXPECT_COMMANDS(chip, "");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "1/1");
  chip.withdraw("10.2.0.0/20").drain();  // 1 .
  // Another route of its sub-trie brings the wish along; the status does not know.
  chip.route("10.1.1.0/24", via(3));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 9/1 3/1
      prefix t0[1] branch=10.1.0.0/20 stride=8 [10.1.0.0/20, 10.1.1.0/24] nhi=0:1)");
  EXPECT_EQ(chip.lookup("10.1.0.1"), "9/1");
  EXPECT_EQ(chip.status()->prefixToNextHopBlock(chip.prefix("10.1.0.0/20")), via(1));
}

TEST_F(FullTile, takingARefusedUpdateBackAtOnceLeavesNothingStanding) {
  chip.route("10.1.0.0/20", via(1)).route("10.2.0.0/20", via(2));
  chip.route("10.1.0.0/20", via(9)).route("10.1.0.0/20", via(1)).drain();
  chip.withdraw("10.2.0.0/20").route("10.1.1.0/24", via(3));
  EXPECT_EQ(chip.lookup("10.1.0.1"), "1/1");
  EXPECT_EQ(chip.lookup("10.1.1.1"), "3/1");
}

TEST_F(FullTile, theEntryOfAWithdrawnRouteServesTheNext) {
  chip.route("10.1.0.0/20", via(1)).route("10.2.0.0/20", via(2)).route("10.3.0.0/20", via(3));
  chip.withdraw("10.1.0.0/20").drain();  // . 2
  chip.route("10.3.0.0/20", via(4));     // 3 2
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 4/1
      prefix t0[3] branch=10.3.0.0/20 stride=8 [10.3.0.0/20] nhi=0:0)");
}

}  // namespace
