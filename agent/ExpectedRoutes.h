#pragma once

#include <map>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "agent/ReferenceTrie.h"
#include "agent/RouteKey.h"

namespace Quarle::Agent {

/// An address in a VRF.
struct VrfAddress {
  U16 vrf = 0;
  IpAddress address;

  auto operator<=>(const VrfAddress&) const = default;
};

/// What each address may answer while routes change: exactly the longest route, but for a route
/// that somebody is changing the old or the new next hops, and for one that comes or goes also what
/// covers it.
///
/// Written by whoever requests routes: `wishIs` before a request, then `wishHolds` or
/// `wishIsDropped` once its outcome is known. A wish that the client keeps for later stays as it
/// is. Around a change of a group's next hops `changeIs` for each route that leads there, then
/// `changeHolds` or `changeIsDropped`. Read by the checks of look-ups.
///
/// 1. The trie of a VRF holds each route that stands or is wished for.
/// 2. A route has a place in `pending_` exactly while it has a wish or its group changes.
class ExpectedRoutes {
 public:
  /// A list of next hops under a number of its own.
  using NextHopsId = ReferenceTrie::Value;

  /// A match whose group goes from one list to another.
  struct Change {
    U8 length = 0;
    NextHopsId before = 0;
    NextHopsId after = 0;
  };

  /// The answers that an address may give.
  struct Answers {
    // By the length of the match, the longest first.
    std::vector<ReferenceTrie::Match> matches;
    // Both lists of each stand among the matches.
    std::vector<Change> changes;
    // No match at all is right too.
    bool none = false;
  };

  NextHopsId idOf(std::span<const U64> nextHops);

  const std::vector<U64>& nextHops(NextHopsId id) const { return *lists_[id]; }

  /// From now on the route may lead to `wish` as well, or be absent when there is none. A wish that
  /// stood before is replaced.
  void wishIs(const RouteKey& key, std::optional<NextHopsId> wish);

  /// The wish has come true. Nothing happens when there is none.
  void wishHolds(const RouteKey& key);

  /// The route stays as it was before the wish. Nothing happens when there is none.
  void wishIsDropped(const RouteKey& key);

  /// The group that the route leads to is given these next hops: from now on it may lead to them as
  /// well.
  ///
  /// REQUIRES: the route stands, and its group has no other change under way.
  void changeIs(const RouteKey& key, NextHopsId nextHops);

  /// The route leads to what its group has been given. Nothing happens when no change is under way.
  void changeHolds(const RouteKey& key);

  /// The route stays with the next hops that it led to before. Nothing happens when no change is
  /// under way.
  void changeIsDropped(const RouteKey& key);

  /// What `address` may answer. Good until the next call.
  const Answers& answersAt(const VrfAddress& address) const;

  /// An address whose longest match is `key`, wished for or standing; nothing when longer routes
  /// cover it all or the search took too long. First and last address come first.
  std::optional<IpAddress> ownAddress(const RouteKey& key) const;

 private:
  using Value = ReferenceTrie::Value;

  // Marks a number in a trie as a place in `pending_`.
  static constexpr Value kPending = Value{1} << 31;

  struct Pending {
    std::optional<NextHopsId> now;
    // What `now` becomes with the change of its group.
    std::optional<NextHopsId> change;
    bool isWished = false;
    // Nothing wishes the route away.
    std::optional<NextHopsId> wish;
  };

  Pending* find(const RouteKey& key);
  Pending& make(const RouteKey& key);
  void settle(const RouteKey& key);

  std::map<std::vector<U64>, NextHopsId> idByList_;
  std::vector<const std::vector<U64>*> lists_;
  std::unordered_map<U32, ReferenceTrie> tries_;
  std::vector<Pending> pending_;
  std::vector<Value> freePending_;
  mutable Answers answers_;
};

}  // namespace Quarle::Agent
