#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/Client.h"
#include "agent/source/RibFile.h"

namespace Quarle::Cli {

/// Routes of the table and routes of the chip, held against each other before anything of it was
/// requested.
struct Differing {
  // Of the table alone.
  std::uint64_t missing = 0;
  // Of the chip alone.
  std::uint64_t surplus = 0;
  // Of both, with other next hops, where the table tells any.
  std::uint64_t nextHops = 0;

  std::uint64_t all() const { return missing + surplus + nextHops; }
};

/// What became of one family.
struct FamilyRestart {
  Agent::PreFlightReport preFlight;
  Agent::FamilyRecovery recovery;
  // With a table alone.
  std::optional<Differing> differing;
  Agent::ResyncCounts resync;
  double resyncSeconds = 0;
  // Routes on the chip and wishes refused, by the end.
  std::uint64_t routes = 0;
  std::map<Agent::RefusalReason, std::uint64_t> refused;
  Agent::CommandCounts commands;
  std::uint64_t lookups = 0;
  std::uint64_t lookupsWrong = 0;
  double verifySeconds = 0;
  Agent::FamilyStatistics statistics;

  double rowsPerSecond() const { return perSecond(recovery.rowsRead, recovery.walkSeconds); }

  /// Of walk and sweep.
  double routesPerSecond() const {
    return perSecond(recovery.routes, recovery.walkSeconds + recovery.rewriteSeconds);
  }

 private:
  static double perSecond(std::uint64_t count, double seconds) {
    return seconds > 0 ? static_cast<double>(count) / seconds : 0;
  }
};

/// What a restart found and did.
struct RestartResult {
  std::string chip;
  // Opening the image finished a write that the process before was ended in.
  bool finishedWrite = false;
  Agent::RibReport input;
  FamilyRestart ipv4;
  FamilyRestart ipv6;
  Agent::GroupRecovery groups;
  std::string groupListFault;
  Agent::NextHopStatistics nextHops;
  double preFlightSeconds = 0;
  double reclaimSeconds = 0;
  // Of both families: routes that nobody wants.
  double withdrawalSeconds = 0;
  std::uint64_t peakMemory = 0;
  std::uint64_t rowsWrong = 0;
  // Accesses that the SDK or the file system refused, a line each.
  std::vector<std::string> refusedWrites;
  // The first things found wrong, a text of several lines each.
  std::vector<std::string> faults;

  FamilyRestart& family(Agent::Family which) { return which == Agent::Family::ipv4 ? ipv4 : ipv6; }

  std::uint64_t wrong() const {
    return ipv4.lookupsWrong + ipv6.lookupsWrong + rowsWrong + refusedWrites.size();
  }
};

/// Whether rows with this fault were left out of what is taken over, and not mended.
constexpr bool isRefused(Agent::RowFault fault, bool keepBadRows) {
  return fault < Agent::RowFault::badPair || fault == Agent::RowFault::noRoom ||
         (fault == Agent::RowFault::badPair && keepBadRows);
}

}  // namespace Quarle::Cli
