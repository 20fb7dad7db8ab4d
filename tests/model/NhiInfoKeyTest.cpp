#include "model/NhiInfoKey.h"

#include <sstream>
#include <string>
#include <utility>

#include "model/NhiInfo.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using Slots = std::initializer_list<std::pair<U8, NextHopBlock>>;

NhiInfoKey keyOf(Slots slots) {
  NhiInfoKey key;
  for (const auto& [slot, block] : slots) {
    key.slotToNextHopBlockIs(slot, block);
  }
  return key;
}

// Blocks by rising hash, beside the default block's 0xd72d0592.
const NextHopBlock kLow(2, 1);      // 0x26164305
const NextHopBlock kMiddle(4, 1);   // 0x5aaa0f2c
const NextHopBlock kHigh(7, 1);     // 0x983990d1
const NextHopBlock kHighest(3, 1);  // 0xf457cc19

TEST(NhiInfoKey, theBlocksOfTheseTestsHaveRisingHashes) {
  EXPECT_EQ(kLow.hash(), 0x26164305U);
  EXPECT_EQ(kMiddle.hash(), 0x5aaa0f2cU);
  EXPECT_EQ(kHigh.hash(), 0x983990d1U);
  EXPECT_EQ(NextHopBlock().hash(), 0xd72d0592U);
  EXPECT_EQ(kHighest.hash(), 0xf457cc19U);
}

TEST(NhiInfoKey, anAbsentSlotReadsAsTheDefaultBlock) {
  const NhiInfoKey key = keyOf({{0, kLow}});
  EXPECT_EQ(key.slotToNextHopBlock(0), kLow);
  EXPECT_EQ(key.slotToNextHopBlock(1), NextHopBlock());
  EXPECT_EQ(key.slotToNextHopBlocks(), 1U);
}

TEST(NhiInfoKey, copyingCopiesTheWholeMap) {
  const NhiInfoKey original = keyOf({{0, kLow}, {1, kHigh}});
  NhiInfoKey copy = original;
  copy.newSlotToNextHopBlock(1, kLow);
  EXPECT_EQ(original.slotToNextHopBlock(1), kHigh);
  EXPECT_NE(copy, original);
  copy = original;
  copy.slotToNextHopBlockDelAll();
  EXPECT_EQ(copy, NhiInfoKey());
  EXPECT_EQ(original.slotToNextHopBlocks(), 2U);
}

TEST(NhiInfoKey, theEmptyKeyHashesToZero) { EXPECT_EQ(NhiInfoKey().hash(), 0U); }

TEST(NhiInfoKey, hashesSlotsAndBlockHashesInSlotOrder) {
  EXPECT_EQ(keyOf({{0, {1, 2}}}).hash(), 0x6081b1U);
  const NhiInfoKey key = keyOf({{3, NextHopBlock()}, {0, {1, 2}}});
  EXPECT_EQ(key.hash(), 0xd49ba6c4U);
}

TEST(NhiInfoKey, theHashFollowsEveryChange) {
  NhiInfoKey key = keyOf({{0, {1, 2}}});
  EXPECT_EQ(key.hash(), 0x6081b1U);
  const NhiInfoKey before = key;
  key.slotToNextHopBlockIs(3, NextHopBlock());
  EXPECT_EQ(key.hash(), 0xd49ba6c4U);
  EXPECT_EQ(before.hash(), 0x6081b1U);
  key.slotToNextHopBlockDel(3);
  EXPECT_EQ(key.hash(), 0x6081b1U);
  key.slotToNextHopBlockDelAll();
  EXPECT_EQ(key.hash(), 0U);
}

TEST(NhiInfoKey, equalMapsHaveEqualHashesAndNeitherIsLess) {
  const NhiInfoKey a = keyOf({{0, kLow}, {1, kHigh}, {5, NextHopBlock()}});
  const NhiInfoKey b = keyOf({{5, NextHopBlock()}, {1, kHigh}, {0, kLow}});
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(b < a);
  EXPECT_LE(a, b);
  EXPECT_GE(a, b);
}

TEST(NhiInfoKey, equalityNeedsTheSameSlotsAndBlocks) {
  const NhiInfoKey key = keyOf({{0, kLow}, {1, kHigh}});
  EXPECT_NE(key, keyOf({{0, kLow}}));
  EXPECT_NE(key, keyOf({{0, kLow}, {2, kHigh}}));
  EXPECT_NE(key, keyOf({{0, kLow}, {1, kLow}}));
  EXPECT_NE(keyOf({{0, NextHopBlock()}}), NhiInfoKey()) << "a slot that is there is not absent";
}

TEST(NhiInfoKey, bothOfTwoKeysCanBeLess) {
  const NhiInfoKey a = keyOf({{0, kMiddle}, {1, kMiddle}});
  const NhiInfoKey b = keyOf({{0, kLow}, {1, kHigh}});
  EXPECT_TRUE(a < b) << "through slot 1";
  EXPECT_TRUE(b < a) << "through slot 0";
  EXPECT_FALSE(a <= b);
  EXPECT_FALSE(b <= a);
  EXPECT_TRUE(a > b);
  EXPECT_FALSE(a >= b);
}

TEST(NhiInfoKey, theEmptyKeyIsLessThanNothing) {
  const NhiInfoKey empty;
  for (const NhiInfoKey& other :
       {NhiInfoKey(), keyOf({{0, kLow}}), keyOf({{0, kHighest}}), keyOf({{0, NextHopBlock()}})}) {
    EXPECT_FALSE(empty < other);
  }
}

TEST(NhiInfoKey, isLessThanTheEmptyKeyByAHashBelowTheDefaultBlocks) {
  const NhiInfoKey empty;
  EXPECT_TRUE(keyOf({{0, kHigh}}) < empty);
  EXPECT_FALSE(keyOf({{0, kHighest}}) < empty);
  EXPECT_FALSE(keyOf({{0, NextHopBlock()}}) < empty);
  EXPECT_TRUE(keyOf({{0, kHighest}, {9, kLow}}) < empty);
}

TEST(NhiInfoKey, slotsOfTheOtherKeyAloneAreNotLookedAt) {
  const NhiInfoKey a = keyOf({{1, kHighest}});
  const NhiInfoKey b = keyOf({{0, kLow}, {1, kHighest}, {2, kHighest}});
  EXPECT_FALSE(a < b);
  EXPECT_TRUE(b < a);
}

TEST(NhiInfoKey, slotsAppendedInOrderMakeTheSameKey) {
  NhiInfoKey key;
  key.slotToNextHopBlockReserve(3);
  key.slotToNextHopBlockAppend(0, kLow);
  key.slotToNextHopBlockAppend(1, kHigh);
  EXPECT_EQ(key, keyOf({{0, kLow}, {1, kHigh}}));
  EXPECT_EQ(key.hash(), keyOf({{0, kLow}, {1, kHigh}}).hash());
}

TEST(NhiInfoKey, printsHashAndCount) {
  EXPECT_EQ(NhiInfoKey().str(), "0x0,0");
  EXPECT_EQ(keyOf({{0, {1, 2}}}).str(), "0x6081b1,1") << "without leading zeros";
  EXPECT_EQ(keyOf({{0, {1, 2}}, {3, NextHopBlock()}}).str(), "0xd49ba6c4,2");
}

TEST(NhiInfoKey, hasNoTextForm) {
  EXPECT_EQ(valueToStrep(keyOf({{0, kLow}})), "None");
  std::ostringstream stream;
  stream << keyOf({{0, kLow}});
  EXPECT_EQ(stream.str(), "None");
}

TEST(NhiInfo, startsWithoutABlockOrUser) {
  const NhiInfo::Ptr info = nhiInfoFactory(keyOf({{0, {1, 2}}}));
  EXPECT_EQ(info->nhiInfoKey(), keyOf({{0, {1, 2}}}));
  EXPECT_EQ(info->fwkKey(), info->nhiInfoKey());
  EXPECT_EQ(info->nhiBaseIdx(), NhiTableIdx());
  EXPECT_EQ(info->subTrieCount(), 0U);
}

TEST(NhiInfo, countingBelowZeroWraps) {
  const NhiInfo::Ptr info = nhiInfoFactory(NhiInfoKey());
  info->subTrieCountInc(2);
  info->subTrieCountDec(3);
  EXPECT_EQ(info->subTrieCount(), 4294967295U);
  info->subTrieCountInc(5);
  EXPECT_EQ(info->subTrieCount(), 4U);
  info->subTrieCountIs(9);
  EXPECT_EQ(info->subTrieCount(), 9U);
}

TEST(NhiInfo, printsKeyBaseAndCount) {
  const NhiInfo::Ptr info = nhiInfoFactory(keyOf({{0, {1, 2}}}));
  info->nhiBaseIdxIs(NhiTableIdx(1, 300));
  info->subTrieCountIs(7);
  EXPECT_EQ(info->str(), "0x6081b1,1/1,300/7");
  EXPECT_EQ(nhiInfoFactory(NhiInfoKey())->str(), "0x0,0/255,65535/0");
}

}  // namespace
}  // namespace Quarle::Tarnlet
