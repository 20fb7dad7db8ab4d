#pragma once

#include <ostream>
#include <sstream>
#include <type_traits>

#include "framework/Ferrix/Ferrix.h"
#include "framework/Ferrix/MsgDesc.h"
#include "framework/Vellor/Trace.h"
#include "framework/Vellor/Types.h"

/// The statement that feeds both traces: the one of the source units, with its switches, and the
/// production trace.
namespace Gimbrel {

namespace Detail {

template <class T>
void streamOperand(std::ostream& stream, const T& operand) {
  // Both traces print U8 values as numbers.
  if constexpr (std::is_same_v<T, U8> || std::is_same_v<T, signed char>) {
    stream << int{operand};
  } else {
    stream << operand;
  }
}

}  // namespace Detail

/// Sends one statement to each trace that is on.
template <class... Operands>
[[gnu::cold, gnu::noinline]] void trace(const Vellor::TraceHandle& handle,
                                        U32 level,
                                        Ferrix::MsgDesc& desc,
                                        const char* function,
                                        Operands&&... operands) {
  if (handle.on(level)) {
    std::ostringstream stream;
    stream.precision(12);
    (Detail::streamOperand(stream, operands), ...);
    Vellor::traceHelper(handle.facility(), "<unknown>", stream, level, handle.levelIsOn(level),
                        desc.file(), desc.line(), function);
  }
  if (Ferrix::theTraceFile != nullptr) {
    Ferrix::write(desc, static_cast<Operands&&>(operands)...);
  }
}

}  // namespace Gimbrel

/// One statement for both traces. The operands, between commas, are evaluated once, and only when
/// one of the traces is on: off, it costs one test more than `VELLOR_TRACE`.
#ifndef VELLOR_TRACE_EMPTY
#define VELLOR_GIMBREL_TRACE(handle, level, ...)                                \
  do {                                                                          \
    if (::Ferrix::theTraceFile != nullptr || (handle).on(level)) [[unlikely]] { \
      static constinit ::Ferrix::MsgDesc gimbrelDesc(__FILE__, __LINE__);       \
      ::Gimbrel::trace((handle), (level), gimbrelDesc, __func__, __VA_ARGS__);  \
    }                                                                           \
  } while (false)
#else
#define VELLOR_GIMBREL_TRACE(handle, level, ...) \
  do {                                           \
  } while (false)
#endif
