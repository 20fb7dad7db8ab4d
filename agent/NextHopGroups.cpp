// Rows always change make-before-break: written, then led to, then left, then cleared. The table
// itself gives a resized group's old rows back at once, so a group that changes its number of ways
// gets its new rows under another number in the table and swaps them with a group of its own that
// keeps the old ones for as long as a route leads there.

#include "agent/NextHopGroups.h"

#include <algorithm>
#include <string>

#include "agent/source/Random.h"

namespace Quarle::Agent {

namespace {

using TarnletNextHop::Nway;

constexpr U32 kDevice = 0;

/// Rows that a pair can name, whatever group begins or ends there.
U32 rowsNamed(const GroupLimits& limits) {
  // All ones in a pair is the chip's "no next hop".
  const bool lastReadsAsNull = limits.maxWays == 1;
  return lastReadsAsNull || limits.maxBase == ~U32{0} ? limits.maxBase : limits.maxBase + 1;
}

}  // namespace

std::size_t NextHopGroups::ListHash::operator()(std::span<const U64> nextHops) const {
  U64 hash = nextHops.size();
  for (const U64 nextHop : nextHops) {
    hash = mixed(hash + nextHop);
  }
  return hash;
}

bool NextHopGroups::ListEqual::operator()(std::span<const U64> a, std::span<const U64> b) const {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

NextHopGroups::NextHopGroups(const TarnletNextHop::Config::Ptr& config,
                             const GroupLimits& limits,
                             xpIpRouteLpmMgr* manager,
                             WriteFaults& faults,
                             Owner owner)
    : config_(config),
      status_(TarnletNextHop::statusFactory("nextHops")),
      limits_(limits),
      manager_(manager),
      faults_(faults),
      owner_(std::move(owner)) {
  config_->tableSizeIs(std::min(config_->tableSize(), rowsNamed(limits)));
  groupAt_.resize(config_->tableSize());
  sm_ = TarnletNextHop::lpmNextHopSmFactory("nextHops", config_, status_);
}

SwId NextHopGroups::hold(std::span<const U64> nextHops) {
  const auto known = sharedByList_.find(nextHops);
  if (known == sharedByList_.end()) {
    return add(nextHops, GroupKind::shared);
  }
  const SwId id = known->second.front();
  hold(id);
  tryAgain(id);
  return id;
}

SwId NextHopGroups::make(std::span<const U64> nextHops) { return add(nextHops, GroupKind::own); }

SwId NextHopGroups::add(std::span<const U64> nextHops, GroupKind kind) {
  tidyList();
  const SwId id = newId();
  Group& group = groups_[id.value()];
  group.nextHops.assign(nextHops.begin(), nextHops.end());
  group.rows = SwId(nextRows_++);
  group.holds = 1;
  group.kind = kind;
  link(id);
  const std::optional<RefusalReason> refusal = place(id);
  groups_[id.value()].refusal = refusal;
  return id;
}

void NextHopGroups::release(SwId group) {
  if (--groups_[group.value()].holds == 0) {
    end(group);
  }
}

void NextHopGroups::end(SwId id) {
  Group& ended = groups_[id.value()];
  if (ended.kind == GroupKind::stranger) {
    endStranger(id);
  } else if (!ended.refusal) {
    config_->requestDel(ended.rows);
    groupAt_[firstRow(ended.block)] = SwId();
    clearRows(firstRow(ended.block), endRow(ended.block));
    if (list_ != nullptr) {
      const GroupList::Step step{.record = {.group = id}, .ends = true};
      list_->change({&step, 1});
    }
    hasRoom_ = true;
  }
  unlink(id);
  ended = Group();
  freeIds_.push_back(id.value());
}

SwId NextHopGroups::newId() {
  if (freeIds_.empty()) {
    groups_.emplace_back();
    return SwId(groups_.size() - 1);
  }
  const U64 id = freeIds_.back();
  freeIds_.pop_back();
  return SwId(id);
}

void NextHopGroups::link(SwId id) {
  const Group& group = groups_[id.value()];
  if (group.kind == GroupKind::shared) {
    sharedByList_[group.nextHops].push_back(id);
  }
}

void NextHopGroups::unlink(SwId id) {
  const Group& group = groups_[id.value()];
  if (group.kind != GroupKind::shared) {
    return;
  }
  const auto place = sharedByList_.find(group.nextHops);
  std::erase(place->second, id);
  if (place->second.empty()) {
    sharedByList_.erase(place);
  }
}

void NextHopGroups::nextHopsAre(SwId id, std::span<const U64> nextHops) {
  unlink(id);
  groups_[id.value()].nextHops.assign(nextHops.begin(), nextHops.end());
  link(id);
}

/// Asks the table for the rows of a group that has none and fills them; the reason when that fails.
std::optional<RefusalReason> NextHopGroups::place(SwId id) {
  const std::size_t ways = groups_[id.value()].nextHops.size();
  if (ways == 0 || ways > limits_.maxWays) {
    return RefusalReason::invalid;
  }
  const auto& allocator = *sm_->allocator();
  if (allocator.freeEntries() < ways) {
    return RefusalReason::nextHopTableFull;
  }
  if (!allocator.canAlloc(static_cast<U32>(ways))) {
    if (!strangers_.empty()) {
      return RefusalReason::nextHopTableFull;
    }
    if (!owner_.canFollow()) {
      return RefusalReason::headroom;
    }
  }
  const SwId rows = groups_[id.value()].rows;
  config_->requestIs(rows, Nway(static_cast<U16>(ways)));
  // The moves come first: their old rows may be the new group's, and routes still lead there.
  followTableMoves();
  Group& group = groups_[id.value()];
  group.block = status_->swIdToNextHopBlock(rows);
  groupAt_[firstRow(group.block)] = id;
  if (list_ != nullptr) {
    keepRecord(recordOf(id));
  }
  writeRows(group);
  return std::nullopt;
}

std::optional<RefusalReason> NextHopGroups::placeAgain(SwId id) {
  const std::optional<RefusalReason> refusal = place(id);
  groups_[id.value()].refusal = refusal;
  return refusal;
}

std::optional<RefusalReason> NextHopGroups::change(SwId id, std::span<const U64> nextHops) {
  Group& group = groups_[id.value()];
  if (ListEqual()(group.nextHops, nextHops)) {
    return tryAgain(id);
  }
  if (group.refusal || group.nextHops.size() != nextHops.size()) {
    return resize(id, nextHops);
  }
  tidyList();
  const std::vector<U64> before = group.nextHops;
  nextHopsAre(id, nextHops);
  if (list_ != nullptr) {
    GroupRecord record = recordOf(id);
    record.former = before;
    keepRecord(std::move(record));
  }
  for (U32 way = 0; way < nextHops.size(); ++way) {
    if (before[way] != nextHops[way]) {
      writeRow(firstRow(group.block) + way, {.valid = 1, .way = way, .nextHopId = nextHops[way]});
    }
  }
  return std::nullopt;
}

std::optional<RefusalReason> NextHopGroups::resize(SwId id, std::span<const U64> nextHops) {
  const SwId other = add(nextHops, GroupKind::left);
  if (const std::optional<RefusalReason> refusal = this->refusal(other)) {
    release(other);
    return refusal;
  }
  const std::vector<U64> before = groups_[id.value()].nextHops;
  nextHopsAre(id, nextHops);
  Group& group = groups_[id.value()];
  Group& left = groups_[other.value()];
  left.nextHops = before;
  std::swap(group.block, left.block);
  std::swap(group.refusal, left.refusal);
  std::swap(group.rows, left.rows);
  groupAt_[firstRow(group.block)] = id;
  keepBoth(id, other);
  if (!left.refusal) {
    groupAt_[firstRow(left.block)] = other;
    const GroupMove move{.group = id, .from = left.block, .to = group.block, .left = other};
    owner_.followMoves({&move, 1});
  }
  release(other);
  return std::nullopt;
}

void NextHopGroups::followTableMoves() {
  std::vector<GroupMove> moves;
  while (const TarnletNextHop::ShuffleCmd::Ptr shuffle = status_->shuffleCmdDeq()) {
    // No row has a new owner yet: what stood at its old place is what moved.
    moves.push_back({.group = groupAt(shuffle->prevNextHopBlock()),
                     .from = shuffle->prevNextHopBlock(),
                     .to = shuffle->nextHopBlock(),
                     .left = SwId()});
  }
  if (moves.empty()) {
    return;
  }
  shuffles_ += moves.size();
  owner_.followMoves(moves);
}

void NextHopGroups::rowsAreMoved(const GroupMove& move) {
  if (move.left != SwId()) {
    return;
  }
  Group& group = groups_[move.group.value()];
  // Moves come in the order in which places fall free, so nobody else has taken the old one yet.
  groupAt_[firstRow(move.from)] = SwId();
  groupAt_[firstRow(move.to)] = move.group;
  group.block = move.to;
  if (list_ != nullptr) {
    GroupRecord record = recordOf(move.group);
    record.from = move.from;
    keepRecord(std::move(record));
  }
  writeRows(group);
}

void NextHopGroups::rowsAreLeft(const GroupMove& move) {
  if (move.left == SwId()) {
    // Compaction moves towards row 0, so the rows left behind are the last ones of the old place.
    clearRows(std::max(firstRow(move.from), endRow(move.to)), endRow(move.from));
    if (list_ != nullptr) {
      keepRecord(recordOf(move.group));
    }
  }
}

void NextHopGroups::routeIsLeft(const GroupMove& move) {
  hold(move.left);
  release(move.group);
}

NextHopStatistics NextHopGroups::statistics() const {
  const U64 capacity = sm_->allocator()->entriesCapacity();
  return {.groups = status_->swIdToNextHopBlocks() - reserves_.size(),
          .strangers = strangers_.size(),
          .rowsUsed = capacity - sm_->allocator()->freeEntries(),
          .rowCapacity = capacity,
          .shuffles = shuffles_};
}

void NextHopGroups::writeRows(const Group& group) {
  for (U32 way = 0; way < group.nextHops.size(); ++way) {
    writeRow(firstRow(group.block) + way,
             {.valid = 1, .way = way, .nextHopId = group.nextHops[way]});
  }
}

void NextHopGroups::clearRows(U32 first, U32 end) {
  for (U32 row = first; row < end; ++row) {
    writeRow(row, xpNextHopEntry());
  }
}

void NextHopGroups::writeRow(U32 row, xpNextHopEntry entry) {
  if (manager_ == nullptr) {
    return;
  }
  const XP_STATUS status = manager_->writeNextHopEntry(kDevice, row, &entry);
  if (!isWritten(status)) {
    faults_.note("next-hop row " + std::to_string(row), status);
  }
}

}  // namespace Quarle::Agent
