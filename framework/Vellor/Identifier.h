#pragma once

#include <compare>
#include <ostream>

#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// A number that names something: copied, ordered and hashed by its value. `Tag` keeps the kinds
/// apart.
template <class Tag, class Rep, Rep kDefault>
class Identifier {
 public:
  using Value = Rep;

  constexpr Identifier() = default;

  constexpr Identifier(Rep value) : value_(value) {}

  /// Reads a number and cuts it to the width.
  Identifier(StrepIterator& iterator, const StrepIterator& end) {
    deserializeAttr(iterator, end, &value_, "value");
    checkIdentifierFromText(*this);
  }

  constexpr Rep value() const { return value_; }

  constexpr void valueIs(Rep value) { value_ = value; }

  /// The value itself, its low 32 bits where it is wider.
  constexpr U32 hash() const { return static_cast<U32>(value_); }

  /// The identifier that has this hash.
  static constexpr Identifier fromHash(U32 hash) requires(sizeof(Rep) <= 4) {
    return Identifier(static_cast<Rep>(hash));
  }

  friend constexpr bool operator==(Identifier, Identifier) = default;
  // The check takes the 0 that a rewritten comparison compares with for a pointer.
  // NOLINTNEXTLINE(modernize-use-nullptr)
  friend constexpr auto operator<=>(Identifier, Identifier) = default;

  /// The bare decimal value.
  friend String8 valueToStrep(Identifier identifier) {
    return format("%llu", static_cast<unsigned long long>(identifier.value_));
  }

  friend void sequenceToValue(StrepIterator& iterator,
                              const StrepIterator& end,
                              Identifier* identifier) {
    *identifier = Identifier(iterator, end);
  }

  friend std::ostream& operator<<(std::ostream& stream, Identifier identifier) {
    return stream << static_cast<unsigned long long>(identifier.value_);
  }

 private:
  Rep value_ = kDefault;
};

}  // namespace Vellor
