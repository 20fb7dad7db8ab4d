#pragma once

#include <optional>
#include <string>
#include <vector>

#include "framework/Ferrix/Description.h"
#include "framework/Ferrix/FileLayout.h"
#include "framework/Ferrix/MappedFile.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Ferrix {

/// One occurrence of a message.
struct TraceMessage {
  U64 time = 0;  // nanoseconds since 1970
  std::string file;
  U32 line = 0;
  std::string text;
  // Messages between the one before and this one that are gone: overwritten before they were read,
  // or torn by the end of their writer.
  U32 missed = 0;
};

/// Reads a trace file, the oldest message first, while it is written or afterwards. Readers neither
/// hold up the writer nor one another.
///
/// Everything raises `TraceError`. A file that is cut short while it is read ends the process, as
/// with any file that is mapped into memory.
class VELLOR_API TraceReader {
 public:
  explicit TraceReader(const Vellor::String8& path);
  ~TraceReader();

  TraceReader(const TraceReader&) = delete;
  TraceReader& operator=(const TraceReader&) = delete;

  /// The next message, or nothing when all that were written up to now have been read. Later calls
  /// yield what is written later.
  std::optional<TraceMessage> next();

  /// Messages that the writers left out because the table of descriptions was full.
  U64 undescribed() const;

 private:
  /// Copies the message at `next_`, as far as it can be one.
  MsgHead copyMessage(U64 head);
  TraceMessage decoded(const MsgHead& msgHead, U64 head);
  const Description& description(const MsgHead& msgHead);
  [[noreturn]] void damaged(const std::string& what) const;

  const U64* ring() const {
    return reinterpret_cast<const U64*>(base_ + kHeaderSize + kDescTableSize);
  }

  MappedFile file_;
  const U8* base_;
  const FileHeader& header_;
  std::vector<Description> descriptions_;
  std::vector<U64> words_;
  // Position of the first message not read yet.
  U64 next_ = 0;
  // Of the message at `next_`, unless some are missed; nothing before the first.
  std::optional<U32> number_;
};

}  // namespace Ferrix
