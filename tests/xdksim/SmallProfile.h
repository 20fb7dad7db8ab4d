#pragma once

#include "xdksim/ChipProfile.h"

/// A chip of a few small tables in each family, with both row widths, two NHI tiles of 64 entries
/// and 128 next-hop rows.
inline XdkSim::ChipProfile smallProfile(U32 pairsPerEntry = 6, U32 blockBaseWidth = 12) {
  XdkSim::NhiProfile nhi;
  nhi.pairsPerEntry = pairsPerEntry;
  nhi.blockBaseWidth = blockBaseWidth;
  nhi.tilesIs(2);
  nhi.entriesPerTile = 64;
  XdkSim::ChipProfile profile;
  profile.name = "small";
  profile.ipv4.nhi = nhi;
  profile.ipv4.tables = {
      {.tread = 35, .rows = 16, .sramWidth = 256, .hashPolySelect = 0},
      {.tread = 35, .rows = 16, .sramWidth = 256, .hashPolySelect = 1},
      {.tread = 28, .rows = 8, .sramWidth = 128, .hashPolySelect = 0},
      {.tread = 16, .rows = 1, .sramWidth = 256, .hashPolySelect = 3},
  };
  profile.ipv6.nhi = nhi;
  profile.ipv6.tables = {
      {.tread = 60, .rows = 16, .sramWidth = 256, .hashPolySelect = 0},
      {.tread = 60, .rows = 16, .sramWidth = 256, .hashPolySelect = 1},
      {.tread = 128, .rows = 4, .sramWidth = 256, .hashPolySelect = 2},
      {.tread = 144, .rows = 8, .sramWidth = 256, .hashPolySelect = 0},
      {.tread = 43, .rows = 8, .sramWidth = 128, .hashPolySelect = 1},
      {.tread = 16, .rows = 2, .sramWidth = 256, .hashPolySelect = 0},
  };
  profile.nextHopRows = 128;
  return profile;
}
