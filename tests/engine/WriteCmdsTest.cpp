#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

class WriteCommands : public ChipTest {
 protected:
  WriteCommands() { chip.tables({{.id = 2, .tread = 35, .depth = 1}}); }

  /// 10.1.0.0/20 and so many /24 below it, each via its number, in the slots of their order.
  void routes(U32 count) {
    chip.route("10.1.0.0/20", via(0));
    for (U32 i = 1; i < count; ++i) {
      chip.route("10.1." + std::to_string(i) + ".0/24", via(i));
    }
    chip.drain();
  }
};

using WriteCommandsDeathTest = WriteCommands;

TEST_F(WriteCommands, aBlockHasAsManyEntriesAsItsPairsNeed) {
  const LpmSm& sm = chip.sm();
  EXPECT_EQ(sm.nhiBlockSize(0), 0);
  EXPECT_EQ(sm.nhiBlockSize(1), 1);
  EXPECT_EQ(sm.nhiBlockSize(8), 1);
  EXPECT_EQ(sm.nhiBlockSize(9), 2);
  EXPECT_EQ(sm.nhiBlockSize(16), 2);
  EXPECT_EQ(sm.nhiBlockSize(216), 27);
  EXPECT_EQ(sm.nhiBlockSize(255), 32);  // the allocator's limit is no limit here
}

TEST_F(WriteCommands, nineSlotsAreTwoEntriesTheLastOneShort) {
  routes(8);
  chip.route("10.1.8.0/24", via(8));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:2 = 0/1 4/1 2/1 6/1 1/1 5/1 3/1 7/1
      nhi 0:3 = 8/1
      prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20, 10.1.4.0/24, 10.1.2.0/24, 10.1.6.0/24, 10.1.1.0/24, 10.1.5.0/24, 10.1.3.0/24, 10.1.7.0/24, 10.1.8.0/24] nhi=0:2)");
}

TEST_F(WriteCommands, anEmptySlotIsANullMemberAndAnEmptyPair) {
  routes(3);
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/20");
  subTrie->removePrefix(chip.prefix("10.1.1.0/24"));
  TraceLines trace("TarnletSm", {4});
  chip.sm().generateSubTrieWriteCmds(subTrie, true, true);
  EXPECT_TRUE(says(
      trace.take(),
      {" subTrie 0,36,8,modeSparse,1,2,3,22/", " generatePrefixCmds 1", " generateNhiCmds 1\n",
       "  adding prefix vrf 0 prefix 10.1.0.0/20 nhblk ", " slot 0 j 0 i 0\n",
       "  adding empty nhblk  slot 0 j 1 i 0\n", " slot 0 j 2 i 0", "  enqueue nhi cmd nhiBaseIdx ",
       " nhBlockLists ", "  adding prefix vrf 0 prefix 10.1.0.0/20 slot 0\n",
       "  adding empty prefix  slot 1\n", "  adding prefix vrf 0 prefix 10.1.2.0/24 slot 2\n"}));
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 0/1 none 2/1
      prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20, -, 10.1.2.0/24] nhi=0:0)");
  subTrie->addPrefix(chip.prefix("10.1.1.0/24"));
  chip.notify("10.1.1.0/24");
}

TEST_F(WriteCommands, aPrefixThatIsNoLongerWantedKeepsItsSlotAndLosesItsPair) {
  routes(2);
  chip.forgetSilently("10.1.1.0/24");
  chip.sm().generateSubTrieWriteCmds(chip.subTrie("10.1.0.0/20"), true, true);
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 0/1 none
      prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20, 10.1.1.0/24] nhi=0:1)");
  chip.wantSilently("10.1.1.0/24", via(1)).notify("10.1.1.0/24");
}

TEST_F(WriteCommands, theSecondCommandOfAMoveDiffersInPlaceAndListAlone) {
  ChipStory two;
  two.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 35, .depth = 1}});
  two.route("10.1.0.0/24", via(7)).route("10.1.1.0/24", via(8)).drain();
  two.sm().moveSubTrie(two.prefix("10.9.0.0/24"), two.table(0));
  const auto command = [&two](U32 back) {
    const U32 tail = two.status()->pendingCmdMetadata().tail;
    return Vellor::dynamicPtrCast<PrefixCommand>(two.status()->pendingCmd(tail - back));
  };
  const PrefixCommand::Ptr write = command(2);
  const PrefixCommand::Ptr clear = command(1);
  EXPECT_EQ(write->tableId(), PrefixTableId(1));
  EXPECT_EQ(clear->tableId(), PrefixTableId(0));
  EXPECT_EQ(write->branch(), clear->branch());
  EXPECT_EQ(write->branchLen(), clear->branchLen());
  EXPECT_EQ(write->stride(), clear->stride());
  EXPECT_EQ(write->mode(), clear->mode());
  EXPECT_EQ(write->nhiBaseIdx(), clear->nhiBaseIdx());
  EXPECT_EQ(write->prefixList().prefixs(), 2U);
  ASSERT_EQ(clear->prefixList().prefixs(), 2U);
  EXPECT_EQ(clear->prefixList().prefix(0), nullptr);
  EXPECT_EQ(clear->prefixList().prefix(1), nullptr);
  two.finish();
  EXPECT_EQ(two.takeFaults(), "");
}

TEST_F(WriteCommands, theLastDeleteIsOneCommandAndNoEntry) {
  routes(1);
  chip.withdraw("10.1.0.0/20");
  EXPECT_COMMANDS(chip, "clear t2[0] branch=10.1.0.0/20 stride=8 [-] nhi=0:0");
}

TEST_F(WriteCommands, aFailedUpdateIsNoCommand) {
  chip.tiles(1, 1);
  routes(1);
  chip.route("10.1.0.0/20", via(9));
  EXPECT_COMMANDS(chip, "");
}

TEST_F(WriteCommands, aSubTrieWithoutSlotsIsOneEmptyCommand) {
  const SubTrie::Ptr loose =
      subTrieFactory(0, chip.prefix("10.1.0.0/24")->branch(40), 40, 8, modeSparse, chip.table(2));
  chip.sm().generateSubTrieWriteCmds(loose, true, true);
  EXPECT_COMMANDS(chip, "clear t2[0] branch=10.1.0.0/24 stride=8 [] nhi=none");
}

TEST_F(WriteCommands, theFlagsSelectTheirKindAndEntriesComeFirst) {
  routes(1);
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/20");
  chip.sm().generateSubTrieWriteCmds(subTrie, false, true);
  EXPECT_COMMANDS(chip, "nhi 0:0 = 0/1");
  chip.sm().generateSubTrieWriteCmds(subTrie, true, false);
  EXPECT_COMMANDS(chip, "prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20] nhi=0:0");
  chip.sm().generateSubTrieWriteCmds(subTrie, true, true);
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 0/1
      prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20] nhi=0:0)");
}

TEST_F(WriteCommandsDeathTest, oneKindMustBeAskedFor) {
  routes(1);
  EXPECT_DEATH(chip.sm().generateSubTrieWriteCmds(chip.subTrie("10.1.0.0/20"), false, false),
               assertion("generateNhiCmds || generatePrefixCmds"));
}

TEST_F(WriteCommands, theModeIsCopiedThrough) {
  routes(1);
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/20");
  subTrie->modeIs(modeCpe);
  chip.sm().generatePrefixTableWriteCmds(subTrie);
  EXPECT_COMMANDS(chip, "prefix t2[0] branch=10.1.0.0/20 stride=8 modeCpe [10.1.0.0/20] nhi=0:0");
  subTrie->modeIs(modeSparse);
}

TEST_F(WriteCommands, joiningABlockWritesItAgainWithWhatItHolds) {
  ChipStory two;
  two.tables({{.id = 0, .tread = 35, .depth = 1}, {.id = 1, .tread = 30, .depth = 1}});
  two.route("10.1.0.0/24", via(7)).drain();
  two.route("20.1.0.0/24", via(7));
  EXPECT_COMMANDS(two, R"(
      nhi 0:0 = 7/1
      prefix t1[0] branch=20.1.0.0/24 stride=8 [20.1.0.0/24] nhi=0:0)");
  two.finish();
  EXPECT_EQ(two.takeFaults(), "");
}

TEST_F(WriteCommands, aReleasedBlockIsNotErased) {
  routes(2);
  chip.withdraw("10.1.1.0/24");
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 0/1
      prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20] nhi=0:0)");
}

TEST_F(WriteCommands, commandsKeepWhatTheySaidWhenTheSubTrieGoesOn) {
  chip.config();
  chip.sm();
  chip.config()->requestIs(chip.prefix("10.1.0.0/20"), via(1));
  const CommandBase::Ptr entry = chip.status()->pendingCmd(0);
  const CommandBase::Ptr row = chip.status()->pendingCmd(1);
  EXPECT_EQ(entry->cmdType(), commandTypeNhi);
  EXPECT_EQ(row->cmdType(), commandTypePrefix);
  chip.drain().route("10.1.1.0/24", via(2)).withdraw("10.1.0.0/20");
  EXPECT_EQ(textOf(*entry, false), "nhi 0:0 = 1/1");
  EXPECT_EQ(textOf(*row, false), "prefix t2[0] branch=10.1.0.0/20 stride=8 [10.1.0.0/20] nhi=0:0");
}

}  // namespace
