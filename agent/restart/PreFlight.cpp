#include "agent/restart/PreFlight.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <utility>
#include <vector>

#include "agent/restart/NhiBlocks.h"
#include "agent/restart/RowJudge.h"
#include "agent/source/Random.h"

// First everything is read and decided: which prefixes a row keeps, then which block it should
// read. Behind the line "mend" it is written. So a dry run is the same without the writes.

namespace Quarle::Agent {

namespace {

// More ways no group has.
constexpr U32 kLargestGroup = 1024;

/// A row that holds prefixes and has no fault but such as can be mended.
struct Row {
  RowPlace place;
  NhiBlocks::Place block;
  // Slots in use as read, and those that stay so.
  U32 slots = 0;
  U32 kept = 0;
  // A bit for each fault found.
  U32 faults = 0;
  // What it reads, and then what it should read.
  NhiBlocks::Id nhi = 0;
  // The record has bits that a write would leave out.
  bool strayBits = false;
  // Stands with a fault and is not to be taken over.
  bool hidden = false;

  bool has(RowFault fault) const { return (faults >> static_cast<U32>(fault) & 1) != 0; }
};

bool isDense(U32 slots) { return (slots & (slots + 1)) == 0; }

class PreFlight {
 public:
  PreFlight(Family family,
            const Tarnlet::ConfigBase& config,
            xpIpRouteLpmMgr& manager,
            const PreFlightOptions& options)
      : config_(config),
        options_(options),
        access_(family, manager),
        judge_(family, config),
        blocks_({.tiles = config.nhiAvailableTiles(),
                 .entriesPerTile = config.nhiEntriesPerTile(),
                 .pairsPerEntry = config.nhiPairPerEntry()},
                [this](const NhiBlocks::Place& place, xpLpmNhiEntry& entry) {
                  access_.read(place, entry);
                }) {
    report_.family = family;
  }

  PreFlightReport run() {
    readTables();
    dropBadPairs();
    dropTwins();
    chooseBlocks();
    for (Row& row : rows_) {
      mend(row);
    }
    conclude();
    return std::move(report_);
  }

 private:
  /// Where a prefix stands, by its hash.
  struct Standing {
    U64 hash;
    U32 row;
    U32 slot;
  };

  void readTables();
  void judgeRow(const Tarnlet::PrefixTableConfig& table,
                const RowPlace& place,
                const xpLpmPrefixEntry& entry);
  void dropBadPairs();
  void dropTwins();
  void dropTwinsOf(std::vector<Standing> sameHash);
  RowPrefix prefixAt(const Standing& standing) const;
  void chooseBlocks();
  void mend(Row& row);
  void conclude();

  bool isNowhere(const NhiBlocks::Pair& pair) const;
  void found(Row& row, RowFault fault);
  void dropRow(Row& row, RowFault fault);

  const Tarnlet::ConfigBase& config_;
  const PreFlightOptions options_;
  RowAccess access_;
  RowJudge judge_;
  NhiBlocks blocks_;
  std::vector<Row> rows_;
  std::vector<Standing> standings_;
  PreFlightReport report_;
};

void PreFlight::readTables() {
  xpLpmPrefixEntry entry;
  for (auto table = config_.prefixTableConfigIteratorConst(); table; ++table) {
    const U32 id = table.key().value();
    for (U32 index = 0; index < table.ptr()->depth(); ++index) {
      const RowPlace place{.table = id, .row = index};
      ++report_.rowsRead;
      if (access_.read(place, entry) && !RowJudge::isEmpty(entry)) {
        judgeRow(*table.ptr(), place, entry);
      }
    }
  }
}

void PreFlight::judgeRow(const Tarnlet::PrefixTableConfig& table,
                         const RowPlace& place,
                         const xpLpmPrefixEntry& entry) {
  const RowJudge::Verdict& verdict = judge_.judge(table, place.row, entry);
  Row row{.place = place,
          .block = {.tile = entry.nhiTile, .offset = entry.nhiOffset},
          .slots = verdict.slots,
          .kept = verdict.slots & ~verdict.repeated,
          .strayBits = verdict.strayBits};
  if (verdict.fault) {
    dropRow(row, *verdict.fault);
    rows_.push_back(row);
    return;
  }
  if (row.slots == 0) {
    // A row without leaves answers nothing; the walk passes over it, and its place is free.
    return;
  }
  if (verdict.repeated != 0) {
    found(row, RowFault::twiceInRow);
  }
  if (verdict.hiddenLeaves) {
    found(row, RowFault::hiddenLeaf);
  }
  if (!isDense(row.slots)) {
    found(row, RowFault::holes);
  }
  U32 left = row.slots;
  for (const RowPrefix& prefix : verdict.prefixes) {
    const XdkSim::LpmKey& key = prefix.key;
    const U64 hash =
        mixed(mixed(mixed(key.words[0]) + key.words[1]) + key.words[2] + prefix.length);
    standings_.push_back({.hash = hash,
                          .row = static_cast<U32>(rows_.size()),
                          .slot = static_cast<U32>(std::countr_zero(left))});
    left &= left - 1;
  }
  row.nhi = blocks_.blockOf(row.block, row.slots);
  rows_.push_back(row);
}

/// A prefix that leads nowhere hides a shorter one that leads somewhere, and the walk would take it
/// over only to have it withdrawn.
void PreFlight::dropBadPairs() {
  for (Row& row : rows_) {
    if (row.kept == 0) {
      continue;
    }
    const U32 nowhere = blocks_.slotsWhere(
        row.nhi, [this](const NhiBlocks::Pair& pair) { return isNowhere(pair); });
    if ((row.kept & nowhere) == 0) {
      continue;
    }
    if (options_.keepBadRows) {
      dropRow(row, RowFault::badPair);
    } else {
      found(row, RowFault::badPair);
      row.kept &= ~nowhere;
    }
  }
}

bool PreFlight::isNowhere(const NhiBlocks::Pair& pair) const {
  return pair.size == 0 || pair.size > kLargestGroup ||
         (options_.nextHopRows != 0 && U64{pair.base} + pair.size > options_.nextHopRows);
}

void PreFlight::dropTwins() {
  std::sort(standings_.begin(), standings_.end(),
            [](const Standing& a, const Standing& b) { return a.hash < b.hash; });
  auto first = standings_.begin();
  while (first != standings_.end()) {
    const auto last = std::find_if(first, standings_.end(), [first](const Standing& standing) {
      return standing.hash != first->hash;
    });
    if (last - first > 1) {
      dropTwinsOf({first, last});
    }
    first = last;
  }
  standings_ = {};
}

/// Leaves each prefix to the row that the chip answers from.
void PreFlight::dropTwinsOf(std::vector<Standing> sameHash) {
  std::erase_if(sameHash, [this](const Standing& standing) {
    return (rows_[standing.row].kept >> standing.slot & 1) == 0;
  });
  std::sort(sameHash.begin(), sameHash.end(), [this](const Standing& a, const Standing& b) {
    return rows_[a.row].place < rows_[b.row].place;
  });
  std::vector<RowPrefix> seen;
  for (const Standing& standing : sameHash) {
    const RowPrefix prefix = prefixAt(standing);
    if (std::find(seen.begin(), seen.end(), prefix) == seen.end()) {
      seen.push_back(prefix);
      continue;
    }
    Row& row = rows_[standing.row];
    found(row, RowFault::twiceInTables);
    row.kept &= ~(U32{1} << standing.slot);
  }
}

RowPrefix PreFlight::prefixAt(const Standing& standing) const {
  xpLpmPrefixEntry entry;
  access_.read(rows_[standing.row].place, entry);
  return prefixOf(branchKeyOf(entry), entry.branchLen, leafOf(entry, standing.slot));
}

void PreFlight::chooseBlocks() {
  for (Row& row : rows_) {
    if (row.kept != 0) {
      row.nhi = blocks_.blockOf(row.block, row.kept);
      blocks_.userIs(row.nhi);
    }
  }
  blocks_.settle();
  for (Row& row : rows_) {
    if (row.kept == 0) {
      continue;
    }
    const std::optional<NhiBlocks::Id> home = blocks_.homeOf(row.nhi);
    if (!home) {
      dropRow(row, RowFault::noRoom);
      continue;
    }
    // Closing a row up takes another block by itself.
    if (isDense(row.kept) && *home != row.nhi) {
      found(row, blocks_.isNew(*home) ? RowFault::sharedEntries : RowFault::twoBlocks);
    }
    row.nhi = *home;
  }
}

// --- mend

void PreFlight::mend(Row& row) {
  if (row.faults == 0 || row.hidden || options_.dryRun) {
    return;
  }
  if (row.kept == 0) {
    access_.write(row.place, xpLpmPrefixEntry());
  } else {
    xpLpmPrefixEntry entry;
    access_.read(row.place, entry);
    const NhiBlocks::Place to = blocks_.placeOf(row.nhi);
    if (blocks_.takeUnwritten(row.nhi)) {
      U32 offset = to.offset;
      for (const xpLpmNhiEntry& record : blocks_.recordsOf(row.nhi)) {
        access_.write({.tile = to.tile, .offset = offset}, record);
        ++offset;
      }
    }
    access_.write(row.place, closedUp(entry, row.kept, to.tile, to.offset));
    row.strayBits = false;
  }
  for (std::size_t i = 0; i < kRowFaults; ++i) {
    const RowFault fault = static_cast<RowFault>(i);
    report_[fault].mended += row.has(fault) ? 1 : 0;
  }
}

void PreFlight::conclude() {
  report_.rewritesOnly = !options_.dryRun || report_.found() == 0;
  for (const Row& row : rows_) {
    if (row.hidden) {
      report_.keptRows.push_back(row.place);
    }
    if (row.kept == 0) {
      continue;
    }
    ++report_.rowsSound;
    report_.prefixes += static_cast<U64>(std::popcount(row.kept));
    report_.rewritesOnly =
        report_.rewritesOnly && !row.strayBits && blocks_.endsInNullPairs(row.nhi);
  }
  std::sort(report_.keptRows.begin(), report_.keptRows.end());
  report_.prefixWrites = access_.prefixWrites();
  report_.nhiWrites = access_.nhiWrites();
}

void PreFlight::found(Row& row, RowFault fault) {
  report_[fault].found += row.has(fault) ? 0 : 1;
  row.faults |= U32{1} << static_cast<U32>(fault);
}

/// Nothing of the row can be taken over.
void PreFlight::dropRow(Row& row, RowFault fault) {
  found(row, fault);
  row.kept = 0;
  row.hidden = options_.keepBadRows || options_.dryRun;
}

}  // namespace

PreFlightReport preFlight(Family family,
                          const Tarnlet::ConfigBase& config,
                          xpIpRouteLpmMgr& manager,
                          const PreFlightOptions& options) {
  return PreFlight(family, config, manager, options).run();
}

}  // namespace Quarle::Agent
