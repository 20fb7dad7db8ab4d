// The command `tarnlet`: reads the command line, runs one subcommand and turns what goes wrong into
// one line on the standard error stream and an exit code.

#include "cli/LoadOptions.h"
#include "cli/LoadReport.h"
#include "cli/LoadRun.h"
#include "cli/Progress.h"

#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>

namespace Quarle::Cli {

namespace {

int fail(ExitCode code, const std::string& text) {
  std::fprintf(stderr, "tarnlet: %s\n", text.c_str());
  return code;
}

int load(const LoadOptions& options) {
  options.check();
  Progress progress;
  const LoadResult result = runLoad(options, progress);
  progress.clear();
  for (const std::string& fault : result.faults) {
    std::fprintf(stderr, "wrong: %s", fault.c_str());
  }
  const std::string text = options.json ? toJson(options, result) : toSummary(options, result);
  if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) != 0) {
    return fail(kUnusable, "standard output: cannot be written");
  }
  return result.wrong() == 0 ? kDone : kWrong;
}

int run(int argc, char** argv) {
  CLI::App app("Manages the longest-prefix-match tables of a switch chip, here a simulated one.",
               "tarnlet");
  app.set_version_flag("--version", "tarnlet " TARNLET_VERSION);
  app.require_subcommand(1);
  LoadOptions options;
  CLI::App* loading = app.add_subcommand(
      "load", "Load a routing table onto a simulated chip and look every route up there");
  addLoadOptions(*loading, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return app.exit(error);
    }
    return fail(kUnusable, error.what());
  }
  return load(options);
}

}  // namespace

}  // namespace Quarle::Cli

int main(int argc, char** argv) {
  using namespace Quarle::Cli;
  try {
    return run(argc, argv);
  } catch (const LoadStopped& error) {
    return fail(kWrong, error.what());
  } catch (const std::exception& error) {
    return fail(kUnusable, error.what());
  }
}
