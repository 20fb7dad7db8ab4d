#include "tests/engine/RestartFixture.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

// One sound row; each test damages or replaces it.
const RowStory kSound{
    .branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24", "10.1.1.0/24"}, .offset = 4};

class PrefixEntryDecoding : public RestartFixture {
 protected:
  PrefixEntryDecoding() { nhi(0, 4, {{7, 1}, {8, 2}, {9, 1}, {10, 1}}); }

  /// Walks and tells why a row was refused; "" when none was.
  std::string reason(bool removeStale = false) {
    TraceLines trace("TarnletSm", {5});
    walk(removeStale);
    const std::string lines = trace.take();
    const std::string words = "5: valid 0 reason ";
    const std::size_t at = lines.find(words);
    return at == std::string::npos
               ? ""
               : lines.substr(at + words.size(), lines.find('\n', at) - at - words.size());
  }

  /// Refused for `why`, with these objects made and given back, and nothing left in the software.
  void expectRefused(const std::string& why, const std::string& notes = "") {
    EXPECT_EQ(reason(), why);
    EXPECT_EQ(helper->takeNotes(), notes);
    EXPECT_EQ(state(), "");
    EXPECT_EQ(config->requests(), 0U);
    EXPECT_EQ(status->prefixToNextHopBlocks(), 0U);
    EXPECT_EQ(sm->nhiAllocator(0)->freeEntries(), shape.entriesPerTile);
  }

  const std::string bothMadeAndGivenBack =
      "create 10.1.0.0/24, create 10.1.1.0/24, delete 10.1.0.0/24, delete 10.1.1.0/24";
};

using PrefixEntryDecodingDeathTest = PrefixEntryDecoding;

TEST_F(PrefixEntryDecoding, aSoundRowIsTaken) {
  row(0, 3, kSound);
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(state(),
            "block 0:4+1\n"
            "t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n"
            "used 0:4 by 1 of 1\n");
}

TEST_F(PrefixEntryDecoding, aRowOfTheOtherKeyWidthIsRefused) {
  row(0, 3, kSound).keySize = 2;
  expectRefused("wrong keySize");
}

TEST_F(PrefixEntryDecoding, aShortRowAmongLongKeysIsRefused) {
  shape.longKey = true;
  shape.tables = {{.id = 0, .tread = 35, .rows = {{"2001:db8::/32", 3}}}};
  row(0, 3, {.branch = "2001:db8::/32", .stride = 16, .leaves = {"2001:db8::/36"}}).keySize = 0;
  expectRefused("wrong keySize");
}

TEST_F(PrefixEntryDecoding, aKeySizeThatNoChipHasIsRefused) {
  row(0, 3, kSound).keySize = 1;
  expectRefused("wrong keySize");
}

TEST_F(PrefixEntryDecoding, anyLayoutButTheSparseOneIsRefused) {
  row(0, 3, kSound).mode = 0;
  expectRefused("wrong mode");
}

TEST_F(PrefixEntryDecoding, moreBitsThanTheEntryHasAreRefused) {
  row(0, 3, kSound).stride = 182;
  expectRefused("branch length + stride too large");
}

TEST_F(PrefixEntryDecoding, aNarrowEntryHasFewerBits) {
  shape.tables = {{.id = 0, .tread = 35, .type = prefixTableNarrow128b}};
  row(0, 3, kSound).stride = 54;
  expectRefused("branch length + stride too large");
}

TEST_F(PrefixEntryDecoding, aSumThatWrapsIsRefused) {
  xpLpmPrefixEntry& entry = row(0, 3, kSound);
  entry.branchLen = 0xfffffff0U;
  entry.stride = 0x20;
  expectRefused("branch length + stride too large");
}

TEST_F(PrefixEntryDecoding, aBranchWithoutAStrideIsRefused) {
  row(0, 3, kSound).stride = 0;
  expectRefused("stride is zero");
}

TEST_F(PrefixEntryDecoding, theKeySizeIsJudgedBeforeTheModeAndTheModeBeforeTheLengths) {
  xpLpmPrefixEntry& entry = row(0, 3, kSound);
  entry.keySize = 2;
  entry.mode = 0;
  entry.stride = 0;
  entry.branchLen = 300;
  expectRefused("wrong keySize");
  chip.rows[{0, 3}].keySize = 0;
  expectRefused("wrong mode");
  chip.rows[{0, 3}].mode = 1;
  expectRefused("branch length + stride too large");
  chip.rows[{0, 3}].branchLen = 35;
  expectRefused("stride is zero");
}

TEST_F(PrefixEntryDecoding, aBranchLengthOfZeroReadsNoBranchBytes) {
  xpLpmPrefixEntry& entry = row(2, 0, {.branch = "0.0.0.0/0", .stride = 24, .offset = 4});
  entry.branchLen = 0;
  entry.leafVal[0] = 1U << 16;
  std::fill(std::begin(entry.branch), std::end(entry.branch), U8{0xff});
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 0.0.0.0/0");
  EXPECT_EQ(sm->prefixToSubTrie(prefix("0.0.0.0/0"))->branch(), SubTrieBranch());
}

TEST_F(PrefixEntryDecoding, bitsAboveTheBranchAreNotRead) {
  xpLpmPrefixEntry& entry = row(0, 3, kSound);
  // 35 bits take 3 bits of the fifth byte.
  entry.branch[4] = static_cast<U8>(entry.branch[4] | 0xf8U);
  entry.branch[5] = 0xff;
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 10.1.0.0/24, create 10.1.1.0/24");
  EXPECT_EQ(sm->prefixToSubTrie(prefix("10.1.0.0/24"))->branch(),
            prefix("10.1.0.0/19")->branch(35));
}

TEST_F(PrefixEntryDecoding, aBranchOfWholeBytesIsShiftedByWholeBytes) {
  row(0, 3, {.branch = "10.1.0.0/24", .stride = 9, .leaves = {"10.1.0.128/25"}, .offset = 4});
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 10.1.0.128/25");
  EXPECT_EQ(sm->prefixToSubTrie(prefix("10.1.0.128/25"))->branch(),
            SubTrieBranch(0x00000a01, 0x00000000, 0, 0, 0));
}

TEST_F(PrefixEntryDecoding, aLeafOfOneIsThePrefixThatIsTheBranch) {
  xpLpmPrefixEntry& entry =
      row(0, 3, {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/19"}, .offset = 4});
  EXPECT_EQ(U64{entry.leafVal[0]}, 1U);
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 10.1.0.0/19");
}

TEST_F(PrefixEntryDecoding, anEmptySlotBetweenUsedOnesKeepsItsPlace) {
  row(0, 3,
      {.branch = "10.1.0.0/19",
       .stride = 16,
       .leaves = {"", "10.1.0.0/24", "", "10.1.1.0/24"},
       .offset = 4});
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(state(),
            "block 0:4+1\n"
            "t0[3] branch=10.1.0.0/19 stride=16 [-, 10.1.0.0/24 8/2, -, 10.1.1.0/24 10/1] nhi=0:4\n"
            "used 0:4 by 1 of 1\n");
}

TEST_F(PrefixEntryDecoding, emptySlotsAtTheEndVanish) {
  row(0, 3,
      {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24", "", ""}, .offset = 4});
  EXPECT_EQ(reason(), "");
  const SubTrie::Ptr subTrie = sm->prefixToSubTrie(prefix("10.1.0.0/24"));
  EXPECT_EQ(subTrie->maxPrefixSlot(), 1U);
  EXPECT_EQ(subTrie->prefixBitmap()->size(), 11U);
}

TEST_F(PrefixEntryDecoding, aLeafAcrossAWordOfTheKeyLosesNoBits) {
  shape.longKey = true;
  shape.tables = {{.id = 0, .tread = 60, .rows = {{"2001:db8::/44", 3}}}};
  row(0, 3,
      {.branch = "2001:db8::/44",
       .stride = 101,
       .leaves = {"2001:db8:0:5678:9abc:def0:1234:5678/128"},
       .offset = 4});
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 2001:db8:0:5678:9abc:def0:1234:5678/128");
}

TEST_F(PrefixEntryDecoding, roomForOneSlotOnlyReadsOneSlot) {
  xpLpmPrefixEntry& entry = row(0, 3, kSound);
  // 181 bits behind the branch.
  entry.stride = 91;
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 10.1.0.0/24");
  EXPECT_EQ(sm->prefixToSubTrie(prefix("10.1.0.0/24"))->maxPrefixSlot(), 1U);
}

TEST_F(PrefixEntryDecoding, noMoreThan27SlotsAreReadThoughTheBitmapHasThemAll) {
  RowStory story{.branch = "0.0.0.0/0", .stride = 7, .leaves = {}, .offset = 4};
  story.leaves.resize(28);
  story.leaves[26] = "0.0.0.0/0";
  story.leaves[27] = "128.0.0.0/1";
  row(2, 0, story);
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(helper->takeNotes(), "create 0.0.0.0/0");
  const SubTrie::Ptr subTrie = sm->prefixToSubTrie(prefix("0.0.0.0/0"));
  EXPECT_EQ(subTrie->maxPrefixSlot(), 27U);
  EXPECT_EQ(subTrie->nhiBlkSize(), 4U);
  EXPECT_EQ(subTrie->prefixBitmap()->size(), 28U);
}

TEST_F(PrefixEntryDecoding, aRowRefusedAtALaterSlotGivesTheEarlierPrefixesBack) {
  row(0, 3,
      {.branch = "0.0.0.0/0",
       .stride = 30,
       .leaves = {"10.1.0.0/24", "", "10.1.1.0/24", "10.2.0.0/24", "10.1.2.0/24"},
       .offset = 4});
  // The one whose hash is wrong is given back too; the slots behind it are never read.
  expectRefused("prefix hash does not match with offset",
                "create 10.1.0.0/24, create 10.1.1.0/24, create 10.2.0.0/24, "
                "delete 10.1.0.0/24, delete 10.1.1.0/24, delete 10.2.0.0/24");
  EXPECT_EQ(dynamic_cast<ConfigV4&>(*config).lpmPrefixs(), 0U);
}

TEST_F(PrefixEntryDecoding, aRequestedPrefixIsADuplicateAndIsNotGivenBack) {
  prepare();
  row(0, 3,
      {.branch = "10.1.0.0/19",
       .stride = 16,
       .leaves = {"10.1.0.0/24", "10.1.1.0/24", "10.1.2.0/24"},
       .offset = 4});
  sm = lpmSmFactory("sm", config, status, nullptr);
  sm->hasNotificationActiveIs(false);
  config->requestIs(prefix("10.1.1.0/24"), NextHopBlock(3, 1));
  TraceLines trace("TarnletSm", {5});
  helper->doRestart(/*removeStale=*/false, sm.get());
  EXPECT_TRUE(says(trace.take(), {"valid 0 reason duplicate prefixes\n"}));
  EXPECT_EQ(helper->takeNotes(), "create 10.1.0.0/24, create 10.1.1.0/24, delete 10.1.0.0/24");
  EXPECT_EQ(config->request(prefix("10.1.1.0/24")), NextHopBlock(3, 1));
  EXPECT_EQ(state(), "");
}

TEST_F(PrefixEntryDecoding, aTileThatIsNotThereIsRefused) {
  row(0, 3, kSound).nhiTile = 1;
  expectRefused("NHI tile doesn't exist", bothMadeAndGivenBack);
  chip.rows[{0, 3}].nhiTile = 256;
  expectRefused("NHI tile doesn't exist", bothMadeAndGivenBack);
}

TEST_F(PrefixEntryDecoding, aBlockBehindItsTileIsRefused) {
  row(0, 3, kSound).nhiOffset = 64;
  expectRefused("NHI block out of bound", bothMadeAndGivenBack);
  chip.rows[{0, 3}].nhiOffset = ~0U;
  expectRefused("NHI block out of bound", bothMadeAndGivenBack);
  chip.rows[{0, 3}].nhiOffset = 65536 + 4;
  expectRefused("NHI block out of bound", bothMadeAndGivenBack);
}

TEST_F(PrefixEntryDecoding, aBlockThatLeavesItsTileIsRefusedAndTheTraceTellsWhere) {
  shape.pairsPerEntry = 1;
  row(0, 3, kSound).nhiOffset = 63;
  TraceLines trace("TarnletSm", {5});
  walk();
  EXPECT_TRUE(says(trace.take(), {"5: nhiBlkSize 2 nhiOffset 63 nhiEntriesPerTile 64\n",
                                  "5: valid 0 reason NHI block out of bound\n"}));
  EXPECT_EQ(helper->takeNotes(), bothMadeAndGivenBack);
}

TEST_F(PrefixEntryDecoding, aBlockMayEndWithItsTile) {
  shape.pairsPerEntry = 1;
  row(0, 3, kSound).nhiOffset = 62;
  nhi(0, 62, {{7, 1}});
  nhi(0, 63, {{8, 2}});
  EXPECT_EQ(reason(), "");
  EXPECT_EQ(state(),
            "block 0:62+2\n"
            "t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:62\n"
            "used 0:62 by 1 of 1\n");
}

TEST_F(PrefixEntryDecoding, theTraceTellsEachStepOfTheParse) {
  row(0, 3, kSound);
  TraceLines trace("TarnletSm", {5});
  walk();
  EXPECT_TRUE(says(trace.take(),
                   {"5:RestartHelperBase::doRestart\n",
                    "5:parsePrefixTableEntry offset 3 branch 0: 0 1: 0 2: 0 3: 0 4: 0 tableId 0\n"
                    "5: found prefix vrf 0 prefix 10.1.0.0/24\n"
                    "5: found prefix vrf 0 prefix 10.1.1.0/24\n"
                    "5: valid 1 reason \n"}));
}

TEST_F(PrefixEntryDecoding, theTraceLinesOfTheParseTellItsName) {
  row(0, 3, kSound).nhiOffset = 64;
  prepare();
  std::string functions;
  Vellor::TraceHandle::masterIs("TarnletSm", true);
  Vellor::TraceHandle::levelIs("TarnletSm", 5, true);
  Vellor::traceSinkIs([&](const char*, const char*, const Vellor::String8& text, U32, bool,
                          const char*, U32, const char* function) {
    if (text.str() != "RestartHelperBase::doRestart") {
      functions += std::string(function) + " ";
    }
  });
  walk();
  Vellor::traceSinkIs({});
  Vellor::TraceHandle::levelIs("TarnletSm", 5, false);
  Vellor::TraceHandle::masterIs("TarnletSm", false);
  EXPECT_EQ(functions,
            "parsePrefixTableEntry parsePrefixTableEntry parsePrefixTableEntry "
            "parsePrefixTableEntry parsePrefixTableEntry ");
}

TEST_F(PrefixEntryDecoding, aBranchBehindTheFamilysKeyIsTheHelpersToRefuse) {
  xpLpmPrefixEntry& entry = row(0, 3, kSound);
  entry.branchLen = 60;
  EXPECT_THROW(walk(), Vellor::RangeException);
  EXPECT_EQ(state(), "");
  EXPECT_EQ(config->requests(), 0U);
}

TEST_F(PrefixEntryDecoding, aBranchBehindTheLastKeyBitRaises) {
  for (U32 branchLen = 145; branchLen <= 200; ++branchLen) {
    row(0, 3, kSound).branchLen = branchLen;
    EXPECT_THROW(walk(), Vellor::RangeException) << branchLen;
    EXPECT_EQ(helper->takeNotes(), "") << branchLen;
  }
}

TEST_F(PrefixEntryDecoding, aWarmStartThatRaisesLeavesAConfigurationThatCanBeUsed) {
  row(0, 3, kSound).branchLen = 150;
  EXPECT_THROW(restart(), Vellor::RangeException);
  // No reactor of the machine that never was may hear this.
  config->requestIs(prefix("10.3.0.0/24"), NextHopBlock(3, 1));
  chip.rows.clear();
  restart();
  EXPECT_EQ(sm->prefixToSubTries(), 1U);
}

TEST_F(PrefixEntryDecodingDeathTest, aTileWithoutAnAllocatorIsFatal) {
  row(0, 3, kSound);
  prepare();
  sm = lpmSmFactory("sm", config, status, nullptr);
  sm->nhiAllocatorDelAll();
  EXPECT_DEATH(helper->doRestart(/*removeStale=*/false, sm.get()), assertion("nhiAllocator"));
}

}  // namespace
