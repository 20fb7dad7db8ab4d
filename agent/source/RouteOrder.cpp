#include "agent/source/RouteOrder.h"

#include <algorithm>

#include "agent/source/Random.h"

namespace Quarle::Agent {

void sortRoutes(std::vector<RouteEntry>& routes) {
  std::sort(routes.begin(), routes.end(), [](const RouteEntry& left, const RouteEntry& right) {
    return left.prefix < right.prefix;
  });
}

void shuffleRoutes(std::vector<RouteEntry>& routes, std::uint64_t seed) {
  Random random(seed);
  shuffle(routes, random);
}

}  // namespace Quarle::Agent
