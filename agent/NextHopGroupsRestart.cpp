// The groups across a restart: what is written down while they live, and how they come back.
//
// The next-hop table itself starts empty and gives the lowest rows of the smallest free run. So it
// is asked for everything that stands on the chip by rising row, with a filler for each gap: each
// request then finds one free run alone and gets the rows at its low end, which are the right ones.
// With the fillers gone at the end the free runs are those of before.
//
// The list is right about whatever routes lead to unless it is not this chip's of this moment.
// Hence the rows are read as well: a group whose rows hold anything that it never had there is not
// believed.

#include <algorithm>
#include <stdexcept>
#include <string>

#include "agent/NextHopGroups.h"

namespace Quarle::Agent {

namespace {

using TarnletNextHop::Nway;

constexpr U32 kDevice = 0;
// The table hands out no longer runs.
constexpr U32 kLongestRun = 1024;

xpNextHopEntry rowOf(std::span<const U64> nextHops, U32 way) {
  return {.valid = 1, .way = way, .nextHopId = nextHops[way]};
}

bool isSame(const xpNextHopEntry& a, const xpNextHopEntry& b) {
  return a.valid == b.valid && a.way == b.way && a.nextHopId == b.nextHopId;
}

bool isWithin(U32 row, const NextHopBlock& block) {
  return row >= firstRow(block) && row < endRow(block);
}

}  // namespace

// --- while the groups live

void NextHopGroups::listIs(std::unique_ptr<GroupList> list) {
  list_ = std::move(list);
  list_->writeAll(records());
}

GroupRecord NextHopGroups::recordOf(SwId id) const {
  const Group& group = groups_[id.value()];
  return {.group = id,
          .kind = group.kind,
          .block = group.block,
          .nextHops = group.nextHops,
          .former = {},
          .from = NextHopBlock()};
}

std::vector<GroupRecord> NextHopGroups::records() const {
  std::vector<GroupRecord> records;
  for (U64 id = 0; id < groups_.size(); ++id) {
    const Group& group = groups_[id];
    if (group.holds != 0 && !group.refusal && group.kind != GroupKind::stranger) {
      records.push_back(recordOf(SwId(id)));
    }
  }
  return records;
}

void NextHopGroups::keepBoth(SwId a, SwId b) {
  if (list_ == nullptr) {
    return;
  }
  std::vector<GroupList::Step> steps;
  for (const SwId id : {a, b}) {
    steps.push_back({.record = recordOf(id), .ends = groups_[id.value()].refusal.has_value()});
  }
  list_->change(steps);
}

void NextHopGroups::keepRecord(GroupRecord record) {
  const GroupList::Step step{.record = std::move(record)};
  list_->change({&step, 1});
}

void NextHopGroups::tidyList() {
  if (list_ != nullptr && list_->isOvergrown()) {
    list_->writeAll(records());
  }
}

// --- coming back

class NextHopGroups::Recovery {
 public:
  Recovery(NextHopGroups& groups,
           std::span<const GroupRecord> known,
           std::span<const AdoptedBlock> adopted)
      : groups_(groups), tableSize_(groups.config_->tableSize()) {
    for (const AdoptedBlock& each : adopted) {
      routesAt_[keyOf(each.block)] += each.routes;
    }
    choose(known);
    findStrangers();
    dropCoveredByStrangers();
    result_.dropped = known.size() - known_.size();
  }

  GroupRecovery run() {
    enterKnown();
    enterStrangers();
    planReserves();
    claimRows();
    mendRows();
    finishMoves();
    return result_;
  }

 private:
  /// A group of the list that is on the chip.
  struct Known {
    GroupRecord record;
    // Those that lead to where it comes from included.
    U64 routes = 0;
  };

  U64 routesAt(const NextHopBlock& block) const {
    const auto place = routesAt_.find(keyOf(block));
    return place == routesAt_.end() ? 0 : place->second;
  }

  void choose(std::span<const GroupRecord> known) {
    std::map<BlockKey, const GroupRecord*> byBlock;
    for (const GroupRecord& record : known) {
      byBlock.emplace(keyOf(record.block), &record);
    }
    for (const GroupRecord& record : known) {
      if (!fits(record) || !holdsItsRows(record)) {
        continue;
      }
      Known chosen{.record = record, .routes = routesAt(record.block)};
      // The old place may be another group's by now.
      if (byBlock.contains(keyOf(record.from))) {
        chosen.record.from = NextHopBlock();
      }
      if (chosen.record.from != NextHopBlock()) {
        chosen.routes += routesAt(chosen.record.from);
      }
      if (chosen.routes != 0 || record.kind != GroupKind::left) {
        known_.push_back(std::move(chosen));
      }
    }
    std::sort(known_.begin(), known_.end(), [](const Known& a, const Known& b) {
      return firstRow(a.record.block) < firstRow(b.record.block);
    });
  }

  bool fits(const GroupRecord& record) const {
    const U32 ways = record.block.size().value();
    return ways == record.nextHops.size() && ways != 0 && ways <= groups_.limits_.maxWays &&
           ways <= tableSize_ && firstRow(record.block) <= tableSize_ - ways;
  }

  /// Whether the rows can be what the group's writes have made of them.
  bool holdsItsRows(const GroupRecord& record) const {
    for (U32 way = 0; way < record.nextHops.size(); ++way) {
      const U32 row = firstRow(record.block) + way;
      const std::optional<xpNextHopEntry> seen = groups_.readRow(row);
      if (seen && !isSame(*seen, rowOf(record.nextHops, way)) && !isOnItsWay(record, row, *seen)) {
        return false;
      }
    }
    return true;
  }

  static bool isOnItsWay(const GroupRecord& record, U32 row, const xpNextHopEntry& seen) {
    const U32 way = row - firstRow(record.block);
    if (way < record.former.size() && isSame(seen, rowOf(record.former, way))) {
      return true;
    }
    if (record.from == NextHopBlock()) {
      return false;
    }
    const bool wasItsOwn = isWithin(row, record.from);
    return wasItsOwn ? isSame(seen, rowOf(record.nextHops, row - firstRow(record.from)))
                     : seen.valid == 0;
  }

  void findStrangers() {
    std::map<BlockKey, bool> isKnown;
    for (const Known& each : known_) {
      isKnown[keyOf(each.record.block)] = true;
      isKnown[keyOf(each.record.from)] = true;
    }
    for (const auto& [key, routes] : routesAt_) {
      if (!isKnown.contains(key)) {
        strangers_.emplace_back(NextHopBlock(key.first, static_cast<U16>(key.second)), routes);
      }
    }
  }

  /// A group without routes on a stranger's rows is out of date.
  void dropCoveredByStrangers() {
    std::erase_if(known_, [this](const Known& each) {
      return each.routes == 0 &&
             std::any_of(strangers_.begin(), strangers_.end(), [&each](const auto& stranger) {
               return U64{firstRow(stranger.first)} < endRow(each.record.block) &&
                      U64{firstRow(stranger.first)} + stranger.first.size().value() >
                          firstRow(each.record.block);
             });
    });
  }

  void enterKnown() {
    U64 places = 0;
    for (const Known& each : known_) {
      places = std::max(places, each.record.group.value() + 1);
    }
    groups_.groups_.resize(places);
    for (const Known& each : known_) {
      const GroupRecord& record = each.record;
      const bool isOffered = record.kind != GroupKind::left;
      groups_.groups_[record.group.value()] = {.nextHops = record.nextHops,
                                               .block = record.block,
                                               .refusal = std::nullopt,
                                               .rows = SwId(groups_.nextRows_++),
                                               .holds = each.routes + (isOffered ? 1 : 0),
                                               .kind = record.kind};
      groups_.groupAt_[firstRow(record.block)] = record.group;
      if (isOffered) {
        groups_.adopted_.push_back(record.group);
      }
    }
    for (U64 id = places; id-- != 0;) {
      if (groups_.groups_[id].holds == 0) {
        groups_.freeIds_.push_back(id);
      }
    }
    // By number: of two groups with one list the older one has the lower.
    std::sort(groups_.adopted_.begin(), groups_.adopted_.end(),
              [](SwId a, SwId b) { return a.value() < b.value(); });
    for (const SwId id : groups_.adopted_) {
      groups_.link(id);
    }
    result_.known = known_.size();
  }

  void enterStrangers() {
    for (const auto& [block, routes] : strangers_) {
      enterStranger(block, routes);
      result_.strangerRoutes += routes;
    }
    result_.strangers = strangers_.size();
    for (const Known& each : known_) {
      const GroupRecord& record = each.record;
      if (record.from != NextHopBlock()) {
        const SwId left = enterStranger(record.from, /*holds=*/1);
        moves_.push_back(
            {.group = record.group, .from = record.from, .to = record.block, .left = left});
      }
    }
  }

  SwId enterStranger(const NextHopBlock& block, U64 holds) {
    const SwId id = groups_.newId();
    Group& stranger = groups_.groups_[id.value()];
    stranger.block = block;
    stranger.holds = holds;
    stranger.kind = GroupKind::stranger;
    groups_.strangers_[keyOf(block)] = id;
    return id;
  }

  /// The strangers' rows that are no group's, cut where the set of strangers changes.
  void planReserves() {
    std::vector<bool> isCut(tableSize_ + U64{1});
    std::vector<bool> isKnown(tableSize_);
    for (const Known& each : known_) {
      const auto first = isKnown.begin() + firstRow(each.record.block);
      std::fill(first, first + each.record.block.size().value(), true);
    }
    std::vector<std::pair<U64, U64>> ranges;
    std::vector<U32> covers(tableSize_);
    for (const auto& [key, id] : groups_.strangers_) {
      const U64 first = std::min<U64>(key.first, tableSize_);
      const U64 end = std::min<U64>(U64{key.first} + key.second, tableSize_);
      isCut[first] = true;
      isCut[end] = true;
      for (U64 row = first; row < end; ++row) {
        ++covers[row];
      }
    }
    std::vector<Reserve>& reserves = groups_.reserves_;
    for (U32 row = 0; row < tableSize_; ++row) {
      if (covers[row] == 0 || isKnown[row]) {
        continue;
      }
      const bool goesOn = !reserves.empty() && reserves.back().end == row && !isCut[row] &&
                          row - reserves.back().first < kLongestRun;
      if (!goesOn) {
        reserves.push_back(
            {.first = row, .rows = SwId(groups_.nextRows_++), .strangers = covers[row]});
      }
      reserves.back().end = row + 1;
    }
  }

  /// Has the table give everything the rows that it has on the chip.
  void claimRows() {
    struct Claim {
      U32 first;
      U32 end;
      SwId rows;
    };

    std::vector<Claim> claims;
    for (const Known& each : known_) {
      claims.push_back({firstRow(each.record.block), endRow(each.record.block),
                        groups_.groups_[each.record.group.value()].rows});
    }
    for (const Reserve& reserve : groups_.reserves_) {
      claims.push_back({reserve.first, reserve.end, reserve.rows});
    }
    std::sort(claims.begin(), claims.end(),
              [](const Claim& a, const Claim& b) { return a.first < b.first; });
    std::vector<SwId> fillers;
    U32 next = 0;
    for (const Claim& claim : claims) {
      while (next < claim.first) {
        const U32 end = std::min(claim.first, next + kLongestRun);
        fillers.emplace_back(groups_.nextRows_++);
        this->claim(fillers.back(), next, end);
        next = end;
      }
      this->claim(claim.rows, claim.first, claim.end);
      next = claim.end;
    }
    for (const SwId filler : fillers) {
      groups_.config_->requestDel(filler);
    }
  }

  void claim(SwId rows, U32 first, U32 end) {
    groups_.config_->requestIs(rows, Nway(static_cast<U16>(end - first)));
    if (groups_.status_->swIdToNextHopBlock(rows).base().value() != first) {
      throw std::logic_error("next-hop row " + std::to_string(first) +
                             " cannot be claimed, expected it to be the first free one");
    }
  }

  /// Rows of groups are made to hold their next hops, rows of nobody nothing.
  void mendRows() {
    std::vector<bool> isOwned(tableSize_);
    for (const Known& each : known_) {
      const GroupRecord& record = each.record;
      for (U32 way = 0; way < record.nextHops.size(); ++way) {
        const U32 row = firstRow(record.block) + way;
        isOwned[row] = true;
        result_.rowsRewritten += bring(row, rowOf(record.nextHops, way)) ? 1 : 0;
      }
    }
    for (const Reserve& reserve : groups_.reserves_) {
      std::fill(isOwned.begin() + reserve.first, isOwned.begin() + reserve.end, true);
    }
    for (U32 row = 0; row < tableSize_; ++row) {
      if (!isOwned[row]) {
        result_.rowsCleared += bring(row, xpNextHopEntry()) ? 1 : 0;
      }
    }
  }

  /// Whether it took a write.
  bool bring(U32 row, const xpNextHopEntry& entry) {
    const std::optional<xpNextHopEntry> seen = groups_.readRow(row);
    if (seen && isSame(*seen, entry)) {
      return false;
    }
    groups_.writeRow(row, entry);
    return true;
  }

  void finishMoves() {
    for (const GroupMove& move : moves_) {
      groups_.owner_.followMoves({&move, 1});
      groups_.release(move.left);
    }
    result_.movesFinished = moves_.size();
  }

  NextHopGroups& groups_;
  const U32 tableSize_;
  std::map<BlockKey, U64> routesAt_;
  // By rising row.
  std::vector<Known> known_;
  std::vector<std::pair<NextHopBlock, U64>> strangers_;
  std::vector<GroupMove> moves_;
  GroupRecovery result_;
};

GroupRecovery NextHopGroups::recover(std::span<const GroupRecord> known,
                                     std::span<const AdoptedBlock> adopted) {
  return Recovery(*this, known, adopted).run();
}

void NextHopGroups::adoptedAreReleased() {
  for (const SwId group : std::exchange(adopted_, {})) {
    release(group);
  }
}

std::optional<xpNextHopEntry> NextHopGroups::readRow(U32 row) const {
  xpNextHopEntry entry;
  if (manager_ == nullptr || !isWritten(manager_->readNextHopEntry(kDevice, row, &entry))) {
    return std::nullopt;
  }
  return entry;
}

SwId NextHopGroups::groupOrStrangerAt(const NextHopBlock& block) const {
  const auto stranger = strangers_.find(keyOf(block));
  return stranger != strangers_.end() ? stranger->second : groupAt_[firstRow(block)];
}

/// Gives the rows back that no other stranger's routes lead to.
void NextHopGroups::endStranger(SwId id) {
  const NextHopBlock block = groups_[id.value()].block;
  strangers_.erase(keyOf(block));
  std::erase_if(reserves_, [this, &block](Reserve& reserve) {
    if (!isWithin(reserve.first, block) || --reserve.strangers != 0) {
      return false;
    }
    config_->requestDel(reserve.rows);
    clearRows(reserve.first, reserve.end);
    return true;
  });
  hasRoom_ = true;
}

}  // namespace Quarle::Agent
