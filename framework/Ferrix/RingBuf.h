#pragma once

#include <array>
#include <string_view>

#include "framework/Ferrix/FileLayout.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Types.h"

namespace Ferrix {

/// The writer's side of a ring. A message is put together in this object and copied behind the
/// newest as a whole, when the oldest messages have made room; the order of the stores is what
/// lets readers look on and the process end at any instant.
///
/// Order of calls: `startMsg`, one call for each argument, `endMsg`. A message that was started and
/// not ended is dropped by the next start. Arguments behind `kMaxMsgSize` bytes are cut off, in the
/// middle of a text if need be.
class VELLOR_API RingBuf {
 public:
  /// Continues the ring of a file.
  ///
  /// REQUIRES: `header` and `ring` are mapped, and the process is the file's only writer.
  RingBuf(FileHeader& header, U64* ring) : header_(header), ring_(ring) {}

  /// Begins an occurrence of the message that description `id` describes; its time is now.
  void startMsg(U16 id);

  /// Adds the low `width` bytes of a number, 1, 2, 4 or 8.
  void number(U64 bits, U32 width);

  void text(std::string_view text);

  /// Puts the message in the ring, from where readers see it.
  ///
  /// REQUIRES: a message was started and not ended.
  void endMsg();

 private:
  U64& wordAt(U64 position) { return ring_[position % header_.ringSize / 8]; }

  void makeRoom(U64 end);
  void bytes(const void* from, U32 size);

  U32 room() const { return kMaxMsgSize - size_; }

  FileHeader& header_;
  U64* ring_;
  MsgHead msgHead_;
  // Of the message under way; 0 for none.
  U32 size_ = 0;
  bool cut_ = false;
  std::array<U64, kMaxMsgSize / 8> words_;
};

}  // namespace Ferrix
