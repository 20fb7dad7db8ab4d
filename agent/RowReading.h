#pragma once

#include <optional>

#include "agent/NhiUsers.h"
#include "agent/RouteKey.h"
#include "framework/Xdk/Xdk.h"

namespace Quarle::Agent {

/// The route that stands in a slot of a prefix row; nothing for an empty slot.
///
/// REQUIRES: `slot` < 36.
std::optional<RouteKey> routeIn(Family family, const xpLpmPrefixEntry& row, U32 slot);

/// The NHI entries that the row reads; nothing for an empty row.
std::optional<NhiRun> runIn(const xpLpmPrefixEntry& row, U32 pairsPerEntry);

/// Whether the rows differ in nothing but the block that they read.
bool sameLeaves(const xpLpmPrefixEntry& a, const xpLpmPrefixEntry& b);

}  // namespace Quarle::Agent
