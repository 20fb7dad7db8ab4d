#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "cli/RouteOptions.h"

namespace Quarle::Cli {

enum class Order : std::uint8_t { sorted, shuffled };

const char* toText(Order order);

/// What `tarnlet load` is asked to do.
struct LoadOptions : RouteOptions {
  std::string chip = "internet";
  // The file that the chip's memory lives in; in this process alone when empty.
  std::string chipImage;
  bool replaceImage = false;
  Order order = Order::sorted;
  // Without it all, or none when nothing is written.
  std::optional<Verify> verify;
  bool noChip = false;
  bool shuffling = true;
  bool churn = false;
  // Random changes after the load.
  std::uint32_t changes = 0;
  bool everyCommand = false;
  bool json = false;

  Verify verifyMode() const { return verify.value_or(noChip ? Verify::none : Verify::all); }

  /// Raises `UsageError` for options that do not go together.
  void check() const;
};

/// Gives `app` the options of `load`, which are read into `options`.
void addLoadOptions(CLI::App& app, LoadOptions& options);

}  // namespace Quarle::Cli
