#pragma once

#include <cstddef>
#include <vector>

#include "framework/Xdk/XpExport.h"
#include "xdksim/RowPlace.h"

namespace XdkSim {

/// A run of words of a chip's memories.
struct WordRun {
  std::size_t first = 0;
  std::size_t count = 0;
};

/// Where each row lies in the words of a chip: the prefix rows of both families table by table, the
/// NHI rows of both families tile by tile, the next-hop rows.
///
/// It follows from the profile alone, so that a chip's words mean the same to whoever has the
/// profile. A change of it is a new format of `ChipImage`.
class XDK_API ChipLayout {
 public:
  static constexpr U32 kNhiRowWords = 2;
  static constexpr U32 kNextHopRowWords = 2;
  // Of any row.
  static constexpr U32 kMaxRowWords = 4;

  /// REQUIRES: `profile` passed its checks.
  explicit ChipLayout(const ChipProfile& profile);

  /// Words of the whole chip.
  std::size_t words() const { return words_; }

  /// First word of row 0 of a prefix table; the rows follow one another.
  std::size_t prefixTable(Family family, U32 table) const {
    return place(family).prefixTables[table].first;
  }

  /// First word of row 0 of an NHI tile; the rows follow one another.
  std::size_t nhiTile(Family family, U32 tile) const {
    const FamilyPlace& here = place(family);
    return here.nhi + std::size_t{here.tileRows} * kNhiRowWords * tile;
  }

  /// First word of row 0 of the next-hop table; the rows follow one another.
  std::size_t nextHopTable() const { return nextHopTable_; }

  /// Whether the chip has such a row.
  bool has(const RowPlace& row) const;

  /// The words of `row`.
  ///
  /// REQUIRES: `has(row)`.
  WordRun wordsOf(const RowPlace& row) const;

  /// Every row of the chip, in the order of their words.
  std::vector<RowPlace> rows() const;

 private:
  struct TablePlace {
    std::size_t first;
    U32 rows;
    U32 rowWords;
  };

  /// Where a family's memories begin, in words.
  struct FamilyPlace {
    std::vector<TablePlace> prefixTables;
    std::size_t nhi = 0;
    U32 tiles = 0;
    U32 tileRows = 0;
  };

  const FamilyPlace& place(Family family) const { return family == Family::ipv4 ? ipv4_ : ipv6_; }

  FamilyPlace placeFamily(const FamilyProfile& family);

  std::size_t words_ = 0;
  FamilyPlace ipv4_;
  FamilyPlace ipv6_;
  std::size_t nextHopTable_ = 0;
  U32 nextHopRows_ = 0;
};

}  // namespace XdkSim
