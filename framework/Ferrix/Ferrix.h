#pragma once

#include <initializer_list>

#include "framework/Ferrix/Argument.h"
#include "framework/Ferrix/MsgDesc.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

/// The production trace: compact messages in a ring in a file that is mapped into memory. Whatever
/// ends the process, the file holds the last messages whole, and other processes may read it all
/// the while (`TraceReader`).
///
/// Like the rest of the library it is used from one thread at a time.
namespace Ferrix {

/// Where messages go; null while tracing is not set up, and in forked children until they set it up
/// for themselves.
VELLOR_API extern TraceFile* theTraceFile;

inline constexpr U64 kDefaultRingSize = U64{1} << 20;

/// Sets tracing up: messages go to the file of this path from now on, and no longer to the one
/// before. The file is created with a ring of `ringSize` bytes; one that is a trace file already is
/// continued with the ring it has. Raises `TraceError`, and then tracing is off.
VELLOR_API void traceFileIs(const Vellor::String8& path, U64 ringSize = kDefaultRingSize);

/// Ends tracing; the file stays.
VELLOR_API void traceFileDel();

/// Writes one occurrence of a message.
///
/// REQUIRES: `theTraceFile` is not null.
VELLOR_API void writeMsg(MsgDesc& desc, std::initializer_list<Arg> operands);

/// Writes one occurrence from operands of any type that a stream prints. String literals are part
/// of the message's format, the others its arguments.
///
/// REQUIRES: `theTraceFile` is not null.
template <class... Operands>
void write(MsgDesc& desc, Operands&&... operands) {
  writeMsg(desc, {Detail::operandOf<Operands>(Detail::keptOf(operands))...});
}

}  // namespace Ferrix
