#include "framework/Vellor/String8.h"

#include <cstdarg>
#include <cstdio>

namespace Vellor {

String8 format(const char* fmt, ...) {
  std::va_list args;
  va_start(args, fmt);
  std::va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, args);
  va_end(args);
  std::string text;
  if (length > 0) {
    // One more for the terminator that vsnprintf insists on; std::string has room for it behind
    // size().
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, fmt, again);
  }
  va_end(again);
  return String8(std::move(text));
}

}  // namespace Vellor
