#pragma once

#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "agent/CommandConsumer.h"
#include "agent/NextHopGroups.h"
#include "agent/PrefixStore.h"
#include "agent/Refusal.h"
#include "agent/RouteKey.h"
#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// What became of a request.
enum class Outcome : U8 {
  /// A new route is on the chip.
  placed,
  /// A route that was on the chip leads to the new group.
  updated,
  /// The route led there already.
  unchanged,
  /// The route, or the wish for it, is gone.
  withdrawn,
  /// There was no route to withdraw.
  absent,
  /// The chip has no room for the request, or it makes no sense; a route that was on the chip leads
  /// where it did.
  refused,
};

struct Answer {
  Outcome outcome = Outcome::absent;
  // Of a refusal alone.
  RefusalReason reason = RefusalReason::invalid;

  bool operator==(const Answer&) const = default;

  bool refused() const { return outcome == Outcome::refused; }
};

/// A wish that was refused: where the route should lead and why it does not.
struct Refused {
  SwId group;
  RefusalReason reason = RefusalReason::invalid;
};

/// How full one family's memories are, and what the engine did to get there.
struct FamilyStatistics {
  U64 routes = 0;
  // Rows of prefix tables. Each used row is one sub-trie.
  U64 rowsUsed = 0;
  U64 rowCapacity = 0;
  U64 nhiTiles = 0;
  U64 nhiBlocks = 0;
  U64 nhiEntriesUsed = 0;
  U64 nhiEntryCapacity = 0;
  // Sub-tries that needed no NHI block of their own since one with the same content stood: of the
  // users of each block all but the first.
  U64 nhiShared = 0;
  U64 shuffleAttempts = 0;
  U64 shuffleSuccesses = 0;
  // NHI blocks moved by compactions of a tile.
  U64 defragMoves = 0;
};

/// The routes of one address family: takes what a routing daemon wants, asks the engine for it,
/// carries the commands out and tells what became of it.
///
/// Written by the owner of the `Client`, from one thread. Every operation returns with an empty
/// command queue: what it answers stands in the chip.
///
/// 1. The engine's `request` and what it has installed agree; a refused wish never stands there.
/// 2. Each installed route and each refused wish holds its group once.
/// 3. The prefix objects of the configuration are those of the installed routes, so that the memory
///    of a withdrawn route returns.
class FamilyClient {
 public:
  /// REQUIRES: `config` is filled by the configurator; `groups` and `manager` outlive the object.
  FamilyClient(const Tarnlet::ConfigV4::Ptr& config,
               NextHopGroups& groups,
               xpIpRouteLpmMgr* manager);
  FamilyClient(const Tarnlet::ConfigV6::Ptr& config,
               NextHopGroups& groups,
               xpIpRouteLpmMgr* manager);

  FamilyClient(const FamilyClient&) = delete;
  FamilyClient& operator=(const FamilyClient&) = delete;

  /// Adds the route or gives it another group. A wish that was refused before is tried again.
  ///
  /// REQUIRES: `group` is held by the caller; `key.prefix` is of this family.
  Answer routeIs(const RouteKey& key, SwId group);

  /// Withdraws the route, and the wish for it.
  ///
  /// REQUIRES: `key.prefix` is of this family.
  Answer routeDel(const RouteKey& key);

  /// The group that the route leads to in the chip; nothing when it is not installed.
  std::optional<SwId> groupOf(const RouteKey& key) const;

  U32 routes() const { return status_->prefixToNextHopBlocks(); }

  using RefusedRoutes = std::unordered_map<RouteKey, Refused, RouteKeyHash>;

  /// The wishes that stand refused now.
  const RefusedRoutes& refused() const { return refused_; }

  /// Whether a colliding sub-trie may be moved to another table of its tread.
  void hashShufflingIs(bool enabled) { sm_->hashShufflingEnabledIs(enabled); }

  const CommandCounts& commands() const { return consumer_.counts(); }

  FamilyStatistics statistics() const;

  const Tarnlet::LpmSm& engine() const { return *sm_; }

  /// Routes of each of the groups that are about to move, in the order of `moves`.
  std::vector<std::vector<Tarnlet::LpmPrefix::Ptr>> routesOf(
      std::span<const GroupMove> moves) const;

  /// Points `routes` at their group's new place.
  void groupMoved(std::span<const Tarnlet::LpmPrefix::Ptr> routes, const GroupMove& move);

 private:
  FamilyClient(PrefixStore prefixes,
               const Tarnlet::ConfigBase::Ptr& config,
               NextHopGroups& groups,
               xpIpRouteLpmMgr* manager);

  bool canBeServed(const RouteKey& key) const;
  Answer insert(const RouteKey& key, const Tarnlet::LpmPrefix::Ptr& prefix, SwId group);
  Answer update(const RouteKey& key,
                const Tarnlet::LpmPrefix::Ptr& prefix,
                const NextHopBlock& present,
                SwId group);
  bool leadsTo(const Tarnlet::LpmPrefix::Ptr& prefix, const NextHopBlock& block) const;
  Answer refuse(const RouteKey& key, SwId group, RefusalReason reason);
  /// Whether there was one.
  bool forgetRefusal(const RouteKey& key);

  PrefixStore prefixes_;
  Tarnlet::ConfigBase::Ptr config_;
  Tarnlet::Status::Ptr status_;
  Tarnlet::LpmSm::Ptr sm_;
  NextHopGroups& groups_;
  CommandConsumer consumer_;
  ServableLengths lengths_;
  RefusedRoutes refused_;
};

}  // namespace Quarle::Agent
