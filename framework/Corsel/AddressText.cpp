#include "framework/Corsel/AddressText.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <vector>

#include "framework/Vellor/Exception.h"

namespace Corsel {

namespace {

/// The whole text as a number up to `max` in at most `maxDigits` digits.
std::optional<unsigned> number(std::string_view text,
                               int base,
                               unsigned max,
                               std::size_t maxDigits) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size() || value > max ||
      text.size() > maxDigits) {
    return std::nullopt;
  }
  return value;
}

/// Appends the bytes of colon-separated groups; an IPv4 address may stand in place of the last two.
bool appendGroups(std::string_view text, std::vector<U8>& bytes) {
  while (!text.empty()) {
    const std::size_t colon = text.find(':');
    const std::string_view group = text.substr(0, colon);
    if (colon == std::string_view::npos && group.find('.') != std::string_view::npos) {
      U32 address = 0;
      if (!parseIp4(group, address)) {
        return false;
      }
      for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<U8>(address >> shift));
      }
      return true;
    }
    const std::optional<unsigned> value = number(group, 16, 0xffff, 4);
    if (!value) {
      return false;
    }
    bytes.push_back(static_cast<U8>(*value >> 8));
    bytes.push_back(static_cast<U8>(*value));
    if (colon == std::string_view::npos) {
      return true;
    }
    text.remove_prefix(colon + 1);
    if (text.empty()) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::pair<std::string_view, U8> splitPrefixText(const Vellor::String8& text, unsigned maxLength) {
  const std::string_view whole = text;
  const std::size_t slash = whole.find('/');
  const std::optional<unsigned> length = slash == std::string_view::npos
                                             ? std::nullopt
                                             : number(whole.substr(slash + 1), 10, maxLength, 3);
  if (!length) {
    Vellor::throwRangeException("\"" + text +
                                "\" is no prefix, expected address/len with len from 0 to " +
                                Vellor::format("%u", maxLength));
  }
  return {whole.substr(0, slash), static_cast<U8>(*length)};
}

bool parseIp4(std::string_view text, U32& address) {
  U32 parsed = 0;
  for (int octet = 0; octet < 4; ++octet) {
    const std::size_t dot = octet < 3 ? text.find('.') : text.size();
    if (dot == std::string_view::npos) {
      return false;
    }
    const std::optional<unsigned> value = number(text.substr(0, dot), 10, 255, 3);
    if (!value) {
      return false;
    }
    parsed = parsed << 8 | *value;
    text.remove_prefix(std::min(dot + 1, text.size()));
  }
  address = parsed;
  return true;
}

bool parseIp6(std::string_view text, std::array<U8, 16>& bytes) {
  const std::size_t gap = text.find("::");
  std::vector<U8> head;
  std::vector<U8> tail;
  if (gap == std::string_view::npos) {
    if (text.empty() || !appendGroups(text, head) || head.size() != 16) {
      return false;
    }
  } else {
    const std::string_view before = text.substr(0, gap);
    // A dotted tail may stand at the very end only.
    if (before.find('.') != std::string_view::npos || !appendGroups(before, head) ||
        !appendGroups(text.substr(gap + 2), tail) || head.size() + tail.size() > 14) {
      return false;
    }
  }
  bytes.fill(0);
  std::copy(head.begin(), head.end(), bytes.begin());
  std::copy(tail.begin(), tail.end(), bytes.end() - static_cast<std::ptrdiff_t>(tail.size()));
  return true;
}

}  // namespace Corsel
