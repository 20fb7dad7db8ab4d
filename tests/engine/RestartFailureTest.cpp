#include <random>

#include "tests/engine/RestartFixture.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;

using RestartWalkDeathTest = RestartWalk;

/// What the walk made of one row.
struct Verdicts {
  U32 adopted = 0;
  U32 refused = 0;
  U32 raised = 0;
};

TEST_F(RestartWalk, aDamagedRowIsAdoptedOrRefusedOrRaises) {
  std::mt19937_64 random(testSeed());
  Verdicts verdicts;
  for (int round = 0; round < 4000; ++round) {
    xpLpmPrefixEntry& entry = soundRow();
    const U64 flips = 1 + random() % 4;
    for (U64 flip = 0; flip < flips; ++flip) {
      // Half of them in the header and the branch, which decide most.
      const U64 bytes = random() % 2 == 0 ? 52 : sizeof entry;
      const U64 bit = random() % (bytes * 8);
      reinterpret_cast<U8*>(&entry)[bit / 8] ^= static_cast<U8>(1U << bit % 8);
    }
    config = nullptr;
    try {
      walk();
      ++(sm->prefixToSubTries() == 0 ? verdicts.refused : verdicts.adopted);
    } catch (const Vellor::RangeException&) {
      ++verdicts.raised;
      EXPECT_EQ(config->requests(), 0U);
    }
  }
  EXPECT_GT(verdicts.adopted, 0U);
  EXPECT_GT(verdicts.refused, 0U);
  EXPECT_GT(verdicts.raised, 0U);
}

TEST_F(RestartWalkDeathTest, anyOtherAnswerToAReadOfARowIsFatal) {
  soundRow();
  for (const XP_STATUS code : {1, 9, 42}) {
    chip.readPrefixStatus = code;
    EXPECT_DEATH(walk(), assertion("ret == XP_NO_ERR")) << code;
  }
}

TEST_F(RestartWalkDeathTest, anyOtherAnswerToAClearedRowIsFatal) {
  badRow();
  for (const XP_STATUS code : {11, 4}) {
    chip.writeStatus = code;
    EXPECT_DEATH(walk(/*removeStale=*/true),
                 AllOf(ContainsRegex("^TarnletSm:[0-9]+ \\(\\(xdkLpmMgr"),
                       HasSubstr(" ((xdkLpmMgr()->writePrefixEntry( 0, tableId.value(), offset, "
                                 "&xpPrefixEntry ))) API ERROR " +
                                 std::to_string(code) + "\n"),
                       assertion("!(true)")));
  }
}

TEST_F(RestartWalkDeathTest, anyOtherAnswerToAReadOfPairsIsFatal) {
  soundRow();
  chip.readNhiStatus = 11;
  EXPECT_DEATH(walk(),
               AllOf(ContainsRegex("^TarnletSm:[0-9]+ \\(\\(xdkLpmMgr"),
                     HasSubstr(" ((xdkLpmMgr()->readNhiEntry( 0, nhiBaseIdx.tile().value(), "
                               "nhiBaseIdx.offset() + i, &xpNhiEntry, 0 ))) API ERROR 11\n"),
                     assertion("!(true)")));
}

TEST_F(RestartWalkDeathTest, inTheTestModeARefusedRowIsFatalBeforeItIsCleared) {
  mode = modeRestartTest;
  badRow();
  chip.writeStatus = 4;
  EXPECT_DEATH(walk(/*removeStale=*/true), assertion("Recovering prefix entry failed"));
}

TEST_F(RestartWalkDeathTest, twoBasesOfOneContentAreFatal) {
  soundRow();
  nhi(0, 9, {{7, 1}, {8, 2}});
  twinRow().nhiOffset = 9;
  EXPECT_DEATH(walk(), HasSubstr("Failed(nhiBaseIdx == nhiInfo->nhiBaseIdx())  subtrie "));
}

TEST_F(RestartWalkDeathTest, aLaterChangeAfterTheCliModeIsFatal) {
  mode = modeRestartCli;
  soundRow();
  walk();
  sm->hasNotificationActiveIs(true);
  sm->initializedIs(true);
  EXPECT_DEATH(config->requestIs(prefix("10.1.0.0/24"), NextHopBlock(5, 1)),
               HasSubstr("Failed(sharedNhiIterator().isMemberOf( nhiInfoKey ))  subtrie "));
}

TEST_F(RestartWalkDeathTest, morePairsThanARecordHasAreFatal) {
  shape.pairsPerEntry = 12;
  RowStory story{.branch = "10.1.0.0/19", .stride = 14, .leaves = {}, .offset = 4};
  story.leaves.resize(11);
  story.leaves[10] = "10.1.0.0/24";
  row(0, 3, story);
  EXPECT_DEATH(walk(), assertion("pair < xpLpmNhiEntry::kPairs"));
}

}  // namespace
