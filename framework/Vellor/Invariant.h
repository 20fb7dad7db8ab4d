#pragma once

#include <sstream>
#include <string>
#include <type_traits>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Ends the process with "file:line: function: Assertion `text' failed." on the standard error
/// stream.
[[noreturn]] VELLOR_API void assertionFailed(const char* text,
                                             const char* file,
                                             U32 line,
                                             const char* function);

/// Writes "Failed(" expression ") " context to the standard error stream, in one go and without a
/// line end, then fails the assertion `! "expression"`.
[[noreturn]] VELLOR_API void invariantFailed(const char* expression,
                                             const std::string& context,
                                             const char* file,
                                             U32 line,
                                             const char* function);

namespace Detail {

template <class T>
void streamValue(std::ostream& stream, const T& value) {
  // U8 values are numbers here, never characters.
  if constexpr (sizeof(T) == 1 && std::is_integral_v<T> && !std::is_same_v<T, bool>) {
    stream << static_cast<unsigned>(value);
  } else {
    stream << value;
  }
}

template <class... Parts>
[[gnu::cold, gnu::noinline]] std::string contextText(const Parts&... parts) {
  std::ostringstream stream;
  (streamValue(stream, parts), ...);
  return stream.str();
}

}  // namespace Detail
}  // namespace Vellor

/// A fatal check that never compiles out. `text` is a literal, so that no formatter can change the
/// words.
#define VELLOR_ASSERT(condition, text)    \
  (static_cast<bool>(condition) ? void(0) \
                                : ::Vellor::assertionFailed(text, __FILE__, __LINE__, __func__))

/// A fatal check that tells its context: labels, which bring their own blanks, and values, built
/// only on failure.
#define VELLOR_INVARIANT(condition, text, ...)                                                 \
  (static_cast<bool>(condition)                                                                \
       ? void(0)                                                                               \
       : ::Vellor::invariantFailed(text, ::Vellor::Detail::contextText(__VA_ARGS__), __FILE__, \
                                   __LINE__, __func__))
