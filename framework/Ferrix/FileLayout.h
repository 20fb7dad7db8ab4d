#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <string>

#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

/// The bytes of a trace file: a page with the header, the table of descriptions, the ring. Numbers
/// are in the writer's byte order; everything begins on a multiple of 8.
///
/// Invariant 1: positions in the ring count bytes since the file was made; they never go back, and
/// a position's place is its remainder by the ring's size.
/// Invariant 2: from `tail` to `head` stands message behind message, each whole.
/// Invariant 3: `tail` leaves a message before its first word is overwritten, and `head` passes a
/// message after its last word is written. So a writer may end anywhere, and what a reader has
/// copied is whole if `tail` has not left it afterwards.
namespace Ferrix {

inline constexpr U64 kHeaderSize = 4096;
inline constexpr U64 kDescTableSize = U64{256} << 10;
inline constexpr U64 kMinRingSize = U64{16} << 10;
inline constexpr U64 kMaxRingSize = U64{1} << 30;
inline constexpr U32 kByteOrder = 0x01020304;
inline constexpr U32 kVersion = 1;

struct FileHeader {
  char magic[8] = {'F', 'E', 'R', 'R', 'I', 'X', '\r', '\n'};
  U32 byteOrder = kByteOrder;
  U32 version = kVersion;
  U64 descTableSize = kDescTableSize;
  U64 ringSize = 0;
  // The rest changes while a process traces.
  U64 descUsed = 0;  // bytes of the table that are written
  U64 tail = 0;
  U64 head = 0;
  U64 begun = 0;        // messages, with those that their writer did not live to finish
  U64 undescribed = 0;  // messages left out because the table was full

  U64 fileSize() const { return kHeaderSize + descTableSize + ringSize; }
};

static_assert(sizeof(FileHeader) == 72);

/// Begins a description; behind it the bytes of the file's name and of the format.
struct DescHead {
  U32 size = 0;  // with this head and what fills it up to a multiple of 8
  U32 line = 0;
  U16 fileSize = 0;
  U16 formatSize = 0;
  U32 unused = 0;
};

static_assert(sizeof(DescHead) == 16);

/// Begins a message; behind it the arguments: numbers in their width, texts behind a U16 with their
/// length. The next message begins at the next multiple of 8.
struct MsgHead {
  static constexpr U16 kCut = 0x8000;

  U16 size = 0;  // with this head; plus `kCut` when arguments were cut off at the end
  U16 id = 0;    // which description, counted from 0
  U32 number = 0;
  U64 time = 0;  // nanoseconds since 1970
};

static_assert(sizeof(MsgHead) == 16);

/// The head in a message's first two words; the first alone holds size and description.
inline MsgHead msgHeadOf(U64 first, U64 second = 0) {
  return std::bit_cast<MsgHead>(std::array{first, second});
}

/// Bytes of a message at most, with its head.
inline constexpr U32 kMaxMsgSize = 4096;

static_assert(kMinRingSize >= 4 * kMaxMsgSize);

constexpr U64 roundedUp(U64 size) { return (size + 7) & ~U64{7}; }

/// A word that the writer changes while readers look: all before the store is seen by who loads it.
inline void publish(U64& word, U64 value) {
  std::atomic_ref<U64>(word).store(value, std::memory_order_release);
}

inline U64 observe(const U64& word) {
  return std::atomic_ref<U64>(const_cast<U64&>(word)).load(std::memory_order_acquire);
}

/// Raises `TraceError` with one line about the file.
[[noreturn]] void refuse(const Vellor::String8& path, const std::string& text);

/// Raises `TraceError` unless the first `size` bytes of the file, which were read into `header`,
/// are the header of a trace file of this version and machine.
void checkHeader(const Vellor::String8& path, const FileHeader& header, U64 size);

/// Raises `TraceError` unless a ring may have this many bytes.
void checkRingSize(const Vellor::String8& path, U64 ringSize);

}  // namespace Ferrix
