#include <algorithm>
#include <bit>

#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// One prefix into one table. insertPrefixToSubTrie() first settles the sub-trie's new layout and
// runs through all refusals without touching anything; below the line that says so, nothing may
// refuse. What a refusal leaves is what was there, but for a sub-trie that a shuffle has moved
// before.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 3;

/// Where a sub-trie's entry is cut: the branch in front, and leaves of `stride` bits.
struct Layout {
  SubTrieBranch branch;
  U8 branchLen;
  U8 stride;
};

/// Shortens `branch` to what it shares with `other` within `len` bits, and tells how much that is.
/// At the first differing bit the rest of its byte is cleared; later bytes stay as they are, so
/// bits behind `commonLen` may stay set.
void findCommonBranch(SubTrieBranch& branch, const SubTrieBranch& other, U8 len, U8& commonLen) {
  commonLen = len;
  for (U32 word = 0; word < 3; ++word) {
    const U64 mine = branch.u64(word);
    const U64 difference = mine ^ other.u64(word);
    if (difference == 0) {
      continue;
    }
    const U32 bit = static_cast<U32>(std::countl_zero(difference));
    // A difference behind `len` does not count.
    if (word * 64 + bit < len) {
      commonLen = static_cast<U8>(word * 64 + bit);
      const U64 restOfByte = U64{0xff} >> bit % 8 << (56 - bit / 8 * 8);
      branch.u64Is(word, mine & ~restOfByte);
    }
    return;
  }
}

/// The smallest stride on offer that is not below `stride`, whatever its value in the map; 255,
/// which fits nowhere, when there is none.
U8 getNextAvailableStride(const ConfigBase& config, U8 stride) {
  const auto& strides = config.availableStrideCollection();
  const auto* next = strides.lowerBound(stride);
  return next == strides.end() ? 255 : next->key;
}

/// The layout that the sub-trie's present branch and stride lead to when the prefix joins.
Layout extendedLayout(const ConfigBase& config,
                      const LpmPrefix& lpmPrefix,
                      const SubTrie& subTrie,
                      U8 prefixLen,
                      bool& collides) {
  Layout layout{};
  const U8 commonLen = std::min(prefixLen, subTrie.branchLen());
  layout.branch = lpmPrefix.branch(commonLen);
  findCommonBranch(layout.branch, subTrie.branch(), commonLen, layout.branchLen);
  collides = layout.branchLen < subTrie.table()->tableConfig()->tread();
  if (collides) {
    return layout;
  }
  // The stride that the present prefixes need below the new branch.
  const U8 reach = static_cast<U8>(subTrie.stride() + subTrie.branchLen() - layout.branchLen);
  const U8 prefixReach = static_cast<U8>(prefixLen - layout.branchLen);
  const U8 wantedStride = prefixReach >= reach ? static_cast<U8>(prefixReach + 1) : reach;
  layout.stride = getNextAvailableStride(config, wantedStride);
  return layout;
}

/// The layout that the prefixes themselves ask for. After deletes they may share more than the
/// branch says: this is the only way for a sub-trie to narrow.
Layout tightLayout(const ConfigBase& config,
                   const LpmPrefix& lpmPrefix,
                   const SubTrie& subTrie,
                   U8 prefixLen) {
  Layout layout{.branch = lpmPrefix.branch(prefixLen), .branchLen = prefixLen, .stride = 0};
  U8 maxPrefixLen = prefixLen;
  for (const auto& member : subTrie.prefixCollection()) {
    const U8 len = member.value->len();
    findCommonBranch(layout.branch, member.value->branch(len), std::min(layout.branchLen, len),
                     layout.branchLen);
    maxPrefixLen = std::max(maxPrefixLen, len);
  }
  VELLOR_ASSERT(maxPrefixLen >= layout.branchLen, "maxPrefixLen >= newBranchLen");
  layout.stride =
      getNextAvailableStride(config, static_cast<U8>(maxPrefixLen - layout.branchLen + 1));
  if (maxPrefixLen < layout.stride) {
    layout.branchLen = 0;
  } else {
    // A stride wider than wanted takes the spare bits from the branch.
    const U32 candidate = U32{maxPrefixLen} + 1 - layout.stride;
    if (candidate >= subTrie.table()->tableConfig()->tread()) {
      layout.branchLen = static_cast<U8>(candidate);
    }
  }
  return layout;
}

}  // namespace

RouteReturnCode LpmSm::insertPrefixInternal(const LpmPrefix::Ptr& lpmPrefix,
                                            const Tarnlet::PrefixTable::Ptr& prefixTable) {
  const PrefixTableIdx index = prefixTable->tableConfig()->hashFunc(lpmPrefix);
  RouteReturnCode ret = insertPrefixToRow(lpmPrefix, prefixTable, index);
  if (ret == RouteReturnCode::pass) {
    return ret;
  }
  if (ret == RouteReturnCode::hashCollision && hashShufflingEnabled()) {
    numHashShufflingAttemptInc(1);
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " numHashShufflingAttempt " << numHashShufflingAttempt());
    const RouteReturnCode subTrieMoved = moveSubTrieFromRow(lpmPrefix, prefixTable, index);
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " subTrieMoved " << subTrieMoved);
    if (subTrieMoved == RouteReturnCode::pass) {
      numHashShufflingSuccessInc(1);
      ret = RouteReturnCode::retry;
    }
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " numHashShufflingSuccess " << numHashShufflingSuccess());
    return ret;
  }
  return createSubTrieInRow(lpmPrefix, prefixTable, index);
}

RouteReturnCode LpmSm::insertPrefixToTable(const LpmPrefix::Ptr& lpmPrefix,
                                           const Tarnlet::PrefixTable::Ptr& prefixTable) {
  return insertPrefixToRow(lpmPrefix, prefixTable, prefixTable->tableConfig()->hashFunc(lpmPrefix));
}

RouteReturnCode LpmSm::insertPrefixToRow(const LpmPrefix::Ptr& lpmPrefix,
                                         const Tarnlet::PrefixTable::Ptr& prefixTable,
                                         PrefixTableIdx index) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " prefix " << lpmPrefix->stringValue() << " prefixTable " << prefixTable->str()
                          << " prefixTableIdx " << index);
  const SubTrie::Ptr subTrie = prefixTable->subTrie(index);
  if (subTrie) {
    subTrie->prefetchParts();
    return insertPrefixToSubTrie(lpmPrefix, subTrie);
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " prefixTableIdx not in subTrie ");
  return RouteReturnCode::subTrieNotPresent;
}

RouteReturnCode LpmSm::createSubTrieWithPrefix(const LpmPrefix::Ptr& lpmPrefix,
                                               const Tarnlet::PrefixTable::Ptr& prefixTable) {
  return createSubTrieInRow(lpmPrefix, prefixTable,
                            prefixTable->tableConfig()->hashFunc(lpmPrefix));
}

RouteReturnCode LpmSm::createSubTrieInRow(const LpmPrefix::Ptr& lpmPrefix,
                                          const Tarnlet::PrefixTable::Ptr& prefixTable,
                                          PrefixTableIdx index) {
  const U8 tread = prefixTable->tableConfig()->tread();
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " prefixTableIdx " << index);
  if (prefixTable->subTrieCollection().isMember(index)) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " prefixTableIdx in subTrie ");
    return RouteReturnCode::subTriePresent;
  }
  const U8 branchLen = lpmPrefix->len();
  VELLOR_INVARIANT(branchLen >= tread, "branchLen >= tread", " lpmPrefix ",
                   lpmPrefix->stringValue(), " tread ", tread);
  // The prefix itself: no leaf room yet, the insertion gives it some.
  const SubTrie::Ptr subTrie = subTrieFactory(index, lpmPrefix->branch(branchLen), branchLen,
                                              /*stride=*/0, modeSparse, prefixTable);
  prefixTable->subTrieIs(index, subTrie);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " creating subtrie " << subTrie->str());
  const RouteReturnCode ret = insertPrefixToSubTrie(lpmPrefix, subTrie);
  if (ret != RouteReturnCode::pass) {
    prefixTable->subTrieDel(index);
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " ret " << ret);
  return ret;
}

RouteReturnCode LpmSm::insertPrefixToSubTrie(const LpmPrefix::Ptr& lpmPrefix,
                                             const SubTrie::Ptr& subTrie) {
  const U8 prefixLen = lpmPrefix->len();
  bool collides = false;
  Layout layout = extendedLayout(*config_, *lpmPrefix, *subTrie, prefixLen, collides);
  if (collides) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " hash collision " << subTrie->str());
    return RouteReturnCode::hashCollision;
  }
  subTrie->prefetchPrefixes();
  const U8 newNumPrefixes = static_cast<U8>(subTrie->maxPrefixSlot() + 1);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " newNumPrefixes " << unsigned{newNumPrefixes});
  if (!subTrie->fit(layout.branchLen, layout.stride, newNumPrefixes, subTrie->mode())) {
    layout = tightLayout(*config_, *lpmPrefix, *subTrie, prefixLen);
    if (!subTrie->fit(layout.branchLen, layout.stride, newNumPrefixes, subTrie->mode())) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " full prefix table " << subTrie->str());
      return RouteReturnCode::full;
    }
  }

  bool inPlace = layout.stride == subTrie->stride() && layout.branchLen == subTrie->branchLen();
  if (!inPlace) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " disable inplace update - changed stride or branchlen ");
  }
  if (newNumPrefixes > config_->nhiPairPerEntry() && !config_->supportMultiNhiEntriesPerSubTrie()) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " exceeded NHI entry's capacity ");
    return RouteReturnCode::nhiCapacityExceeded;
  }
  const U8 newNhiBlkSize = nhiBlockSize(newNumPrefixes);
  if (subTrie->nhiBaseIdx() == NhiTableIdx() || newNhiBlkSize > subTrie->nhiBlkSize()) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " disable inplace update - no nhi or more nhi rqd ");
    inPlace = false;
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " update inPlace " << inPlace << " newStride " << unsigned{layout.stride}
                                  << " newBranchLen " << unsigned{layout.branchLen});
  VELLOR_ASSERT(
      !inPlace || (subTrie->stride() == layout.stride && subTrie->branchLen() == layout.branchLen),
      "subTrie->stride() == newStride && subTrie->branchLen() == newBranchLen");
  // In place or not: a block is never rewritten where it stands, so every insert needs room for a
  // whole new one.
  if (!isNhiBlockAvailable(newNumPrefixes)) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " full NHI table ");
    return RouteReturnCode::nhiTableFull;
  }

  // ---- Decided. Nothing below this line may refuse. ----

  subTrie->branchIs(layout.branch);
  subTrie->branchLenIs(layout.branchLen);
  subTrie->strideIs(layout.stride);
  subTrie->nhiBlkSizeIs(newNhiBlkSize);
  if (!inPlace) {
    subTrie->compactPrefixes();
  }
  subTrie->addPrefix(lpmPrefix);
  VELLOR_INVARIANT(updateNhiInfoForSubTrie(subTrie), "updateNhiInfoForSubTrie( subTrie )",
                   " subtrie ", subTrie->str(), " lpmPrefix ", lpmPrefix->stringValue());
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " inserted prefix in subtrie " << subTrie->str());
  enqueueSubTrieCmds(subTrie, subTrie->nhiInfoKey());
  prefixToSubTrieIs(lpmPrefix, subTrie);
  return RouteReturnCode::pass;
}

}  // namespace Quarle::Tarnlet
