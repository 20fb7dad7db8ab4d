#pragma once

#include <tuple>

#include "framework/Vellor/Schema.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/Types.h"

namespace Brumel {
namespace HBitmap {

/// The state in which all bits of a new bitmap are. State 1 means clear.
enum class BitState : U32 { bitSet = 0, bitClear = 1 };

/// Which of several matching bits a search yields.
enum class IndexPreference : U32 { preferLowest = 0 };

/// The textual form of a state is its name between single quotes.
VELLOR_API Vellor::String8 valueToStrep(BitState state);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                BitState* state);
VELLOR_API const Vellor::FwkType& vellorValueType(const BitState*);

}  // namespace HBitmap

/// A fixed set of bits: which slots of a sub-trie are taken.
///
/// There is one for each sub-trie, so it is small: up to 64 bits live in the object, more in one
/// block beside it.
///
/// Invariant 1: storage bits at and above size() are clear.
class VELLOR_API Bitmap : public Vellor::PtrInterface {
  VELLOR_OBJECT(Bitmap, Vellor::PtrInterface);

 public:
  /// What one is made of by name.
  using ConstructorTypes = std::tuple<U64, U32, HBitmap::BitState>;

  /// `id` is a label that nothing reads but its accessor.
  Bitmap(U64 id, U32 size, HBitmap::BitState initialBitState);
  ~Bitmap() override;

  U64 id() const { return id_; }

  U32 size() const { return size_; }

  VELLOR_RECORD(id, Id, computed);
  VELLOR_RECORD(size, Size, computed);

  VELLOR_OBJ_END;

  /// REQUIRES: `bit` < size().
  void setBit(U32 bit);

  /// REQUIRES: `bit` < size().
  void clearBit(U32 bit);

  /// Sets the bits `first` to `last`, both included.
  /// REQUIRES: `first` <= `last` < size().
  void setBitsInRange(U32 first, U32 last);

  /// REQUIRES: `bit` < size().
  bool isBitSet(U32 bit) const;

  /// The lowest clear bit from `first` to `last`, both included, or size() when there is none. A
  /// range may reach past the bitmap; nothing is found there.
  /// REQUIRES: `preference` is preferLowest.
  U32 findClearBitInRange(U32 first, U32 last, HBitmap::IndexPreference preference) const;

  /// The lowest set bit; otherwise as findClearBitInRange().
  U32 findSetBitInRange(U32 first, U32 last, HBitmap::IndexPreference preference) const;

 private:
  U32 wordCount() const;
  U64* words();
  const U64* words() const;
  /// The lowest bit of the range that is set once each word went through exclusive or with `flip`.
  U32 findInRange(U32 first, U32 last, U64 flip) const;

  U32 size_;
  U64 id_;

  union {
    U64 word_;
    U64* words_;
  };
};

}  // namespace Brumel
