#pragma once

#include "cli/Progress.h"
#include "cli/RestartOptions.h"
#include "cli/RestartResult.h"

namespace Quarle::Cli {

/// Takes over the chip of an image as the process before has left it, brings it to the routes that
/// are wanted, if any were named, and looks all routes up there.
///
/// Raises `RunStopped`, `Agent::RibError`, `XdkSim::ImageError` and, for --chip,
/// `XdkSim::ProfileError`.
///
/// REQUIRES: `options` passed its check.
RestartResult runRestart(const RestartOptions& options, Progress& progress);

}  // namespace Quarle::Cli
