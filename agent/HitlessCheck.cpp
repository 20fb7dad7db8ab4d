// After a write the addresses to look up come from the rows that read what was written: for a
// prefix row the routes that stood in it and those that stand in it now, for an NHI entry the
// routes whose pairs changed in every row that reads it, for a next-hop row the routes whose pairs
// name it.

#include "agent/HitlessCheck.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <optional>
#include <utility>

#include "agent/ChipContexts.h"
#include "agent/CommandConsumer.h"
#include "agent/RowReading.h"
#include "agent/source/RouteText.h"

namespace Quarle::Agent {

namespace {

using XdkSim::LpmKey;

std::string answerText(const XdkSim::LookupResult& seen) {
  return !seen.matched ? "no match"
                       : "a match of " + std::to_string(seen.matchLen) + " key bits in table " +
                             std::to_string(seen.table) + " row " + std::to_string(seen.row) +
                             " to " + std::to_string(seen.size) + " next-hop rows from row " +
                             std::to_string(seen.base);
}

}  // namespace

/// A wrong look-up whose window, if it has one, has not shown yet.
struct HitlessCheck::HeldBack {
  VrfAddress address;
  Command command;
  std::string expected;
  XdkSim::LookupResult seen;
};

/// A row whose block was written to underneath it.
struct HitlessCheck::OpenRow {
  std::vector<U32> entriesWritten;
  std::vector<HeldBack> heldBack;
  U64 heldBackCount = 0;
};

/// One family.
struct HitlessCheck::Side {
  Side(WriteWatcher& check, XdkSim::Chip& chip, Family family)
      : users(chip.profile().family(chipFamily(family))), manager(chip, family, check) {}

  NhiUsers users;
  std::map<RowPlace, OpenRow> open;
  // Rows that were given other leaves and a block further down in this request.
  std::vector<RowPlace> changedAndSlid;
  WatchedLpmMgr manager;
};

const char* toText(Window window) {
  switch (window) {
    case Window::slidBlock:
      return "slidBlock";
    case Window::changedRow:
      return "changedRow";
    case Window::slidGroup:
      return "slidGroup";
  }
  return "unknown";
}

U64 HitlessCounts::allExcused() const {
  return std::accumulate(excused.begin(), excused.end(), U64{0});
}

std::string HitlessCheck::Command::text() const {
  const std::string row = std::to_string(this->row);
  switch (kind) {
    case Kind::prefixRow:
      return "write " + std::to_string(number) + ", " + familyName(family) + " prefix table " +
             std::to_string(memory) + " row " + row;
    case Kind::nhiRow:
      return "write " + std::to_string(number) + ", " + familyName(family) + " NHI tile " +
             std::to_string(memory) + " row " + row;
    case Kind::nextHopRow:
      return "write " + std::to_string(number) + ", next-hop row " + row;
    case Kind::requestEnd:
      return "write " + std::to_string(number) + ", the last of the request";
  }
  return "";
}

HitlessCheck::HitlessCheck(XdkSim::Chip& chip)
    : chip_(chip),
      sides_{std::make_unique<Side>(static_cast<WriteWatcher&>(*this), chip, Family::ipv4),
             std::make_unique<Side>(static_cast<WriteWatcher&>(*this), chip, Family::ipv6)} {}

HitlessCheck::~HitlessCheck() = default;

xpIpRouteLpmMgr& HitlessCheck::manager(Family family) { return side(family).manager; }

void HitlessCheck::wishIs(const RouteKey& key, std::span<const U64> nextHops) {
  request_ = key;
  groupChange_.reset();
  expected_.wishIs(key, expected_.idOf(nextHops));
}

void HitlessCheck::withdrawalIs(const RouteKey& key) {
  request_ = key;
  groupChange_.reset();
  expected_.wishIs(key, std::nullopt);
}

void HitlessCheck::settled(const RouteKey& key, bool asWished) {
  if (asWished) {
    expected_.wishHolds(key);
  } else {
    expected_.wishIsDropped(key);
  }
  settled_.push_back(key);
}

void HitlessCheck::groupChangeIs(std::span<const RouteKey> routes, std::span<const U64> nextHops) {
  groupChange_ = expected_.idOf(nextHops);
  for (const RouteKey& key : routes) {
    expected_.changeIs(key, *groupChange_);
  }
}

void HitlessCheck::followed(const RouteKey& key, bool toNew) {
  if (toNew) {
    expected_.changeHolds(key);
  } else {
    expected_.changeIsDropped(key);
  }
  settled_.push_back(key);
}

void HitlessCheck::requestEnds() {
  commandIs({.kind = Command::Kind::requestEnd});
  for (const std::unique_ptr<Side>& side : sides_) {
    for (const auto& [place, row] : side->open) {
      wrongAfterAll(row, "and the row was never rewritten");
    }
    side->open.clear();
    side->changedAndSlid.clear();
  }
  addresses_ = std::exchange(excused_, {});
  for (const RouteKey& key : settled_) {
    addAddresses(key);
  }
  settled_.clear();
  checkAddresses();
}

void HitlessCheck::commandIs(const Command& command) {
  command_ = command;
  command_.number = counts_.writes();
}

// --- writes

void HitlessCheck::prefixRowWritten(Family family,
                                    U32 table,
                                    U32 row,
                                    const xpLpmPrefixEntry& before,
                                    const xpLpmPrefixEntry& now) {
  const RowPlace place{.table = table, .row = row};
  ++counts_.prefixWrites;
  commandIs({.kind = Command::Kind::prefixRow,
             .family = family,
             .memory = place.table,
             .row = place.row});
  Side& side = this->side(family);
  judgeOpenRow(side, place, before, now);
  noteSlide(side, place, before, now);
  side.users.rowIs(place, runIn(now, side.users.pairsPerEntry()));
  if (std::memcmp(&before, &now, sizeof now) == 0) {
    return;
  }
  for (U32 slot = 0; slot < xpLpmPrefixEntry::kLeaves; ++slot) {
    addAddresses(family, before, slot);
    addAddresses(family, now, slot);
  }
  checkAddresses();
}

void HitlessCheck::nhiRowWritten(
    Family family, U32 tile, U32 entry, const xpLpmNhiEntry& before, const xpLpmNhiEntry& now) {
  ++counts_.nhiWrites;
  commandIs({.kind = Command::Kind::nhiRow, .family = family, .memory = tile, .row = entry});
  Side& side = this->side(family);
  const U32 pairs = side.users.pairsPerEntry();
  std::array<bool, xpLpmNhiEntry::kPairs> changed{};
  bool anyChanged = false;
  for (U32 i = 0; i < pairs; ++i) {
    changed[i] = before.base[i] != now.base[i] || before.size[i] != now.size[i];
    anyChanged = anyChanged || changed[i];
  }
  if (!anyChanged) {
    return;
  }
  side.users.entryIs(tile, entry, before, now);
  for (const RowPlace& reader : side.users.readers(tile, entry)) {
    side.open[reader].entriesWritten.push_back(entry);
    xpLpmPrefixEntry row;
    static_cast<void>(chip_.readPrefixRow(chipFamily(family), reader.table, reader.row, row));
    for (U32 i = 0; i < pairs; ++i) {
      const U32 slot = (entry - row.nhiOffset) * pairs + i;
      if (changed[i] && slot < xpLpmPrefixEntry::kLeaves) {
        addAddresses(family, row, slot);
      }
    }
  }
  checkAddresses();
}

void HitlessCheck::nextHopRowWritten(U32 row,
                                     const xpNextHopEntry& before,
                                     const xpNextHopEntry& now) {
  ++counts_.nextHopWrites;
  commandIs({.kind = Command::Kind::nextHopRow, .row = row});
  if (before.valid == now.valid && before.way == now.way && before.nextHopId == now.nextHopId) {
    return;
  }
  knownRuns_.clear();
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const NhiUsers& users = side(family).users;
    for (const NhiUsers::Pair& pair : users.naming(row)) {
      for (const RowPlace& reader : users.readers(pair.tile, pair.entry)) {
        xpLpmPrefixEntry entry;
        static_cast<void>(chip_.readPrefixRow(chipFamily(family), reader.table, reader.row, entry));
        const U32 slot = (pair.entry - entry.nhiOffset) * users.pairsPerEntry() + pair.index;
        if (slot < xpLpmPrefixEntry::kLeaves) {
          addAddresses(family, entry, slot);
        }
      }
    }
  }
  checkAddresses();
}

// --- windows

/// A row that was written to underneath is rewritten: this shows which window it stood in.
void HitlessCheck::judgeOpenRow(Side& side,
                                const RowPlace& place,
                                const xpLpmPrefixEntry& before,
                                const xpLpmPrefixEntry& now) {
  const auto found = side.open.find(place);
  if (found == side.open.end()) {
    return;
  }
  const OpenRow row = std::move(found->second);
  side.open.erase(found);
  if (row.heldBackCount == 0) {
    return;
  }
  const std::optional<NhiRun> from = side.users.runOf(place);
  const std::optional<NhiRun> to = runIn(now, side.users.pairsPerEntry());
  if (!from || !to) {
    wrongAfterAll(row, "and the row was cleared then");
    return;
  }
  // The changed row of a request may have grown by one entry, which stands behind the new place.
  const bool slides = from->tile == to->tile && to->offset < from->offset &&
                      from->offset - to->offset <= from->entries;
  const bool writesAreTheSlide = std::all_of(
      row.entriesWritten.begin(), row.entriesWritten.end(),
      [&](U32 entry) { return entry >= to->offset && entry <= to->offset + from->entries; });
  auto& changed = side.changedAndSlid;
  const auto changedRow = std::find(changed.begin(), changed.end(), place);
  Window window = Window::slidBlock;
  if (changedRow != changed.end() && sameLeaves(before, now)) {
    window = Window::changedRow;
    changed.erase(changedRow);
  } else if (!slides || !writesAreTheSlide) {
    wrongAfterAll(row, "and no block that slides explains it");
    return;
  }
  counts_.excused[static_cast<std::size_t>(window)] += row.heldBackCount;
}

/// Remembers the row that a request changes when it is rewritten at the moved place of its block.
void HitlessCheck::noteSlide(Side& side,
                             const RowPlace& place,
                             const xpLpmPrefixEntry& before,
                             const xpLpmPrefixEntry& now) {
  const std::optional<NhiRun> from = side.users.runOf(place);
  const std::optional<NhiRun> to = runIn(now, side.users.pairsPerEntry());
  if (from && to && from->tile == to->tile && to->offset < from->offset &&
      !sameLeaves(before, now)) {
    side.changedAndSlid.push_back(place);
  }
}

// --- look-ups

void HitlessCheck::addAddresses(const RouteKey& key) {
  const U16 vrf = static_cast<U16>(key.vrf);
  const IpAddress first = key.prefix.firstAddress();
  const IpAddress last = key.prefix.lastAddress();
  addresses_.push_back({.vrf = vrf, .address = first});
  if (first == last) {
    return;
  }
  addresses_.push_back({.vrf = vrf, .address = last});
  const std::optional<IpAddress> own = expected_.ownAddress(key);
  if (own && *own != first && *own != last) {
    addresses_.push_back({.vrf = vrf, .address = *own});
  }
}

void HitlessCheck::addAddresses(Family family, const xpLpmPrefixEntry& row, U32 slot) {
  if (const std::optional<RouteKey> key = routeIn(family, row, slot)) {
    addAddresses(*key);
  }
}

void HitlessCheck::checkAddresses() {
  std::sort(addresses_.begin(), addresses_.end());
  addresses_.erase(std::unique(addresses_.begin(), addresses_.end()), addresses_.end());
  for (const VrfAddress& address : addresses_) {
    check(address);
  }
  addresses_.clear();
}

void HitlessCheck::check(const VrfAddress& address) {
  ++counts_.lookups;
  const XdkSim::LookupResult seen =
      chip_.lookup(chipFamily(address.address.family), address.vrf, address.address.bytes.data());
  const ExpectedRoutes::Answers& expected = expected_.answersAt(address);
  bool right = !seen.matched && expected.none;
  if (seen.matched) {
    right = std::any_of(expected.matches.begin(), expected.matches.end(), [&](const auto& match) {
      return seen.matchLen == U32{LpmKey::kVrfBits} + match.length && leadsTo(seen, match.value);
    });
    if (!right && isMixed(seen, expected)) {
      ++counts_.mixed;
      right = true;
    }
  }
  if (!right && !isExcused(address, seen, expected)) {
    wrongNow(address, expected);
  }
}

bool HitlessCheck::isExcused(const VrfAddress& address,
                             const XdkSim::LookupResult& seen,
                             const ExpectedRoutes::Answers& expected) {
  if (command_.kind == Command::Kind::requestEnd || !seen.matched) {
    return false;
  }
  for (const ReferenceTrie::Match& match : expected.matches) {
    // In every window the right row answers, only from the wrong entries.
    if (seen.matchLen != U32{LpmKey::kVrfBits} + match.length) {
      continue;
    }
    if (holdsSlidingList(chip_, seen, expected_.nextHops(match.value))) {
      ++counts_.excused[static_cast<std::size_t>(Window::slidGroup)];
      excused_.push_back(address);
      return true;
    }
    auto& open = side(address.address.family).open;
    const auto row = open.find({.table = seen.table, .row = seen.row});
    if (row != open.end()) {
      OpenRow& openRow = row->second;
      if (openRow.heldBack.size() < kFaultsKept) {
        openRow.heldBack.push_back({.address = address,
                                    .command = command_,
                                    .expected = expectedText(address.address, expected),
                                    .seen = seen});
      }
      ++openRow.heldBackCount;
      excused_.push_back(address);
      return true;
    }
  }
  return false;
}

bool HitlessCheck::leadsTo(const XdkSim::LookupResult& seen, ExpectedRoutes::NextHopsId list) {
  const auto known = knownRuns_.find({seen.base, seen.size});
  if (known != knownRuns_.end() && known->second == list) {
    return true;
  }
  if (!holdsList(chip_, seen, expected_.nextHops(list))) {
    return false;
  }
  knownRuns_[{seen.base, seen.size}] = list;
  return true;
}

bool HitlessCheck::isMixed(const XdkSim::LookupResult& seen,
                           const ExpectedRoutes::Answers& expected) const {
  return std::any_of(expected.changes.begin(), expected.changes.end(),
                     [&](const ExpectedRoutes::Change& change) {
                       return seen.matchLen == U32{LpmKey::kVrfBits} + change.length &&
                              holdsSomeOfEach(chip_, seen, expected_.nextHops(change.before),
                                              expected_.nextHops(change.after));
                     });
}

// --- faults

std::string HitlessCheck::listText(ExpectedRoutes::NextHopsId list) const {
  std::string text = "next hops";
  for (const U64 nextHop : expected_.nextHops(list)) {
    text += " " + std::to_string(nextHop);
  }
  return text;
}

std::string HitlessCheck::requestText() const {
  if (groupChange_) {
    return ", in the change of a group to " + listText(*groupChange_);
  }
  return request_ ? ", in the request for " + toText(*request_) : std::string();
}

std::string HitlessCheck::expectedText(const IpAddress& address,
                                       const ExpectedRoutes::Answers& expected) const {
  std::string text;
  for (const ReferenceTrie::Match& match : expected.matches) {
    const RoutePrefix prefix =
        RoutePrefix::of(address.family, AddressBits::of(address.bytes), match.length);
    text += (text.empty() ? "" : " or ") + std::string("a match of ") + toText(prefix) + " to " +
            listText(match.value);
  }
  if (!expected.changes.empty()) {
    text += " or to some of each";
  }
  if (expected.none) {
    text += text.empty() ? "no match" : " or no match";
  }
  return text;
}

void HitlessCheck::wrongNow(const VrfAddress& address, const ExpectedRoutes::Answers& expected) {
  ++counts_.wrong;
  if (faults_.size() < kFaultsKept) {
    faults_.push_back(
        "after " + command_.text() + requestText() + ": " + toText(address.address) +
        ": expected " + expectedText(address.address, expected) + ", the chip saw\n" +
        chip_.explain(chipFamily(address.address.family), address.vrf, address.address.bytes.data())
            .toText());
  }
}

void HitlessCheck::wrongAfterAll(const OpenRow& row, const std::string& why) {
  counts_.wrong += row.heldBackCount;
  for (const HeldBack& held : row.heldBack) {
    if (faults_.size() < kFaultsKept) {
      faults_.push_back("after " + held.command.text() + requestText() + ": " +
                        toText(held.address.address) + ": expected " + held.expected +
                        ", the chip answered " + answerText(held.seen) + ", " + why + "\n");
    }
  }
}

}  // namespace Quarle::Agent
