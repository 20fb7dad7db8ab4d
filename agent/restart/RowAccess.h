#pragma once

#include <stdexcept>
#include <string>

#include "agent/NhiUsers.h"
#include "agent/restart/NhiBlocks.h"
#include "agent/source/RouteEntry.h"
#include "framework/Xdk/Xdk.h"

namespace Quarle::Agent {

/// The SDK did not do what pre-flight needs. The text is one line: the row, what was asked, what
/// the SDK answered, what was expected. What was mended by then is sound.
class PreFlightError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads and writes single rows of one family through the SDK, with the answers that the restart
/// walk takes for success, and counts the writes. Raises `PreFlightError` for any other answer.
class RowAccess {
 public:
  /// The manager outlives the object.
  RowAccess(Family family, xpIpRouteLpmMgr& manager) : family_(family), manager_(manager) {}

  /// False when the row has nothing to read; `entry` then means nothing.
  bool read(const RowPlace& place, xpLpmPrefixEntry& entry) const;
  void read(const NhiBlocks::Place& place, xpLpmNhiEntry& entry) const;

  void write(const RowPlace& place, xpLpmPrefixEntry entry);
  void write(const NhiBlocks::Place& place, xpLpmNhiEntry entry);

  U64 prefixWrites() const { return prefixWrites_; }

  U64 nhiWrites() const { return nhiWrites_; }

 private:
  [[noreturn]] void fail(const std::string& row,
                         const char* operation,
                         XP_STATUS status,
                         const char* expected) const;

  const Family family_;
  xpIpRouteLpmMgr& manager_;
  U64 prefixWrites_ = 0;
  U64 nhiWrites_ = 0;
};

}  // namespace Quarle::Agent
