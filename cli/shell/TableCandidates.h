#pragma once

#include <span>
#include <string>
#include <vector>

#include "cli/shell/Session.h"

namespace Quarle::Cli {

/// One table that may hold a prefix, and what it has against it.
struct Candidate {
  U32 table = 0;
  U32 tread = 0;
  U32 row = 0;
  // Who stands there; empty for a free row.
  std::string occupant;
  // What is missing for the prefix to go there; empty when nothing is.
  std::string missing;
  std::string help;
  // Routes that would have to go; 0 when that alone does not help.
  U32 toWithdraw = 0;
};

/// The tables that may hold a prefix, in the order in which the library tries them. The library
/// tells nothing but that a route is not there, so its rules are followed here over the state that
/// it left, without changing anything.
///
/// REQUIRES: the prefix is not installed.
std::vector<Candidate> candidatesFor(const Session& session,
                                     const Agent::RouteKey& key,
                                     const Tarnlet::LpmPrefix::Ptr& prefix);

/// The candidate that asks for the fewest routes to go; null when none does.
const Candidate* leastOf(const std::vector<Candidate>& candidates);

}  // namespace Quarle::Cli
