#include "model/SubTrie.h"

#include "framework/Vellor/Invariant.h"
#include "model/PrefixTable.h"
#include "model/TraceUnits.h"

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 6;

/// Bits that the leaves take, cut to 16; shift counts are taken modulo 32.
U16 leafBits(U8 stride, U8 numPrefixes, SubTrieMode mode) {
  switch (mode) {
    case modeSparse:
      return static_cast<U16>(U32{numPrefixes} * stride);
    case modeBitmap:
      return static_cast<U16>((U32{1} << (stride & 31U)) - 1);
    case modeCpe:
      return static_cast<U16>(U32{1} << ((U32{stride} - 1) & 31U));
  }
  Vellor::assertionFailed("false", __FILE__, __LINE__, __func__);
}

}  // namespace

SubTrie::SubTrie(PrefixTableIdx index,
                 const SubTrieBranch& branch,
                 U8 branchLen,
                 U8 stride,
                 SubTrieMode mode,
                 PrefixTable* table)
    : index_(index),
      branch_(branch),
      branchLen_(branchLen),
      stride_(stride),
      mode_(mode),
      table_(table) {}

SubTrie::~SubTrie() = default;

U8 SubTrie::entrySize() const { return table_->tableConfig()->entrySize(); }

bool SubTrie::fit(U8 branchLen, U8 stride, U8 numPrefixes, SubTrieMode mode) const {
  const U8 size = entrySize();
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " SubTrie::"
                   << "fit"
                   << " subtrie " << str() << " branchLen " << unsigned{branchLen} << " stride "
                   << unsigned{stride} << " numPrefixes " << unsigned{numPrefixes} << " mode "
                   << mode << " entrySize " << unsigned{size});
  VELLOR_ASSERT(size >= branchLen, "table()->tableConfig()->entrySize() >= branchLen");
  const U16 availBits = static_cast<U16>(size - branchLen);
  const U16 usedBits = leafBits(stride, numPrefixes, mode);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               "   usedBits " << usedBits << " availBits " << availBits);
  return usedBits <= availBits;
}

void SubTrie::allocatePrefixBitmap() {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " SubTrie::"
                   << "allocatePrefixBitmap"
                   << " subtrie " << str());
  VELLOR_ASSERT(!prefixBitmap(), "!prefixBitmap()");
  VELLOR_ASSERT(stride_ != 0, "stride()");
  // Sized for the sparse layout in every mode.
  const U8 maxNumPrefixes = static_cast<U8>((entrySize() - branchLen_) / stride_);
  prefixBitmapIs(0, maxNumPrefixes, Brumel::HBitmap::BitState{1});
  VELLOR_TRACE(
      tarnletSmTrace, kTraceLevel,
      "  maxNumPrefixes " << unsigned{maxNumPrefixes} << " subTrieLen " << unsigned{entrySize()});
}

void SubTrie::compactPrefixes() {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " SubTrie::"
                   << "compactPrefixes"
                   << " subtrie " << str());
  // The new slots are the order of the walk. The inverse map has a member for each prefix already,
  // so that numbering anew only overwrites.
  prefix_.renumber();
  if (prefixToSlots() != prefixs()) {
    prefixToSlotDelAll();
  }
  const U8 newSlot = static_cast<U8>(prefixs());
  for (U8 slot = 0; slot < newSlot; ++slot) {
    const LpmPrefix::Ptr& prefix = *prefix_.find(slot);
    if (prefix == nullptr) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " empty prefix slot " << unsigned{slot});
    } else {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   " prefix " << prefix->stringValue() << " slot " << unsigned{slot});
      prefixToSlotIs(prefix, slot);
    }
  }
  maxPrefixSlotIs(newSlot);
  prefixBitmapDel();
  allocatePrefixBitmap();
  if (newSlot != 0) {
    prefixBitmap()->setBitsInRange(0, U32{newSlot} - 1);
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " compacted subtrie " << str());
}

void SubTrie::addPrefix(const LpmPrefix::Ptr& prefix) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " SubTrie::"
                   << "addPrefix"
                   << " subtrie " << str());
  const U8 slot = static_cast<U8>(prefixBitmap()->findClearBitInRange(
      0, prefixBitmap()->size() - 1, Brumel::HBitmap::IndexPreference{0}));
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               "  slot " << unsigned{slot} << " lpmPrefix " << prefix->stringValue());
  prefixIs(slot, prefix);
  prefixToSlotIs(prefix, slot);
  prefixBitmap()->setBit(slot);
  if (slot >= maxPrefixSlot_) {
    maxPrefixSlotIs(static_cast<U8>(slot + 1));
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " added prefix subtrie " << str());
}

void SubTrie::removePrefix(const LpmPrefix::Ptr& prefix) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " SubTrie::"
                   << "removePrefix"
                   << " subtrie " << str());
  const U8 slot = prefixToSlot(prefix);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               "  slot " << unsigned{slot} << " lpmPrefix " << prefix->stringValue());
  VELLOR_ASSERT(slot < maxPrefixSlot_, "slot < maxPrefixSlot()");
  prefixDel(slot);
  prefixToSlotDel(prefix);
  prefixBitmap()->clearBit(slot);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " removed prefix subtrie " << str());
}

void SubTrie::dump() const {
  constexpr U32 kDumpLevel = 9;
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "-- SubTrie " << index_ << ":");
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- branchLen " << unsigned{branchLen_});
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- stride " << unsigned{stride_});
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- numPrefixes " << prefixs());
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- maxPrefixSlot " << unsigned{maxPrefixSlot_});
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- nhiBaseIdx " << nhiBaseIdx_);
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- nhiBlkSize " << unsigned{nhiBlkSize_});
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- nhiInfoKey " << nhiInfoKey_.str());
  VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "  -- prefixSlots: ");
  for (U32 slot = 0; slot < maxPrefixSlot_; ++slot) {
    const LpmPrefix::Ptr inSlot = prefix(static_cast<U8>(slot));
    if (inSlot) {
      VELLOR_TRACE(tarnletSmTrace, kDumpLevel,
                   "    -- prefix slot " << slot << " " << inSlot->stringValue());
    } else {
      VELLOR_TRACE(tarnletSmTrace, kDumpLevel, "    -- prefix slot " << slot << " EMPTY");
    }
    VELLOR_TRACE(tarnletSmTrace, kDumpLevel,
                 "    -- nhBlk slot " << slot << " "
                                      << nhiInfoKey_.slotToNextHopBlock(static_cast<U8>(slot)));
  }
}

Vellor::String8 SubTrie::str() const {
  return Vellor::format("%u,%u,%u,%s,%u,%u,%u,%u/%s/%s", index_.value(), unsigned{branchLen_},
                        unsigned{stride_}, stringValue(mode_).charPtr(), unsigned{nhiBlkSize_},
                        prefixs(), unsigned{maxPrefixSlot_},
                        prefixBitmap() ? prefixBitmap()->size() : 0U, nhiInfoKey_.str().charPtr(),
                        nhiBaseIdx_.str().charPtr());
}

SubTrie::Ptr subTrieFactory(PrefixTableIdx index,
                            const SubTrieBranch& branch,
                            U8 branchLen,
                            U8 stride,
                            SubTrieMode mode,
                            const Vellor::Ptr<PrefixTable>& table) {
  return new SubTrie(index, branch, branchLen, stride, mode, table.get());
}

SubTrieSet::Ptr subTrieSetFactory() { return new SubTrieSet(); }

}  // namespace Quarle::Tarnlet
