#pragma once

#include <sys/mman.h>

#include <atomic>
#include <new>
#include <stdexcept>

#include "tests/kill/Wishes.h"

namespace Quarle::Agent::Testing {

/// What a process has begun and ended, in memory that it shares with its parent: whatever ends it,
/// the parent reads it to the last word.
///
/// Written by the child alone, read by the parent once the child is gone, and emptied before the
/// next one.
class RequestLog {
 public:
  enum class Kind : U32 { begin, end };

  static constexpr U64 kRoom = 1 << 20;

  RequestLog() {
    void* memory = mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::bad_alloc();
    }
    memory_ = new (memory) Memory;
  }

  ~RequestLog() { munmap(memory_, sizeof(Memory)); }

  RequestLog(const RequestLog&) = delete;
  RequestLog& operator=(const RequestLog&) = delete;

  void add(Kind kind, U32 route, U32 list) {
    const U64 count = memory_->count.load(std::memory_order_relaxed);
    if (count == kRoom) {
      throw std::length_error("request log is full");
    }
    memory_->records[count] = {.kind = kind, .route = route, .list = list};
    memory_->count.store(count + 1, std::memory_order_release);
  }

  U64 size() const { return memory_->count.load(std::memory_order_acquire); }

  /// Brings `wishes` up to date, and empties the log.
  void moveTo(Wishes& wishes) {
    for (U64 i = 0; i < size(); ++i) {
      const Record& record = memory_->records[i];
      if (record.kind == Kind::begin) {
        wishes.begin(record.route, record.list);
      } else {
        wishes.end(record.route, record.list);
      }
    }
    memory_->count.store(0, std::memory_order_release);
  }

 private:
  struct Record {
    Kind kind;
    U32 route;
    U32 list;
  };

  struct Memory {
    std::atomic<U64> count{0};
    Record records[kRoom];
  };

  Memory* memory_;
};

}  // namespace Quarle::Agent::Testing
