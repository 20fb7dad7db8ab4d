#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/GroupList.h"
#include "agent/Refusal.h"
#include "agent/WriteFaults.h"
#include "framework/Xdk/Xdk.h"
#include "model/TarnletNextHop.h"
#include "nexthop/TarnletNextHopSm.h"

namespace Quarle::Agent {

using TarnletNextHop::NextHopBlock;
using TarnletNextHop::SwId;

inline U32 firstRow(const NextHopBlock& block) { return block.base().value(); }

/// The row behind the last one of the block.
inline U32 endRow(const NextHopBlock& block) { return block.base().value() + block.size().value(); }

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

/// Next-hop rows that routes in the chip lead to, as a restart has found them.
struct AdoptedBlock {
  NextHopBlock block;
  U64 routes = 0;
};

/// What became of the groups at a restart.
struct GroupRecovery {
  // Groups of the list that are on the chip, with their old rows and numbers.
  U64 known = 0;
  // Groups of the list that are not: they had no route yet or any more, or their rows hold
  // something else.
  U64 dropped = 0;
  // Blocks that are no group of the list, and the routes that lead there.
  U64 strangers = 0;
  U64 strangerRoutes = 0;
  // Groups that were on their way to other rows and have arrived.
  U64 movesFinished = 0;
  U64 rowsRewritten = 0;
  U64 rowsCleared = 0;
};

struct NextHopStatistics {
  U64 groups = 0;
  // Blocks of unknown content that adopted routes still lead to; no groups.
  U64 strangers = 0;
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
/// After a restart the groups of the list kept by the client before have their old numbers and
/// rows. What else the chip's routes lead to is a stranger: rows that nobody is given until the
/// last of these routes has left, and that no list of next hops finds. While there are strangers
/// the table is not compacted: their rows cannot be written anew.
///
/// 1. A group that is not refused has its block, and the chip's rows there hold its next hops, from
///    the return of `hold` to the last `release`.
/// 2. No two groups share a row; `groupAt` of a group's block is the group.
/// 3. Rows are cleared after the last route has left them, and written before the first arrives.
/// 4. With a list, a group stands in it from before its first row is written until after its last
///    row is cleared; a move from before its first row is written until its routes have followed.
///
/// Operations by source:
///   NextHopGroups.cpp          lifetime, hold, make, release, change, moves
///   NextHopGroupsRestart.cpp   the list, recover, strangers
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

  /// Keeps the groups in `list` from now on, beginning with those that there are.
  void listIs(std::unique_ptr<GroupList> list);

  /// Takes over what a restart has found, before anything else is asked: `known` as the list tells
  /// it, and everything that routes in the chip lead to, each block once. Each of these routes then
  /// holds the group that it leads to; groups of the list are held once more until
  /// `adoptedAreReleased`. Rows are put right, those of nobody cleared, and moves that were under
  /// way finished.
  ///
  /// REQUIRES: there is no group yet.
  GroupRecovery recover(std::span<const GroupRecord> known, std::span<const AdoptedBlock> adopted);

  /// Ends the groups of before the restart that nobody holds.
  void adoptedAreReleased();

  /// Groups of before the restart that are held for whoever asks for them, by rising number.
  std::span<const SwId> adopted() const { return adopted_; }

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
  SwId groupAt(const NextHopBlock& block) const {
    return strangers_.empty() ? groupAt_[block.base().value()] : groupOrStrangerAt(block);
  }

  GroupKind kind(SwId group) const { return groups_[group.value()].kind; }

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

  /// The state machine of the next-hop table, for diagnosis. What is changed there the groups do
  /// not know of.
  TarnletNextHop::LpmNextHopSm::Ptr engineForDiagnosis() const { return sm_; }

 private:
  struct Group {
    std::vector<U64> nextHops;
    NextHopBlock block;
    std::optional<RefusalReason> refusal;
    // What the next-hop table knows the rows by. The rows of a changed group are known by another
    // number than before, and never two by one.
    SwId rows;
    U64 holds = 0;
    GroupKind kind = GroupKind::shared;
  };

  /// Rows of strangers that are not to be given to anyone.
  struct Reserve {
    U32 first = 0;
    U32 end = 0;
    // As `Group::rows`.
    SwId rows;
    U64 strangers = 0;
  };

  /// By first row, then by size.
  using BlockKey = std::pair<U32, U32>;

  static BlockKey keyOf(const NextHopBlock& block) {
    return {block.base().value(), block.size().value()};
  }

  class Recovery;

  struct ListHash {
    using is_transparent = void;
    std::size_t operator()(std::span<const U64> nextHops) const;
  };

  struct ListEqual {
    using is_transparent = void;
    bool operator()(std::span<const U64> a, std::span<const U64> b) const;
  };

  SwId add(std::span<const U64> nextHops, GroupKind kind);
  SwId newId();
  void link(SwId id);
  void unlink(SwId id);
  void nextHopsAre(SwId id, std::span<const U64> nextHops);
  void end(SwId id);
  void endStranger(SwId id);
  SwId groupOrStrangerAt(const NextHopBlock& block) const;
  std::optional<RefusalReason> place(SwId id);
  std::optional<RefusalReason> placeAgain(SwId id);
  std::optional<RefusalReason> resize(SwId id, std::span<const U64> nextHops);
  void followTableMoves();
  /// The row as the chip has it; nothing when the SDK cannot tell.
  std::optional<xpNextHopEntry> readRow(U32 row) const;
  GroupRecord recordOf(SwId id) const;
  std::vector<GroupRecord> records() const;
  /// Tells the list how two groups are now that have exchanged their rows.
  void keepBoth(SwId a, SwId b);
  /// REQUIRES: there is a list.
  void keepRecord(GroupRecord record);
  /// Writes the list anew when it is due; for when nothing is under way.
  void tidyList();
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
  // Null when no list is kept.
  std::unique_ptr<GroupList> list_;
  std::map<BlockKey, SwId> strangers_;
  std::vector<Reserve> reserves_;
  // Groups held since the restart for whoever asks for them.
  std::vector<SwId> adopted_;
  bool hasRoom_ = false;
  U64 shuffles_ = 0;
};

}  // namespace Quarle::Agent
