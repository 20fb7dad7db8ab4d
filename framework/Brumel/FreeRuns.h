#pragma once

#include <memory>
#include <vector>

#include "framework/Brumel/BitTree.h"
#include "framework/Brumel/EntryMap.h"
#include "framework/Vellor/Types.h"

namespace Brumel::BFA {

/// The free runs of an allocator by size and by offset, for a best fit in a handful of word
/// operations.
///
/// Small runs, which are nearly all, have a set for each size, made when the size first occurs. Two
/// free runs of one size s never begin within s entries of each other, since a used entry lies
/// between them. Such a set therefore keeps one bit for each stretch of 2^k entries, 2^k being at
/// most s + 1, and not one for each entry. Larger runs are few and stand in one sorted list.
///
/// Invariant 1: no two free runs overlap or touch.
/// Invariant 2: `starts_` has the first entry of every free run, and the map has its size at both
/// ends.
/// Invariant 3: a run of size s up to `smallMax_` has its stretch in `bySize_[s]`; `sizes_` has s
/// exactly when that set is not empty.
/// Invariant 4: `large_` has every other run as size and first entry in one word, falling: the best
/// fit of a request that no small run serves is the last.
class FreeRuns {
 public:
  /// No run is free. Requests to bestFit() are of up to `maxRequest` entries.
  FreeRuns(EntryMap& map, U32 entries, U32 maxRequest);

  /// The smallest free run of at least `size` entries, the lowest among equals; of size 0 when
  /// there is none.
  /// REQUIRES: 0 < `size` <= `maxRequest`.
  Run bestFit(U32 size) const;

  /// True when bestFit() would find a run.
  bool canFit(U32 size) const;

  /// The free run that holds the entry; of size 0 when the entry is used.
  Run runWith(U32 entry) const;

  /// The lowest free run; of size 0 when there is none.
  Run lowest() const;

  /// REQUIRES: the entries are in no free run and no neighbour of a free run.
  void insert(Run run);

  /// REQUIRES: `run` is a whole free run.
  void erase(Run run);

 private:
  static U64 largeKey(Run run);
  /// The logarithm of the stretch length of runs of `size` entries.
  static U32 stretchShift(U32 size);

  EntryMap& map_;
  const U32 entries_;
  const U32 smallMax_;
  BitTree starts_;
  BitTree sizes_;
  std::vector<std::unique_ptr<BitTree>> bySize_;
  std::vector<U64> large_;
};

}  // namespace Brumel::BFA
