#include "cli/shell/ResourceTree.h"

#include <algorithm>
#include <utility>

namespace Quarle::Cli {

namespace {

using Agent::Family;

/// `whole` with these parts, by rising number, and their sums.
Resource summed(Resource whole, std::vector<std::pair<U32, Resource>> parts) {
  std::sort(parts.begin(), parts.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (auto& [number, part] : parts) {
    whole.size += part.size;
    whole.occupied += part.occupied;
    whole.parts.push_back(std::move(part));
  }
  return whole;
}

Resource tablesOf(const Tarnlet::LpmSm& engine) {
  std::vector<std::pair<U32, Resource>> tables;
  for (const auto& table : engine.prefixTableCollection()) {
    const Tarnlet::PrefixTableConfig& config = *table.value->tableConfig();
    const U32 id = config.tableId().value();
    tables.emplace_back(id, Resource{.name = "table_" + std::to_string(id) + "_tread_" +
                                             std::to_string(config.tread()),
                                     .size = config.depth(),
                                     .occupied = table.value->subTries(),
                                     .unit = "row",
                                     .parts = {}});
  }
  return summed({.name = "prefix_tables", .unit = "row", .parts = {}}, std::move(tables));
}

Resource tilesOf(const Tarnlet::LpmSm& engine) {
  std::vector<std::pair<U32, Resource>> tiles;
  for (const auto& tile : engine.nhiAllocatorCollection()) {
    const U32 id = tile.memberKey().value();
    const U32 capacity = tile.value->entriesCapacity();
    tiles.emplace_back(id, Resource{.name = "tile_" + std::to_string(id),
                                    .size = capacity,
                                    .occupied = capacity - tile.value->freeEntries(),
                                    .unit = "entry",
                                    .parts = {}});
  }
  return summed({.name = "nhi", .unit = "entry", .parts = {}}, std::move(tiles));
}

}  // namespace

std::vector<Resource> resourcesOf(const Session& session) {
  std::vector<Resource> resources;
  for (const auto& [family, name] :
       {std::pair(Family::ipv4, "ipv4"), std::pair(Family::ipv6, "ipv6")}) {
    const Tarnlet::LpmSm::Ptr engine = session.engine(family);
    resources.push_back(tablesOf(*engine));
    resources.back().name = std::string(name) + "_prefix_tables";
    resources.push_back(tilesOf(*engine));
    resources.back().name = std::string(name) + "_nhi";
  }
  const Agent::NextHopStatistics nextHops = session.client().groups().statistics();
  resources.push_back({.name = "next_hop_table",
                       .size = nextHops.rowCapacity,
                       .occupied = nextHops.rowsUsed,
                       .unit = "row",
                       .parts = {}});
  return resources;
}

}  // namespace Quarle::Cli
