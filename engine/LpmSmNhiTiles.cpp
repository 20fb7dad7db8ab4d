#include <algorithm>
#include <vector>

#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// NHI blocks in tiles. An allocation walks all tiles from the one behind the last success and ends
// where it began; the block comes from the last tile that can serve and is named after the first.
// With one tile these are the same.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 7;
constexpr U8 kNoTile = 255;

// One rotation for all machines of the process; only a success moves it.
constinit U8 lastNhiTile = kNoTile;

}  // namespace

bool LpmSm::isNhiBlockAvailable(U8 numPrefixes) const {
  const U8 size = nhiBlockSize(numPrefixes);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " allocate a block of " << unsigned{size});
  // All free entries count, in however many pieces: allocation compacts a tile that has enough but
  // no run.
  for (const auto& member : nhiAllocator_) {
    const U32 freeEntries = member.value->freeEntries();
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " tile " << member.memberKey() << " free entries " << freeEntries);
    if (freeEntries >= size) {
      return true;
    }
  }
  return false;
}

NhiTableIdx LpmSm::allocateNhiBlock(U8 numPrefixes) {
  const U8 size = nhiBlockSize(numPrefixes);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " allocate a block of " << unsigned{size});
  const auto* start =
      lastNhiTile == kNoTile ? nullptr : nhiAllocator_.find(NhiTileIdx(lastNhiTile));
  if (start != nullptr) {
    start = nhiAllocator_.next(start);
  }
  if (start == nullptr) {
    start = nhiAllocator_.first();
  }
  VELLOR_ASSERT(start, "allocatorIter");
  const NhiTileIdx tile = start->memberKey();

  // Every tile with enough free entries is made ready to serve, compacted if need be, and the last
  // of them serves. Carving a block in the others too would change nothing, since only the last
  // survives.
  Brumel::BestFitAllocator* serving = nullptr;
  const auto* visited = start;
  do {
    Brumel::BestFitAllocator& allocator = *visited->value;
    const NhiTileIdx visitedTile = visited->memberKey();
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " trying to allocate in tile " << visitedTile << " free entries "
                                                << allocator.freeEntries());
    if (allocator.freeEntries() >= size) {
      if (!allocator.canAlloc(size)) {
        VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " tile needs defragmentation " << visitedTile);
        const Brumel::BFA::PendingCmds::Ptr defragCmds = allocator.defragment();
        VELLOR_ASSERT(defragCmds, "defragCmds");
        processNhiDefrag(visitedTile, defragCmds);
        VELLOR_ASSERT(allocator.canAlloc(size), "blk");
      }
      serving = &allocator;
    }
    visited = nhiAllocator_.next(visited);
    if (visited == nullptr) {
      visited = nhiAllocator_.first();
    }
  } while (visited != start);

  if (serving == nullptr) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " all nhi tiles are full ");
    return NhiTableIdx();
  }
  const Brumel::BFA::Blk::Ptr blk = serving->alloc(size);
  const NhiTableIdx nhiIdx(tile, static_cast<U16>(blk->offset()));
  lastNhiTile = tile.value();
  nhiBaseIdxToBlkIs(nhiIdx, blk);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " allocated a block of " << unsigned{size} << " nhiIdx " << nhiIdx.str()
                                        << " free entries " << serving->freeEntries());
  return nhiIdx;
}

void LpmSm::reallocNhiBlock(const NhiTableIdx& baseIdx, U8 numPrefixes) {
  const U8 size = nhiBlockSize(numPrefixes);
  const Brumel::BestFitAllocator::Ptr allocator = nhiAllocator(baseIdx.tile());
  VELLOR_ASSERT(allocator, "allocator");
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " reallocate a block of " << unsigned{size} << " nhiIdx " << baseIdx.str());
  const Brumel::BFA::Blk::Ptr blk = allocator->realloc(baseIdx.offset(), size);
  VELLOR_ASSERT(blk, "blk");
  nhiBaseIdxToBlkIs(baseIdx, blk);
}

void LpmSm::releaseNhiBlock(const NhiTableIdx& baseIdx) {
  const Brumel::BFA::Blk::Ptr blk = nhiBaseIdxToBlkDel(baseIdx);
  VELLOR_INVARIANT(blk, "blk", " baseIdx ", baseIdx.str());
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " release a block of " << blk->blkSz() << " nhiIdx " << baseIdx.str());
}

void LpmSm::processNhiDefrag(NhiTileIdx tile, const Brumel::BFA::PendingCmds::Ptr& defragCmds) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " tile " << tile);
  VELLOR_ASSERT(defragCmds, "defragCmds");
  while (defragCmds->pendingCmdLogs() != 0) {
    numNhiBlockDefragInc(1);
    const Brumel::BFA::PendingCmdLog move = defragCmds->pendingCmdLogDeq();
    const NhiTableIdx oldIdx(tile, static_cast<U16>(move.oldOffset()));
    const NhiTableIdx newIdx(tile, static_cast<U16>(move.blk()->offset()));
    const SubTrieSet::Ptr subTrieSetOld = nhiBaseIdxToSubTrie(oldIdx);
    VELLOR_INVARIANT(subTrieSetOld, "subTrieSetOld", " oldNhiIdx ", oldIdx.str());
    SubTrieSet::Ptr subTrieSetNew = nhiBaseIdxToSubTrie(newIdx);
    if (!subTrieSetNew) {
      subTrieSetNew = subTrieSetFactory();
      nhiBaseIdxToSubTrieIs(newIdx, subTrieSetNew);
    }

    // The set is keyed by address, so its order is free. A sub-trie in the middle of a change comes
    // first: what the unchanged ones write last is the content that the shared block is known by.
    std::vector<SubTrie::Ptr> users;
    for (const auto& member : subTrieSetOld->subTrieCollection()) {
      users.push_back(member.key);
    }
    std::stable_partition(users.begin(), users.end(), [this](const SubTrie::Ptr& subTrie) {
      return !(generateNhiInfoKey(subTrie) == subTrie->nhiInfoKey());
    });

    for (const SubTrie::Ptr& subTrie : users) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " subTrie at table " << subTrie->str());
      const NhiInfoKey nhiInfoKey = subTrie->nhiInfoKey();
      VELLOR_INVARIANT(!(nhiInfoKey == NhiInfoKey()), "nhiInfoKey != NhiInfoKey()", " subtrie ",
                       subTrie->str(), " nhiidx old ", oldIdx.str(), " new ", newIdx.str());
      const NhiInfo::Ptr nhiInfo = sharedNhiIs(nhiInfoKey);
      VELLOR_INVARIANT(nhiInfo, "nhiInfo", " subtrie ", subTrie->str(), " nhiidx old ",
                       oldIdx.str(), " new ", newIdx.str());
      subTrie->nhiBaseIdxIs(newIdx);
      nhiBaseIdxToBlkIs(newIdx, move.blk());
      nhiInfo->nhiBaseIdxIs(newIdx);
      nhiBaseIdxToBlkDel(oldIdx);
      subTrieSetNew->subTrieIs(subTrie, true);
      subTrieSetOld->subTrieDel(subTrie);
      generateSubTrieWriteCmds(subTrie, /*generatePrefixCmds=*/true, /*generateNhiCmds=*/true);
    }
    nhiBaseIdxToSubTrieDel(oldIdx);
  }
}

}  // namespace Quarle::Tarnlet
