#include "xdksim/ChipLayout.h"

namespace XdkSim {

ChipLayout::ChipLayout(const ChipProfile& profile) {
  ipv4_ = placeFamily(profile.ipv4);
  ipv6_ = placeFamily(profile.ipv6);
  nextHopTable_ = words_;
  nextHopRows_ = profile.nextHopRows;
  words_ += std::size_t{nextHopRows_} * kNextHopRowWords;
}

ChipLayout::FamilyPlace ChipLayout::placeFamily(const FamilyProfile& family) {
  FamilyPlace place;
  for (const PrefixTableProfile& table : family.tables) {
    const U32 rowWords = table.sramWidth / 64;
    place.prefixTables.push_back({.first = words_, .rows = table.rows, .rowWords = rowWords});
    words_ += std::size_t{table.rows} * rowWords;
  }
  place.nhi = words_;
  place.tiles = family.nhi.tiles();
  place.tileRows = family.nhi.entriesPerTile;
  words_ += std::size_t{place.tiles} * place.tileRows * kNhiRowWords;
  return place;
}

bool ChipLayout::has(const RowPlace& row) const {
  const FamilyPlace& family = place(row.family);
  switch (row.kind) {
    case RowKind::prefix:
      return row.table < family.prefixTables.size() &&
             row.row < family.prefixTables[row.table].rows;
    case RowKind::nhi:
      return row.table < family.tiles && row.row < family.tileRows;
    case RowKind::nextHop:
      return row.row < nextHopRows_;
  }
  return false;
}

WordRun ChipLayout::wordsOf(const RowPlace& row) const {
  switch (row.kind) {
    case RowKind::prefix: {
      const TablePlace& table = place(row.family).prefixTables[row.table];
      return {.first = table.first + std::size_t{row.row} * table.rowWords,
              .count = table.rowWords};
    }
    case RowKind::nhi:
      return {.first = nhiTile(row.family, row.table) + std::size_t{row.row} * kNhiRowWords,
              .count = kNhiRowWords};
    case RowKind::nextHop:
      return {.first = nextHopTable_ + std::size_t{row.row} * kNextHopRowWords,
              .count = kNextHopRowWords};
  }
  return {};
}

std::vector<RowPlace> ChipLayout::rows() const {
  std::vector<RowPlace> all;
  const auto append = [&all](RowKind kind, Family family, U32 table, U32 rows) {
    for (U32 row = 0; row < rows; ++row) {
      all.push_back({.kind = kind, .family = family, .table = table, .row = row});
    }
  };
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const FamilyPlace& here = place(family);
    for (U32 table = 0; table < here.prefixTables.size(); ++table) {
      append(RowKind::prefix, family, table, here.prefixTables[table].rows);
    }
    for (U32 tile = 0; tile < here.tiles; ++tile) {
      append(RowKind::nhi, family, tile, here.tileRows);
    }
  }
  append(RowKind::nextHop, Family::ipv4, 0, nextHopRows_);
  return all;
}

}  // namespace XdkSim
