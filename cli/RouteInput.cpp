#include "cli/RouteInput.h"

#include <cstdio>
#include <string>

namespace Quarle::Cli {

Agent::RibLoad readRoutes(const RouteOptions& options, Progress& progress) {
  if (!options.hasSource()) {
    return {};
  }
  if (options.synthetic) {
    progress.stepIs("making routes", 0);
    return {.table = Agent::makeSyntheticTable(*options.synthetic, options.seed), .report = {}};
  }
  progress.stepIs("reading routes", 0);
  std::uint64_t knownTotal = 0;
  Agent::RibLoad load =
      Agent::loadRibFile(options.rib, {.progress = [&](std::uint64_t read, std::uint64_t total) {
                           if (total != knownTotal) {
                             knownTotal = total;
                             progress.stepIs("reading routes", total);
                           }
                           progress.doneIs(read);
                         }});
  const Agent::RibReport& report = load.report;
  progress.clear();
  if (options.strict && report.badLines != 0) {
    throw RunStopped(report.faults.front());
  }
  for (const std::string& fault : report.faults) {
    std::fprintf(stderr, "%s\n", fault.c_str());
  }
  if (report.badLines > report.faults.size()) {
    std::fprintf(stderr, "%s: %llu more bad lines\n", options.rib.c_str(),
                 static_cast<unsigned long long>(report.badLines - report.faults.size()));
  }
  return load;
}

}  // namespace Quarle::Cli
