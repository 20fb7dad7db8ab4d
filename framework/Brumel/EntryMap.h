#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "framework/Vellor/Prefetch.h"
#include "framework/Vellor/Types.h"

namespace Brumel::BFA {

class Blk;

/// A run of neighbouring entries, counted from the allocator's first one. Size 0 means no run.
struct Run {
  U32 at = 0;
  U32 size = 0;

  U32 end() const { return at + size; }
};

/// What begins or ends at each entry of an allocator, in one word an entry: the neighbours of a
/// block are found without a search. The allocator writes blocks, FreeRuns writes free runs.
///
/// Invariant 1: the word of a block's first entry is the block's address.
/// Invariant 2: the words of a free run's first and last entry are its size times 2 plus 1.
/// Addresses are even, so the low bit tells the two apart.
/// Invariant 3: every other word is 0. Pages of entries never used are thus never touched.
class EntryMap {
 public:
  explicit EntryMap(U32 entries)
      : words_(static_cast<Word*>(std::calloc(entries != 0 ? entries : 1, sizeof(Word)))) {
    if (words_ == nullptr) {
      throw std::bad_alloc();
    }
  }

  /// Asks the memory for the entry's word.
  void prefetch(U32 at) const { Vellor::prefetch(words_.get() + at); }

  /// The block that begins at the entry, or null.
  Blk* blkAt(U32 at) const {
    const Word word = words_[at];
    return (word & 1) == 0 ? reinterpret_cast<Blk*>(word) : nullptr;
  }

  void blkIs(U32 at, Blk* blk) { words_[at] = reinterpret_cast<Word>(blk); }

  /// The size of the free run that begins or ends at the entry, or 0.
  U32 freeSizeAt(U32 at) const {
    const Word word = words_[at];
    return (word & 1) != 0 ? static_cast<U32>(word >> 1) : 0;
  }

  void freeRunIs(Run run) {
    const Word word = Word{run.size} * 2 + 1;
    words_[run.at] = word;
    words_[run.end() - 1] = word;
  }

  void freeRunDel(Run run) {
    words_[run.at] = 0;
    words_[run.end() - 1] = 0;
  }

 private:
  using Word = std::uintptr_t;

  struct Freer {
    void operator()(Word* words) const { std::free(words); }
  };

  std::unique_ptr<Word[], Freer> words_;
};

}  // namespace Brumel::BFA
