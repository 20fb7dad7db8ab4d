#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// The state of a sub-trie as write commands. Each change rewrites the whole NHI block and the whole
// prefix entry, and the block comes first: the entry never points at what is not yet written.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 4;

}  // namespace

U8 LpmSm::nhiBlockSize(U8 numPrefixes) const {
  const U8 pairs = config_->nhiPairPerEntry();
  return static_cast<U8>(numPrefixes / pairs + (numPrefixes % pairs != 0 ? 1 : 0));
}

void LpmSm::generatePrefixTableWriteCmds(const SubTrie::Ptr& subTrie) {
  const auto& prefixes = subTrie->prefixCollection();
  LpmPrefixList prefixList;
  prefixList.prefixReserve(subTrie->maxPrefixSlot());
  for (U32 slot = 0; slot < subTrie->maxPrefixSlot(); ++slot) {
    const LpmPrefix::Ptr* prefix = prefixes.find(static_cast<U8>(slot));
    if (prefix != nullptr && *prefix != nullptr) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   "  adding prefix " << (*prefix)->stringValue() << " slot " << slot);
      prefixList.prefixEnq(*prefix);
    } else {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   "  adding empty prefix "
                       << " slot " << slot);
      prefixList.prefixEnq(nullptr);
    }
  }
  status_->pendingCmdEnq(prefixCommandFactory(
      subTrie->table()->tableId(), subTrie->index(), subTrie->branch(), subTrie->branchLen(),
      subTrie->stride(), subTrie->mode(), std::move(prefixList), subTrie->nhiBaseIdx()));
}

void LpmSm::generateNhiWriteCmds(const SubTrie::Ptr& subTrie) {
  enqueueNhiCmds(subTrie, generateNhiInfoKey(subTrie));
}

/// REQUIRES: `content` has one member for each slot below the sub-trie's `maxPrefixSlot`.
void LpmSm::enqueueNhiCmds(const SubTrie::Ptr& subTrie, const NhiInfoKey& content) {
  const U32 slots = subTrie->maxPrefixSlot();
  const U32 pairs = config_->nhiPairPerEntry();
  const NhiTableIdx base = subTrie->nhiBaseIdx();
  const auto* pair = content.slotToNextHopBlockCollection().begin();
  for (U32 slot = 0, i = 0; slot < slots; ++i) {
    NextHopBlockList list;
    const U32 inEntry = slots - slot < pairs ? slots - slot : pairs;
    list.nextHopBlockReserve(inEntry);
    for (U32 j = 0; j < inEntry; ++j, ++pair) {
      if (tarnletSmTrace.on(kTraceLevel)) [[unlikely]] {
        const LpmPrefix::Ptr prefix = subTrie->prefix(static_cast<U8>(slot + j));
        if (prefix) {
          VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                       "  adding prefix " << prefix->stringValue() << " nhblk " << pair->value
                                          << " slot " << slot << " j " << j << " i " << i);
        } else {
          VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                       "  adding empty nhblk "
                           << " slot " << slot << " j " << j << " i " << i);
        }
      }
      list.nextHopBlockEnq(pair->value);
    }
    slot += inEntry;
    const NhiTableIdx index(base.tile(), static_cast<U16>(base.offset() + i));
    VELLOR_TRACE(
        tarnletSmTrace, kTraceLevel,
        "  enqueue nhi cmd nhiBaseIdx " << index.str() << " nhBlockLists " << list.nextHopBlocks());
    status_->pendingCmdEnq(nhiCommandFactory(index, std::move(list)));
  }
}

void LpmSm::generateSubTrieWriteCmds(const SubTrie::Ptr& subTrie,
                                     bool generatePrefixCmds,
                                     bool generateNhiCmds) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " subTrie " << subTrie->str() << " generatePrefixCmds " << generatePrefixCmds
                           << " generateNhiCmds " << generateNhiCmds);
  VELLOR_ASSERT(generateNhiCmds || generatePrefixCmds, "generateNhiCmds || generatePrefixCmds");
  if (generateNhiCmds) {
    generateNhiWriteCmds(subTrie);
  }
  if (generatePrefixCmds) {
    generatePrefixTableWriteCmds(subTrie);
  }
}

void LpmSm::enqueueSubTrieCmds(const SubTrie::Ptr& subTrie, const NhiInfoKey& content) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " subTrie " << subTrie->str() << " generatePrefixCmds " << true
                           << " generateNhiCmds " << true);
  enqueueNhiCmds(subTrie, content);
  generatePrefixTableWriteCmds(subTrie);
}

void LpmSm::generatePrefixTableIdxDeleteWriteCmd(const Tarnlet::PrefixTable::Ptr& prefixTable,
                                                 U32 prefixTableIdx,
                                                 const SubTrie::Ptr& subTrie) {
  LpmPrefixList prefixList;
  prefixList.prefixReserve(subTrie->maxPrefixSlot());
  for (U32 slot = 0; slot < subTrie->maxPrefixSlot(); ++slot) {
    prefixList.prefixEnq(nullptr);
  }
  status_->pendingCmdEnq(prefixCommandFactory(
      prefixTable->tableId(), prefixTableIdx, subTrie->branch(), subTrie->branchLen(),
      subTrie->stride(), subTrie->mode(), std::move(prefixList), subTrie->nhiBaseIdx()));
}

}  // namespace Quarle::Tarnlet
