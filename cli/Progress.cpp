#include "cli/Progress.h"

#include <unistd.h>

#include <cstdio>
#include <limits>
#include <utility>

namespace Quarle::Cli {

namespace {

constexpr std::uint64_t kUnitsBetweenLooks = 4096;
constexpr std::chrono::milliseconds kRenewal{100};

}  // namespace

Progress::Progress() : shown_(isatty(STDERR_FILENO) != 0) {
  next_ = shown_ ? 0 : std::numeric_limits<std::uint64_t>::max();
}

Progress::~Progress() { clear(); }

void Progress::stepIs(std::string step, std::uint64_t total) {
  if (!shown_) {
    return;
  }
  step_ = std::move(step);
  total_ = total;
  print(0);
}

void Progress::clear() {
  if (lineStands_) {
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    lineStands_ = false;
  }
}

void Progress::renew(std::uint64_t done) {
  if (Clock::now() - printedAt_ >= kRenewal) {
    print(done);
  } else {
    next_ = done + kUnitsBetweenLooks;
  }
}

void Progress::print(std::uint64_t done) {
  printedAt_ = Clock::now();
  next_ = done + kUnitsBetweenLooks;
  lineStands_ = true;
  if (total_ == 0) {
    std::fprintf(stderr, "\r%s\033[K", step_.c_str());
  } else {
    std::fprintf(stderr, "\r%s %3.0f %%\033[K", step_.c_str(),
                 100.0 * static_cast<double>(done) / static_cast<double>(total_));
  }
  std::fflush(stderr);
}

}  // namespace Quarle::Cli
