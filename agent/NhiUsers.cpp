#include "agent/NhiUsers.h"

#include <algorithm>

#include "xdksim/NhiRow.h"

namespace Quarle::Agent {

NhiUsers::NhiUsers(const XdkSim::FamilyProfile& profile)
    : pairs_(profile.nhi.pairsPerEntry),
      entriesPerTile_(profile.nhi.entriesPerTile),
      firstReader_(std::size_t{profile.nhi.tiles()} * profile.nhi.entriesPerTile, kNone) {
  U32 rows = 0;
  for (const XdkSim::PrefixTableProfile& table : profile.tables) {
    firstRow_.push_back(rows);
    rows += table.rows;
  }
  rows_.resize(rows);
}

RowPlace NhiUsers::placeOf(U32 id) const {
  const auto behind = std::upper_bound(firstRow_.begin(), firstRow_.end(), id);
  const U32 table = static_cast<U32>(behind - firstRow_.begin()) - 1;
  return {.table = table, .row = id - firstRow_[table]};
}

void NhiUsers::unlink(U32 id) {
  Node& node = rows_[id];
  if (node.block == kNone) {
    return;
  }
  (node.previous == kNone ? firstReader_[node.block] : rows_[node.previous].next) = node.next;
  if (node.next != kNone) {
    rows_[node.next].previous = node.previous;
  }
  node = Node();
}

void NhiUsers::rowIs(const RowPlace& place, const std::optional<NhiRun>& run) {
  const U32 id = idOf(place);
  unlink(id);
  if (!run) {
    return;
  }
  const std::size_t block = std::size_t{run->tile} * entriesPerTile_ + run->offset;
  if (block >= firstReader_.size()) {
    // Entries that do not exist lead nowhere, and nobody can write them.
    return;
  }
  Node& node = rows_[id];
  node = {.previous = kNone,
          .next = firstReader_[block],
          .block = static_cast<U32>(block),
          .entries = run->entries};
  if (node.next != kNone) {
    rows_[node.next].previous = id;
  }
  firstReader_[block] = id;
}

std::optional<NhiRun> NhiUsers::runOf(const RowPlace& place) const {
  const Node& node = rows_[idOf(place)];
  if (node.block == kNone) {
    return std::nullopt;
  }
  return NhiRun{.tile = node.block / entriesPerTile_,
                .offset = node.block % entriesPerTile_,
                .entries = node.entries};
}

std::vector<RowPlace> NhiUsers::readers(U32 tile, U32 entry) const {
  std::vector<RowPlace> rows;
  for (U32 back = 0; back < kMaxRun && back <= entry; ++back) {
    U32 id = firstReader_[std::size_t{tile} * entriesPerTile_ + entry - back];
    for (; id != kNone; id = rows_[id].next) {
      if (rows_[id].entries > back) {
        rows.push_back(placeOf(id));
      }
    }
  }
  return rows;
}

void NhiUsers::entryIs(U32 tile, U32 entry, const xpLpmNhiEntry& before, const xpLpmNhiEntry& now) {
  for (U32 i = 0; i < pairs_; ++i) {
    const XdkSim::NhiPair was{.base = before.base[i], .size = before.size[i]};
    const XdkSim::NhiPair is{.base = now.base[i], .size = now.size[i]};
    if (was == is) {
      continue;
    }
    const PairId id = (PairId{tile} * entriesPerTile_ + entry) * pairs_ + i;
    const auto old = pairsByRun_.find({was.base, was.size});
    if (old != pairsByRun_.end() && old->second.erase(id) != 0 && old->second.empty()) {
      pairsByRun_.erase(old);
    }
    if (!is.null()) {
      pairsByRun_[{is.base, is.size}].insert(id);
    }
  }
}

std::vector<NhiUsers::Pair> NhiUsers::naming(U32 nextHopRow) const {
  std::vector<Pair> pairs;
  const U32 first = nextHopRow < kMaxWays ? 0 : nextHopRow - kMaxWays + 1;
  const auto end = pairsByRun_.upper_bound({nextHopRow, kNone});
  for (auto run = pairsByRun_.lower_bound({first, 0}); run != end; ++run) {
    if (run->first.first + run->first.second <= nextHopRow) {
      continue;
    }
    for (const PairId id : run->second) {
      const U64 entry = id / pairs_;
      pairs.push_back({.tile = static_cast<U32>(entry / entriesPerTile_),
                       .entry = static_cast<U32>(entry % entriesPerTile_),
                       .index = static_cast<U32>(id % pairs_)});
    }
  }
  return pairs;
}

}  // namespace Quarle::Agent
