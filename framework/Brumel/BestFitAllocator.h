#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "framework/Brumel/EntryMap.h"
#include "framework/Brumel/FreeRuns.h"
#include "framework/Vellor/Schema.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Brumel {

class BestFitAllocator;

namespace BFA {

/// A block of neighbouring entries. Whoever holds a `Ptr` to it holds the entries; the last `Ptr`
/// gives them back.
///
/// Only its allocator makes blocks, and changes them: defragment() the offset, realloc() the size.
///
/// Invariant 1: the allocator knows every block that names it, and counts none of them.
/// Invariant 2: a block that outlives its allocator names none: its fields stay readable, its end
/// frees nothing.
class VELLOR_API Blk final : public Vellor::PtrInterface {
  VELLOR_OBJECT(Blk, Vellor::PtrInterface);

 public:
  ~Blk() override;

  /// In entries.
  U32 blkSz() const { return blkSz_; }

  /// Of the first entry, in the allocator's range.
  U32 offset() const { return offset_; }

  /// Asks the memory for what the end of the block will change.
  void prefetchPlace() const;

  VELLOR_RECORD(blkSz, BlkSz, computed);
  VELLOR_RECORD(offset, Offset, computed);

  VELLOR_OBJ_END;

 private:
  friend class ::Brumel::BestFitAllocator;

  Blk(BestFitAllocator* allocator, U32 blkSz, U32 offset)
      : blkSz_(blkSz), offset_(offset), allocator_(allocator) {}

  U32 blkSz_;
  U32 offset_;
  BestFitAllocator* allocator_;
};

/// One move of a compaction: where the block was. The block itself already names its new offset.
class PendingCmdLog {
 public:
  PendingCmdLog() = default;

  PendingCmdLog(U32 oldOffset, Blk::Ptr blk) : oldOffset_(oldOffset), blk_(std::move(blk)) {}

  U32 oldOffset() const { return oldOffset_; }

  const Blk::Ptr& blk() const { return blk_; }

 private:
  U32 oldOffset_ = 0;
  Blk::Ptr blk_;
};

/// The moves of one compaction, oldest first. Contents must be moved in this order: a block's new
/// place may be one that an earlier move has just left.
///
/// defragment() fills it, whoever repeats the moves elsewhere empties it. It holds a reference on
/// each block until then.
class VELLOR_API PendingCmds : public Vellor::PtrInterface {
  VELLOR_OBJECT(PendingCmds, Vellor::PtrInterface);

 public:
  /// The number of moves not yet taken out.
  U32 pendingCmdLogs() const { return static_cast<U32>(log_.size() - next_); }

  VELLOR_RECORD(pendingCmdLogs, PendingCmdLogs, computed);

  VELLOR_OBJ_END;

  void pendingCmdLogEnq(U32 oldOffset, Blk::Ptr blk);

  /// Takes out the oldest move; one without a block when there is none left.
  PendingCmdLog pendingCmdLogDeq();

 private:
  std::vector<PendingCmdLog> log_;
  std::size_t next_ = 0;
};

}  // namespace BFA

/// Allocator of runs of entries by best fit: the entries of an NHI tile, the rows of the next-hop
/// table.
///
/// The state machines allocate, hold the blocks and call for compaction. There is no operation that
/// frees: a block ends with its last `Ptr`. Offsets seen from outside include the allocator's own
/// offset().
///
/// Invariant 1: every entry belongs to one block or to one free run; free runs never touch each
/// other.
/// Invariant 2: freeEntries() is the sum of the free runs.
/// Invariant 3: the state depends on the blocks alone and not on how they came about: alloc() and
/// the end of its block leave the allocator as it was.
class VELLOR_API BestFitAllocator : public Vellor::PtrInterface {
  VELLOR_OBJECT(BestFitAllocator, Vellor::PtrInterface);

 public:
  /// Manages the entries `offset` to `offset` + `memSz` - 1, all free, in blocks of up to
  /// `maxBlkSz`.
  /// REQUIRES: `offset` + `memSz` does not pass 2^32.
  BestFitAllocator(Vellor::Name name, U32 memSz, U32 offset, U32 maxBlkSz);
  ~BestFitAllocator() override;

  const Vellor::Name& name() const { return name_; }

  U32 offset() const { return offset_; }

  U32 maxBlkSz() const { return maxBlkSz_; }

  U32 entriesCapacity() const { return memSz_; }

  /// All free entries, in however many pieces.
  U32 freeEntries() const { return freeEntries_; }

  VELLOR_RECORD(name, Name, computed);
  VELLOR_RECORD(offset, Offset, computed);
  VELLOR_RECORD(maxBlkSz, MaxBlkSz, computed);
  VELLOR_RECORD(freeEntries, FreeEntries, computed);
  VELLOR_RECORD(entriesCapacity, EntriesCapacity, computed);

  VELLOR_OBJ_END;

  /// A block carved from the low end of the smallest free run that is large enough, the lowest
  /// among equals. Null when there is no such run, or when `size` is 0 or above maxBlkSz().
  [[nodiscard]] BFA::Blk::Ptr alloc(U32 size);

  /// True exactly when alloc() would give a block now.
  bool canAlloc(U32 size) const;

  /// The block that begins at `offset`, with `size` entries. A block that begins there is resized
  /// in place and stays the same object: shrinking frees its tail, growing takes the free entries
  /// behind it. Where no block begins, the free range becomes a new block. Null, and nothing
  /// changed, when an entry of the range belongs to another block or lies outside, or when `size`
  /// is 0 or above maxBlkSz().
  BFA::Blk::Ptr realloc(U32 offset, U32 size);

  /// Slides all blocks towards the low end, so that the free entries form one run, and gives the
  /// log of the blocks that moved, in order of rising old offset. Never null.
  ///
  /// The direction is part of the contract: an owner that rewrites moved contents in log order, and
  /// writes past the end of a block, spills only into places that are rewritten later.
  BFA::PendingCmds::Ptr defragment();

 private:
  friend class BFA::Blk;

  bool sizeAllowed(U32 size) const { return size != 0 && size <= maxBlkSz_; }

  /// Makes a block of a part of a free run; what is left of the run stays free.
  BFA::Blk::Ptr blkFromFree(BFA::Run whole, BFA::Run part);
  BFA::Blk::Ptr resized(BFA::Blk& blk, U32 size);
  /// Takes `part` out of the free run `whole`.
  void take(BFA::Run whole, BFA::Run part);
  /// Makes used entries free, as one run with the free runs on either side.
  void release(BFA::Run run);
  void blkEnds(const BFA::Blk& blk);

  const Vellor::Name name_;
  const U32 memSz_;
  const U32 offset_;
  const U32 maxBlkSz_;
  U32 freeEntries_;
  BFA::EntryMap map_;
  BFA::FreeRuns freeRuns_;
};

}  // namespace Brumel
