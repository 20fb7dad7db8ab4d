#pragma once

#include "cli/LoadOptions.h"
#include "cli/LoadResult.h"
#include "cli/Progress.h"

namespace Quarle::Cli {

/// Reads or makes the routes, loads them onto a simulated chip and looks them up there. Bad lines
/// are reported on the standard error stream as they are known.
///
/// Raises `RunStopped`, `Agent::RibError`, `Agent::GroupListError`, `XdkSim::ProfileError` and
/// `XdkSim::ImageError`.
///
/// REQUIRES: `options` passed its check.
LoadResult runLoad(const LoadOptions& options, Progress& progress);

}  // namespace Quarle::Cli
