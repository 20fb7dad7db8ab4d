#include "agent/WriteFaults.h"

#include <utility>

namespace Quarle::Agent {

void WriteFaults::note(const std::string& place, XP_STATUS status) {
  ++count_;
  if (first_.empty()) {
    first_ = place + ": the SDK answered " + std::to_string(status) + " to the write, expected " +
             std::to_string(XP_NO_ERR) + ", " + std::to_string(XP_ERR_BUS_RETRIED) + " or " +
             std::to_string(XP_ERR_MEMORY_CORRECTED);
  }
}

void WriteFaults::note(std::exception_ptr thrown) {
  ++count_;
  if (thrown_ == nullptr) {
    thrown_ = std::move(thrown);
  }
}

void WriteFaults::raise() {
  const U64 others = std::exchange(count_, 0) - 1;
  std::string text = std::exchange(first_, {});
  if (const std::exception_ptr thrown = std::exchange(thrown_, nullptr)) {
    std::rethrow_exception(thrown);
  }
  if (others != 0) {
    text += "; " + std::to_string(others) + " more refused in the same operation";
  }
  throw ChipWriteError(text);
}

}  // namespace Quarle::Agent
