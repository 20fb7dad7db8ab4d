#pragma once

#include <array>
#include <compare>
#include <ostream>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Corsel {

/// An IPv6 address with a mask length.
///
/// Building one from bytes checks nothing; validAsPrefix() tells. Building one from text checks.
class VELLOR_API Ip6Prefix {
 public:
  using Bytes = std::array<U8, 16>;

  constexpr Ip6Prefix() = default;

  /// `bytes` in network order.
  constexpr Ip6Prefix(const Bytes& bytes, U8 len) : bytes_(bytes), len_(len) {}

  /// Parses "address/len". Raises Vellor::RangeException for any other text, and with
  /// "Ip6Prefix::validAsPrefix != true not allowed" for an address with bits set behind the length.
  explicit Ip6Prefix(const Vellor::String8& text);

  constexpr const Bytes& bytes() const { return bytes_; }

  constexpr U8 len() const { return len_; }

  /// Whether the length is at most 128 and no bit behind it is set.
  bool validAsPrefix() const;

  /// The canonical text: lower case, the longest run of zero groups as "::".
  Vellor::String8 stringValue() const;

  U32 hash() const;

  friend bool operator==(const Ip6Prefix&, const Ip6Prefix&) = default;
  friend auto operator<=>(const Ip6Prefix&, const Ip6Prefix&) = default;

  friend std::ostream& operator<<(std::ostream& stream, const Ip6Prefix& prefix) {
    return stream << prefix.stringValue();
  }

 private:
  Bytes bytes_{};
  U8 len_ = 0;
};

/// The textual form is stringValue() between single quotes.
VELLOR_API Vellor::String8 valueToStrep(const Ip6Prefix& prefix);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                Ip6Prefix* prefix);
VELLOR_API const Vellor::FwkType& vellorValueType(const Ip6Prefix*);

}  // namespace Corsel
