#include "framework/Corsel/Prefix.h"

#include <string_view>

#include "framework/Corsel/AddressText.h"
#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Hash.h"

namespace Corsel {

Prefix::Prefix(const Vellor::String8& text) {
  const auto [address, length] = splitPrefixText(text, 32);
  if (!parseIp4(address, address_)) {
    Vellor::throwRangeException("\"" + text + "\" is no IPv4 prefix, expected a.b.c.d/len");
  }
  len_ = length;
  if (!validAsPrefix()) {
    Vellor::throwRangeException("Prefix::validAsPrefix != true not allowed");
  }
}

bool Prefix::validAsPrefix() const {
  if (len_ >= 32) {
    return len_ == 32;
  }
  return (address_ & (~U32{0} >> len_)) == 0;
}

Vellor::String8 Prefix::stringValue() const {
  return Vellor::format("%u.%u.%u.%u/%u", address_ >> 24, address_ >> 16 & 255U,
                        address_ >> 8 & 255U, address_ & 255U, unsigned{len_});
}

U32 Prefix::hash() const { return Vellor::integerHash(address_ ^ len_); }

Vellor::String8 valueToStrep(const Prefix& prefix) {
  return Vellor::valueToStrep(prefix.stringValue());
}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     Prefix* prefix) {
  Vellor::String8 text;
  Vellor::sequenceToValue(iterator, end, &text);
  *prefix = Prefix(text);
}

const Vellor::FwkType& vellorValueType(const Prefix*) {
  static constinit const Vellor::FwkType kType{"Corsel::Prefix"};
  return kType;
}

}  // namespace Corsel
