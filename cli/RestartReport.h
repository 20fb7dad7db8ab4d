#pragma once

#include <string>

#include "cli/RestartOptions.h"
#include "cli/RestartResult.h"

namespace Quarle::Cli {

/// The result as one JSON object in one text, for programs.
std::string toJson(const RestartOptions& options, const RestartResult& result);

/// The result as a short table, for people.
std::string toSummary(const RestartOptions& options, const RestartResult& result);

}  // namespace Quarle::Cli
