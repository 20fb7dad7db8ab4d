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

enum class Verify : std::uint8_t { none, sample, all };

const char* toText(Verify verify);

/// Which routes are wanted, and where they lead.
struct RouteOptions {
  // At most one of the two.
  std::string rib;
  std::optional<Agent::SyntheticSize> synthetic;

  bool strict = false;
  // Made-up groups; without it a file's own next hops count.
  std::optional<std::uint32_t> nextHopGroups;
  std::uint64_t seed = 1;

  bool hasSource() const { return !rib.empty() || synthetic.has_value(); }

  /// Raises `UsageError` for options that do not go together.
  void checkRoutes() const;
};

/// Gives `app` the options that name routes and next hops, and --seed.
void addRouteOptions(CLI::App& app, RouteOptions& options);

/// Gives `app` the option --verify.
void addVerify(CLI::App& app, std::optional<Verify>& verify, const std::string& defaults);

}  // namespace Quarle::Cli
