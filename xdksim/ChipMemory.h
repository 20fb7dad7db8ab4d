#pragma once

#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "framework/Xdk/XpExport.h"
#include "xdksim/ChipProfile.h"

namespace XdkSim {

/// The memories of a chip, as one run of 64-bit words: the prefix rows of both families table by
/// table, the NHI rows of both families tile by tile, the next-hop rows. All zero at first.
///
/// The words are the whole state of the chip: whatever else a chip keeps is derived from them.
/// Where each row lies follows from the profile alone.
class XDK_API ChipMemory {
 public:
  static constexpr U32 kNhiRowWords = 2;
  static constexpr U32 kNextHopRowWords = 2;

  /// REQUIRES: `profile` passed its checks.
  explicit ChipMemory(const ChipProfile& profile);

  std::span<U64> words() { return {words_.get(), size_}; }

  /// First word of row 0 of a prefix table; the rows follow one another.
  U64* prefixTable(Family family, U32 table) {
    return words_.get() + place(family).prefixTables[table];
  }

  /// First word of row 0 of an NHI tile; the rows follow one another.
  U64* nhiTile(Family family, U32 tile) {
    const FamilyPlace& here = place(family);
    return words_.get() + here.nhi + here.tileWords * tile;
  }

  /// First word of row 0 of the next-hop table; the rows follow one another.
  U64* nextHopTable() { return words_.get() + nextHopTable_; }

  const U64* nextHopTable() const { return words_.get() + nextHopTable_; }

 private:
  struct Free {
    void operator()(U64* words) const { std::free(words); }
  };

  /// Where a family's memories begin, in words.
  struct FamilyPlace {
    std::vector<std::size_t> prefixTables;
    std::size_t nhi = 0;
    std::size_t tileWords = 0;
  };

  const FamilyPlace& place(Family family) const { return family == Family::ipv4 ? ipv4_ : ipv6_; }

  FamilyPlace placeFamily(const FamilyProfile& family);

  std::size_t size_ = 0;
  FamilyPlace ipv4_;
  FamilyPlace ipv6_;
  std::size_t nextHopTable_ = 0;
  // From calloc: the pages of rows that are never written are never touched.
  std::unique_ptr<U64[], Free> words_;
};

}  // namespace XdkSim
