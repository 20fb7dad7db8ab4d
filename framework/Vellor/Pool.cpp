#include "framework/Vellor/Pool.h"

#include <array>
#include <cstdint>
#include <new>

// Under AddressSanitizer every block comes from the heap by itself, so that use after release and
// overruns are seen.
#if defined(__SANITIZE_ADDRESS__)
#define VELLOR_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELLOR_POOL_BYPASS 1
#endif
#endif

namespace Vellor {

#if defined(VELLOR_POOL_BYPASS)

void* Pool::take(std::size_t size) { return ::operator new(size); }

void Pool::giveBack(void* block, std::size_t) noexcept { ::operator delete(block); }

#else

namespace {

constexpr std::size_t kChunkSize = 128 * 1024;

struct FreeBlock {
  FreeBlock* next;
};

struct FreeLists {
  std::array<FreeBlock*, Pool::kMaxPooled / Pool::kGranule + 1> head{};
  std::byte* chunk = nullptr;
  std::size_t chunkLeft = 0;
};

// Initial-exec: one load instead of a call for each access; the few hundred bytes fit the loader's
// reserve.
[[gnu::tls_model("initial-exec")]] constinit thread_local FreeLists lists{};

[[gnu::noinline]] void* carve(std::size_t rounded) {
  if (lists.chunkLeft < rounded) {
    // What is left of the old chunk is smaller than one block of this class; it is kept for its own
    // class.
    if (lists.chunkLeft != 0) {
      auto* rest = reinterpret_cast<FreeBlock*>(lists.chunk);
      auto& head = lists.head[lists.chunkLeft / Pool::kGranule];
      rest->next = head;
      head = rest;
    }
    lists.chunk = static_cast<std::byte*>(::operator new(kChunkSize));
    lists.chunkLeft = kChunkSize;
  }
  void* block = lists.chunk;
  lists.chunk += rounded;
  lists.chunkLeft -= rounded;
  return block;
}

constexpr std::size_t roundUp(std::size_t size) {
  return (size + Pool::kGranule - 1) & ~(Pool::kGranule - 1);
}

}  // namespace

void* Pool::take(std::size_t size) {
  if (size > kMaxPooled) {
    return ::operator new(size);
  }
  const std::size_t rounded = roundUp(size);
  FreeBlock*& head = lists.head[rounded / kGranule];
  if (head != nullptr) [[likely]] {
    FreeBlock* block = head;
    head = block->next;
    return block;
  }
  return carve(rounded);
}

void Pool::giveBack(void* block, std::size_t size) noexcept {
  if (size > kMaxPooled) {
    ::operator delete(block);
    return;
  }
  FreeBlock*& head = lists.head[roundUp(size) / kGranule];
  auto* freed = static_cast<FreeBlock*>(block);
  freed->next = head;
  head = freed;
}

#endif

}  // namespace Vellor
