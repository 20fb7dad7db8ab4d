#pragma once

#include <optional>
#include <span>

#include "agent/NhiUsers.h"
#include "agent/RouteKey.h"
#include "framework/Xdk/Xdk.h"
#include "xdksim/Chip.h"

namespace Quarle::Agent {

/// The route that stands in a slot of a prefix row; nothing for an empty slot.
///
/// REQUIRES: `slot` < 36.
std::optional<RouteKey> routeIn(Family family, const xpLpmPrefixEntry& row, U32 slot);

/// The NHI entries that the row reads; nothing for an empty row.
std::optional<NhiRun> runIn(const xpLpmPrefixEntry& row, U32 pairsPerEntry);

/// Whether the rows differ in nothing but the block that they read.
bool sameLeaves(const xpLpmPrefixEntry& a, const xpLpmPrefixEntry& b);

/// Whether the next-hop rows that a look-up found hold these next hops, each at its way.
bool holdsList(const XdkSim::Chip& chip,
               const XdkSim::LookupResult& seen,
               std::span<const U64> nextHops);

/// Whether the rows hold at each way what one of two lists has there, and the lists are of a size.
bool holdsSomeOfEach(const XdkSim::Chip& chip,
                     const XdkSim::LookupResult& seen,
                     std::span<const U64> before,
                     std::span<const U64> after);

/// Whether the rows are those of a list that slides towards row 0: the rows before them hold its
/// first next hops, and each of them what it held or what the new place has there.
bool holdsSlidingList(const XdkSim::Chip& chip,
                      const XdkSim::LookupResult& seen,
                      std::span<const U64> nextHops);

}  // namespace Quarle::Agent
