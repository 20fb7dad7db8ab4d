#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/RouteKey.h"
#include "xdksim/Chip.h"

namespace Quarle::Agent::Testing {

/// Which lists of next hops each of a fixed number of routes may lead to, as the one who asks for
/// them knows it: one that stands, and behind a request that was never answered also the one that
/// it asked for. Lists have numbers; 0 is no route.
class Wishes {
 public:
  static constexpr U32 kNone = 0;

  using RoutePredicate = std::function<bool(U32 route)>;

  explicit Wishes(std::vector<RouteKey> keys);

  U32 size() const { return static_cast<U32>(keys_.size()); }

  const RouteKey& key(U32 route) const { return keys_[route]; }

  /// The number of a route; its key is one of those given.
  U32 numberOf(const RouteKey& key) const;

  /// A few next hops out of few; different numbers may have the same ones.
  static std::vector<U64> nextHopsOf(U32 list);

  /// A request begins.
  void begin(U32 route, U32 list);

  /// It is answered, and done.
  void end(U32 route, U32 list);

  /// Of the last request that began.
  U32 wanted(U32 route) const { return states_[route].back(); }

  /// Whether no request for the route stands unanswered.
  bool isSettled(U32 route) const { return states_[route].size() == 1; }

  /// The same of all routes.
  bool isSettled() const;

  /// What is wrong with the chip's answers to the first and last address of each route, a line
  /// each. Next hops that are rewritten where they are may show some ways of the old list and some
  /// of the new one. A route that `isRefused` may lead anywhere, or not be there.
  std::string faults(const XdkSim::Chip& chip, const RoutePredicate& isRefused = {}) const;

 private:
  struct Address {
    U16 vrf = 0;
    IpAddress address;
    // Routes that cover it, the longest first.
    std::vector<U32> covering;
  };

  struct Seen {
    bool matched = false;
    U32 length = 0;
    std::vector<U64> nextHops;

    std::string text() const;
  };

  static Seen lookUp(const XdkSim::Chip& chip, const Address& address);
  bool mayLeadTo(U32 route, const std::vector<U64>& nextHops) const;
  bool isRight(const Address& address, const Seen& seen, const RoutePredicate& isRefused) const;

  std::vector<RouteKey> keys_;
  // The lists that each may lead to, the one wanted last.
  std::vector<std::vector<U32>> states_;
  std::vector<Address> addresses_;
};

}  // namespace Quarle::Agent::Testing
