#pragma once

#include <compare>
#include <ostream>

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Tarnlet {

/// A 144-bit key in five words, left aligned: the top bit of `word0` is key bit 0.
///
/// The views `u8` (18 bytes) and `u64` (3 words; the third holds `word4` in its top 16 bits and
/// reads 0 below) number from the most significant end and hold no storage of their own.
class VELLOR_API SubTrieBranch {
 public:
  constexpr SubTrieBranch() = default;

  constexpr SubTrieBranch(U32 word0, U32 word1, U32 word2, U32 word3, U16 word4)
      : word0_(word0), word1_(word1), word2_(word2), word3_(word3), word4_(word4) {}

  /// Reads the textual form; what it does not name keeps its default.
  SubTrieBranch(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end);

  constexpr U32 word0() const { return word0_; }

  constexpr U32 word1() const { return word1_; }

  constexpr U32 word2() const { return word2_; }

  constexpr U32 word3() const { return word3_; }

  constexpr U16 word4() const { return word4_; }

  constexpr void word0Is(U32 word) { word0_ = word; }

  constexpr void word1Is(U32 word) { word1_ = word; }

  constexpr void word2Is(U32 word) { word2_ = word; }

  constexpr void word3Is(U32 word) { word3_ = word; }

  constexpr void word4Is(U16 word) { word4_ = word; }

  /// Key byte `index`; raises Vellor::RangeException above 17.
  U8 u8(U32 index) const;
  void u8Is(U32 index, U8 value);

  /// Key word `index`; raises Vellor::RangeException above 2. A write of word 2 drops the low 48
  /// bits.
  U64 u64(U32 index) const {
    switch (index) {
      case 0:
        return U64{word0_} << 32 | word1_;
      case 1:
        return U64{word2_} << 32 | word3_;
      case 2:
        return U64{word4_} << 48;
      default:
        Vellor::throwRangeException("SubTrieBranch::u64: index out of range");
    }
  }

  void u64Is(U32 index, U64 value);

  /// The views cannot lose members: always raise Vellor::NondeletableAttrException.
  [[noreturn]] void u8Del(U32 index);
  [[noreturn]] void u64Del(U32 index);

  /// Lexicographic over the words, which is the order of the keys.
  friend constexpr bool operator==(const SubTrieBranch&, const SubTrieBranch&) = default;
  friend constexpr std::strong_ordering operator<=>(const SubTrieBranch&,
                                                    const SubTrieBranch&) = default;

 private:
  U32 word0_ = 0;
  U32 word1_ = 0;
  U32 word2_ = 0;
  U32 word3_ = 0;
  U16 word4_ = 0;
};

VELLOR_API Vellor::String8 valueToStrep(const SubTrieBranch& branch);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                SubTrieBranch* branch);
VELLOR_API std::ostream& operator<<(std::ostream& stream, const SubTrieBranch& branch);
VELLOR_API const Vellor::FwkType& vellorValueType(const SubTrieBranch*);

}  // namespace Quarle::Tarnlet
