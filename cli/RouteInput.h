#pragma once

#include <stdexcept>

#include "agent/source/RibFile.h"
#include "cli/Progress.h"
#include "cli/RouteOptions.h"

namespace Quarle::Cli {

/// A run that cannot go on: a bad line under --strict, or an access that the chip refused. One
/// line.
class RunStopped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads or makes the routes; none without a source. Bad lines are reported on the standard error
/// stream.
///
/// Raises `RunStopped` and `Agent::RibError`.
Agent::RibLoad readRoutes(const RouteOptions& options, Progress& progress);

}  // namespace Quarle::Cli
