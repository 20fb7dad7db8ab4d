// The road of `tarnlet shell` and of a verb by itself: a session over an image or a loaded chip,
// then lines from a terminal, from a pipe, or the one of the command line.

#include "cli/shell/ShellCommand.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>

#include "agent/restart/RestartHelper.h"
#include "agent/restart/RowAccess.h"
#include "agent/source/RouteOrder.h"
#include "cli/BatchedRequests.h"
#include "cli/Progress.h"
#include "cli/RouteInput.h"
#include "cli/WantedGroups.h"
#include "cli/shell/Editor.h"
#include "cli/shell/Session.h"
#include "cli/shell/Shell.h"
#include "cli/shell/Words.h"

#include <CLI/CLI.hpp>

namespace Quarle::Cli {

namespace {

using Agent::Family;

constexpr const char* kShell = "shell";

// Of a command by itself.
const std::vector<std::string> kOptions = {"--chip-image", "--write", "--json", "--all"};

std::unique_ptr<Session> loadedSession(const ShellOptions& options, Progress& progress) {
  Agent::RibLoad input = readRoutes(options, progress);
  auto session = std::make_unique<Session>(XdkSim::findProfile(options.chip));
  const WantedGroups groups(input.table, options);
  std::vector<Agent::SwId> ids;
  for (const std::vector<U64>& nextHops : groups.groups()) {
    ids.push_back(session->client().groupIs(nextHops));
  }
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    std::vector<Agent::RouteEntry>& routes = input.table.routes(family);
    Agent::sortRoutes(routes);
    progress.stepIs(std::string("loading ") + Agent::familyName(family), routes.size());
    BatchedRequests batch(session->client().family(family));
    std::uint64_t done = 0;
    for (const Agent::RouteEntry& route : routes) {
      batch.add({.key = {.vrf = 0, .prefix = route.prefix},
                 .group = ids[groups.groupOf(route, /*changed=*/false)]},
                done);
      progress.doneIs(++done);
    }
    batch.flush();
  }
  return session;
}

std::unique_ptr<Session> sessionOf(const ShellOptions& options) {
  Progress progress;
  std::unique_ptr<Session> session;
  try {
    if (options.chipImage.empty()) {
      session = loadedSession(options, progress);
    } else {
      progress.stepIs("taking over", 0);
      session = std::make_unique<Session>(options.chipImage,
                                          options.write ? ImageUse::write : ImageUse::copy);
    }
  } catch (const Agent::ChipWriteError& error) {
    throw RunStopped(error.what());
  } catch (const Agent::PreFlightError& error) {
    throw RunStopped(error.what());
  } catch (const Agent::BadRowError& error) {
    throw RunStopped(error.what());
  }
  progress.clear();
  const Agent::RestartReport& report = session->client().restartReport();
  if (!report.groupListFault.empty()) {
    std::cerr << "tarnlet: " << report.groupListFault << '\n';
  }
  return session;
}

int runTerminal(Shell& shell) {
  Editor editor([&shell](const std::string& line) { return shell.completions(line); });
  while (!shell.ended()) {
    const std::optional<std::string> line = editor.line();
    if (!line) {
      break;
    }
    shell.run(*line);
  }
  return kDone;
}

int runPipe(Shell& shell) {
  int worst = kDone;
  std::string line;
  for (std::uint64_t number = 1; !shell.ended() && std::getline(std::cin, line); ++number) {
    worst = std::max(worst, shell.run(line, "line " + std::to_string(number) + ": "));
  }
  return worst;
}

void addCommonOptions(CLI::App& app, ShellOptions& options) {
  app.add_option("--chip-image", options.chipImage,
                 "The chip as a process has left it; its next-hop groups are in FILE.groups")
      ->type_name("FILE");
  app.add_flag("--write", options.write,
               "Work on the image itself; without it on a copy in memory, and the files stay as "
               "they are");
  app.add_flag("--json", options.json, "One JSON object a line");
}

}  // namespace

void ShellOptions::check() const {
  for (const std::string& word : words) {
    if (word.starts_with("--")) {
      throw UsageError(command + ": there is no option " + Agent::inQuotes(word) +
                       ", expected --chip-image FILE, --write, --json or --all" +
                       nearestText(word, kOptions));
    }
  }
  if (chipImage.empty() == chip.empty()) {
    throw UsageError(command + (command == kShell
                                    ? ": expected one of --chip-image FILE and --chip PROFILE"
                                    : ": no chip given, expected --chip-image FILE"));
  }
  if (!chipImage.empty() && hasSource()) {
    throw UsageError("--rib, --synthetic: not with --chip-image, expected --chip PROFILE");
  }
  if (write && chipImage.empty()) {
    throw UsageError("--write: there is nothing to write to, expected --chip-image FILE");
  }
  checkRoutes();
}

void addShellCommands(CLI::App& app, ShellOptions& options) {
  CLI::App* shell = app.add_subcommand(
      kShell, "Look inside a chip and the library over it: a prompt, or commands from a pipe");
  addCommonOptions(*shell, options);
  shell
      ->add_option("--chip", options.chip,
                   "Instead of an image: a chip of this profile, loaded with the routes given")
      ->type_name("PROFILE");
  addRouteOptions(*shell, options);
  shell->callback([&options] { options.command = kShell; });
  shell->footer(
      "The command help lists what can be asked. From a pipe there is no prompt, and each line\n"
      "that cannot be carried out is told with its number.\n"
      "\n"
      "Exit codes: 0 done; 1 a line could not be carried out, or a look-up was wrong; 2 an audit\n"
      "found a fault, or the command line or a file cannot be used.");
  for (const VerbHelp& verb : oneShotVerbs()) {
    CLI::App* one = app.add_subcommand(verb.name, verb.help);
    // As extras, since the parser would take the brackets off a key.
    one->allow_extras();
    one->footer("The words behind it: " + std::string(verb.arguments));
    addCommonOptions(*one, options);
    one->add_flag("--all", options.all, "Cut no list short");
    one->callback([&options, one] {
      options.command = one->get_name();
      options.words = one->remaining();
    });
  }
}

int runShell(const ShellOptions& options) {
  options.check();
  const std::unique_ptr<Session> session = sessionOf(options);
  Shell shell(*session, std::cout, std::cerr, options.json);
  if (options.command == kShell) {
    return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 ? runTerminal(shell)
                                                                   : runPipe(shell);
  }
  std::string line = options.command;
  for (const std::string& word : options.words) {
    line += " " + word;
  }
  return shell.run(line + (options.all ? " --all" : ""), "tarnlet: ");
}

}  // namespace Quarle::Cli
