#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

/// Two prefixes that want the one row there is.
class LpmSmRequest : public ChipTest {
 protected:
  LpmSmRequest() { chip.tables({{.id = 0, .tread = 35, .depth = 1}}).start(); }

  std::string choice(TraceLines& trace) {
    const std::string lines = trace.take();
    return lines.substr(0, lines.find('\n'));
  }
};

TEST_F(LpmSmRequest, theChoiceFollowsFromRequestAndPlacement) {
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.0.0/24", via(7));
  EXPECT_EQ(choice(trace), "3: insert prefix vrf 0 prefix 10.1.0.0/24");
  chip.route("10.1.0.0/24", via(8));
  EXPECT_EQ(choice(trace), "3: update prefix vrf 0 prefix 10.1.0.0/24");
  chip.withdraw("10.1.0.0/24");
  EXPECT_EQ(choice(trace), "3: delete prefix vrf 0 prefix 10.1.0.0/24");
  chip.notify("10.1.0.0/24");
  EXPECT_EQ(choice(trace), "3: ignore prefix vrf 0 prefix 10.1.0.0/24");
}

TEST_F(LpmSmRequest, deletingAPrefixThatNeverGotInstalledIsIgnored) {
  chip.route("10.1.0.0/24", via(7)).drain();  // t0[0]=10.1.0.0/24
  chip.route("10.9.0.0/24", via(8));          // refused: the row is taken
  ASSERT_FALSE(chip.installed("10.9.0.0/24"));
  EXPECT_COMMANDS(chip, "");
  TraceLines trace("TarnletSm", {3});
  chip.withdraw("10.9.0.0/24");
  EXPECT_EQ(trace.take(), "3: ignore prefix vrf 0 prefix 10.9.0.0/24\n");
  EXPECT_COMMANDS(chip, "");
}

TEST_F(LpmSmRequest, theInvalidBlockWithdrawsLikeADelete) {
  chip.route("10.1.0.0/24", via(7)).drain();
  TraceLines trace("TarnletSm", {3});
  chip.config()->requestIs(chip.prefix("10.1.0.0/24"), NextHopBlock());
  EXPECT_EQ(choice(trace), "3: delete prefix vrf 0 prefix 10.1.0.0/24");
  EXPECT_FALSE(chip.installed("10.1.0.0/24"));
  EXPECT_COMMANDS(chip, "clear t0[0] branch=10.1.0.0/24 stride=8 [-] nhi=0:0");
  chip.withdraw("10.1.0.0/24");
  EXPECT_EQ(choice(trace), "3: ignore prefix vrf 0 prefix 10.1.0.0/24");
}

TEST_F(LpmSmRequest, beforeInitialisationARequestIsDropped) {
  chip.sm().initializedIs(false);
  TraceLines trace("TarnletSm", {3});
  chip.route("10.1.0.0/24", via(7));
  EXPECT_EQ(trace.take(), "3: not initialized vrf 0 prefix 10.1.0.0/24\n");
  EXPECT_COMMANDS(chip, "");
  EXPECT_EQ(chip.sm().prefixToSubTries(), 0U);

  // Nothing was remembered: only a new notification serves it.
  chip.sm().initializedIs(true);
  EXPECT_FALSE(chip.installed("10.1.0.0/24"));
  chip.notify("10.1.0.0/24");
  EXPECT_TRUE(chip.installed("10.1.0.0/24"));
}

TEST_F(LpmSmRequest, whatWasRefusedIsAnInsertAgain) {
  chip.route("10.1.0.0/24", via(7)).route("10.9.0.0/24", via(8)).drain();  // the second is refused
  chip.withdraw("10.1.0.0/24").drain();                                    // the row is free
  EXPECT_FALSE(chip.installed("10.9.0.0/24"));  // nobody comes back to it
  TraceLines trace("TarnletSm", {3});
  chip.route("10.9.0.0/24", via(9));
  EXPECT_EQ(choice(trace), "3: insert prefix vrf 0 prefix 10.9.0.0/24");
  EXPECT_EQ(chip.lookup("10.9.0.1"), "9/1");
}

TEST_F(LpmSmRequest, anEqualRequestIsSilent) {
  chip.route("10.1.0.0/24", via(7)).drain();
  chip.route("10.1.0.0/24", via(7));
  EXPECT_COMMANDS(chip, "");
}

TEST_F(LpmSmRequest, aZombieReactorHearsNothing) {
  chip.sm().vellorDoZombieReactors(true);
  chip.route("10.1.0.0/24", via(7));
  EXPECT_FALSE(chip.installed("10.1.0.0/24"));
  chip.sm().vellorDoZombieReactors(false);
  chip.notify("10.1.0.0/24");
  EXPECT_TRUE(chip.installed("10.1.0.0/24"));
}

TEST_F(LpmSmRequest, notificationsCanBeSwitchedOff) {
  chip.sm().hasNotificationActiveIs(false);
  chip.route("10.1.0.0/24", via(7));
  EXPECT_FALSE(chip.installed("10.1.0.0/24"));
  chip.sm().hasNotificationActiveIs(true);
  chip.notify("10.1.0.0/24");
  EXPECT_TRUE(chip.installed("10.1.0.0/24"));
}

TEST_F(LpmSmRequest, droppingTheLastPointerEndsMachineAndReactor) {
  chip.route("10.1.0.0/24", via(7)).drain();
  chip.endMachine();
  chip.config()->requestIs(chip.prefix("10.1.0.0/24"), via(8));
  chip.config()->requestDel(chip.prefix("10.1.0.0/24"));
  EXPECT_EQ(chip.status()->pendingCmds(), 0U);
  // The status holds what was written last.
  EXPECT_EQ(chip.status()->prefixToNextHopBlock(chip.prefix("10.1.0.0/24")), via(7));
}

TEST_F(LpmSmRequest, theAnswerStandsWhenTheWriteReturns) {
  chip.config()->requestIs(chip.prefix("10.1.0.0/24"), via(7));
  EXPECT_EQ(chip.status()->prefixToNextHopBlock(chip.prefix("10.1.0.0/24")), via(7));
  EXPECT_EQ(chip.status()->pendingCmds(), 2U);
}

TEST_F(LpmSmRequest, twoVrfsAreTwoRoutes) {
  ChipStory two({.tables = {{.id = 0,
                             .tread = 35,
                             .depth = 2,
                             .rows = {{"10.1.0.0/24", 0}, {"3|10.1.0.0/24", 1}}}}});
  two.route("10.1.0.0/24", via(7)).route("3|10.1.0.0/24", via(8));
  EXPECT_EQ(two.lookup("10.1.0.1"), "7/1");
  EXPECT_EQ(two.lookup("3|10.1.0.1"), "8/1");
  EXPECT_EQ(two.lookup("4|10.1.0.1"), "none");
  two.finish();
  EXPECT_EQ(two.takeFaults(), "");
}

}  // namespace
