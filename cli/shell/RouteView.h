#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/shell/Output.h"
#include "cli/shell/Session.h"
#include "model/SubTrieBranch.h"
#include "xdksim/LpmKey.h"

namespace Quarle::Cli {

/// How one side, the chip or the library, gets from a prefix to next hops.
struct RouteView {
  std::string prefix;
  // Of the address alone.
  U32 length = 0;
  U32 table = 0;
  U32 tread = 0;
  // The row that the prefix hashes to, and the one where it stands.
  U32 hash = 0;
  U32 row = 0;
  std::string branch;
  U32 branchLen = 0;
  U32 stride = 0;
  // Bits behind the branch: "0110/4", in hexadecimal when they are many, or "no bits".
  std::string leaf;
  U32 slot = 0;
  U32 tile = 0;
  U32 entry = 0;
  U32 pair = 0;
  TarnletNextHop::NextHopBlock block;
  std::vector<U64> nextHops;

  bool operator==(const RouteView&) const = default;

  Json toJson() const;

  using Lines = std::vector<std::pair<std::string, std::string>>;

  /// Labels and values, one for each step.
  Lines lines() const;
};

/// The chip's look-up of an address; nothing when no prefix matches.
std::optional<RouteView> chipView(const Session& session, U32 vrf, const Agent::IpAddress& address);

/// How the library has placed a route; nothing when it is not installed.
std::optional<RouteView> softwareView(const Session& session, const Agent::RouteKey& key);

/// The longest installed route that covers an address, by asking for each length.
std::optional<Agent::RouteKey> softwareMatch(const Session& session,
                                             U32 vrf,
                                             const Agent::IpAddress& address);

/// "rows 40 to 43", "row 40" or "none".
std::string rowsText(const TarnletNextHop::NextHopBlock& block);

/// "[7, 8]" without brackets; the first few of many.
std::string nextHopsText(const std::vector<U64>& nextHops);

/// A branch of the library as the chip's keys are.
XdkSim::LpmKey keyOf(const Tarnlet::SubTrieBranch& branch);

/// "10.1.0.0/16" for the key bits of a branch.
std::string branchText(Agent::Family family, const XdkSim::LpmKey& key, U32 length);

}  // namespace Quarle::Cli
