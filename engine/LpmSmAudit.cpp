#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// The audit of one route. Labels and conditions are told to the letter: whoever reads a core file
// knows them by heart. " nhiInfoKey " stands before a whole NhiInfo in some of them.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 9;

}  // namespace

void LpmSm::verifyLpmRoute(const LpmPrefix::Ptr& lpmPrefix) const {
  const Vellor::String8 prefix =
      lpmPrefix == nullptr ? Vellor::String8() : lpmPrefix->stringValue();
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, "LpmSm:: " << __func__ << " Prefix:: " << prefix);

  const SubTrie::Ptr subTrie = prefixToSubTrie(lpmPrefix);
  VELLOR_INVARIANT(subTrie, "subTrie", " prefix ", prefix);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " subtrie " << subTrie->str());
  const NhiInfoKey nhiInfoKey = subTrie->nhiInfoKey();
  VELLOR_INVARIANT(!(nhiInfoKey == NhiInfoKey()), "nhiInfoKey != NhiInfoKey()", " prefix ", prefix);
  const NhiInfo::Ptr nhiInfo = sharedNhi(nhiInfoKey);
  VELLOR_INVARIANT(nhiInfo, "nhiInfo", " prefix ", prefix, " nhiInfoKey ", nhiInfoKey.str());
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " nhiInfo " << nhiInfo->str());
  VELLOR_INVARIANT(nhiInfo->nhiBaseIdx() == subTrie->nhiBaseIdx(),
                   "( nhiInfo->nhiBaseIdx() == subTrie->nhiBaseIdx() )", " prefix ", prefix,
                   " nhiInfo ", nhiInfo->str(), " base index mismatch ");
  const NhiTableIdx nhiBaseIdx = nhiInfo->nhiBaseIdx();
  VELLOR_INVARIANT(nhiBaseIdx != NhiTableIdx(), "nhiBaseIdx != NhiTableIdx()", " prefix ", prefix,
                   " nhiInfoKey ", nhiInfoKey.str());
  const U8 slot = subTrie->prefixToSlot(lpmPrefix);
  const NextHopBlock nhBlock = config()->request(lpmPrefix);
  VELLOR_INVARIANT(nhiInfoKey.slotToNextHopBlock(slot) == nhBlock,
                   "( nhiInfoKey.slotToNextHopBlock( slot ) == nhBlock )", " prefix ", prefix,
                   " nhiInfo ", nhiInfo->str(), " next hop block mismatch ");
  VELLOR_INVARIANT(nhiInfo->subTrieCount(), "nhiInfo->subTrieCount()", " prefix ", prefix,
                   " nhiInfoKey ", nhiInfo->str());
  const SubTrieSet::Ptr subTrieSet = nhiBaseIdxToSubTrie(nhiBaseIdx);
  VELLOR_INVARIANT(subTrieSet, "subTrieSet", " prefix ", prefix, " nhiInfoKey ", nhiInfo->str());
  VELLOR_INVARIANT(subTrieSet->subTrieCollection().isMember(subTrie),
                   "subTrieSet->subTrieIterator().isMemberOf( subTrie )", " prefix ", prefix,
                   " nhiInfoKey ", nhiInfo->str());
  VELLOR_INVARIANT(subTrieSet->subTries() == nhiInfo->subTrieCount(),
                   "subTrieSet->subTries() == nhiInfo->subTrieCount()", " prefix ", prefix,
                   " nhiInfoKey ", nhiInfo->str());
  const Brumel::BFA::Blk::Ptr blk = nhiBaseIdxToBlk(nhiBaseIdx);
  VELLOR_INVARIANT(blk, "blk", " prefix ", prefix, " nhiInfoKey ", nhiInfoKey.str());
  VELLOR_INVARIANT(subTrie->prefixBitmap(), "subTrie->prefixBitmap()", " subTrie ", subTrie->str());
  VELLOR_INVARIANT(subTrie->maxPrefixSlot() > 0, "subTrie->maxPrefixSlot() > 0", " subtrie ",
                   subTrie->str());
  const U8 expectedBlkSize = nhiBlockSize(subTrie->maxPrefixSlot());
  VELLOR_INVARIANT(blk->blkSz() == expectedBlkSize, "blk->blkSz() == expectedBlkSize", " subTrie ",
                   subTrie->str(), " blkSz ", blk->blkSz(), " expectedBlkSize ", expectedBlkSize);
}

}  // namespace Quarle::Tarnlet
