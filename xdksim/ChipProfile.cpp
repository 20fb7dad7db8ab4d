#include "xdksim/ChipProfile.h"

#include <bit>
#include <string>

#include "xdksim/ProfileCheck.h"

namespace XdkSim {

U32 NhiProfile::tiles() const {
  U32 count = 0;
  for (U32 group = 0; group < tileBitmap.size(); ++group) {
    if ((groupMask >> group & 1) != 0) {
      count += static_cast<U32>(std::popcount(tileBitmap[group]));
    }
  }
  return count;
}

void NhiProfile::tilesIs(U32 count) {
  groupMask = 0;
  for (U32 group = 0; group < tileBitmap.size(); ++group) {
    const U32 here = count < 8 ? count : 8;
    count -= here;
    tileBitmap[group] = static_cast<U8>((1U << here) - 1);
    groupMask |= here == 0 ? 0U : 1U << group;
  }
}

U32 NhiProfile::pairWidth() const {
  switch (pairsPerEntry) {
    case 6:
      return 21;
    case 7:
      return 18;
    case 8:
      return 16;
    case 10:
      return 12;
    default:
      return 0;
  }
}

void profileFails(const std::string& source,
                  const std::string& path,
                  const std::string& what,
                  const std::string& expected) {
  std::string text = source;
  text += ": ";
  if (!path.empty()) {
    text += path + ": ";
  }
  throw ProfileError(text + what + ", expected " + expected);
}

namespace {

std::string tablePathInCode(Family family, U32 table) {
  return familyName(family) + std::string(".tables[") + std::to_string(table) + "]";
}

/// Runs the checks of one profile and knows what to call the fields in error texts.
class Checker {
 public:
  Checker(const std::string& source, const TablePath& tablePath)
      : source_(source), tablePath_(tablePath) {}

  void checkFamily(Family which, const FamilyProfile& family, U32 keyWidth) const {
    const std::string path = familyName(which);
    require(family.keyWidth == keyWidth, path + ".keyWidth", family.keyWidth,
            std::to_string(keyWidth));
    require(family.vrfIdWidth == 16, path + ".vrfIdWidth", family.vrfIdWidth, "16");
    const auto tables = static_cast<U32>(family.tables.size());
    if (tables == 0 || tables > ChipProfile::kMaxTables) {
      profileFails(source_, path + ".tables", std::to_string(tables) + " tables in all",
                   "1 to " + std::to_string(ChipProfile::kMaxTables));
    }
    for (U32 i = 0; i < tables; ++i) {
      checkTable(family.tables[i], keyWidth, tablePath_(which, i));
    }
    checkNhi(family.nhi, path + ".nhi");
  }

  void require(bool holds, const std::string& path, U32 value, const std::string& expected) const {
    if (!holds) {
      profileFails(source_, path, std::to_string(value), expected);
    }
  }

 private:
  void checkTable(const PrefixTableProfile& table, U32 keyWidth, const std::string& path) const {
    require(table.tread >= 1 && table.tread <= keyWidth, path + ".tread", table.tread,
            "1 to " + std::to_string(keyWidth));
    // The hash selects among a power of two of rows; any further ones would never be used.
    require(std::has_single_bit(table.rows) && table.rows <= ChipProfile::kMaxRows, path + ".rows",
            table.rows, "a power of two from 1 to " + std::to_string(ChipProfile::kMaxRows));
    require(table.sramWidth == 128 || table.sramWidth == 256, path + ".sramWidth", table.sramWidth,
            "128 or 256");
    require(table.hashPolySelect <= 3, path + ".hashPolySelect", table.hashPolySelect, "0 to 3");
  }

  void checkNhi(const NhiProfile& nhi, const std::string& path) const {
    const U32 pairWidth = nhi.pairWidth();
    require(pairWidth != 0, path + ".pairsPerEntry", nhi.pairsPerEntry, "6, 7, 8 or 10");
    require(nhi.blockBaseWidth >= 1 && nhi.blockBaseWidth <= pairWidth, path + ".blockBaseWidth",
            nhi.blockBaseWidth,
            "1 to " + std::to_string(pairWidth) + " with " + std::to_string(nhi.pairsPerEntry) +
                " pairs per entry");
    require(nhi.groupMask <= 0xff, path + ".groupMask", nhi.groupMask, "0 to 255");
    require(nhi.tiles() != 0, path, nhi.tiles(), "at least one tile");
    require(nhi.entriesPerTile >= 1 && nhi.entriesPerTile <= NhiProfile::kMaxEntriesPerTile,
            path + ".entriesPerTile", nhi.entriesPerTile,
            "1 to " + std::to_string(NhiProfile::kMaxEntriesPerTile));
  }

  const std::string& source_;
  const TablePath& tablePath_;
};

}  // namespace

void checkProfile(const ChipProfile& profile,
                  const std::string& source,
                  const TablePath& tablePath) {
  const Checker checker(source, tablePath);
  checker.checkFamily(Family::ipv4, profile.ipv4, 48);
  checker.checkFamily(Family::ipv6, profile.ipv6, 144);
  checker.require(profile.nextHopRows >= 1 && profile.nextHopRows <= ChipProfile::kMaxNextHopRows,
                  "nextHopTable.rows", profile.nextHopRows,
                  "1 to " + std::to_string(ChipProfile::kMaxNextHopRows));
}

void ChipProfile::check(const std::string& source) const {
  checkProfile(*this, source, tablePathInCode);
}

}  // namespace XdkSim
