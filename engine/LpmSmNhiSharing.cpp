#include <array>

#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// Which sub-tries share which NHI block. A changed content always moves the sub-trie to another
// block, an existing one or a fresh one, and the new block is had before the old one is let go: on
// failure the old state stands whole, and the hardware keeps a valid block until the prefix entry
// is rewritten.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 7;

}  // namespace

NhiInfoKey LpmSm::generateNhiInfoKey(const SubTrie::Ptr& subTrie) const {
  const U32 slots = subTrie->maxPrefixSlot();
  const auto& prefixes = subTrie->prefixCollection();
  const auto& requests = config_->requestCollection();
  // All objects are asked for before the first is read: with a large table each is a cache miss,
  // and they overlap.
  std::array<const LpmPrefix::Ptr*, 256> inSlot;
  for (U32 slot = 0; slot < slots; ++slot) {
    const LpmPrefix::Ptr* prefix = prefixes.find(static_cast<U8>(slot));
    inSlot[slot] = prefix != nullptr && *prefix != nullptr ? prefix : nullptr;
    if (inSlot[slot] != nullptr) {
      // It holds its request, and the write command will count a reference on it.
      Vellor::prefetch(inSlot[slot]->get());
    }
  }
  NhiInfoKey key;
  key.slotToNextHopBlockReserve(slots);
  for (U32 slot = 0; slot < slots; ++slot) {
    // Empty slots go in too: they fix the slot count, and with it the size of the block.
    NextHopBlock block;
    if (inSlot[slot] != nullptr) {
      if (const auto* request = requests.find(*inSlot[slot])) {
        block = request->value;
      }
    }
    key.slotToNextHopBlockAppend(static_cast<U8>(slot), block);
  }
  return key;
}

NhiTableIdx LpmSm::nhiBaseIdxFromNhiInfoKey(const SubTrie::Ptr& subTrie,
                                            const NhiInfoKey& key) const {
  const auto* standing = sharedNhi_.find(key);
  if (standing == nullptr) {
    return NhiTableIdx();
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " subtrie " << subTrie->str() << " nhiInfo available " << standing->value->str());
  return standing->value->nhiBaseIdx();
}

NhiInfo::Ptr LpmSm::allocateNhiInfo(const SubTrie::Ptr& subTrie,
                                    const NhiInfoKey& key,
                                    const NhiTableIdx& nhiBaseIdx) {
  VELLOR_INVARIANT(nhiBaseIdx != NhiTableIdx(), "nhiBaseIdx != NhiTableIdx()", " subtrie ",
                   subTrie->str(), " nhiBaseIdx ", nhiBaseIdx.str());
  VELLOR_INVARIANT(subTrie->prefixs(), "subTrie->prefixs()", " subtrie ", subTrie->str(),
                   " nhiInfoKey ", key.str(), " nhiBaseIdx ", nhiBaseIdx.str());
  bool made = false;
  NhiInfo::Ptr nhiInfo = sharedNhi_.getOrMake(key, made, [&key] { return nhiInfoFactory(key); });
  if (!made) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " nhiInfo found " << nhiInfo->str());
  } else {
    VELLOR_INVARIANT(nhiInfo, "nhiInfo", " subtrie ", subTrie->str(), " nhiInfoKey ", key.str());
    nhiInfo->nhiBaseIdxIs(nhiBaseIdx);
    nhiInfo->subTrieCountIs(0);
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " nhiInfo created " << nhiInfo->str());
  }
  VELLOR_INVARIANT(nhiBaseIdx == nhiInfo->nhiBaseIdx(), "nhiBaseIdx == nhiInfo->nhiBaseIdx()",
                   " subtrie ", subTrie->str(), " nhiBaseIdx ", nhiBaseIdx.str(), " nhInfo ",
                   nhiInfo->str());
  VELLOR_INVARIANT(nhiInfo->nhiInfoKey() == key, "nhiInfo->nhiInfoKey() == nhiInfoKey", " subtrie ",
                   subTrie->str(), " nhiInfo ", nhiInfo->str(), " nhiInfoKey ", key.str());
  SubTrieSet::Ptr subTrieSet = nhiBaseIdxToSubTrie(nhiBaseIdx);
  if (!subTrieSet) {
    subTrieSet = subTrieSetFactory();
    nhiBaseIdxToSubTrieIs(nhiBaseIdx, subTrieSet);
  }
  subTrieSet->subTrieIs(subTrie, true);
  nhiInfo->subTrieCountInc(1);
  subTrie->nhiBaseIdxIs(nhiBaseIdx);
  subTrie->nhiInfoKeyIs(nhiInfo->nhiInfoKey());
  return nhiInfo;
}

void LpmSm::releaseNhiInfo(const SubTrie::Ptr& subTrie) {
  const NhiInfoKey nhiInfoKey = subTrie->nhiInfoKey();
  if (nhiInfoKey == NhiInfoKey()) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " nhiInfoKey not present " << subTrie->str());
    return;
  }
  const auto* standing = sharedNhi_.find(nhiInfoKey);
  VELLOR_INVARIANT(standing, "sharedNhiIterator().isMemberOf( nhiInfoKey )", " subtrie ",
                   subTrie->str(), " nhiInfoKey ", nhiInfoKey.str());
  const NhiInfo::Ptr nhiInfo = standing->value;
  VELLOR_INVARIANT(nhiInfo, "nhiInfo", " subtrie ", subTrie->str(), " nhiInfoKey ",
                   nhiInfoKey.str());
  const NhiTableIdx nhiBaseIdx = nhiInfo->nhiBaseIdx();
  const auto* users = nhiBaseIdxToSubTrie_.find(nhiBaseIdx);
  VELLOR_INVARIANT(users, "nhiBaseIdxToSubTrieIterator().isMemberOf( nhiBaseIdx )", " subtrie ",
                   subTrie->str(), " nhiInfoKey ", nhiInfoKey.str());
  VELLOR_INVARIANT(subTrie->nhiBaseIdx() == nhiInfo->nhiBaseIdx(),
                   "subTrie->nhiBaseIdx() == nhiInfo->nhiBaseIdx()", " subtrie ", subTrie->str(),
                   " nhiInfo ", nhiInfo->str());
  const SubTrieSet::Ptr subTrieSet = users->value;
  VELLOR_INVARIANT(subTrieSet, "subTrieSet", " subtrie ", subTrie->str(), " nhiInfo ",
                   nhiInfo->str());
  VELLOR_INVARIANT(subTrieSet->subTrieCollection().isMember(subTrie),
                   "subTrieSet->subTrieIterator().isMemberOf( subTrie )", " subtrie ",
                   subTrie->str(), " nhiInfoKey ", nhiInfoKey.str());
  subTrieSet->subTrieDel(subTrie);
  if (subTrieSet->subTries() == 0) {
    nhiBaseIdxToSubTrieDel(nhiBaseIdx);
  }
  nhiInfo->subTrieCountDec(1);
  if (nhiInfo->subTrieCount() == 0) {
    releaseNhiBlock(nhiBaseIdx);
    sharedNhiDel(nhiInfoKey);
  } else {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " not releasing nhiInfo " << nhiInfo->str());
  }
}

bool LpmSm::updateNhiInfoForSubTrie(const SubTrie::Ptr& subTrie) {
  constexpr U32 kFlowLevel = 3;
  // Where the old block's records stand; what comes first needs them not yet.
  sharedNhi_.prefetch(subTrie->nhiInfoKey());
  nhiBaseIdxToSubTrie_.prefetch(subTrie->nhiBaseIdx());
  nhiBaseIdxToBlk_.prefetch(subTrie->nhiBaseIdx());
  const NhiInfoKey key = generateNhiInfoKey(subTrie);
  VELLOR_TRACE(tarnletSmTrace, kFlowLevel,
               " subtrie " << subTrie->str() << " new subTrieNhiInfoKey " << key.str());
  if (key == subTrie->nhiInfoKey()) {
    VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " nothing changed in subtrie ");
    return true;
  }
  NhiTableIdx nhiBaseIdx = nhiBaseIdxFromNhiInfoKey(subTrie, key);
  if (nhiBaseIdx != NhiTableIdx()) {
    VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " nhiinfo available " << nhiBaseIdx.str());
    nhiBaseIdxToSubTrie_.prefetch(nhiBaseIdx);
    releaseNhiInfo(subTrie);
    if (subTrie->prefixs() == 0) {
      VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " subtrie is empty ");
      return true;
    }
    VELLOR_INVARIANT(allocateNhiInfo(subTrie, key, nhiBaseIdx),
                     "allocateNhiInfo( subTrie, subTrieNhiInfoKey, nhiBaseIdx ) != NULL",
                     " subTrie ", subTrie->str());
    return true;
  }
  if (subTrie->prefixs() == 0) {
    releaseNhiInfo(subTrie);
    VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " subtrie is empty ");
    return true;
  }
  VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " allocating a new nhiInfo ");
  nhiBaseIdx = allocateNhiBlock(subTrie->maxPrefixSlot());
  if (nhiBaseIdx == NhiTableIdx()) {
    VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " nhi block not available ");
    return false;
  }
  VELLOR_TRACE(tarnletSmTrace, kFlowLevel, " allocated nhiBaseIdx " << nhiBaseIdx.str());
  nhiBaseIdxToSubTrie_.prefetch(nhiBaseIdx);
  releaseNhiInfo(subTrie);
  const NhiInfo::Ptr nhiInfo = allocateNhiInfo(subTrie, key, nhiBaseIdx);
  VELLOR_INVARIANT(nhiInfo, "nhiInfo", " subtrie ", subTrie->str(), " nhiBaseIdx ",
                   nhiBaseIdx.str());
  return true;
}

}  // namespace Quarle::Tarnlet
