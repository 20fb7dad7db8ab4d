#pragma once

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "agent/Refusal.h"
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

/// A group whose rows the next-hop table has moved.
struct GroupMove {
  SwId group;
  NextHopBlock from;
  NextHopBlock to;
};

struct NextHopStatistics {
  U64 groups = 0;
  U64 rowsUsed = 0;
  U64 rowCapacity = 0;
  // Groups moved by compactions of the table.
  U64 shuffles = 0;
};

/// The next-hop groups of all routes. A group is a list of next hops in the client's own numbers;
/// order and repetition count. Equal lists are one group, which lives as long as somebody holds it.
///
/// Written by `Client`, which holds groups for its user and for each route; read by whoever needs a
/// group's rows.
///
/// 1. A group that is not refused has its block, and the chip's rows there hold its next hops, from
///    the return of `hold` to the last `release`.
/// 2. No two groups share a row; `groupAt` of a group's block is the group.
class NextHopGroups {
 public:
  /// Called when a compaction has moved groups: brings every route of each group from `from` to
  /// `to`, in order, calling `rowsAreMoved` before and `rowsAreLeft` after those of one group.
  using MoveHandler = std::function<void(std::span<const GroupMove>)>;

  /// Rows are written through `manager`, or nowhere when it is null. Raises `ChipWriteError` from
  /// any operation when the SDK refuses a row.
  ///
  /// REQUIRES: `config` has its table size.
  NextHopGroups(const TarnletNextHop::Config::Ptr& config,
                const GroupLimits& limits,
                xpIpRouteLpmMgr* manager,
                MoveHandler moveHandler);

  /// The group of this list, held once more. A group that cannot be had is one too: it has no
  /// block, and `refusal` tells why.
  SwId hold(std::span<const U64> nextHops);

  /// REQUIRES: the group is held.
  void hold(SwId group);

  /// Gives one hold back; with the last one the group ends and its rows are cleared. Nothing in the
  /// chip may lead there any more.
  ///
  /// REQUIRES: the group is held.
  void release(SwId group);

  /// Where the group's rows are; the null block of a refused group.
  NextHopBlock block(SwId group) const { return groups_[group.value()].block; }

  std::optional<RefusalReason> refusal(SwId group) const { return groups_[group.value()].refusal; }

  std::span<const U64> nextHops(SwId group) const { return groups_[group.value()].nextHops; }

  /// The group whose rows begin where `block` does.
  ///
  /// REQUIRES: `block` is the block of a group.
  SwId groupAt(const NextHopBlock& block) const { return groupAt_[block.base().value()]; }

  /// For the move handler: the group's rows are written at its new place, and `block` names it.
  void rowsAreMoved(const GroupMove& move);

  /// For the move handler: the rows at the old place that the new one does not cover are cleared.
  void rowsAreLeft(const GroupMove& move);

  NextHopStatistics statistics() const;

 private:
  struct Group {
    std::vector<U64> nextHops;
    NextHopBlock block;
    std::optional<RefusalReason> refusal;
    U64 holds = 0;
  };

  SwId newId();
  std::optional<RefusalReason> place(SwId id);
  void followMoves();
  void writeRows(const Group& group);
  void clearRows(U32 first, U32 end);
  void writeRow(U32 row, xpNextHopEntry entry);

  TarnletNextHop::Config::Ptr config_;
  TarnletNextHop::Status::Ptr status_;
  TarnletNextHop::LpmNextHopSm::Ptr sm_;
  GroupLimits limits_;
  xpIpRouteLpmMgr* manager_;
  MoveHandler moveHandler_;
  // By the number of the group; an ended group's place is used again.
  std::vector<Group> groups_;
  std::vector<U64> freeIds_;
  std::map<std::vector<U64>, SwId> idByNextHops_;
  // By row: the group whose block begins there.
  std::vector<SwId> groupAt_;
  U64 shuffles_ = 0;
};

}  // namespace Quarle::Agent
