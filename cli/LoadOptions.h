#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "agent/source/SyntheticTable.h"

namespace CLI {
class App;
}

namespace Quarle::Cli {

/// Exit codes of the program.
enum ExitCode : int {
  kDone = 0,
  kWrong = 1,
  kUnusable = 2,
};

/// A command line that contradicts itself. One line.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Order : std::uint8_t { sorted, shuffled };

enum class Verify : std::uint8_t { none, sample, all };

const char* toText(Order order);
const char* toText(Verify verify);

/// What `tarnlet load` is asked to do.
struct LoadOptions {
  // One of the two.
  std::string rib;
  std::optional<Agent::SyntheticSize> synthetic;

  std::string chip = "internet";
  // Made-up groups; without it a file's own next hops count.
  std::optional<std::uint32_t> nextHopGroups;
  Order order = Order::sorted;
  std::uint64_t seed = 1;
  // Without it all, or none when nothing is written.
  std::optional<Verify> verify;
  bool noChip = false;
  bool shuffling = true;
  bool strict = false;
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
