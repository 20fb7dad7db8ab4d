#pragma once

#include <exception>
#include <stdexcept>
#include <string>

#include "framework/Vellor/Types.h"
#include "framework/Xdk/Xdk.h"

namespace Quarle::Agent {

/// The SDK refused a write: software and chip no longer agree. One line with the operation, the row
/// and the code.
class ChipWriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Whether the write went through: the two codes besides success tell of trouble on the way that
/// the chip has mended.
constexpr bool isWritten(XP_STATUS status) {
  return status == XP_NO_ERR || status == XP_ERR_BUS_RETRIED || status == XP_ERR_MEMORY_CORRECTED;
}

/// The writes that the SDK refused during one operation of the client.
///
/// Rows are written in the middle of the library's own work, where nothing may be raised: a state
/// machine that is left half-way holds for good what the rest of its step would have given back. So
/// whoever writes rows notes a refusal and goes on, and the operation raises it when it is
/// through.
class WriteFaults {
 public:
  /// Notes that the SDK answered the write to `place` with `status`.
  void note(const std::string& place, XP_STATUS status);

  /// Notes what was raised on the way to a write: a command that no row can hold, or the SDK's own.
  void note(std::exception_ptr thrown);

  /// Raises `ChipWriteError` when a write was refused since the last call: the first one in full,
  /// the others by their number. What was raised itself comes before that.
  void raiseIfAny() {
    if (count_ != 0) [[unlikely]] {
      raise();
    }
  }

 private:
  [[noreturn]] void raise();

  std::exception_ptr thrown_;
  std::string first_;
  U64 count_ = 0;
};

}  // namespace Quarle::Agent
