#include "xdksim/FaultPlan.h"

#include <limits>

namespace XdkSim {

namespace {

constexpr U64 kNoEnd = std::numeric_limits<U64>::max();

const char* nameOf(LpmCalls call) {
  switch (call) {
    case kReadPrefixEntry:
      return "readPrefixEntry";
    case kWritePrefixEntry:
      return "writePrefixEntry";
    case kReadNhiEntry:
      return "readNhiEntry";
    case kWriteNhiEntry:
      return "writeNhiEntry";
    case kReadNextHopEntry:
      return "readNextHopEntry";
    case kWriteNextHopEntry:
      return "writeNextHopEntry";
    default:
      return "several operations";
  }
}

const char* nameOf(FaultEffect effect) {
  switch (effect) {
    case FaultEffect::notDone:
      return "not done";
    case FaultEffect::done:
      return "done";
    case FaultEffect::half:
      return "half";
  }
  return "";
}

/// From 0 up to, but not including, 1. Unlike the standard's distributions the same everywhere.
double fraction(std::mt19937_64& random) { return static_cast<double>(random() >> 11) * 0x1p-53; }

}  // namespace

std::string toText(const InjectedFault& injected) {
  return "call " + std::to_string(injected.number) + ", " + nameOf(injected.call) + " of " +
         toText(injected.place) + ": status " + std::to_string(injected.fault.status) + ", " +
         nameOf(injected.fault.effect);
}

void FaultPlan::failsAt(U32 calls, U64 nth, LpmFault fault) {
  rules_.push_back(
      {.calls = calls, .fault = fault, .first = nth, .last = nth, .probability = 1, .seen = 0});
}

void FaultPlan::failsFrom(U32 calls, U64 first, LpmFault fault) {
  rules_.push_back({.calls = calls,
                    .fault = fault,
                    .first = first,
                    .last = kNoEnd,
                    .probability = 1,
                    .seen = 0});
}

void FaultPlan::failsOften(U32 calls, double probability, LpmFault fault) {
  rules_.push_back({.calls = calls,
                    .fault = fault,
                    .first = 1,
                    .last = kNoEnd,
                    .probability = probability,
                    .seen = 0});
}

std::optional<LpmFault> FaultPlan::strike(LpmCalls call, const RowPlace& place) {
  ++calls_;
  std::optional<LpmFault> struck;
  // Every rule counts, whether or not another one strikes.
  for (Rule& rule : rules_) {
    if ((rule.calls & call) == 0) {
      continue;
    }
    ++rule.seen;
    if (rule.strikes(random_) && !struck) {
      struck = rule.fault;
    }
  }
  if (struck) {
    log_.push_back({.call = call, .number = calls_, .place = place, .fault = *struck});
  }
  return struck;
}

bool FaultPlan::Rule::strikes(std::mt19937_64& random) const {
  return seen >= first && seen <= last && (probability >= 1 || fraction(random) < probability);
}

U32 FaultPlan::wordsOfHalf(U32 rowWords) {
  const U32 all = (1U << rowWords) - 1;
  return 1 + static_cast<U32>(random_() % (all - 1));
}

}  // namespace XdkSim
