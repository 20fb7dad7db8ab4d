#pragma once

#include "framework/Brumel/Bitmap.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Enumerations.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"
#include "model/NhiInfoKey.h"
#include "model/SubTrieBranch.h"

namespace Quarle::Tarnlet {

class PrefixTable;
using PrefixTableRawPtr = PrefixTable*;

/// Image of one hardware prefix table entry: a branch that all its prefixes begin with, and a list
/// of leaves of `stride` bits, one for each slot. All lengths are in key bits.
///
/// A prefix's slot is the place of its leaf in the entry and of its next-hop pair in the NHI block.
///
/// Invariants:
///  1. `prefix` and `prefixToSlot` are inverse maps, but inside an operation.
///  2. `prefixBitmap`, once made, has its bits set exactly for the slots in `prefix`.
///  3. After a request the slots are 0 to prefixs() - 1 and `maxPrefixSlot` is prefixs(), but for a
///     sub-trie that a delete has just emptied, which keeps its old one on its way out.
///  4. Every prefix is at least `branchLen` and at most `branchLen + stride - 1` long and begins
///     with the branch.
///  5. Bits of `branch` behind `branchLen` mean nothing and need not be zero.
class VELLOR_API SubTrie : public Vellor::PtrInterface {
  VELLOR_OBJECT(SubTrie, Vellor::PtrInterface);

 public:
  SubTrie(PrefixTableIdx index,
          const SubTrieBranch& branch,
          U8 branchLen,
          U8 stride,
          SubTrieMode mode,
          PrefixTable* table);
  ~SubTrie() override;

  // Row of its table; changes only when the sub-trie moves.
  VELLOR_OBJ_ATTR(index, Index, PrefixTableIdx, PrefixTableIdx());
  VELLOR_OBJ_ATTR(branch, Branch, SubTrieBranch, SubTrieBranch());
  VELLOR_OBJ_ATTR(branchLen, BranchLen, U8, 0);
  VELLOR_OBJ_ATTR(stride, Stride, U8, 0);
  VELLOR_OBJ_ATTR(mode, Mode, SubTrieMode, modeSparse);
  // Uncounted: the table holds its sub-tries.
  VELLOR_OBJ_ATTR(table, Table, PrefixTableRawPtr, nullptr);
  VELLOR_OBJ_ATTR(nhiBaseIdx, NhiBaseIdx, NhiTableIdx, NhiTableIdx());
  // In NHI entries.
  VELLOR_OBJ_ATTR(nhiBlkSize, NhiBlkSize, U8, 0);
  // Content of the NHI block as last generated.
  VELLOR_OBJ_ATTR(nhiInfoKey, NhiInfoKey, NhiInfoKey, NhiInfoKey());
  // One above the highest slot used since the last compaction.
  VELLOR_OBJ_ATTR(maxPrefixSlot, MaxPrefixSlot, U8, 0);
  VELLOR_OBJ_MAP(prefix, Prefix, U8, LpmPrefix::Ptr);
  VELLOR_OBJ_MAP(prefixToSlot, PrefixToSlot, LpmPrefix::Ptr, U8);
  // Made by the first compactPrefixes() or allocatePrefixBitmap().
  VELLOR_OBJ_CHILD(prefixBitmap, PrefixBitmap, Brumel::Bitmap);

  VELLOR_OBJ_END;

  /// Whether a layout fits into an entry of the table. Reads nothing of the sub-trie but its table.
  /// REQUIRES: the table's entry size is at least `branchLen`.
  bool fit(U8 branchLen, U8 stride, U8 numPrefixes, SubTrieMode mode) const;

  /// Makes a clear bitmap for the current branch length and stride.
  /// REQUIRES: there is none; `stride` is not 0.
  void allocatePrefixBitmap();

  /// Numbers the prefixes from 0 anew and rebuilds the bitmap for the current geometry. The new
  /// slots follow the walk over `prefix`, which is no rising walk, so prefixes change places even
  /// without a hole.
  void compactPrefixes();

  /// Puts a prefix into the lowest free slot. REQUIRES: the bitmap has a clear bit.
  void addPrefix(const LpmPrefix::Ptr& prefix);

  /// Takes a prefix out of its slot; a prefix that is not here counts as that of slot 0.
  void removePrefix(const LpmPrefix::Ptr& prefix);

  /// Asks the memory for everything that a change of the sub-trie touches: its parts lie apart, and
  /// with a large table each is a cache miss.
  void prefetchParts() const {
    prefix_.prefetchAll();
    prefixToSlot_.prefetchAll();
    Vellor::prefetch(prefixBitmap_.get());
    nhiInfoKey_.prefetch();
  }

  /// The same for its prefixes.
  void prefetchPrefixes() const {
    for (U32 slot = 0; slot < maxPrefixSlot_; ++slot) {
      if (const LpmPrefix::Ptr* prefix = prefix_.find(static_cast<U8>(slot))) {
        Vellor::prefetchTwoLines(prefix->get());
      }
    }
  }

  /// Everything of the sub-trie, one line each, to trace level 9.
  void dump() const;

  /// Index, branch length, stride, mode, block size, prefixes, maxPrefixSlot and bitmap size
  /// between commas, then "/" key and "/" base.
  Vellor::String8 str() const;

  // Its membership in the set of those that share its block.
  auto& vellorHeldValues(const bool*) { return isInSet_; }

 private:
  U8 entrySize() const;

  Vellor::HeldValues<bool, 1> isInSet_;
};

VELLOR_API SubTrie::Ptr subTrieFactory(PrefixTableIdx index,
                                       const SubTrieBranch& branch,
                                       U8 branchLen,
                                       U8 stride,
                                       SubTrieMode mode,
                                       const Vellor::Ptr<PrefixTable>& table);

/// The sub-tries that use one NHI block, by identity.
class VELLOR_API SubTrieSet : public Vellor::PtrInterface {
  VELLOR_OBJECT(SubTrieSet, Vellor::PtrInterface);

 public:
  VELLOR_OBJ_MAP(subTrie, SubTrie, Tarnlet::SubTrie::Ptr, bool);

  VELLOR_OBJ_END;
};

VELLOR_API SubTrieSet::Ptr subTrieSetFactory();

}  // namespace Quarle::Tarnlet
