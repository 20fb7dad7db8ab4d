#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// When set, every trace statement builds its text, whatever the switches say.
VELLOR_API extern std::ostream* coverageStream_;

/// The trace switches of one source unit: a master switch and one switch for each of ten levels.
///
/// A handle is a constant-initialised global of its unit and joins the registry at its first
/// statement, or never. Until then it holds itself for on, so that the first statement takes the
/// slow path, joins and finds what was asked for by name meanwhile. An off statement costs two
/// tests: the handle's mask and `coverageStream_`.
class VELLOR_API TraceHandle {
 public:
  static constexpr U32 kLevels = 10;

  explicit constexpr TraceHandle(const char* facility) : facility_(facility) {}

  const char* facility() const { return facility_; }

  bool on(U32 level) const {
    // Both tests in one branch.
    if (((mask_ & 1U << level) | reinterpret_cast<std::uintptr_t>(coverageStream_)) == 0)
        [[likely]] {
      return false;
    }
    return levelIsOn(level) || coverageStream_ != nullptr;
  }

  /// Whether the master switch and the level's switch are on.
  [[gnu::cold]] bool levelIsOn(U32 level) const;

  /// The switches by the unit's name; they hold from the unit's next statement on, used already or
  /// not.
  /// REQUIRES: level < kLevels.
  static void masterIs(const String8& facility, bool on);
  static void levelIs(const String8& facility, U32 level, bool on);

 private:
  static constexpr U32 kUnregistered = ~0U;

  const char* facility_;
  mutable U32 mask_ = kUnregistered;
};

/// Receives each trace line. `tag` is always "<unknown>".
using TraceSink = std::function<void(const char* facility,
                                     const char* tag,
                                     const String8& text,
                                     U32 level,
                                     bool levelIsOn,
                                     const char* file,
                                     U32 line,
                                     const char* function)>;

/// Replaces where trace lines go; an empty sink restores the standard error stream.
VELLOR_API void traceSinkIs(TraceSink sink);

/// Hands one finished statement to the sink, and to `coverageStream_` when that is set.
[[gnu::cold]] VELLOR_API void traceHelper(const char* facility,
                                          const char* tag,
                                          const std::ostringstream& stream,
                                          U32 level,
                                          bool levelIsOn,
                                          const char* file,
                                          U32 line,
                                          const char* function);

}  // namespace Vellor

/// One trace statement; `words` is a chain of `<<` operands, evaluated only when the statement is
/// on.
#ifndef VELLOR_TRACE_EMPTY
#define VELLOR_TRACE(handle, level, words)                                            \
  do {                                                                                \
    if ((handle).on(level)) [[unlikely]] {                                            \
      std::ostringstream vellorStream;                                                \
      vellorStream.precision(12);                                                     \
      vellorStream << words;                                                          \
      ::Vellor::traceHelper((handle).facility(), "<unknown>", vellorStream, level,    \
                            (handle).levelIsOn(level), __FILE__, __LINE__, __func__); \
    }                                                                                 \
  } while (false)
#else
#define VELLOR_TRACE(handle, level, words) \
  do {                                     \
  } while (false)
#endif
