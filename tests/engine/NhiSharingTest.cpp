#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

/// Two tables of different tread and width, one row each: 10.x goes to table 0, what collides there
/// to table 1.
class NhiSharing : public ChipTest {
 protected:
  NhiSharing() {
    chip.tables({{.id = 0, .tread = 35, .depth = 1},
                 {.id = 1, .tread = 30, .depth = 1, .type = prefixTableNarrow128b}});
  }

  NhiInfo::Ptr info(const std::string& prefix) {
    return chip.sm().sharedNhi(chip.subTrie(prefix)->nhiInfoKey());
  }

  std::string base(const std::string& prefix) { return textOf(chip.subTrie(prefix)->nhiBaseIdx()); }
};

class NhiSharingDeathTest : public NhiSharing {
 protected:
  NhiSharingDeathTest() {
    chip.route("10.1.0.0/24", via(7));
    subTrie = chip.subTrie("10.1.0.0/24");
    known = subTrie->nhiInfoKey();
    unknown.slotToNextHopBlockIs(0, via(99));
  }

  ~NhiSharingDeathTest() override { subTrie = nullptr; }

  std::string words(const std::string& labels) const {
    return " subtrie " + subTrie->str().str() + labels;
  }

  SubTrie::Ptr subTrie;
  NhiInfoKey known;
  NhiInfoKey unknown;
};

TEST_F(NhiSharing, subTriesOfDifferentTablesWithEqualSlotsUseOneBlock) {
  chip.route("10.1.0.0/24", via(7)).route("20.1.0.0/30", via(7));
  EXPECT_EQ(chip.where("10.1.0.0/24"), "t0[0].0");
  EXPECT_EQ(chip.where("20.1.0.0/30"), "t1[0].0");
  EXPECT_EQ(chip.blocks(), "0:0+1");
  EXPECT_EQ(info("10.1.0.0/24")->subTrieCount(), 2U);
  EXPECT_EQ(chip.sm().nhiBaseIdxToSubTrie(NhiTableIdx(0, 0))->subTries(), 2U);
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0
      nhi 0:0 = 7/1
      prefix t1[0] branch=20.1.0.0/30 stride=8 [20.1.0.0/30] nhi=0:0)");
}

TEST_F(NhiSharing, anotherOrderOfTheSlotsIsAnotherBlock) {
  chip.route("10.1.0.0/24", via(7)).route("10.1.1.0/24", via(8));
  chip.route("20.1.0.0/24", via(8)).route("20.1.1.0/24", via(7));
  EXPECT_EQ(chip.sm().sharedNhis(), 2U);
  EXPECT_NE(base("10.1.0.0/24"), base("20.1.0.0/24"));
}

TEST_F(NhiSharing, aTrailingEmptySlotIsAnotherBlock) {
  chip.route("10.1.0.0/24", via(7)).route("10.1.1.0/24", via(8)).route("20.1.0.0/24", via(7));
  chip.drain();
  // A hole that only the sub-trie's own operations can make: slot 1 is empty, not gone.
  const SubTrie::Ptr holed = chip.subTrie("10.1.0.0/24");
  holed->removePrefix(chip.prefix("10.1.1.0/24"));
  ASSERT_EQ(holed->maxPrefixSlot(), 2);
  const NhiInfoKey key = chip.sm().generateNhiInfoKey(holed);
  EXPECT_EQ(key.slotToNextHopBlocks(), 2U);
  EXPECT_EQ(key.slotToNextHopBlock(0), via(7));
  EXPECT_EQ(key.slotToNextHopBlock(1), NextHopBlock());
  EXPECT_NE(key, chip.subTrie("20.1.0.0/24")->nhiInfoKey());
  EXPECT_TRUE(chip.sm().updateNhiInfoForSubTrie(holed));
  EXPECT_NE(base("10.1.0.0/24"), base("20.1.0.0/24"));
  holed->addPrefix(chip.prefix("10.1.1.0/24"));
  EXPECT_TRUE(chip.sm().updateNhiInfoForSubTrie(holed));
  chip.notify("10.1.1.0/24").takeFaults();
}

TEST_F(NhiSharing, anUpdateLeavesTheOthersOnTheOldBlock) {
  chip.route("10.1.0.0/24", via(7)).route("20.1.0.0/24", via(7)).drain();
  TraceLines trace("TarnletSm", {3, 7});
  chip.route("10.1.0.0/24", via(8));
  EXPECT_TRUE(says(trace.take(), {"3: subtrie ", " new subTrieNhiInfoKey ",
                                  "3: allocating a new nhiInfo \n", "3: allocated nhiBaseIdx 0,1\n",
                                  "7: not releasing nhiInfo ", "7: nhiInfo created "}));
  EXPECT_EQ(base("10.1.0.0/24"), "0:1");
  EXPECT_EQ(base("20.1.0.0/24"), "0:0");
  EXPECT_EQ(info("20.1.0.0/24")->subTrieCount(), 1U);
  EXPECT_COMMANDS(chip, R"(
      nhi 0:1 = 8/1
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:1)");
}

TEST_F(NhiSharing, theOldValueAgainJoinsTheOldBlockWithoutAllocation) {
  chip.route("10.1.0.0/24", via(7)).route("20.1.0.0/24", via(7)).route("10.1.0.0/24", via(8));
  chip.drain();
  TraceLines trace("TarnletSm", {3, 7});
  chip.route("10.1.0.0/24", via(7));
  const std::string lines = trace.take();
  EXPECT_TRUE(says(lines, {"7: subtrie ", " nhiInfo available ", "3: nhiinfo available ",
                           "7: release a block of 1 nhiIdx 0,1\n", "7: nhiInfo found "}));
  EXPECT_EQ(lines.find("allocate a block of"), std::string::npos) << lines;
  EXPECT_EQ(chip.blocks(), "0:0+1");
  EXPECT_EQ(info("10.1.0.0/24")->subTrieCount(), 2U);
  EXPECT_COMMANDS(chip, R"(
      nhi 0:0 = 7/1
      prefix t0[0] branch=10.1.0.0/24 stride=8 [10.1.0.0/24] nhi=0:0)");
}

TEST_F(NhiSharing, theLastUserGivesTheBlockBackAndThenTheKey) {
  chip.route("10.1.0.0/24", via(7));
  const NhiInfoKey key = chip.subTrie("10.1.0.0/24")->nhiInfoKey();
  const U32 before = chip.freeEntries();
  bool keyStoodWhenTheBlockCameBack = false;
  {
    TraceLines trace("TarnletSm", {7});
    Vellor::traceSinkIs([&](const char*, const char*, const Vellor::String8& text, U32, bool,
                            const char*, U32, const char*) {
      if (text.str().find(" release a block of 1 nhiIdx 0,0") != std::string::npos) {
        keyStoodWhenTheBlockCameBack = chip.sm().sharedNhiCollection().isMember(key);
      }
    });
    chip.withdraw("10.1.0.0/24");
  }
  EXPECT_TRUE(keyStoodWhenTheBlockCameBack);
  EXPECT_EQ(chip.freeEntries(), before + 1);
  EXPECT_EQ(chip.sm().sharedNhis(), 0U);
  EXPECT_EQ(chip.sm().nhiBaseIdxToSubTries(), 0U);
  EXPECT_EQ(chip.sm().nhiBaseIdxToBlks(), 0U);
}

TEST_F(NhiSharing, anUnchangedContentAllocatesNothing) {
  chip.route("10.1.0.0/24", via(7)).drain();
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");
  const U32 before = chip.freeEntries();
  TraceLines trace("TarnletSm", {3, 7});
  EXPECT_TRUE(chip.sm().updateNhiInfoForSubTrie(subTrie));
  const std::string lines = trace.take();
  EXPECT_TRUE(says(lines, {" new subTrieNhiInfoKey ", " nothing changed in subtrie "}));
  EXPECT_EQ(lines.find("allocate"), std::string::npos) << lines;
  EXPECT_EQ(chip.freeEntries(), before);
  EXPECT_COMMANDS(chip, "");
}

TEST_F(NhiSharing, withEveryTileFullANewKeyIsRefusedAndAKnownOneIsNot) {
  chip.tiles(1, 2);
  chip.route("10.1.0.0/24", via(7)).route("20.1.0.0/24", via(8)).drain();
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");
  const NhiInfoKey key = subTrie->nhiInfoKey();
  chip.wantSilently("10.1.0.0/24", via(9));
  EXPECT_FALSE(chip.sm().updateNhiInfoForSubTrie(subTrie));
  EXPECT_EQ(subTrie->nhiInfoKey(), key);
  EXPECT_EQ(subTrie->nhiBaseIdx(), NhiTableIdx(0, 0));
  chip.route("10.1.0.0/24", via(8));
  EXPECT_EQ(base("10.1.0.0/24"), "0:1");
  EXPECT_EQ(info("10.1.0.0/24")->subTrieCount(), 2U);
  EXPECT_EQ(chip.freeEntries(), 1U);
}

TEST_F(NhiSharing, releasingWhatWasNeverLinkedDoesNothing) {
  chip.route("10.1.0.0/24", via(7));
  const SubTrie::Ptr loose = subTrieFactory(0, SubTrieBranch(), 40, 8, modeSparse, chip.table(0));
  TraceLines trace("TarnletSm", {7});
  chip.sm().releaseNhiInfo(loose);
  EXPECT_TRUE(says(trace.take(), {" nhiInfoKey not present "}));
  EXPECT_EQ(info("10.1.0.0/24")->subTrieCount(), 1U);
}

TEST_F(NhiSharing, releaseLeavesTheSubTriesStaleBaseAndKey) {
  chip.route("10.1.0.0/24", via(7)).route("20.1.0.0/24", via(7));
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");
  const NhiInfoKey key = subTrie->nhiInfoKey();
  chip.sm().releaseNhiInfo(subTrie);
  EXPECT_EQ(subTrie->nhiInfoKey(), key);
  EXPECT_EQ(subTrie->nhiBaseIdx(), NhiTableIdx(0, 0));
  EXPECT_EQ(info("20.1.0.0/24")->subTrieCount(), 1U);
  EXPECT_EQ(chip.sm().allocateNhiInfo(subTrie, key, NhiTableIdx(0, 0))->subTrieCount(), 2U);
}

TEST_F(NhiSharing, anEmptySubTrieOnlyReleases) {
  chip.route("10.1.0.0/24", via(7)).drain();
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");
  subTrie->removePrefix(chip.prefix("10.1.0.0/24"));
  subTrie->compactPrefixes();
  TraceLines trace("TarnletSm", {3});
  EXPECT_TRUE(chip.sm().updateNhiInfoForSubTrie(subTrie));
  EXPECT_TRUE(says(trace.take(), {" new subTrieNhiInfoKey 0x0,0\n", " subtrie is empty "}));
  EXPECT_EQ(chip.sm().sharedNhis(), 0U);
  EXPECT_EQ(chip.blocks(), "");
  chip.endMachine();
}

TEST_F(NhiSharing, theSwitchChangesNothing) {
  chip.sm().nhiSharingEnabledIs(false);
  EXPECT_FALSE(chip.sm().nhiSharingEnabled());
  chip.route("10.1.0.0/24", via(7)).route("20.1.0.0/24", via(7));
  EXPECT_EQ(chip.blocks(), "0:0+1");
  EXPECT_EQ(info("10.1.0.0/24")->subTrieCount(), 2U);
}

TEST_F(NhiSharing, theBaseOfAnUnknownKeyIsNull) {
  chip.route("10.1.0.0/24", via(7));
  NhiInfoKey unknown;
  unknown.slotToNextHopBlockIs(0, via(99));
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/24");
  EXPECT_EQ(chip.sm().nhiBaseIdxFromNhiInfoKey(subTrie, unknown), NhiTableIdx());
  EXPECT_EQ(chip.sm().nhiBaseIdxFromNhiInfoKey(subTrie, subTrie->nhiInfoKey()), NhiTableIdx(0, 0));
}

TEST_F(NhiSharing, compactionOfTheSlotsKeepsTheBaseUntilTheUpdate) {
  chip.route("10.1.0.0/20", via(1));
  for (U32 i = 1; i < 4; ++i) {
    chip.route("10.1." + std::to_string(i) + ".0/24", via(i + 1));
  }
  chip.drain();
  const SubTrie::Ptr subTrie = chip.subTrie("10.1.0.0/20");
  const NhiTableIdx before = subTrie->nhiBaseIdx();
  const NhiInfoKey key = subTrie->nhiInfoKey();
  subTrie->compactPrefixes();  // 0 2 1 3
  EXPECT_EQ(subTrie->nhiBaseIdx(), before);
  EXPECT_EQ(subTrie->nhiInfoKey(), key);
  EXPECT_NE(chip.sm().generateNhiInfoKey(subTrie), key);
  chip.notify("10.1.0.0/20");
  EXPECT_NE(subTrie->nhiBaseIdx(), before);
}

TEST_F(NhiSharingDeathTest, aLinkNeedsABase) {
  EXPECT_DEATH(chip.sm().allocateNhiInfo(subTrie, known, NhiTableIdx()),
               failure("nhiBaseIdx != NhiTableIdx()", words(" nhiBaseIdx 255,65535")));
}

TEST_F(NhiSharingDeathTest, aLinkNeedsAPrefix) {
  const SubTrie::Ptr loose = subTrieFactory(3, SubTrieBranch(), 40, 8, modeSparse, chip.table(0));
  EXPECT_DEATH(chip.sm().allocateNhiInfo(loose, NhiInfoKey(), NhiTableIdx(0, 5)),
               failure("subTrie->prefixs()",
                       " subtrie 3,40,8,modeSparse,0,0,0,0/0x0,0/255,65535 nhiInfoKey "
                       "0x0,0 nhiBaseIdx 0,5"));
}

TEST_F(NhiSharingDeathTest, aKnownKeyHasOneBase) {
  EXPECT_DEATH(chip.sm().allocateNhiInfo(subTrie, known, NhiTableIdx(0, 5)),
               failure("nhiBaseIdx == nhiInfo->nhiBaseIdx()",
                       words(" nhiBaseIdx 0,5 nhInfo " + known.str().str() + "/0,0/1")));
}

TEST_F(NhiSharingDeathTest, aSecondReleaseIsFatal) {
  const SubTrie::Ptr gone = subTrie;
  chip.withdraw("10.1.0.0/24");
  EXPECT_DEATH(chip.sm().releaseNhiInfo(gone),
               failure("sharedNhiIterator().isMemberOf( nhiInfoKey )",
                       words(" nhiInfoKey " + known.str().str())));
}

TEST_F(NhiSharingDeathTest, aReleaseNeedsTheSetOfItsBlock) {
  const SubTrieSet::Ptr set = chip.sm().nhiBaseIdxToSubTrieDel(NhiTableIdx(0, 0));
  EXPECT_DEATH(chip.sm().releaseNhiInfo(subTrie),
               failure("nhiBaseIdxToSubTrieIterator().isMemberOf( nhiBaseIdx )",
                       words(" nhiInfoKey " + known.str().str())));
  chip.sm().nhiBaseIdxToSubTrieIs(NhiTableIdx(0, 0), nullptr);
  EXPECT_DEATH(chip.sm().releaseNhiInfo(subTrie),
               failure("subTrieSet", words(" nhiInfo " + known.str().str() + "/0,0/1")));
  chip.sm().nhiBaseIdxToSubTrieIs(NhiTableIdx(0, 0), set);
}

TEST_F(NhiSharingDeathTest, aReleaseNeedsTheBaseOfItsBlock) {
  subTrie->nhiBaseIdxIs(NhiTableIdx(0, 5));
  EXPECT_DEATH(chip.sm().releaseNhiInfo(subTrie),
               failure("subTrie->nhiBaseIdx() == nhiInfo->nhiBaseIdx()",
                       words(" nhiInfo " + known.str().str() + "/0,0/1")));
  subTrie->nhiBaseIdxIs(NhiTableIdx(0, 0));
}

TEST_F(NhiSharingDeathTest, aReleaseNeedsItsPlaceInTheSet) {
  const SubTrieSet::Ptr set = chip.sm().nhiBaseIdxToSubTrie(NhiTableIdx(0, 0));
  set->subTrieDel(subTrie);
  EXPECT_DEATH(chip.sm().releaseNhiInfo(subTrie),
               failure("subTrieSet->subTrieIterator().isMemberOf( subTrie )",
                       words(" nhiInfoKey " + known.str().str())));
  set->subTrieIs(subTrie, true);
}

}  // namespace
