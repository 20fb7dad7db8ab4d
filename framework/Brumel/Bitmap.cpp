#include "framework/Brumel/Bitmap.h"

#include <algorithm>
#include <bit>

#include "framework/Vellor/Invariant.h"
#include "framework/Vellor/Pool.h"

namespace Brumel {
namespace {

constexpr U32 kWordBits = 64;
constexpr U64 kAllBits = ~U64{0};

/// The bits `bit` and above of a word.
constexpr U64 bitsFrom(U32 bit) { return kAllBits << (bit % kWordBits); }

/// The bits up to and with `bit` of a word.
constexpr U64 bitsUpTo(U32 bit) { return kAllBits >> (kWordBits - 1 - bit % kWordBits); }

}  // namespace

Bitmap::Bitmap(U64 id, U32 size, HBitmap::BitState initialBitState)
    : size_(size), id_(id), word_(0) {
  if (wordCount() > 1) {
    words_ = static_cast<U64*>(Vellor::Pool::take(wordCount() * sizeof(U64)));
    std::fill_n(words_, wordCount(), U64{0});
  }
  if (initialBitState == HBitmap::BitState::bitSet && size != 0) {
    setBitsInRange(0, size - 1);
  }
}

Bitmap::~Bitmap() {
  if (wordCount() > 1) {
    Vellor::Pool::giveBack(words_, wordCount() * sizeof(U64));
  }
}

void Bitmap::setBit(U32 bit) {
  VELLOR_ASSERT(bit < size_, "bit < size()");
  words()[bit / kWordBits] |= U64{1} << (bit % kWordBits);
}

void Bitmap::clearBit(U32 bit) {
  VELLOR_ASSERT(bit < size_, "bit < size()");
  words()[bit / kWordBits] &= ~(U64{1} << (bit % kWordBits));
}

void Bitmap::setBitsInRange(U32 first, U32 last) {
  VELLOR_ASSERT(first <= last, "first <= last");
  VELLOR_ASSERT(last < size_, "last < size()");
  U64* word = words();
  const U32 lastWord = last / kWordBits;
  for (U32 i = first / kWordBits; i <= lastWord; ++i) {
    const U64 low = i == first / kWordBits ? bitsFrom(first) : kAllBits;
    const U64 high = i == lastWord ? bitsUpTo(last) : kAllBits;
    word[i] |= low & high;
  }
}

bool Bitmap::isBitSet(U32 bit) const {
  VELLOR_ASSERT(bit < size_, "bit < size()");
  return (words()[bit / kWordBits] >> (bit % kWordBits) & 1) != 0;
}

U32 Bitmap::findClearBitInRange(U32 first, U32 last, HBitmap::IndexPreference preference) const {
  VELLOR_ASSERT(preference == HBitmap::IndexPreference::preferLowest, "preference == preferLowest");
  return findInRange(first, last, kAllBits);
}

U32 Bitmap::findSetBitInRange(U32 first, U32 last, HBitmap::IndexPreference preference) const {
  VELLOR_ASSERT(preference == HBitmap::IndexPreference::preferLowest, "preference == preferLowest");
  return findInRange(first, last, 0);
}

U32 Bitmap::wordCount() const { return size_ / kWordBits + (size_ % kWordBits != 0); }

U64* Bitmap::words() { return wordCount() > 1 ? words_ : &word_; }

const U64* Bitmap::words() const { return wordCount() > 1 ? words_ : &word_; }

U32 Bitmap::findInRange(U32 first, U32 last, U64 flip) const {
  if (first >= size_) {
    return size_;
  }
  const U32 end = std::min(last, size_ - 1);
  const U64* word = words();
  U64 mask = bitsFrom(first);
  for (U32 i = first / kWordBits; i <= end / kWordBits; ++i) {
    const U64 matches = (word[i] ^ flip) & mask;
    if (matches != 0) {
      // The first match may still lie past the range: in its last word, or in the unused bits above
      // size().
      const U32 found = i * kWordBits + static_cast<U32>(std::countr_zero(matches));
      return found <= end ? found : size_;
    }
    mask = kAllBits;
  }
  return size_;
}

}  // namespace Brumel
