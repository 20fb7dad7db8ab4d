#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// A collision gives way once: the sub-trie that stands in the wanted row moves to a free row of
// another table of the same tread, where its own hash lands somewhere else. One move, one level
// deep; no third sub-trie is ever displaced. The NHI block, slots and prefixes stay, so nothing
// that points at the sub-trie has to change.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 3;

/// The prefix in the lowest slot: any prefix of a sub-trie hashes it to the same row of a table of
/// its tread.
LpmPrefix::Ptr firstPrefix(const SubTrie& subTrie) {
  const Brumel::Bitmap::Ptr& bitmap = subTrie.prefixBitmap();
  if (!bitmap) {
    return nullptr;
  }
  // One place further than there are bits; an occupied row ends the search earlier.
  const U32 slot =
      bitmap->findSetBitInRange(0, bitmap->size(), Brumel::HBitmap::IndexPreference{0});
  return slot < bitmap->size() ? subTrie.prefix(static_cast<U8>(slot)) : LpmPrefix::Ptr();
}

}  // namespace

RouteReturnCode LpmSm::moveSubTrie(const LpmPrefix::Ptr& lpmPrefix,
                                   const Tarnlet::PrefixTable::Ptr& prefixTable) {
  return moveSubTrieFromRow(lpmPrefix, prefixTable,
                            prefixTable->tableConfig()->hashFunc(lpmPrefix));
}

RouteReturnCode LpmSm::moveSubTrieFromRow(const LpmPrefix::Ptr& lpmPrefix,
                                          const Tarnlet::PrefixTable::Ptr& prefixTable,
                                          PrefixTableIdx srcPrefixTableIdx) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " srcPrefixTableIdx " << srcPrefixTableIdx);
  const SubTrie::Ptr srcSubTrie = prefixTable->subTrie(srcPrefixTableIdx);
  VELLOR_INVARIANT(srcSubTrie, "srcSubTrie", " lpmPrefix ", lpmPrefix->stringValue(),
                   " srcPrefixTable ", prefixTable->str());
  const LpmPrefix::Ptr srcLpmPrefix = firstPrefix(*srcSubTrie);
  VELLOR_INVARIANT(srcLpmPrefix, "srcLpmPrefix", " lpmPrefix ", lpmPrefix->stringValue(),
                   " srcPrefixTable ", prefixTable->str(), " subTrie ", srcSubTrie->str());

  // The first free row wins, whatever the entry size of its table: the walk does not ask fit().
  Tarnlet::PrefixTable::Ptr dstPrefixTable;
  PrefixTableIdx dstPrefixTableIdx;
  const auto& sorted = config_->prefixTableSortedByTreadCollection();
  for (U32 i = 0; i < prefixTables(); ++i) {
    VELLOR_INVARIANT(i < sorted.count() && sorted.at(i), "dstPrefixTable", " lpmPrefix ",
                     lpmPrefix->stringValue(), " i ", i);
    const Tarnlet::PrefixTable::Ptr& candidate = sorted.at(i);
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 "  i " << i << " dstPrefixTable " << candidate->str());
    if (candidate->tableId() == prefixTable->tableId()) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " skip - src and dst are same ");
      continue;
    }
    if (candidate->tableConfig()->tread() != prefixTable->tableConfig()->tread()) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " skip - tread are different ");
      continue;
    }
    dstPrefixTableIdx = candidate->tableConfig()->hashFunc(srcLpmPrefix);
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " dstPrefixTableIdx " << dstPrefixTableIdx);
    if (candidate->subTrieCollection().isMember(dstPrefixTableIdx)) {
      VELLOR_TRACE(
          tarnletSmTrace, kTraceLevel,
          " skip - subtrie already present " << candidate->subTrie(dstPrefixTableIdx)->str());
      continue;
    }
    dstPrefixTable = candidate;
    break;
  }

  RouteReturnCode ret = RouteReturnCode::fail;
  if (dstPrefixTable) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " insert to " << dstPrefixTable->str() << "/" << dstPrefixTableIdx);
    srcSubTrie->tableIs(dstPrefixTable.get());
    srcSubTrie->indexIs(dstPrefixTableIdx);
    dstPrefixTable->subTrieIs(dstPrefixTableIdx, srcSubTrie);
    generatePrefixTableWriteCmds(srcSubTrie);
    for (U32 slot = 0; tarnletSmTrace.on(kTraceLevel) && slot < srcSubTrie->maxPrefixSlot();
         ++slot) {
      const LpmPrefix::Ptr moving = srcSubTrie->prefix(static_cast<U8>(slot));
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   "   moving slot " << slot << " lpmPrefix "
                                     << (moving ? moving->stringValue() : Vellor::String8()));
    }
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " delete from " << prefixTable->str() << "/" << srcPrefixTableIdx);
    generatePrefixTableIdxDeleteWriteCmd(prefixTable, srcPrefixTableIdx.value(), srcSubTrie);
    prefixTable->subTrieDel(srcPrefixTableIdx);
    ret = RouteReturnCode::pass;
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " moved " << ret);
  return ret;
}

}  // namespace Quarle::Tarnlet
