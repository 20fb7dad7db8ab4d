#include "cli/RestartOptions.h"

#include "cli/OptionWords.h"

namespace Quarle::Cli {

void RestartOptions::check() const {
  if (chipImage.empty()) {
    throw UsageError("restart: no chip given, expected --chip-image FILE");
  }
  if (nextHopGroups && !hasSource()) {
    throw UsageError(
        "--nexthops: there are no routes to lead there, expected --rib FILE or --synthetic N4,N6");
  }
  checkRoutes();
}

void addRestartOptions(CLI::App& app, RestartOptions& options) {
  app.add_option("--chip-image", options.chipImage,
                 "The chip as the process before has left it; its next-hop groups are in "
                 "FILE.groups")
      ->type_name("FILE");
  app.add_option("--chip", options.chip,
                 "Chip profile that the image should be of: a name or the path of a JSON file")
      ->type_name("PROFILE");
  addRouteOptions(app, options);
  app.add_flag("--dry-run", options.dryRun,
               "Do all of it on a copy in memory and leave the files as they are");
  app.add_flag("--keep-bad-rows", options.keepBadRows,
               "Rows that cannot be taken over stay and go on answering, instead of being cleared");
  addChoice<bool>(
      app, "--shuffling", {{"on", true}, {"off", false}},
      [&options](bool on) { options.shuffling = on; },
      "Whether a colliding row may move to another table (default: on)");
  addVerify(app, options.verify, "all");
  app.add_flag("--json", options.json, "Print one JSON object instead of the summary");
  app.footer(
      "With routes given the chip is brought to them: what it holds and nobody wants is "
      "withdrawn.\n"
      "A route of a file that names no next hop keeps those that it has, unless --nexthops is "
      "given.\n"
      "differ counts the routes that differed before that. seconds.walk reads the rows into the\n"
      "library, seconds.sweep passes every prefix through it once more, seconds.reclaim brings "
      "the\n"
      "groups of both families back, seconds.resync requests the family's routes.\n"
      "\n"
      "Exit codes: 0 done, rows and routes refused included; 1 a look-up was wrong, the chip "
      "refused\n"
      "a write, or --strict met a bad line; 2 the command line or a file cannot be used.");
}

}  // namespace Quarle::Cli
