#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/Client.h"
#include "agent/HitlessCheck.h"
#include "agent/source/RibFile.h"

namespace Quarle::Cli {

/// One family after one phase.
struct FamilyResult {
  // Routes of the table.
  std::uint64_t routes = 0;
  // Requests made in this phase.
  std::uint64_t requests = 0;
  std::uint64_t placed = 0;
  std::map<Agent::RefusalReason, std::uint64_t> refused;
  std::uint64_t lookups = 0;
  std::uint64_t lookupsWrong = 0;
  // Of this phase.
  Agent::CommandCounts commands;
  double loadSeconds = 0;
  double verifySeconds = 0;
  // Heap that the phase took, in bytes; below 0 when it gave some back.
  std::int64_t heapGrowth = 0;
  Agent::FamilyStatistics statistics;

  double requestsPerSecond() const {
    return loadSeconds > 0 ? static_cast<double>(requests) / loadSeconds : 0;
  }

  double bytesPerRoute() const {
    return routes > 0 ? static_cast<double>(heapGrowth) / static_cast<double>(routes) : 0;
  }
};

struct PhaseResult {
  std::string name;
  FamilyResult ipv4;
  FamilyResult ipv6;
  Agent::NextHopStatistics nextHops;
  // Rows of the next-hop table and numbers of used prefix rows that are not as they should be.
  std::uint64_t rowsWrong = 0;

  std::uint64_t wrong() const { return ipv4.lookupsWrong + ipv6.lookupsWrong + rowsWrong; }
};

/// What a load did. The first phase is the load itself.
struct LoadResult {
  std::string chip;
  Agent::RibReport input;
  std::vector<PhaseResult> phases;
  // Of --every-command, over all phases.
  std::optional<Agent::HitlessCounts> everyCommand;
  // The first things found wrong, a text of several lines each.
  std::vector<std::string> faults;

  const PhaseResult& load() const { return phases.front(); }

  std::uint64_t wrong() const {
    std::uint64_t sum = everyCommand ? everyCommand->wrong : 0;
    for (const PhaseResult& phase : phases) {
      sum += phase.wrong();
    }
    return sum;
  }
};

}  // namespace Quarle::Cli
