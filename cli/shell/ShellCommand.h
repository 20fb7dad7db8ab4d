#pragma once

#include <string>
#include <vector>

#include "cli/RouteOptions.h"

namespace Quarle::Cli {

/// What `tarnlet shell` and the verbs on the command line are asked to do.
struct ShellOptions : RouteOptions {
  // Empty: none of these commands was given.
  std::string command;
  std::vector<std::string> words;
  // One of the two.
  std::string chipImage;
  std::string chip;
  // Works on the image itself, and not on a copy in memory.
  bool write = false;
  bool json = false;
  bool all = false;

  bool isAsked() const { return !command.empty(); }

  /// Raises `UsageError` for options that do not go together.
  void check() const;
};

/// Gives `app` the subcommand `shell` and one for each verb.
void addShellCommands(CLI::App& app, ShellOptions& options);

/// Runs the shell or the one command; the exit code. Raises what making the session raises.
int runShell(const ShellOptions& options);

}  // namespace Quarle::Cli
