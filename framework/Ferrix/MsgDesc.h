#pragma once

#include "framework/Vellor/Types.h"

namespace Ferrix {

class TraceFile;

/// What all occurrences of one statement share: its source file, its line and, in the trace file,
/// the format that its operands make up.
///
/// A statement has a constant-initialised static one. The trace file writes into it under which
/// number it knows the statement, so that an occurrence finds the number without a search.
class MsgDesc {
 public:
  constexpr MsgDesc(const char* file, U32 line) : file_(file), line_(line) {}

  MsgDesc(const MsgDesc&) = delete;
  MsgDesc& operator=(const MsgDesc&) = delete;

  const char* file() const { return file_; }

  U32 line() const { return line_; }

 private:
  friend class TraceFile;

  const char* file_;
  U32 line_;
  // Which trace file of this process the number is for; 0 for none yet.
  U32 traceFile_ = 0;
  U32 id_ = 0;
  // Of the format that the number stands for: an operand may choose between two literals.
  U64 fingerprint_ = 0;
};

}  // namespace Ferrix
