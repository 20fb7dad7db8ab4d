#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "framework/Vellor/Trace.h"

namespace Vellor::Testing {

/// The trace lines of one unit at some levels while this object lives. There may be one at a time.
class TraceLines {
 public:
  TraceLines(const char* facility, std::initializer_list<U32> levels)
      : facility_(facility), levels_(levels) {
    switchAll(true);
    traceSinkIs([this](const char* unit, const char*, const String8& text, U32 level, bool,
                       const char* file, U32, const char*) {
      lines_ += std::to_string(level) + ":" + text.str() + "\n";
      facilityOfLast_ = unit;
      fileOfLast_ = file;
    });
  }

  ~TraceLines() {
    traceSinkIs({});
    switchAll(false);
  }

  TraceLines(const TraceLines&) = delete;
  TraceLines& operator=(const TraceLines&) = delete;

  /// "level:text\n" for each line since the last call.
  std::string take() { return std::exchange(lines_, {}); }

  const std::string& facilityOfLast() const { return facilityOfLast_; }

  const std::string& fileOfLast() const { return fileOfLast_; }

 private:
  void switchAll(bool on) {
    TraceHandle::masterIs(facility_, on);
    for (const U32 level : levels_) {
      TraceHandle::levelIs(facility_, level, on);
    }
  }

  const char* facility_;
  std::vector<U32> levels_;
  std::string lines_;
  std::string facilityOfLast_;
  std::string fileOfLast_;
};

}  // namespace Vellor::Testing
