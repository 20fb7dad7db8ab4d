#pragma once

#include <compare>
#include <ostream>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Corsel {

/// An IPv4 address with a mask length.
///
/// Building one from numbers checks nothing; validAsPrefix() tells. Building one from text checks.
class VELLOR_API Prefix {
 public:
  constexpr Prefix() = default;

  constexpr Prefix(U32 hostOrderAddress, U8 len) : address_(hostOrderAddress), len_(len) {}

  /// Parses "a.b.c.d/len". Raises Vellor::RangeException for any other text, and with
  /// "Prefix::validAsPrefix != true not allowed" for an address with bits set behind the length.
  explicit Prefix(const Vellor::String8& text);

  /// The address in host byte order.
  constexpr U32 address() const { return address_; }

  constexpr U8 len() const { return len_; }

  /// Whether the length is at most 32 and no bit behind it is set.
  bool validAsPrefix() const;

  Vellor::String8 stringValue() const;

  U32 hash() const;

  friend bool operator==(const Prefix&, const Prefix&) = default;
  friend auto operator<=>(const Prefix&, const Prefix&) = default;

  friend std::ostream& operator<<(std::ostream& stream, const Prefix& prefix) {
    return stream << prefix.stringValue();
  }

 private:
  U32 address_ = 0;
  U8 len_ = 0;
};

/// The textual form is stringValue() between single quotes.
VELLOR_API Vellor::String8 valueToStrep(const Prefix& prefix);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                Prefix* prefix);
VELLOR_API const Vellor::FwkType& vellorValueType(const Prefix*);

}  // namespace Corsel
