#include "framework/Ferrix/RingBuf.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstring>

#include "framework/Vellor/Invariant.h"

namespace Ferrix {

void RingBuf::startMsg(U16 id) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  msgHead_ = {
      .size = 0,
      .id = id,
      .number = static_cast<U32>(header_.begun),
      .time = static_cast<U64>(std::chrono::nanoseconds(now).count()),
  };
  size_ = sizeof(MsgHead);
  cut_ = false;
}

void RingBuf::number(U64 bits, U32 width) {
  if (cut_ || width > room()) {
    cut_ = true;
    return;
  }
  if constexpr (std::endian::native == std::endian::big) {
    bits <<= 64 - 8 * width;
  }
  bytes(&bits, width);
}

void RingBuf::text(std::string_view text) {
  if (cut_ || room() < sizeof(U16)) {
    cut_ = true;
    return;
  }
  const U16 kept = static_cast<U16>(std::min<std::size_t>(text.size(), room() - sizeof(U16)));
  cut_ = kept < text.size();
  bytes(&kept, sizeof kept);
  bytes(text.data(), kept);
}

void RingBuf::endMsg() {
  VELLOR_ASSERT(size_ != 0, "size_ != 0");
  msgHead_.size = static_cast<U16>(size_ | (cut_ ? MsgHead::kCut : 0));
  std::memcpy(words_.data(), &msgHead_, sizeof msgHead_);
  constexpr U64 kFiller = 0;
  const U64 rounded = roundedUp(size_);
  bytes(&kFiller, static_cast<U32>(rounded - size_));
  const U64 head = header_.head;
  makeRoom(head + rounded);
  // A message is counted before it can be torn, so that its absence shows.
  publish(header_.begun, header_.begun + 1);
  for (U64 at = 0; at < rounded; at += 8) {
    publish(wordAt(head + at), words_[at / 8]);
  }
  publish(header_.head, head + rounded);
  size_ = 0;
}

void RingBuf::makeRoom(U64 end) {
  U64 tail = header_.tail;
  while (end - tail > header_.ringSize) {
    const U64 next = tail + roundedUp(msgHeadOf(wordAt(tail)).size & ~MsgHead::kCut);
    // A file that was continued may have been damaged meanwhile: then nothing in it can be kept.
    tail = next > tail && next <= header_.head ? next : header_.head;
  }
  if (tail != header_.tail) {
    publish(header_.tail, tail);
  }
}

void RingBuf::bytes(const void* from, U32 size) {
  std::memcpy(reinterpret_cast<U8*>(words_.data()) + size_, from, size);
  size_ += size;
}

}  // namespace Ferrix
