#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/source/RouteEntry.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Agent {

/// One thing that is not as it should be. No part has a line end.
struct AuditFault {
  // What does not hold: the library's own condition where its audit of a route has found it.
  std::string what;
  // A route, or the place in a memory or a map: "IPv4 10.0.0.0/8", "IPv6 table 3 row 17".
  std::string where;
  // What was seen and what was expected; may be empty.
  std::string reason;
};

/// "IPv4 table 0 row 3: the chip's row differs: stride 4, expected 2".
std::string toText(const AuditFault& fault);

/// What was looked at.
struct AuditCounts {
  // Routes that stand in the library, and those of them that went through its own audit.
  U64 routes = 0;
  U64 routesVerified = 0;
  U64 subTries = 0;
  U64 nhiTiles = 0;
  U64 nhiBlocks = 0;
  U64 groups = 0;
  // Read from the chip.
  U64 prefixRows = 0;
  U64 nhiEntries = 0;
  U64 nextHopRows = 0;
};

struct AuditReport {
  // The first of them, in the order in which they were found.
  std::vector<AuditFault> faults;
  // All that were found.
  U64 faultCount = 0;
  AuditCounts counts;
  // Whether every route was verified: with too many faults that ends early.
  bool complete = true;

  bool passed() const { return faultCount == 0 && complete; }
};

/// How far an audit has come in one of its steps.
struct AuditProgress {
  Family family = Family::ipv4;
  // "rows", "blocks" or "routes"; "groups" belongs to no family.
  const char* step = "";
  U64 done = 0;
  U64 total = 0;
};

struct AuditOptions {
  // Faults that are told in full. Routes are verified no further once there are so many: each that
  // fails costs a process.
  U64 limit = 100;
  // Called now and then; may be empty.
  std::function<void(const AuditProgress&)> progress = {};
};

}  // namespace Quarle::Agent
