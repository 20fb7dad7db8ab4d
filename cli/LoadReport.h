#pragma once

#include <string>

#include "cli/LoadOptions.h"
#include "cli/LoadResult.h"

namespace Quarle::Cli {

/// The result as one JSON object in one text, for programs.
std::string toJson(const LoadOptions& options, const LoadResult& result);

/// The result as a short table, for people.
std::string toSummary(const LoadOptions& options, const LoadResult& result);

}  // namespace Quarle::Cli
