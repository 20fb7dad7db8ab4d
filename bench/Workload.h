#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/source/SyntheticTable.h"
#include "framework/Vellor/Types.h"

namespace CLI {
class App;
}

namespace Quarle::Bench {

enum class Order : U8 { sorted, shuffled };

const char* toText(Order order);

/// Which routes a benchmark works on and how often: the options that all programs here share, so
/// that their figures can stand side by side.
struct WorkloadOptions {
  // One of the two.
  std::string rib;
  std::optional<Agent::SyntheticSize> synthetic;

  Order order = Order::shuffled;
  std::vector<Agent::Family> families = {Agent::Family::ipv4, Agent::Family::ipv6};
  U32 repeat = 1;
};

/// Gives `app` the options of a workload, which are read into `options`.
void addWorkloadOptions(CLI::App& app, WorkloadOptions& options);

/// One route of a workload. Its next hop is a function of its text, so that every program that
/// takes part gives it the same one.
struct WorkRoute {
  static constexpr U32 kNextHops = 64;

  Agent::RoutePrefix prefix;
  U8 nextHop = 0;

  U8 updatedNextHop() const { return static_cast<U8>((nextHop + 1) % kNextHops); }
};

/// The routes of both families in the order of the requests, read before anything is measured.
class Workload {
 public:
  /// Raises `std::invalid_argument` when the options name no routes, `Agent::RibError` when the
  /// file cannot be read or has a bad line.
  explicit Workload(const WorkloadOptions& options);

  const std::vector<WorkRoute>& routes(Agent::Family family) const {
    return family == Agent::Family::ipv4 ? ipv4_ : ipv6_;
  }

 private:
  std::vector<WorkRoute> ipv4_;
  std::vector<WorkRoute> ipv6_;
};

}  // namespace Quarle::Bench
