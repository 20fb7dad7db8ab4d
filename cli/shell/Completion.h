#pragma once

#include <string>
#include <vector>

#include "cli/shell/Session.h"

namespace Quarle::Cli {

/// What may stand in place of the last word of a line, in rising order: verbs, and behind them what
/// each takes. Attributes, operations and keys come from the faces of what the path leads to; of a
/// large collection only some keys are offered.
std::vector<std::string> completionsOf(const Session& session,
                                       const std::vector<std::string>& verbs,
                                       const std::string& line);

}  // namespace Quarle::Cli
