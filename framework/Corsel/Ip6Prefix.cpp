#include "framework/Corsel/Ip6Prefix.h"

#include <string>

#include "framework/Corsel/AddressText.h"
#include "framework/Vellor/Exception.h"

namespace Corsel {

Ip6Prefix::Ip6Prefix(const Vellor::String8& text) {
  const auto [address, length] = splitPrefixText(text, 128);
  if (!parseIp6(address, bytes_)) {
    Vellor::throwRangeException("\"" + text + "\" is no IPv6 prefix, expected address/len");
  }
  len_ = length;
  if (!validAsPrefix()) {
    Vellor::throwRangeException("Ip6Prefix::validAsPrefix != true not allowed");
  }
}

bool Ip6Prefix::validAsPrefix() const {
  if (len_ > 128) {
    return false;
  }
  for (unsigned bit = len_; bit < 128; ++bit) {
    if ((bytes_[bit / 8] >> (7 - bit % 8) & 1) != 0) {
      return false;
    }
  }
  return true;
}

Vellor::String8 Ip6Prefix::stringValue() const {
  std::array<unsigned, 8> groups{};
  for (unsigned i = 0; i < 8; ++i) {
    groups[i] = unsigned{bytes_[2 * i]} << 8 | bytes_[2 * i + 1];
  }
  // The first of the longest runs of at least two zero groups.
  unsigned gapAt = 8;
  unsigned gapLength = 1;
  for (unsigned i = 0; i < 8; ++i) {
    unsigned end = i;
    while (end < 8 && groups[end] == 0) {
      ++end;
    }
    if (end - i > gapLength) {
      gapAt = i;
      gapLength = end - i;
    }
  }
  std::string text;
  for (unsigned i = 0; i < 8; ++i) {
    if (i == gapAt) {
      text += "::";
      i += gapLength - 1;
      continue;
    }
    if (!text.empty() && text.back() != ':') {
      text += ':';
    }
    text += Vellor::format("%x", groups[i]).str();
  }
  return Vellor::String8(text + Vellor::format("/%u", unsigned{len_}).str());
}

U32 Ip6Prefix::hash() const {
  U64 mixed = len_;
  for (unsigned half = 0; half < 2; ++half) {
    U64 word = 0;
    for (unsigned i = 0; i < 8; ++i) {
      word = word << 8 | bytes_[8 * half + i];
    }
    mixed = (mixed ^ word) * 0x9e3779b97f4a7c15U;
    mixed ^= mixed >> 29;
  }
  return static_cast<U32>(mixed >> 32);
}

Vellor::String8 valueToStrep(const Ip6Prefix& prefix) {
  return Vellor::valueToStrep(prefix.stringValue());
}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     Ip6Prefix* prefix) {
  Vellor::String8 text;
  Vellor::sequenceToValue(iterator, end, &text);
  *prefix = Ip6Prefix(text);
}

const Vellor::FwkType& vellorValueType(const Ip6Prefix*) {
  static constinit const Vellor::FwkType kType{"Corsel::Ip6Prefix"};
  return kType;
}

}  // namespace Corsel
