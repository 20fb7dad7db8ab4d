#pragma once

#include <optional>
#include <string>

#include "cli/RouteOptions.h"

namespace Quarle::Cli {

/// What `tarnlet restart` is asked to do. Without a source of routes the chip's own are kept.
struct RestartOptions : RouteOptions {
  std::string chipImage;
  // What the image should be of; anything when empty.
  std::string chip;
  bool dryRun = false;
  bool keepBadRows = false;
  bool shuffling = true;
  std::optional<Verify> verify;
  bool json = false;

  Verify verifyMode() const { return verify.value_or(Verify::all); }

  /// Raises `UsageError` for options that do not go together.
  void check() const;
};

/// Gives `app` the options of `restart`, which are read into `options`.
void addRestartOptions(CLI::App& app, RestartOptions& options);

}  // namespace Quarle::Cli
