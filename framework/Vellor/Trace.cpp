#include "framework/Vellor/Trace.h"

#include <iostream>
#include <map>
#include <string>

#include "framework/Vellor/Invariant.h"

namespace Vellor {

constinit std::ostream* coverageStream_ = nullptr;

namespace {

struct Switches {
  bool master = false;
  U32 levels = 0;

  U32 mask() const { return master ? levels : 0; }
};

struct Registry {
  std::map<std::string, Switches, std::less<>> switches;
  std::map<std::string, U32*, std::less<>> masks;
  TraceSink sink;
};

Registry& registry() {
  static Registry theRegistry;
  return theRegistry;
}

void applyTo(const String8& facility, const Switches& switches) {
  const auto handle = registry().masks.find(facility.str());
  if (handle != registry().masks.end()) {
    *handle->second = switches.mask();
  }
}

}  // namespace

bool TraceHandle::levelIsOn(U32 level) const {
  if (mask_ == kUnregistered) {
    registry().masks[facility_] = &mask_;
    mask_ = registry().switches[facility_].mask();
  }
  return (mask_ >> level & 1U) != 0;
}

void TraceHandle::masterIs(const String8& facility, bool on) {
  Switches& switches = registry().switches[facility.str()];
  switches.master = on;
  applyTo(facility, switches);
}

void TraceHandle::levelIs(const String8& facility, U32 level, bool on) {
  VELLOR_ASSERT(level < kLevels, "level < kLevels");
  Switches& switches = registry().switches[facility.str()];
  switches.levels = on ? switches.levels | 1U << level : switches.levels & ~(1U << level);
  applyTo(facility, switches);
}

void traceSinkIs(TraceSink sink) { registry().sink = std::move(sink); }

void traceHelper(const char* facility,
                 const char* tag,
                 const std::ostringstream& stream,
                 U32 level,
                 bool levelIsOn,
                 const char* file,
                 U32 line,
                 const char* function) {
  const String8 text(stream.str());
  if (coverageStream_ != nullptr) {
    *coverageStream_ << text << '\n';
  }
  if (!levelIsOn) {
    return;
  }
  if (registry().sink) {
    registry().sink(facility, tag, text, level, levelIsOn, file, line, function);
    return;
  }
  std::cerr << facility << ' ' << level << ' ' << function << ':' << text << '\n';
}

}  // namespace Vellor
