#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Counted text in bytes. A value: copied, compared and hashed by content.
class VELLOR_API String8 {
 public:
  /// Forward iterator over the bytes; what the parsers of textual forms read from.
  using IteratorConst = std::string::const_iterator;

  String8() = default;

  String8(const char* text) : text_(text) {}

  String8(std::string_view text) : text_(text) {}

  String8(std::string text) : text_(std::move(text)) {}

  const char* charPtr() const { return text_.c_str(); }

  const std::string& str() const { return text_; }

  operator std::string_view() const { return text_; }

  std::size_t size() const { return text_.size(); }

  bool empty() const { return text_.empty(); }

  IteratorConst begin() const { return text_.begin(); }

  IteratorConst end() const { return text_.end(); }

  String8& operator+=(const String8& other) {
    text_ += other.text_;
    return *this;
  }

  friend String8 operator+(String8 a, const String8& b) {
    a += b;
    return a;
  }

  friend bool operator==(const String8& a, const String8& b) = default;
  friend std::strong_ordering operator<=>(const String8& a, const String8& b) = default;

  friend bool operator==(const String8& a, const char* b) { return a.text_ == b; }

  friend std::ostream& operator<<(std::ostream& stream, const String8& text) {
    return stream << text.text_;
  }

  U32 hash() const { return static_cast<U32>(std::hash<std::string>{}(text_)); }

 private:
  std::string text_;
};

/// The schema's text type, and the type of entity and allocator names.
using String = String8;
using Name = String8;

/// `printf` into a text.
[[gnu::format(printf, 1, 2)]] VELLOR_API String8 format(const char* fmt, ...);

}  // namespace Vellor
