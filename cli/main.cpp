// The command `tarnlet`: reads the command line, runs one subcommand and turns what goes wrong into
// one line on the standard error stream and an exit code.

#include "cli/LoadOptions.h"
#include "cli/LoadReport.h"
#include "cli/LoadRun.h"
#include "cli/Progress.h"
#include "cli/RestartOptions.h"
#include "cli/RestartReport.h"
#include "cli/RestartRun.h"
#include "cli/RouteInput.h"
#include "cli/TraceCommand.h"
#include "cli/shell/ShellCommand.h"
#include "cli/shell/Words.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Quarle::Cli {

namespace {

int fail(ExitCode code, const std::string& text) {
  std::fprintf(stderr, "tarnlet: %s\n", text.c_str());
  return code;
}

void printFaults(const std::vector<std::string>& faults) {
  for (const std::string& fault : faults) {
    std::fprintf(stderr, "wrong: %s", fault.c_str());
  }
}

/// The code that a run ends with whose result is in `text`.
int print(const std::string& text, bool isRight) {
  if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) != 0) {
    return fail(kUnusable, "standard output: cannot be written");
  }
  return isRight ? kDone : kWrong;
}

int load(const LoadOptions& options) {
  options.check();
  Progress progress;
  const LoadResult result = runLoad(options, progress);
  progress.clear();
  printFaults(result.faults);
  return print(options.json ? toJson(options, result) : toSummary(options, result),
               result.wrong() == 0);
}

int restart(const RestartOptions& options) {
  options.check();
  Progress progress;
  const RestartResult result = runRestart(options, progress);
  progress.clear();
  if (!result.groupListFault.empty()) {
    std::fprintf(stderr, "tarnlet: %s; the routes keep their next hops until they are requested\n",
                 result.groupListFault.c_str());
  }
  for (const std::string& refused : result.refusedWrites) {
    std::fprintf(stderr, "tarnlet: %s\n", refused.c_str());
  }
  printFaults(result.faults);
  return print(options.json ? toJson(options, result) : toSummary(options, result),
               result.wrong() == 0);
}

/// The first word behind the command that it does not know, or nothing.
std::string unknownOption(const CLI::App& command, const std::vector<std::string>& words) {
  for (const std::string& word : words) {
    std::string name = word.substr(0, word.find('='));
    if (name.starts_with("--") && command.get_option_no_throw(name) == nullptr) {
      return name;
    }
  }
  return "";
}

/// What is wrong with the command line, and what was meant perhaps: the parser says no more than
/// that a word was not expected.
std::string faultOf(const CLI::App& app,
                    const std::vector<std::string>& words,
                    const CLI::ParseError& error) {
  if (words.empty()) {
    return "no command given, expected one that tarnlet --help lists";
  }
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  if (std::find(names.begin(), names.end(), words[0]) == names.end()) {
    return "there is no command " + Agent::inQuotes(words[0]) +
           ", expected one that tarnlet --help lists" + nearestText(words[0], names);
  }
  const CLI::App& command = *app.get_subcommand(words[0]);
  const std::string option = unknownOption(command, words);
  if (option.empty()) {
    return error.what();
  }
  names.clear();
  for (const CLI::Option* known : command.get_options()) {
    names.push_back(known->get_name());
  }
  return words[0] + ": there is no option " + Agent::inQuotes(option) +
         ", expected one that tarnlet " + words[0] + " --help lists" + nearestText(option, names);
}

int run(int argc, char** argv) {
  CLI::App app("Manages the longest-prefix-match tables of a switch chip, here a simulated one.",
               "tarnlet");
  app.set_version_flag("--version", "tarnlet " TARNLET_VERSION);
  app.require_subcommand(1);
  LoadOptions loadOptions;
  CLI::App* loading = app.add_subcommand(
      "load", "Load a routing table onto a simulated chip and look every route up there");
  addLoadOptions(*loading, loadOptions);
  RestartOptions restartOptions;
  CLI::App* restarting = app.add_subcommand(
      "restart", "Take over a simulated chip as an ended process has left it, and look it over");
  addRestartOptions(*restarting, restartOptions);
  TraceOptions traceOptions;
  CLI::App* tracing =
      app.add_subcommand("trace", "Print the messages of a production trace, the oldest first");
  addTraceOptions(*tracing, traceOptions);
  ShellOptions shellOptions;
  addShellCommands(app, shellOptions);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return app.exit(error);
    }
    return fail(kUnusable, faultOf(app, {argv + 1, argv + argc}, error));
  }
  if (tracing->parsed()) {
    runTrace(traceOptions);
    return kDone;
  }
  traceToEnvironmentFile();
  if (shellOptions.isAsked()) {
    return runShell(shellOptions);
  }
  return restarting->parsed() ? restart(restartOptions) : load(loadOptions);
}

}  // namespace

}  // namespace Quarle::Cli

int main(int argc, char** argv) {
  using namespace Quarle::Cli;
  try {
    return run(argc, argv);
  } catch (const RunStopped& error) {
    return fail(kWrong, error.what());
  } catch (const std::exception& error) {
    return fail(kUnusable, error.what());
  }
}
