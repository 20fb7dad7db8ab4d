#pragma once

#include <compare>
#include <ostream>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Identifier.h"
#include "framework/Vellor/Schema.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Quarle::TarnletNextHop {

/// Software identity of a next-hop group, given by the client of the next-hop table.
using SwId = Vellor::Identifier<struct SwIdTag, U64, ~U64{0}>;

/// Number of ways of a group: consecutive rows of the next-hop table.
using Nway = Vellor::Identifier<struct NwayTag, U16, 65535>;

/// A row of the next-hop table.
using NextHopTableIdx = Vellor::Identifier<struct NextHopTableIdxTag, U32, 4294967295U>;

/// A run of next-hop table rows. The default, all bits set, is no next hop.
class VELLOR_API NextHopBlock {
 public:
  constexpr NextHopBlock() = default;

  constexpr NextHopBlock(NextHopTableIdx base, Nway size) : base_(base), size_(size) {}

  /// Reads the textual form; what it does not name keeps its default.
  NextHopBlock(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end);

  constexpr NextHopTableIdx base() const { return base_; }

  constexpr Nway size() const { return size_; }

  constexpr void baseIs(NextHopTableIdx base) { base_ = base; }

  constexpr void sizeIs(Nway size) { size_ = size; }

  /// The one-at-a-time hash over `base`, then `size`, least significant bytes first.
  constexpr U32 hash() const {
    Vellor::OneAtATimeHash hash;
    hash.addU32(base_.value());
    hash.addByte(static_cast<U8>(size_.value()));
    hash.addByte(static_cast<U8>(size_.value() >> 8));
    return hash.finish();
  }

  /// Base "," size.
  Vellor::String8 str() const;

  friend constexpr bool operator==(const NextHopBlock&, const NextHopBlock&) = default;

 private:
  NextHopTableIdx base_;
  Nway size_;
};

VELLOR_API Vellor::String8 valueToStrep(const NextHopBlock& block);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                NextHopBlock* block);
VELLOR_API std::ostream& operator<<(std::ostream& stream, const NextHopBlock& block);

/// Head and tail position of a NextHopBlockList, compared field by field.
using NextHopBlockMetadata = Vellor::LinkQueueMetadata;

/// The next-hop blocks of one NHI entry in pair order.
class VELLOR_API NextHopBlockList {
  VELLOR_VALUE(NextHopBlockList);

 public:
  NextHopBlockList() = default;

  /// Fatal: a queue has no text form to read.
  NextHopBlockList(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end);

  VELLOR_OBJ_QUEUE(nextHopBlock, NextHopBlock, NextHopBlock);

  VELLOR_OBJ_END;

  friend bool operator==(const NextHopBlockList& a, const NextHopBlockList& b) {
    return a.nextHopBlock_ == b.nextHopBlock_;
  }
};

/// The contents have no text form.
VELLOR_API Vellor::String8 valueToStrep(const NextHopBlockList& list);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                NextHopBlockList* list);
VELLOR_API std::ostream& operator<<(std::ostream& stream, const NextHopBlockList& list);

VELLOR_API const Vellor::FwkType& vellorValueType(const SwId*);
VELLOR_API const Vellor::FwkType& vellorValueType(const Nway*);
VELLOR_API const Vellor::FwkType& vellorValueType(const NextHopTableIdx*);
VELLOR_API const Vellor::FwkType& vellorValueType(const NextHopBlock*);
VELLOR_API const Vellor::FwkType& vellorValueType(const NextHopBlockList*);

}  // namespace Quarle::TarnletNextHop
