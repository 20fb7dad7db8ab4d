#pragma once

#include <cstdint>
#include <vector>

#include "agent/source/RouteEntry.h"

namespace Quarle::Agent {

/// Orders `routes` by family, address, then length: a covering prefix before those it covers.
void sortRoutes(std::vector<RouteEntry>& routes);

/// Puts `routes` into a random order that depends on `seed` and on the order they came in.
void shuffleRoutes(std::vector<RouteEntry>& routes, std::uint64_t seed);

}  // namespace Quarle::Agent
