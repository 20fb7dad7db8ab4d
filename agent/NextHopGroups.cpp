#include "agent/NextHopGroups.h"

#include <algorithm>
#include <string>
#include <utility>

#include "agent/CommandConsumer.h"

namespace Quarle::Agent {

namespace {

using TarnletNextHop::Nway;

constexpr U32 kDevice = 0;

U32 firstRow(const NextHopBlock& block) { return block.base().value(); }

U32 endRow(const NextHopBlock& block) { return block.base().value() + block.size().value(); }

}  // namespace

NextHopGroups::NextHopGroups(const TarnletNextHop::Config::Ptr& config,
                             const GroupLimits& limits,
                             xpIpRouteLpmMgr* manager,
                             MoveHandler moveHandler)
    : config_(config),
      status_(TarnletNextHop::statusFactory("nextHops")),
      sm_(TarnletNextHop::lpmNextHopSmFactory("nextHops", config_, status_)),
      limits_(limits),
      manager_(manager),
      moveHandler_(std::move(moveHandler)),
      groupAt_(config->tableSize()) {}

SwId NextHopGroups::hold(std::span<const U64> nextHops) {
  const auto [place, isNew] =
      idByNextHops_.try_emplace(std::vector<U64>(nextHops.begin(), nextHops.end()));
  if (!isNew) {
    hold(place->second);
    return place->second;
  }
  const SwId id = newId();
  place->second = id;
  groups_[id.value()] = {.nextHops = place->first, .block = {}, .refusal = {}, .holds = 1};
  groups_[id.value()].refusal = this->place(id);
  return id;
}

void NextHopGroups::hold(SwId group) { ++groups_[group.value()].holds; }

void NextHopGroups::release(SwId group) {
  Group& ended = groups_[group.value()];
  if (--ended.holds != 0) {
    return;
  }
  const NextHopBlock block = ended.block;
  if (block != NextHopBlock()) {
    config_->requestDel(group);
    groupAt_[firstRow(block)] = SwId();
    clearRows(firstRow(block), endRow(block));
  }
  idByNextHops_.erase(ended.nextHops);
  ended = Group();
  freeIds_.push_back(group.value());
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

/// Asks the table for the rows of a new group and fills them; the reason when that fails.
std::optional<RefusalReason> NextHopGroups::place(SwId id) {
  const std::size_t ways = groups_[id.value()].nextHops.size();
  if (ways == 0 || ways > limits_.maxWays) {
    return RefusalReason::invalid;
  }
  config_->requestIs(id, Nway(static_cast<U16>(ways)));
  const NextHopBlock block = status_->swIdToNextHopBlock(id);
  // The moves come first: their old rows may be the new group's, and routes still lead there.
  followMoves();
  // All ones in a pair is the chip's "no next hop".
  const bool readsAsNull = firstRow(block) == limits_.maxBase && ways == limits_.maxWays;
  if (block == NextHopBlock() || firstRow(block) > limits_.maxBase || readsAsNull) {
    config_->requestDel(id);
    return RefusalReason::nextHopTableFull;
  }
  groups_[id.value()].block = block;
  groupAt_[firstRow(block)] = id;
  writeRows(groups_[id.value()]);
  return std::nullopt;
}

void NextHopGroups::followMoves() {
  std::vector<GroupMove> moves;
  while (const TarnletNextHop::ShuffleCmd::Ptr shuffle = status_->shuffleCmdDeq()) {
    moves.push_back({.group = shuffle->swId(),
                     .from = shuffle->prevNextHopBlock(),
                     .to = shuffle->nextHopBlock()});
  }
  if (moves.empty()) {
    return;
  }
  shuffles_ += moves.size();
  moveHandler_(moves);
}

void NextHopGroups::rowsAreMoved(const GroupMove& move) {
  Group& group = groups_[move.group.value()];
  // Moves come in the order in which places fall free, so nobody else has taken the old one yet.
  groupAt_[firstRow(move.from)] = SwId();
  groupAt_[firstRow(move.to)] = move.group;
  group.block = move.to;
  writeRows(group);
}

void NextHopGroups::rowsAreLeft(const GroupMove& move) {
  // Compaction moves towards row 0, so the rows left behind are the last ones of the old place.
  clearRows(std::max(firstRow(move.from), endRow(move.to)), endRow(move.from));
}

NextHopStatistics NextHopGroups::statistics() const {
  const U64 capacity = sm_->allocator()->entriesCapacity();
  return {.groups = status_->swIdToNextHopBlocks(),
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
    throwChipWriteError("next-hop row " + std::to_string(row), status);
  }
}

}  // namespace Quarle::Agent
