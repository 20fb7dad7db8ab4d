#pragma once

#include <stdexcept>

#include "cli/LoadOptions.h"
#include "cli/LoadResult.h"
#include "cli/Progress.h"

namespace Quarle::Cli {

/// A load that cannot go on: a bad line under --strict, or a write that the chip refused. One line.
class LoadStopped : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads or makes the routes, loads them onto a simulated chip and looks them up there. Bad lines
/// are reported on the standard error stream as they are known.
///
/// Raises `LoadStopped`, `Agent::RibError` and `XdkSim::ProfileError`.
///
/// REQUIRES: `options` passed its check.
LoadResult runLoad(const LoadOptions& options, Progress& progress);

}  // namespace Quarle::Cli
