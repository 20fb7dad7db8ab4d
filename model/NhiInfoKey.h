#pragma once

#include <ostream>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"
#include "model/NextHopBlock.h"

namespace Quarle::Tarnlet {

using TarnletNextHop::NextHopBlock;

/// Identity of the contents of an NHI block, the key by which equal blocks are shared: for each
/// slot of a sub-trie the next-hop block of its prefix, the default block for an empty slot.
///
/// Copies share their map until one changes, and the hash is computed once for a content.
class VELLOR_API NhiInfoKey {
  VELLOR_VALUE(NhiInfoKey);

 public:
  NhiInfoKey() = default;

  /// The empty key, whatever the text: nothing of it is read.
  NhiInfoKey(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end);

  VELLOR_OBJ_TREE(slotToNextHopBlock, SlotToNextHopBlock, U8, NextHopBlock);

  VELLOR_OBJ_END;

  /// Room for this many slots without growth.
  void slotToNextHopBlockReserve(U32 slots) { slotToNextHopBlock_.reserve(slots); }

  /// Adds a slot behind all others. REQUIRES: `slot` is above every slot of the key.
  void slotToNextHopBlockAppend(U8 slot, const NextHopBlock& block) {
    slotToNextHopBlock_.append(slot, block);
  }

  void prefetch() const { slotToNextHopBlock_.prefetch(); }

  /// The one-at-a-time hash over slots and the hashes of their blocks, in slot order; 0 for the
  /// empty key.
  U32 hash() const {
    return slotToNextHopBlock_.memo([this] { return computeHash(); });
  }

  /// "0x" and the hash in hexadecimal "," the number of slots.
  Vellor::String8 str() const;

  friend bool operator==(const NhiInfoKey& a, const NhiInfoKey& b) {
    return a.slotToNextHopBlock_ == b.slotToNextHopBlock_;
  }

  /// No order, by design: true as soon as some slot of `a`, in rising order, has a block whose hash
  /// is below that of `b`'s block at the same slot. Slots of `b` alone are never looked at, and `a
  /// < b` and `b < a` can both hold.
  friend VELLOR_API bool operator<(const NhiInfoKey& a, const NhiInfoKey& b);

  friend bool operator<=(const NhiInfoKey& a, const NhiInfoKey& b) { return !(b < a); }

  friend bool operator>(const NhiInfoKey& a, const NhiInfoKey& b) { return !(a <= b); }

  friend bool operator>=(const NhiInfoKey& a, const NhiInfoKey& b) { return !(a < b); }

 private:
  U32 computeHash() const;
};

/// The contents have no text form.
VELLOR_API Vellor::String8 valueToStrep(const NhiInfoKey& key);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                NhiInfoKey* key);
VELLOR_API std::ostream& operator<<(std::ostream& stream, const NhiInfoKey& key);
VELLOR_API const Vellor::FwkType& vellorValueType(const NhiInfoKey*);

}  // namespace Quarle::Tarnlet
