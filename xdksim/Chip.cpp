// The chip's memories: building them from a profile, writing and reading rows, table contexts.
// Looking up is in ChipLookup.cpp.

#include "xdksim/Chip.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <utility>

#include "xdksim/HashPolynomials.h"

namespace XdkSim {

namespace {

ChipProfile checked(ChipProfile profile) {
  profile.check("chip profile \"" + profile.name + "\"");
  return profile;
}

RowPlace prefixPlace(Family family, U32 table, U32 row) {
  return {.kind = RowKind::prefix, .family = family, .table = table, .row = row};
}

RowPlace nhiPlace(Family family, U32 tile, U32 row) {
  return {.kind = RowKind::nhi, .family = family, .table = tile, .row = row};
}

RowPlace nextHopPlace(U32 row) {
  return {.kind = RowKind::nextHop, .family = Family::ipv4, .table = 0, .row = row};
}

std::string below(const char* what, std::size_t limit) {
  return std::string("no such ") + what + ", expected one below " + std::to_string(limit);
}

// A next-hop row: the client's name for the next hop in the first word; bit 0 of the second is the
// valid bit, the 16 bits behind it the way.
constexpr RowField kValidField{.first = 64, .count = 1};
constexpr RowField kWayField{.first = 65, .count = 16};

}  // namespace

Chip::Chip(ChipProfile profile)
    : profile_(checked(std::move(profile))),
      memory_(profile_),
      ipv4_(bankOf(Family::ipv4)),
      ipv6_(bankOf(Family::ipv6)) {}

Chip::Chip(ChipImage image)
    : profile_(image.profile()),
      memory_(std::move(image)),
      ipv4_(bankOf(Family::ipv4)),
      ipv6_(bankOf(Family::ipv6)) {
  memoryChanged();
}

Chip::Bank Chip::bankOf(Family family) {
  const FamilyProfile& profile = profile_.family(family);
  Bank bank{.keyWidth = profile.keyWidth,
            .tiles = profile.nhi.tiles(),
            .entriesPerTile = profile.nhi.entriesPerTile,
            .nhiLayout = NhiLayout(profile.nhi),
            .tables = {},
            .nhiTiles = {}};
  for (U32 id = 0; id < profile.tables.size(); ++id) {
    const PrefixTableProfile& table = profile.tables[id];
    bank.tables.push_back({.words = memory_.prefixTable(family, id),
                           .rows = table.rows,
                           .width = table.sramWidth,
                           .tread = table.tread,
                           .used = 0,
                           .crc = &xpCrcTables::of(hashPolynomial(id, table.hashPolySelect)),
                           .occupied = std::vector<U64>((table.rows + 63) / 64)});
  }
  for (U32 tile = 0; tile < bank.tiles; ++tile) {
    bank.nhiTiles.push_back(memory_.nhiTile(family, tile));
  }
  return bank;
}

bool Chip::fillTableContext(U32 number, xpTableContext* context) const {
  if (number == 52) {
    auto* nextHop = dynamic_cast<xpNhTableContext*>(context);
    if (nextHop == nullptr) {
      return false;
    }
    nextHop->rowBlkInc = profile_.nextHopRows;
    return true;
  }
  auto* lpm = dynamic_cast<xpLpmTableContext*>(context);
  if (lpm == nullptr || (number != 50 && number != 51)) {
    return false;
  }
  const FamilyProfile& family = number == 50 ? profile_.ipv4 : profile_.ipv6;
  *lpm = xpLpmTableContext();
  lpm->keyWidth = family.keyWidth;
  lpm->vrfIdWidth = static_cast<U8>(family.vrfIdWidth);
  for (std::size_t i = 0; i < family.tables.size(); ++i) {
    const PrefixTableProfile& table = family.tables[i];
    lpm->prefixTableRecord[i] = {.valid = 1,
                                 .depth = table.rows,
                                 .sramWidth = table.sramWidth,
                                 .tread = static_cast<U8>(table.tread),
                                 .hashPolySelect = table.hashPolySelect};
  }
  const NhiProfile& nhi = family.nhi;
  lpm->nhiGroupMask = nhi.groupMask;
  lpm->nhiTableSize = nhi.tableSize != 0 ? nhi.tableSize : nhi.tiles() * nhi.entriesPerTile;
  std::copy(nhi.tileBitmap.begin(), nhi.tileBitmap.end(), lpm->nhiTileBitmap);
  lpm->nhiPairPerEntry = static_cast<U8>(nhi.pairsPerEntry);
  lpm->nhiBlockBaseWidth = static_cast<U8>(nhi.blockBaseWidth);
  return true;
}

void Chip::Table::rowChanged(U32 index) {
  const bool before = isOccupied(index);
  const bool now = !row(index).empty();
  if (before != now) {
    occupied[index / 64] ^= U64{1} << index % 64;
    used = now ? used + 1 : used - 1;
  }
}

void Chip::memoryChanged() {
  for (Bank* bank : {&ipv4_, &ipv6_}) {
    for (Table& table : bank->tables) {
      for (U32 row = 0; row < table.rows; ++row) {
        table.rowChanged(row);
      }
    }
  }
}

void Chip::memoryChanged(const RowPlace& place) {
  if (place.kind == RowKind::prefix) {
    bank(place.family).tables[place.table].rowChanged(place.row);
  }
}

XP_STATUS Chip::refuse(XP_STATUS status, const RowPlace& place, const std::string& text) {
  ++counters_.refusedWrites;
  lastError_ = toText(place) + ": " + text;
  return status;
}

XP_STATUS Chip::writePrefixRow(Family family, U32 table, U32 row, const xpLpmPrefixEntry& entry) {
  const RowPlace place = prefixPlace(family, table, row);
  std::vector<Table>& tables = bank(family).tables;
  if (table >= tables.size()) {
    return refuse(XP_ERR_OUT_OF_RANGE, place, below("table", tables.size()));
  }
  Table& here = tables[table];
  if (row >= here.rows) {
    return refuse(XP_ERR_OUT_OF_RANGE, place, below("row", here.rows));
  }
  std::array<U64, ChipLayout::kMaxRowWords> packed;
  std::string error;
  if (packPrefixRow(entry, here.width, packed.data(), error) != XP_NO_ERR) {
    return refuse(XP_ERR_FIELD_TOO_WIDE, place, error);
  }
  const U32 count = here.width / 64;
  memory_.rowIs(here.words + std::size_t{row} * count, {packed.data(), count});
  here.rowChanged(row);
  ++counters_.prefixWrites;
  if (!here.isOccupied(row)) {
    ++counters_.prefixClears;
  }
  return XP_NO_ERR;
}

XP_STATUS Chip::readPrefixRow(Family family, U32 table, U32 row, xpLpmPrefixEntry& entry) const {
  const std::vector<Table>& tables = bank(family).tables;
  if (table >= tables.size() || row >= tables[table].rows) {
    return XP_ERR_NOTHING_TO_READ;
  }
  entry = unpackPrefixRow(tables[table].row(row));
  return XP_NO_ERR;
}

XP_STATUS Chip::writeNhiRow(Family family, U32 tile, U32 row, const xpLpmNhiEntry& entry) {
  const RowPlace place = nhiPlace(family, tile, row);
  Bank& here = bank(family);
  if (tile >= here.tiles) {
    return refuse(XP_ERR_OUT_OF_RANGE, place, below("tile", here.tiles));
  }
  if (row >= here.entriesPerTile) {
    return refuse(XP_ERR_OUT_OF_RANGE, place, below("row", here.entriesPerTile));
  }
  std::array<U64, ChipLayout::kNhiRowWords> packed;
  std::string error;
  if (here.nhiLayout.pack(entry, packed.data(), error) != XP_NO_ERR) {
    return refuse(XP_ERR_FIELD_TOO_WIDE, place, error);
  }
  memory_.rowIs(here.nhiTiles[tile] + std::size_t{row} * packed.size(), packed);
  ++counters_.nhiWrites;
  return XP_NO_ERR;
}

XP_STATUS Chip::readNhiRow(Family family, U32 tile, U32 row, xpLpmNhiEntry& entry) const {
  const Bank& here = bank(family);
  if (tile >= here.tiles || row >= here.entriesPerTile) {
    return XP_ERR_NOTHING_TO_READ;
  }
  entry = here.nhiLayout.unpack(here.nhiRow(tile, row));
  return XP_NO_ERR;
}

XP_STATUS Chip::writeNextHopRow(U32 row, const xpNextHopEntry& entry) {
  const RowPlace place = nextHopPlace(row);
  if (row >= profile_.nextHopRows) {
    return refuse(XP_ERR_OUT_OF_RANGE, place, below("row", profile_.nextHopRows));
  }
  if (entry.valid > lowBits(kValidField.count)) {
    return refuse(XP_ERR_FIELD_TOO_WIDE, place,
                  "valid " + std::to_string(entry.valid) + ", expected 0 or 1");
  }
  if (entry.way > lowBits(kWayField.count)) {
    return refuse(XP_ERR_FIELD_TOO_WIDE, place,
                  "way " + std::to_string(entry.way) + ", expected at most " +
                      std::to_string(lowBits(kWayField.count)));
  }
  std::array<U64, ChipLayout::kNextHopRowWords> packed = {entry.nextHopId, 0};
  rowBitsIs(packed.data(), kValidField.first, kValidField.count, entry.valid);
  rowBitsIs(packed.data(), kWayField.first, kWayField.count, entry.way);
  memory_.rowIs(memory_.nextHopTable() + std::size_t{row} * packed.size(), packed);
  ++counters_.nextHopWrites;
  return XP_NO_ERR;
}

XP_STATUS Chip::readNextHopRow(U32 row, xpNextHopEntry& entry) const {
  if (row >= profile_.nextHopRows) {
    return XP_ERR_NOTHING_TO_READ;
  }
  const U64* words = memory_.nextHopTable() + std::size_t{row} * ChipLayout::kNextHopRowWords;
  entry.nextHopId = words[0];
  entry.valid = static_cast<U32>(rowBits(words, kValidField.first, kValidField.count));
  entry.way = static_cast<U32>(rowBits(words, kWayField.first, kWayField.count));
  return XP_NO_ERR;
}

U32 Chip::rowsUsed(Family family) const {
  const std::vector<Table>& tables = bank(family).tables;
  return std::accumulate(tables.begin(), tables.end(), U32{0},
                         [](U32 sum, const Table& table) { return sum + table.used; });
}

U32 Chip::rowCapacity(Family family) const {
  const std::vector<Table>& tables = bank(family).tables;
  return std::accumulate(tables.begin(), tables.end(), U32{0},
                         [](U32 sum, const Table& table) { return sum + table.rows; });
}

}  // namespace XdkSim
