#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Quarle::Cli {

/// One line on the standard error stream that tells how far the work is, renewed in place; nothing
/// at all when that is no terminal.
class Progress {
 public:
  Progress();
  ~Progress();

  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Begins a step, such as "loading IPv4", of `total` units; 0 when their number is not known.
  void stepIs(std::string step, std::uint64_t total);

  /// Cheap enough for the inside of a loop.
  void doneIs(std::uint64_t done) {
    if (done >= next_) {
      renew(done);
    }
  }

  /// Wipes the line, before anything else is printed.
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  void renew(std::uint64_t done);
  void print(std::uint64_t done);

  bool shown_ = false;
  std::string step_;
  std::uint64_t total_ = 0;
  // Units done at which to look at the clock again.
  std::uint64_t next_ = 0;
  Clock::time_point printedAt_;
  bool lineStands_ = false;
};

}  // namespace Quarle::Cli
