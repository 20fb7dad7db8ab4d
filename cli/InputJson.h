#pragma once

#include "agent/source/RibFile.h"
#include "cli/RouteOptions.h"

#include <nlohmann/json.hpp>

namespace Quarle::Cli {

/// Where the routes come from, for programs.
inline nlohmann::ordered_json inputJson(const RouteOptions& options,
                                        const Agent::RibReport& report) {
  if (options.synthetic) {
    return {{"synthetic", {options.synthetic->ipv4, options.synthetic->ipv6}}};
  }
  return {{"rib", options.rib},
          {"lines", report.lines},
          {"bad_lines", report.badLines},
          {"duplicates", report.duplicates}};
}

}  // namespace Quarle::Cli
