#pragma once

#include <string>
#include <utility>

#include "agent/audit/AuditReport.h"

namespace Quarle::Agent {

/// Where the parts of an audit put their faults: the first ones are kept, all are counted.
///
/// Texts cost more than checks, so they are made by whoever has found a fault and never before.
class FaultLog {
 public:
  /// The report outlives the log.
  FaultLog(AuditReport& report, U64 limit) : report_(report), limit_(limit) {}

  void add(std::string what, std::string where, std::string reason = {}) {
    ++report_.faultCount;
    if (report_.faults.size() < limit_) {
      report_.faults.push_back(
          {.what = std::move(what), .where = std::move(where), .reason = std::move(reason)});
    }
  }

  bool isFull() const { return report_.faultCount >= limit_; }

  AuditCounts& counts() { return report_.counts; }

 private:
  AuditReport& report_;
  const U64 limit_;
};

/// "5, expected 3".
template <typename Seen, typename Expected>
std::string seenInsteadOf(const Seen& seen, const Expected& expected) {
  return std::to_string(seen) + ", expected " + std::to_string(expected);
}

}  // namespace Quarle::Agent
