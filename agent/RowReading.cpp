#include "agent/RowReading.h"

#include <algorithm>
#include <cstring>

#include "xdksim/EntryLayout.h"

namespace Quarle::Agent {

namespace {

using XdkSim::Leaf;
using XdkSim::LpmKey;

Leaf leafIn(const xpLpmPrefixEntry& row, U32 slot) {
  return {.low = row.leafVal[slot], .high = row.leafValHigh[slot]};
}

/// Whether the next-hop row holds this way of the list.
bool holdsWay(const XdkSim::Chip& chip, U32 row, std::span<const U64> nextHops, U32 way) {
  xpNextHopEntry entry;
  return way < nextHops.size() && chip.readNextHopRow(row, entry) == XP_NO_ERR &&
         entry.valid == 1 && entry.way == way && entry.nextHopId == nextHops[way];
}

}  // namespace

std::optional<RouteKey> routeIn(Family family, const xpLpmPrefixEntry& row, U32 slot) {
  const Leaf leaf = leafIn(row, slot);
  if (leaf.empty()) {
    return std::nullopt;
  }
  LpmKey key = XdkSim::branchOf(row);
  const U32 behind = leaf.length();
  const U32 length = row.branchLen + behind;
  const U32 lowCount = std::min(behind, 64U);
  key.bitsIs(row.branchLen, behind - lowCount, leaf.high & XdkSim::lowBits(behind - lowCount));
  key.bitsIs(row.branchLen + behind - lowCount, lowCount, leaf.low & XdkSim::lowBits(lowCount));
  const AddressBits bits{.high = key.words[0] << 16 | key.words[1] >> 48,
                         .low = key.words[1] << 16 | key.words[2] >> 48};
  const U32 vrfBits = LpmKey::kVrfBits;
  return RouteKey{.vrf = static_cast<U32>(key.words[0] >> 48),
                  .prefix = RoutePrefix::of(family, bits, length < vrfBits ? 0 : length - vrfBits)};
}

std::optional<NhiRun> runIn(const xpLpmPrefixEntry& row, U32 pairsPerEntry) {
  for (U32 slot = xpLpmPrefixEntry::kLeaves; slot > 0; --slot) {
    if (!leafIn(row, slot - 1).empty()) {
      return NhiRun{
          .tile = row.nhiTile, .offset = row.nhiOffset, .entries = (slot - 1) / pairsPerEntry + 1};
    }
  }
  return std::nullopt;
}

bool sameLeaves(const xpLpmPrefixEntry& a, const xpLpmPrefixEntry& b) {
  xpLpmPrefixEntry moved = a;
  moved.nhiTile = b.nhiTile;
  moved.nhiOffset = b.nhiOffset;
  return std::memcmp(&moved, &b, sizeof b) == 0;
}

bool holdsList(const XdkSim::Chip& chip,
               const XdkSim::LookupResult& seen,
               std::span<const U64> nextHops) {
  return holdsSomeOfEach(chip, seen, nextHops, nextHops);
}

bool holdsSomeOfEach(const XdkSim::Chip& chip,
                     const XdkSim::LookupResult& seen,
                     std::span<const U64> before,
                     std::span<const U64> after) {
  bool fits = seen.size == before.size() && seen.size == after.size();
  for (U32 way = 0; fits && way < seen.size; ++way) {
    fits =
        holdsWay(chip, seen.base + way, before, way) || holdsWay(chip, seen.base + way, after, way);
  }
  return fits;
}

bool holdsSlidingList(const XdkSim::Chip& chip,
                      const XdkSim::LookupResult& seen,
                      std::span<const U64> nextHops) {
  if (seen.size != nextHops.size()) {
    return false;
  }
  for (U32 slide = 1; slide < seen.size && slide <= seen.base; ++slide) {
    bool fits = true;
    for (U32 way = 0; fits && way < slide; ++way) {
      fits = holdsWay(chip, seen.base - slide + way, nextHops, way);
    }
    for (U32 way = 0; fits && way < seen.size; ++way) {
      fits = holdsWay(chip, seen.base + way, nextHops, way) ||
             holdsWay(chip, seen.base + way, nextHops, way + slide);
    }
    if (fits) {
      return true;
    }
  }
  return false;
}

}  // namespace Quarle::Agent
