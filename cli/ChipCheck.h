#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "agent/Client.h"
#include "agent/LookupCheck.h"
#include "xdksim/Chip.h"

namespace Quarle::Cli {

/// Holds the chip's look-ups in one VRF against the routes that should stand there. All routes come
/// first, then the look-ups.
class RouteCheck {
 public:
  /// Routes that are looked up of 64 for a sample.
  static constexpr std::size_t kSampleStep = 64;

  /// Chip and client outlive the check.
  RouteCheck(const XdkSim::Chip& chip, const Agent::Client& client, std::uint16_t vrf = 0);

  RouteCheck(const RouteCheck&) = delete;
  RouteCheck& operator=(const RouteCheck&) = delete;

  /// REQUIRES: the client has rows for the group.
  void expect(const Agent::RoutePrefix& prefix, Agent::SwId group) {
    expected_.insert(prefix, static_cast<Agent::ReferenceTrie::Value>(group.value()));
  }

  /// Looks up the first and the last address.
  void lookUp(const Agent::RoutePrefix& prefix) { check_.checkPrefix(prefix); }

  std::uint64_t lookups() const { return check_.lookups(); }

  std::uint64_t wrong() const { return check_.wrong(); }

  /// The first wrong look-ups, a text of several lines each.
  const std::vector<std::string>& faults() const { return check_.faults(); }

 private:
  Agent::ReferenceTrie expected_;
  Agent::LookupCheck check_;
};

/// Rows that are not as they should be.
struct RowCheck {
  std::uint64_t wrong = 0;
  // The first of them, a line each.
  std::vector<std::string> faults;
};

/// Holds the numbers of used prefix rows and the next-hop rows of these groups against the client.
/// `strayRows` of each family, by `Family`, are in use without it.
RowCheck checkRows(const XdkSim::Chip& chip,
                   const Agent::Client& client,
                   const std::array<std::uint64_t, 2>& strayRows,
                   std::span<const Agent::SwId> groups);

}  // namespace Quarle::Cli
