#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <unordered_map>

#include "framework/Ferrix/Argument.h"
#include "framework/Ferrix/FileLayout.h"
#include "framework/Ferrix/MappedFile.h"
#include "framework/Ferrix/MsgDesc.h"
#include "framework/Ferrix/RingBuf.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Ferrix {

/// The trace file that this process writes: the ring, and the table of descriptions.
///
/// A description is entered at the first occurrence of its message, and found again by the process
/// that continues the file. When the table is full, messages that are not in it are counted and
/// left out.
class TraceFile {
 public:
  /// Makes or continues a file. Raises `TraceError`, also for a file of another kind, which is left
  /// as it is.
  TraceFile(const Vellor::String8& path, U64 ringSize);

  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  void writeMsg(MsgDesc& desc, std::initializer_list<Arg> operands);

 private:
  static U64 prepare(MappedFile& file, U64 ringSize);

  U8* table() { return base_ + kHeaderSize; }

  void checkPositions() const;
  std::optional<U32> idOf(const MsgDesc& desc, const std::string& format);

  MappedFile file_;
  U8* base_;
  FileHeader& header_;
  RingBuf ring_;
  U32 number_;
  std::unordered_map<std::string, U32> ids_;
};

}  // namespace Ferrix
