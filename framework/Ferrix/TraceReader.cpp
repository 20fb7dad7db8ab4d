// A message is copied first and held for whole only if the writer has not begun to overwrite it
// meanwhile; whatever a copy holds before that is known is not believed.

#include "framework/Ferrix/TraceReader.h"

#include <algorithm>
#include <span>
#include <utility>

namespace Ferrix {

namespace {

// Numbers of messages go round; a step of more than half of them is a step back.
constexpr U32 kHalfRound = U32{1} << 31;

U64 checkedSize(const MappedFile& file) {
  FileHeader header;
  const U64 got = file.readFront(&header, sizeof header);
  checkHeader(file.path(), header, got);
  if (file.size() < header.fileSize()) {
    refuse(file.path(), "damaged: " + std::to_string(file.size()) + " bytes long, expected " +
                            std::to_string(header.fileSize()));
  }
  return header.fileSize();
}

}  // namespace

TraceReader::TraceReader(const Vellor::String8& path)
    : file_(path, MappedFile::Access::read),
      base_(file_.map(checkedSize(file_))),
      header_(*reinterpret_cast<const FileHeader*>(base_)),
      words_(kMaxMsgSize / 8) {}

// Here, where the parts are known: users of the library see none of them.
TraceReader::~TraceReader() = default;

std::optional<TraceMessage> TraceReader::next() {
  while (true) {
    next_ = std::max(next_, observe(header_.tail));
    // After the tail: then it is at the tail or ahead of it.
    const U64 head = observe(header_.head);
    if (next_ == head) {
      return std::nullopt;
    }
    if (next_ > head || (next_ | head) % 8 != 0) {
      damaged("and messages end at " + std::to_string(head) + ", expected multiples of 8 in order");
    }
    const MsgHead msgHead = copyMessage(head);
    if (next_ >= observe(header_.tail)) {
      return decoded(msgHead, head);
    }
  }
}

MsgHead TraceReader::copyMessage(U64 head) {
  U64 end = sizeof(MsgHead);
  for (U64 at = 0; at < end; at += 8) {
    words_[at / 8] = observe(ring()[(next_ + at) % header_.ringSize / 8]);
    if (at == 0) {
      const U64 size = msgHeadOf(words_[0]).size & ~MsgHead::kCut;
      end = std::max(end, std::min({roundedUp(size), U64{kMaxMsgSize}, head - next_}));
    }
  }
  return msgHeadOf(words_[0], words_[1]);
}

TraceMessage TraceReader::decoded(const MsgHead& msgHead, U64 head) {
  const U32 size = msgHead.size & ~MsgHead::kCut;
  const U64 room = std::min<U64>(head - next_, kMaxMsgSize);
  if (size < sizeof msgHead || roundedUp(size) > room) {
    damaged("has size " + std::to_string(size) + ", expected " + std::to_string(sizeof msgHead) +
            " to " + std::to_string(room));
  }
  const U32 missed = number_ ? msgHead.number - *number_ : 0;
  if (missed >= kHalfRound) {
    damaged("has number " + std::to_string(msgHead.number) + ", expected " +
            std::to_string(*number_) + " or more");
  }
  const Description& kind = description(msgHead);
  const std::span arguments(reinterpret_cast<const U8*>(words_.data()) + sizeof msgHead,
                            size - sizeof msgHead);
  std::optional<std::string> text =
      textOf(kind.parts, arguments, (msgHead.size & MsgHead::kCut) != 0);
  if (!text) {
    damaged("has " + std::to_string(arguments.size()) +
            " bytes of arguments, expected those of \"" + kind.format + "\"");
  }
  next_ += roundedUp(size);
  number_ = msgHead.number + 1;
  return {.time = msgHead.time,
          .file = kind.file,
          .line = kind.line,
          .text = *std::move(text),
          .missed = missed};
}

const Description& TraceReader::description(const MsgHead& msgHead) {
  if (msgHead.id >= descriptions_.size()) {
    const U64 used = observe(header_.descUsed);
    if (used > kDescTableSize) {
      refuse(file_.path(), "damaged: " + std::to_string(used) +
                               " bytes of descriptions, expected at most " +
                               std::to_string(kDescTableSize));
    }
    descriptions_ = descriptionsOf(file_.path(), std::span(base_ + kHeaderSize, used));
  }
  if (msgHead.id >= descriptions_.size()) {
    damaged("has description " + std::to_string(msgHead.id) + ", expected less than " +
            std::to_string(descriptions_.size()));
  }
  return descriptions_[msgHead.id];
}

U64 TraceReader::undescribed() const { return observe(header_.undescribed); }

void TraceReader::damaged(const std::string& what) const {
  refuse(file_.path(), "damaged: the message at position " + std::to_string(next_) + " " + what);
}

}  // namespace Ferrix
