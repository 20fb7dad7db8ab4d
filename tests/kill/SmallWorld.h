#pragma once

#include <vector>

#include "agent/RouteKey.h"
#include "agent/source/SyntheticTable.h"
#include "xdksim/ChipProfile.h"

namespace Quarle::Agent::Testing {

/// Routes of both families, nested as in the Internet, some of them in a second VRF too.
inline std::vector<RouteKey> nestedKeys(const SyntheticSize& size, U64 seed) {
  constexpr U32 kSecondVrf = 7;
  const RouteTable table = makeSyntheticTable(size, seed);
  std::vector<RouteKey> keys;
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    for (const RouteEntry& route : table.routes(family)) {
      keys.push_back({.vrf = 0, .prefix = route.prefix});
      if (keys.size() % 5 == 0) {
        keys.push_back({.vrf = kSecondVrf, .prefix = route.prefix});
      }
    }
  }
  return keys;
}

/// Tables of `rows` rows each and one NHI tile.
inline XdkSim::ChipProfile oneTileProfile(U32 rows, U32 entriesPerTile, U32 nextHopRows) {
  const auto table = [rows](U32 tread) {
    return XdkSim::PrefixTableProfile{
        .tread = tread, .rows = rows, .sramWidth = 256, .hashPolySelect = 0};
  };
  XdkSim::ChipProfile profile;
  profile.name = "one tile";
  for (const U32 tread : {35, 35, 35, 35, 28, 28, 24, 24, 16}) {
    profile.ipv4.tables.push_back(table(tread));
  }
  for (const U32 tread : {60, 60, 60, 60, 43, 43, 34, 34, 128, 16}) {
    profile.ipv6.tables.push_back(table(tread));
  }
  for (XdkSim::FamilyProfile* family : {&profile.ipv4, &profile.ipv6}) {
    for (U32 i = 0; i < family->tables.size(); ++i) {
      family->tables[i].hashPolySelect = i % 2;
    }
    family->nhi.tilesIs(1);
    family->nhi.entriesPerTile = entriesPerTile;
  }
  profile.nextHopRows = nextHopRows;
  return profile;
}

}  // namespace Quarle::Agent::Testing
