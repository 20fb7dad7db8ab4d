#include "model/SubTrie.h"

#include <algorithm>
#include <string>
#include <vector>

#include "model/PrefixTable.h"
#include "tests/support/Random.h"
#include "tests/support/TraceLines.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using Brumel::HBitmap::IndexPreference;
using Vellor::Testing::TraceLines;

class SubTrieTest : public testing::Test {
 protected:
  /// A sub-trie of a wide table, with `slots` prefixes of 10.0.0.0/24 and up in slots 0 and up.
  SubTrie::Ptr subTrie(U8 branchLen, U8 stride, U32 slots = 0) {
    const SubTrie::Ptr made =
        subTrieFactory(77, SubTrieBranch(), branchLen, stride, modeSparse, wide_);
    if (stride != 0) {
      made->compactPrefixes();
    }
    for (U32 i = 0; i < slots; ++i) {
      made->addPrefix(prefix(i));
    }
    return made;
  }

  /// The object of 10.0.i.0/24.
  const LpmPrefix::Ptr& prefix(U32 i) {
    while (prefixes_.size() <= i) {
      const U32 address = 0x0a000000 + (static_cast<U32>(prefixes_.size()) << 8);
      prefixes_.push_back(lpmPrefixV4Factory(Dunlix::VrfAndPrefix(0, Corsel::Prefix(address, 24))));
    }
    return prefixes_[i];
  }

  /// "slot:i" for each occupied slot, where the prefix is prefix(i).
  std::string slots(const SubTrie::Ptr& subTrie) {
    std::string text;
    for (U32 slot = 0; slot < 256; ++slot) {
      const LpmPrefix::Ptr standing = subTrie->prefix(static_cast<U8>(slot));
      for (U32 i = 0; standing != nullptr && i < prefixes_.size(); ++i) {
        if (prefixes_[i] == standing) {
          text += (text.empty() ? "" : " ") + std::to_string(slot) + ":" + std::to_string(i);
        }
      }
    }
    return text;
  }

  /// The two maps are inverse and the bitmap has the bits of the slots.
  void expectConsistent(const SubTrie::Ptr& subTrie) {
    EXPECT_EQ(subTrie->prefixs(), subTrie->prefixToSlots());
    for (auto member = subTrie->prefixIterator(); member; ++member) {
      EXPECT_EQ(subTrie->prefixToSlot(member.value()), member.key());
    }
    const Brumel::Bitmap::Ptr bitmap = subTrie->prefixBitmap();
    for (U32 slot = 0; slot < bitmap->size(); ++slot) {
      EXPECT_EQ(bitmap->isBitSet(slot), subTrie->prefix(static_cast<U8>(slot)) != nullptr)
          << "slot " << slot;
    }
  }

  const PrefixTable::Ptr wide_ =
      prefixTableFactory(1, new PrefixTableConfig(1, prefixTableWide256b, 4096, 16));
  const PrefixTable::Ptr narrow_ =
      prefixTableFactory(2, new PrefixTableConfig(2, prefixTableNarrow128b, 4096, 16));
  std::vector<LpmPrefix::Ptr> prefixes_;
};

TEST_F(SubTrieTest, startsWithoutBlockBitmapOrPrefixes) {
  const SubTrie::Ptr made =
      subTrieFactory(77, SubTrieBranch(1, 2, 3, 4, 5), 40, 0, modeSparse, wide_);
  EXPECT_EQ(made->index(), PrefixTableIdx(77));
  EXPECT_EQ(made->branch(), SubTrieBranch(1, 2, 3, 4, 5));
  EXPECT_EQ(made->branchLen(), 40U);
  EXPECT_EQ(made->stride(), 0U);
  EXPECT_EQ(made->mode(), modeSparse);
  EXPECT_EQ(made->table(), wide_.get());
  EXPECT_EQ(made->nhiBaseIdx(), NhiTableIdx());
  EXPECT_EQ(made->nhiBlkSize(), 0U);
  EXPECT_EQ(made->nhiInfoKey(), NhiInfoKey());
  EXPECT_EQ(made->maxPrefixSlot(), 0U);
  EXPECT_EQ(made->prefixs() + made->prefixToSlots(), 0U);
  EXPECT_EQ(made->prefixBitmap(), nullptr);
  EXPECT_EQ(wide_->references(), 1U) << "the table is not counted";
}

TEST_F(SubTrieTest, aLayoutThatJustFitsFits) {
  const SubTrie::Ptr made = subTrie(40, 0);
  // 216 bits: 24 of branch and 192 of leaves.
  EXPECT_TRUE(made->fit(24, 8, 24, modeSparse));
  EXPECT_FALSE(made->fit(25, 8, 24, modeSparse));
  EXPECT_FALSE(made->fit(24, 8, 25, modeSparse));
  EXPECT_TRUE(made->fit(215, 1, 1, modeSparse));
  EXPECT_FALSE(made->fit(215, 2, 1, modeSparse));
}

TEST_F(SubTrieTest, theTablesEntrySizeCounts) {
  const SubTrie::Ptr made = subTrieFactory(0, {}, 40, 0, modeSparse, narrow_);
  EXPECT_TRUE(made->fit(24, 8, 8, modeSparse));
  EXPECT_FALSE(made->fit(24, 8, 9, modeSparse));
  EXPECT_TRUE(made->fit(48, 40, 1, modeSparse));
  EXPECT_FALSE(made->fit(48, 41, 1, modeSparse));
}

TEST_F(SubTrieTest, aBranchOfTheWholeEntryLeavesRoomForNothing) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_TRUE(made->fit(216, 0, 255, modeSparse));
  EXPECT_TRUE(made->fit(216, 8, 0, modeSparse));
  EXPECT_FALSE(made->fit(216, 1, 1, modeSparse));
}

/// The bits that a layout's leaves take, found by what they leave for a branch.
U32 usedBits(const SubTrie::Ptr& subTrie, U8 stride, SubTrieMode mode, U8 prefixes = 1) {
  for (U32 bits = 0; bits <= 216; ++bits) {
    if (subTrie->fit(static_cast<U8>(216 - bits), stride, prefixes, mode)) {
      return bits;
    }
  }
  return 217;
}

TEST_F(SubTrieTest, aBitmapTakesTwoToTheStrideLessOneForAnyNumber) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_EQ(usedBits(made, 1, modeBitmap), 1U);
  EXPECT_EQ(usedBits(made, 7, modeBitmap), 127U);
  EXPECT_EQ(usedBits(made, 7, modeBitmap, 200), 127U);
  EXPECT_EQ(usedBits(made, 0, modeBitmap), 0U);
  EXPECT_EQ(usedBits(made, 8, modeBitmap), 217U) << "255 are too many";
}

TEST_F(SubTrieTest, anExpansionTakesTwoToTheStrideMinusOneForAnyNumber) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_EQ(usedBits(made, 1, modeCpe), 1U);
  EXPECT_EQ(usedBits(made, 7, modeCpe), 64U);
  EXPECT_EQ(usedBits(made, 7, modeCpe, 200), 64U);
  EXPECT_EQ(usedBits(made, 8, modeCpe), 128U);
}

TEST_F(SubTrieTest, usedBitsAreCutTo16AndShiftsCountModulo32) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_EQ(usedBits(made, 16, modeBitmap), 217U) << "65535";
  EXPECT_EQ(usedBits(made, 17, modeBitmap), 217U) << "131071 cut to 65535";
  EXPECT_EQ(usedBits(made, 32, modeBitmap), 0U);
  EXPECT_EQ(usedBits(made, 33, modeBitmap), 1U);
  EXPECT_EQ(usedBits(made, 17, modeCpe), 0U) << "65536 cut to 0";
  EXPECT_EQ(usedBits(made, 33, modeCpe), 1U);
  EXPECT_EQ(usedBits(made, 0, modeCpe), 0U) << "bit 31 cut away";
  EXPECT_EQ(usedBits(made, 255, modeSparse, 255), 217U) << "65025";
}

TEST_F(SubTrieTest, anEmptySubTrieCompactsToAClearBitmap) {
  const SubTrie::Ptr made = subTrie(24, 8);
  EXPECT_EQ(made->maxPrefixSlot(), 0U);
  EXPECT_EQ(made->prefixBitmap()->size(), 24U);
  EXPECT_EQ(made->prefixBitmap()->findSetBitInRange(0, 24, IndexPreference{0}), 24U);
}

TEST_F(SubTrieTest, theBitmapHasASlotForEachLeaf) {
  EXPECT_EQ(subTrie(24, 8)->prefixBitmap()->size(), 24U);
  EXPECT_EQ(subTrie(25, 8)->prefixBitmap()->size(), 23U) << "rounded down";
  EXPECT_EQ(subTrie(0, 1)->prefixBitmap()->size(), 216U);
  const SubTrie::Ptr ofMode = subTrieFactory(0, {}, 24, 8, modeBitmap, wide_);
  ofMode->allocatePrefixBitmap();
  EXPECT_EQ(ofMode->prefixBitmap()->size(), 24U) << "sized for the list in every mode";
  EXPECT_EQ(ofMode->prefixBitmap()->id(), 0U);
}

TEST_F(SubTrieTest, addingTakesTheLowestFreeSlot) {
  const SubTrie::Ptr made = subTrie(24, 8, 4);
  EXPECT_EQ(slots(made), "0:0 1:1 2:2 3:3");
  EXPECT_EQ(made->maxPrefixSlot(), 4U);
  expectConsistent(made);
}

TEST_F(SubTrieTest, removingLeavesAHoleAndMaxPrefixSlot) {
  const SubTrie::Ptr made = subTrie(24, 8, 4);
  made->removePrefix(prefix(1));
  EXPECT_EQ(slots(made), "0:0 2:2 3:3");
  EXPECT_EQ(made->maxPrefixSlot(), 4U);
  EXPECT_EQ(made->prefixs(), 3U);
  expectConsistent(made);
}

TEST_F(SubTrieTest, addingAfterARemovalRefillsTheSlotAndKeepsMaxPrefixSlot) {
  const SubTrie::Ptr made = subTrie(24, 8, 4);
  made->removePrefix(prefix(1));
  made->addPrefix(prefix(9));
  EXPECT_EQ(slots(made), "0:0 1:9 2:2 3:3");
  EXPECT_EQ(made->maxPrefixSlot(), 4U);
  expectConsistent(made);
}

TEST_F(SubTrieTest, removingAPrefixThatIsNotThereEmptiesSlotZero) {
  const SubTrie::Ptr made = subTrie(24, 8, 3);
  made->removePrefix(prefix(9));
  EXPECT_EQ(slots(made), "1:1 2:2");
  EXPECT_EQ(made->prefixToSlots(), 3U) << "the prefix of slot 0 stays in the other map";
  EXPECT_FALSE(made->prefixBitmap()->isBitSet(0));
}

// Slots are walked in bit-reversed order, so that compaction permutes even what has no hole.
TEST_F(SubTrieTest, compactionNumbersInTheOrderOfTheWalk) {
  const SubTrie::Ptr made = subTrie(24, 8, 8);
  made->compactPrefixes();
  EXPECT_EQ(slots(made), "0:0 1:4 2:2 3:6 4:1 5:5 6:3 7:7");
  expectConsistent(made);
  made->compactPrefixes();
  EXPECT_EQ(slots(made), "0:0 1:1 2:2 3:3 4:4 5:5 6:6 7:7");
}

TEST_F(SubTrieTest, compactionClosesHoles) {
  const SubTrie::Ptr made = subTrie(24, 8, 6);
  made->removePrefix(prefix(0));
  made->removePrefix(prefix(3));
  // Slots 1 2 4 5 are walked as 4 2 1 5.
  made->compactPrefixes();
  EXPECT_EQ(slots(made), "0:4 1:2 2:1 3:5");
  EXPECT_EQ(made->maxPrefixSlot(), 4U);
  EXPECT_EQ(made->prefixBitmap()->findClearBitInRange(0, 23, IndexPreference{0}), 4U);
  expectConsistent(made);
}

TEST_F(SubTrieTest, compactionRebuildsTheBitmapForTheNewGeometry) {
  const SubTrie::Ptr made = subTrie(24, 8, 2);
  made->branchLenIs(16);
  made->strideIs(16);
  made->compactPrefixes();
  EXPECT_EQ(made->prefixBitmap()->size(), 12U);
  expectConsistent(made);
}

TEST_F(SubTrieTest, compactionKeepsBaseAndKeyOfTheBlock) {
  const SubTrie::Ptr made = subTrie(24, 8, 5);
  NhiInfoKey key;
  key.slotToNextHopBlockIs(0, NextHopBlock(1, 2));
  made->nhiBaseIdxIs(NhiTableIdx(1, 300));
  made->nhiInfoKeyIs(key);
  made->nhiBlkSizeIs(1);
  made->compactPrefixes();
  EXPECT_EQ(made->nhiBaseIdx(), NhiTableIdx(1, 300));
  EXPECT_EQ(made->nhiInfoKey(), key);
  EXPECT_EQ(made->nhiBlkSize(), 1U);
}

TEST_F(SubTrieTest, everySlotOfTheLargestSubTrieCanBeTaken) {
  const SubTrie::Ptr made = subTrie(0, 1, 216);
  EXPECT_EQ(made->maxPrefixSlot(), 216U);
  made->compactPrefixes();
  EXPECT_EQ(made->prefixs(), 216U);
  expectConsistent(made);
}

TEST_F(SubTrieTest, staysConsistentThroughRandomChanges) {
  Random random;
  SCOPED_TRACE(random.seedText());
  const SubTrie::Ptr made = subTrie(24, 8);
  std::vector<U32> members;
  for (U32 step = 0; step < 2000; ++step) {
    const U32 i = random.between(0, 60);
    const auto at = std::find(members.begin(), members.end(), i);
    if (at != members.end()) {
      made->removePrefix(prefix(i));
      members.erase(at);
    } else if (members.size() < 24) {
      made->addPrefix(prefix(i));
      members.push_back(i);
    }
    if (random.oneIn(5)) {
      made->compactPrefixes();
      ASSERT_EQ(made->maxPrefixSlot(), members.size()) << "step " << step;
    }
    ASSERT_EQ(made->prefixs(), members.size()) << "step " << step;
    expectConsistent(made);
    if (HasFailure()) {
      FAIL() << "step " << step;
    }
  }
}

TEST_F(SubTrieTest, printsItsStateInOneLine) {
  const SubTrie::Ptr made = subTrie(24, 8, 3);
  made->removePrefix(prefix(1));
  made->nhiBlkSizeIs(2);
  made->nhiBaseIdxIs(NhiTableIdx(1, 300));
  NhiInfoKey key;
  key.slotToNextHopBlockIs(0, NextHopBlock(1, 2));
  made->nhiInfoKeyIs(key);
  EXPECT_EQ(made->str(), "77,24,8,modeSparse,2,2,3,24/0x6081b1,1/1,300");
}

TEST_F(SubTrieTest, printsZeroForNoBitmap) {
  EXPECT_EQ(subTrie(40, 0)->str(), "77,40,0,modeSparse,0,0,0,0/0x0,0/255,65535");
}

TEST_F(SubTrieTest, tracesWhetherALayoutFits) {
  const SubTrie::Ptr made = subTrie(40, 0);
  TraceLines trace("TarnletSm", {6});
  made->fit(24, 8, 25, modeBitmap);
  EXPECT_EQ(
      trace.take(),
      "6: SubTrie::fit subtrie 77,40,0,modeSparse,0,0,0,0/0x0,0/255,65535 branchLen 24 stride "
      "8 numPrefixes 25 mode modeBitmap entrySize 216\n"
      "6:   usedBits 255 availBits 192\n");
}

TEST_F(SubTrieTest, tracesTheBitmapsMaking) {
  const SubTrie::Ptr made = subTrieFactory(77, {}, 24, 8, modeSparse, wide_);
  TraceLines trace("TarnletSm", {6});
  made->allocatePrefixBitmap();
  EXPECT_EQ(trace.take(),
            "6: SubTrie::allocatePrefixBitmap subtrie 77,24,8,modeSparse,0,0,0,0/0x0,0/255,65535\n"
            "6:  maxNumPrefixes 24 subTrieLen 216\n");
}

TEST_F(SubTrieTest, tracesWhatComesAndGoes) {
  const SubTrie::Ptr made = subTrie(24, 8);
  TraceLines trace("TarnletSm", {6});
  made->addPrefix(prefix(0));
  EXPECT_EQ(trace.take(),
            "6: SubTrie::addPrefix subtrie 77,24,8,modeSparse,0,0,0,24/0x0,0/255,65535\n"
            "6:  slot 0 lpmPrefix vrf 0 prefix 10.0.0.0/24\n"
            "6: added prefix subtrie 77,24,8,modeSparse,0,1,1,24/0x0,0/255,65535\n");
  made->removePrefix(prefix(0));
  EXPECT_EQ(trace.take(),
            "6: SubTrie::removePrefix subtrie 77,24,8,modeSparse,0,1,1,24/0x0,0/255,65535\n"
            "6:  slot 0 lpmPrefix vrf 0 prefix 10.0.0.0/24\n"
            "6: removed prefix subtrie 77,24,8,modeSparse,0,0,1,24/0x0,0/255,65535\n");
}

TEST_F(SubTrieTest, tracesTheNewSlotsOfACompaction) {
  const SubTrie::Ptr made = subTrie(24, 8, 3);
  TraceLines trace("TarnletSm", {6});
  made->compactPrefixes();
  EXPECT_EQ(trace.take(),
            "6: SubTrie::compactPrefixes subtrie 77,24,8,modeSparse,0,3,3,24/0x0,0/255,65535\n"
            "6: prefix vrf 0 prefix 10.0.0.0/24 slot 0\n"
            "6: prefix vrf 0 prefix 10.0.2.0/24 slot 1\n"
            "6: prefix vrf 0 prefix 10.0.1.0/24 slot 2\n"
            "6: SubTrie::allocatePrefixBitmap subtrie "
            "77,24,8,modeSparse,0,3,3,0/0x0,0/255,65535\n"
            "6:  maxNumPrefixes 24 subTrieLen 216\n"
            "6: compacted subtrie 77,24,8,modeSparse,0,3,3,24/0x0,0/255,65535\n");
}

using SubTrieDeathTest = SubTrieTest;

TEST_F(SubTrieDeathTest, aBranchLongerThanTheEntryIsFatal) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_DEATH(made->fit(217, 0, 0, modeSparse),
               "Assertion `table\\(\\)->tableConfig\\(\\)->entrySize\\(\\) >= branchLen' failed");
}

TEST_F(SubTrieDeathTest, anUnknownModeIsFatal) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_DEATH(made->fit(24, 8, 1, static_cast<SubTrieMode>(3)), "Assertion `false' failed");
}

TEST_F(SubTrieDeathTest, aSecondBitmapIsFatal) {
  const SubTrie::Ptr made = subTrie(24, 8);
  EXPECT_DEATH(made->allocatePrefixBitmap(), "Assertion `!prefixBitmap\\(\\)' failed");
}

TEST_F(SubTrieDeathTest, compactingWithoutAStrideIsFatal) {
  const SubTrie::Ptr made = subTrie(40, 0);
  EXPECT_DEATH(made->compactPrefixes(), "Assertion `stride\\(\\)' failed");
}

TEST_F(SubTrieDeathTest, removingFromAnEmptySubTrieIsFatal) {
  const SubTrie::Ptr made = subTrie(24, 8);
  EXPECT_DEATH(made->removePrefix(prefix(0)), "Assertion `slot < maxPrefixSlot\\(\\)' failed");
}

}  // namespace
}  // namespace Quarle::Tarnlet
