#pragma once

#include <functional>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/Refusal.h"
#include "agent/WriteFaults.h"
#include "framework/Xdk/Xdk.h"
#include "model/TarnletNextHop.h"
#include "nexthop/TarnletNextHopSm.h"

namespace Quarle::Agent {

using TarnletNextHop::NextHopBlock;
using TarnletNextHop::SwId;

/// What an NHI pair of the chip can name: the largest group and the highest row that one may begin
/// at.
struct GroupLimits {
  U32 maxWays = 0;
  U32 maxBase = 0;
};

/// A group that has rows at another place now.
struct GroupMove {
  SwId group;
  NextHopBlock from;
  NextHopBlock to;
  // The group that the rows at `from` are until the last route has left them; null when the table
  // itself has moved the group, and they end at once.
  SwId left;
};

struct NextHopStatistics {
  U64 groups = 0;
  U64 rowsUsed = 0;
  U64 rowCapacity = 0;
  // Groups moved by compactions of the table.
  U64 shuffles = 0;
};

/// The next-hop groups of all routes. A group is a list of next hops in the client's own numbers;
/// order and repetition count. It lives as long as somebody holds it.
///
/// Groups asked for by their list are shared: equal lists are one group. Lists change for a whole
/// group, whoever holds it. Two groups that come to have the same list stay two, since each has
/// holders that know it by its number; the older one is what the list is known by from then on, and
/// the other after its end. A group made by `make` belongs to its maker alone and is never found by
/// its list.
///
/// Written by `Client`, which holds groups for its user and for each route; read by whoever needs a
/// group's rows. Rows that the SDK refuses are noted in the client's `WriteFaults`.
///
/// 1. A group that is not refused has its block, and the chip's rows there hold its next hops, from
///    the return of `hold` to the last `release`.
/// 2. No two groups share a row; `groupAt` of a group's block is the group.
/// 3. Rows are cleared after the last route has left them, and written before the first arrives.
class NextHopGroups {
 public:
  /// What the groups need of their owner.
  struct Owner {
    /// Brings every route of each moved group from `from` to `to`, one group after the other,
    /// calling `rowsAreMoved` before and `rowsAreLeft` after those of one group.
    std::function<void(std::span<const GroupMove>)> followMoves;
    /// Whether all routes could follow a move now. One that could not would lead to rows of another
    /// group.
    std::function<bool()> canFollow;
  };

  /// Rows are written through `manager`, or nowhere when it is null. Rows that no pair can name are
  /// taken out of `config`.
  ///
  /// REQUIRES: `config` has its table size; `manager` and `faults` outlive the groups.
  NextHopGroups(const TarnletNextHop::Config::Ptr& config,
                const GroupLimits& limits,
                xpIpRouteLpmMgr* manager,
                WriteFaults& faults,
                Owner owner);

  /// The group of this list, held once more. A group that cannot be had is one too: it has no
  /// block, and `refusal` tells why.
  SwId hold(std::span<const U64> nextHops);

  /// A new group of this list that no other caller is given, held once.
  SwId make(std::span<const U64> nextHops);

  /// REQUIRES: the group is held.
  void hold(SwId group) { ++groups_[group.value()].holds; }

  /// Gives one hold back; with the last one the group ends and its rows are cleared. Nothing in the
  /// chip may lead there any more.
  ///
  /// REQUIRES: the group is held.
  void release(SwId group);

  /// Gives the group another list. With as many ways as before its rows are rewritten where they
  /// are, one by one. Else it gets other rows, its routes follow, and the old ones end when the
  /// last has. The reason when that cannot be: nothing has changed then.
  ///
  /// REQUIRES: the group is held.
  [[nodiscard]] std::optional<RefusalReason> change(SwId group, std::span<const U64> nextHops);

  /// Why the group has no rows; nothing when it has. A group that the table had no room for is
  /// tried again.
  std::optional<RefusalReason> tryAgain(SwId group) {
    const std::optional<RefusalReason>& refusal = groups_[group.value()].refusal;
    return refusal.has_value() ? placeAgain(group) : std::nullopt;
  }

  /// Where the group's rows are; the null block of a refused group.
  NextHopBlock block(SwId group) const { return groups_[group.value()].block; }

  std::optional<RefusalReason> refusal(SwId group) const { return groups_[group.value()].refusal; }

  std::span<const U64> nextHops(SwId group) const { return groups_[group.value()].nextHops; }

  /// The group whose rows begin where `block` does.
  ///
  /// REQUIRES: `block` is the block of a group.
  SwId groupAt(const NextHopBlock& block) const { return groupAt_[block.base().value()]; }

  /// For the owner: the group's rows are written at its new place, and `block` names it.
  void rowsAreMoved(const GroupMove& move);

  /// For the owner: what the new place does not cover of the old one is cleared once nobody leads
  /// there.
  void rowsAreLeft(const GroupMove& move);

  /// For the owner, of a changed group: a route that the group is held for has stayed at `from`.
  void routeIsLeft(const GroupMove& move);

  /// Whether rows have come free since the last call.
  bool takeRoom() { return std::exchange(hasRoom_, false); }

  NextHopStatistics statistics() const;

 private:
  struct Group {
    std::vector<U64> nextHops;
    NextHopBlock block;
    std::optional<RefusalReason> refusal;
    // What the next-hop table knows the rows by. The rows of a changed group are known by another
    // number than before, and never two by one.
    SwId rows;
    U64 holds = 0;
    bool isShared = false;
  };

  struct ListHash {
    using is_transparent = void;
    std::size_t operator()(std::span<const U64> nextHops) const;
  };

  struct ListEqual {
    using is_transparent = void;
    bool operator()(std::span<const U64> a, std::span<const U64> b) const;
  };

  SwId add(std::span<const U64> nextHops, bool isShared);
  SwId newId();
  void link(SwId id);
  void unlink(SwId id);
  void listIs(SwId id, std::span<const U64> nextHops);
  void end(SwId id);
  std::optional<RefusalReason> place(SwId id);
  std::optional<RefusalReason> placeAgain(SwId id);
  std::optional<RefusalReason> resize(SwId id, std::span<const U64> nextHops);
  void followTableMoves();
  void writeRows(const Group& group);
  void clearRows(U32 first, U32 end);
  void writeRow(U32 row, xpNextHopEntry entry);

  TarnletNextHop::Config::Ptr config_;
  TarnletNextHop::Status::Ptr status_;
  TarnletNextHop::LpmNextHopSm::Ptr sm_;
  GroupLimits limits_;
  xpIpRouteLpmMgr* manager_;
  WriteFaults& faults_;
  Owner owner_;
  // By the number of the group; an ended group's place is used again.
  std::vector<Group> groups_;
  std::vector<U64> freeIds_;
  U64 nextRows_ = 0;
  // The shared groups of each list, the one that it is known by first.
  std::unordered_map<std::vector<U64>, std::vector<SwId>, ListHash, ListEqual> sharedByList_;
  // By row: the group whose block begins there.
  std::vector<SwId> groupAt_;
  bool hasRoom_ = false;
  U64 shuffles_ = 0;
};

}  // namespace Quarle::Agent
