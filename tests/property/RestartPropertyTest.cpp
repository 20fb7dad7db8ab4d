// Clients that follow one another on random chips of several NHI tiles, nearly full: load, churn,
// restart, churn, restart. No name of an NHI block ever stands for two, no two lie over each other,
// and every look-up is right.

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/ReferenceTrie.h"
#include "tests/agent/LastingChip.h"
#include "tests/property/ForAll.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

namespace Quarle::Agent::Testing {
namespace {

/// Of the whole range from the first case on.
U32 number(U32 low, U32 high) {
  return *rc::gen::resize(rc::kNominalSize, rc::gen::inRange<U32>(low, high + 1));
}

struct TiledChip {
  U32 tiles4 = 1;
  U32 tiles6 = 1;
  U32 entriesPerTile = 0;
  // Per cent of the NHI entries up to which routes are added.
  U32 fill = 0;
  U32 lists = 1;
};

struct Step {
  enum class Kind : U8 { route, withdraw, restart, restartWithoutList };

  Kind kind = Kind::route;
  bool ipv6 = false;
  U32 which = 0;
  U32 list = 0;
};

std::ostream& operator<<(std::ostream& stream, const TiledChip& chip) {
  return stream << chip.tiles4 << " and " << chip.tiles6 << " tiles of " << chip.entriesPerTile
                << " entries, filled to " << chip.fill << " %, " << chip.lists << " lists\n";
}

std::ostream& operator<<(std::ostream& stream, const Step& step) {
  return stream << (step.ipv6 ? "IPv6 " : "IPv4 ") << static_cast<unsigned>(step.kind) << " #"
                << step.which << " via #" << step.list;
}

rc::Gen<TiledChip> tiledChip() {
  return rc::gen::exec([] {
    // Equal and unequal; the rotation over the tiles is one for both families.
    static const std::vector<std::pair<U32, U32>> kTiles = {{1, 1},  {2, 2},  {4, 4}, {16, 16},
                                                            {16, 4}, {2, 16}, {4, 1}};
    const auto [tiles4, tiles6] = *rc::gen::elementOf(kTiles);
    return TiledChip{.tiles4 = tiles4,
                     .tiles6 = tiles6,
                     .entriesPerTile = std::max<U32>(6, number(30, 120) / std::max(tiles4, tiles6)),
                     .fill = number(0, 1) == 0 ? number(30, 90) : number(90, 97),
                     .lists = *rc::gen::element<U32>(8, 60, 400)};
  });
}

rc::Gen<std::vector<Step>> steps(U32 most) {
  const rc::Gen<Step> one = rc::gen::exec([] {
    const U32 kind = number(0, 999);
    return Step{.kind = kind < 750   ? Step::Kind::route
                        : kind < 980 ? Step::Kind::withdraw
                        : kind < 994 ? Step::Kind::restart
                                     : Step::Kind::restartWithoutList,
                .ipv6 = number(0, 1) == 1,
                .which = number(0, 400),
                .list = number(0, 1000)};
  });
  return rc::gen::resize(static_cast<int>(most), rc::gen::container<std::vector<Step>>(one));
}

XdkSim::ChipProfile profileOf(const TiledChip& chip) {
  XdkSim::ChipProfile profile = tinyProfile({{.tread = 24, .rows = 64, .hashPolySelect = 0},
                                             {.tread = 24, .rows = 64, .hashPolySelect = 1},
                                             {.tread = 16, .rows = 4, .hashPolySelect = 0}},
                                            /*nextHopRows=*/512);
  profile.ipv4.nhi.tilesIs(chip.tiles4);
  profile.ipv6.nhi.tilesIs(chip.tiles6);
  return profile;
}

/// Spread over the rows, with neighbours in most of them.
RouteKey keyOf(bool ipv6, U32 which) {
  const U32 bits = (which / 4) * 2654435761U;
  RoutePrefix prefix{.family = ipv6 ? Family::ipv6 : Family::ipv4, .address = {}, .length = 0};
  const U32 spread = ipv6 ? 5 : 0;
  prefix.address[0] = ipv6 ? 0x20 : static_cast<U8>(bits >> 24);
  prefix.address[spread] = static_cast<U8>(bits >> 24);
  prefix.address[spread + 1] = static_cast<U8>((bits >> 16 & 0xf0) | which % 4 << 2);
  prefix.length = static_cast<U8>((spread + 1) * 8 + 6);
  return {.vrf = 0, .prefix = prefix};
}

std::vector<U64> listOf(U32 list) { return std::vector<U64>(1 + list % 3, 1 + list); }

/// What all cases together have seen, so that a property of nothing does not pass.
struct Seen {
  U64 placed = 0;
  U64 updated = 0;
  U64 withdrawn = 0;
  U64 refused = 0;
  U64 restarts = 0;
  U64 strangers = 0;
  U64 compactions = 0;
  U64 nearlyFull = 0;
};

Seen seen;

class Run {
 public:
  explicit Run(const TiledChip& shape)
      : shape_(shape),
        chip_(profileOf(shape),
              {.maxLengthV4 = 19, .headroom = {.share = 0, .minLargestBlocks = 0}}) {
    chip_.start();
    listen();
  }

  /// The faults.
  std::string carryOut(const Step& step) {
    const Family which = step.ipv6 ? Family::ipv6 : Family::ipv4;
    FamilyClient& family = chip_.client->family(which);
    switch (step.kind) {
      case Step::Kind::restart:
      case Step::Kind::restartWithoutList:
        return restart(step.kind == Step::Kind::restart);
      case Step::Kind::route:
        if (fill(which) < shape_.fill) {
          family.routeIs(keyOf(step.ipv6, step.which), listOf(step.list % shape_.lists));
          break;
        }
        [[fallthrough]];
      case Step::Kind::withdraw:
        if (const auto key = someRoute(which, step.which)) {
          family.routeDel(*key);
        }
        break;
    }
    seen.nearlyFull += fill(which) >= 90 ? 1 : 0;
    return blockFaults(which);
  }

  std::string faults() const {
    return blockFaults(Family::ipv4) + blockFaults(Family::ipv6) + lookupFaults();
  }

 private:
  void listen() {
    chip_.client->answerHandlerIs([this](const RouteEvent& event) { note(event); });
  }

  void note(const RouteEvent& event) {
    const Outcome outcome = event.answer.outcome;
    seen.placed += outcome == Outcome::placed ? 1 : 0;
    seen.updated += outcome == Outcome::updated ? 1 : 0;
    seen.withdrawn += outcome == Outcome::withdrawn ? 1 : 0;
    seen.refused += outcome == Outcome::refused ? 1 : 0;
    if (outcome == Outcome::withdrawn) {
      routes_.erase(event.key);
    } else if (outcome == Outcome::placed || outcome == Outcome::updated) {
      const auto nextHops = chip_.client->groups().nextHops(event.group);
      routes_[event.key].assign(nextHops.begin(), nextHops.end());
    }
  }

  U32 fill(Family family) const {
    const FamilyStatistics statistics = chip_.client->family(family).statistics();
    return static_cast<U32>(statistics.nhiEntriesUsed * 100 / statistics.nhiEntryCapacity);
  }

  std::optional<RouteKey> someRoute(Family family, U32 which) const {
    std::vector<RouteKey> keys;
    for (const auto& [key, nextHops] : routes_) {
      if (key.prefix.family == family) {
        keys.push_back(key);
      }
    }
    return keys.empty() ? std::nullopt : std::optional(keys[which % keys.size()]);
  }

  std::string restart(bool hasList) {
    ++seen.restarts;
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      seen.compactions += chip_.client->family(family).statistics().defragMoves != 0 ? 1 : 0;
    }
    // Routes that found no NHI room to leave theirs.
    const U64 strangersBefore = chip_.client->groups().statistics().strangers;
    if (!hasList) {
      chip_.loseList();
    }
    chip_.restart();
    listen();
    const GroupRecovery& groups = chip_.client->restartReport().groups;
    seen.strangers += groups.strangers;
    std::string faults = this->faults();
    if (hasList && groups.strangers != strangersBefore) {
      faults += std::to_string(groups.strangers) + " strangers in spite of the list, expected " +
                std::to_string(strangersBefore) + "\n";
    }
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      const PreFlightReport& report =
          chip_.client->restartReport().preFlight[static_cast<std::size_t>(family)];
      faults += report.rewritesOnly ? "" : "pre-flight found something to mend\n";
    }
    if (!hasList) {
      const auto routes = routes_;
      chip_.client->resyncBegin();
      for (const auto& [key, nextHops] : routes) {
        chip_.client->family(key.prefix.family).routeIs(key, nextHops);
      }
      chip_.client->resyncEnd();
      faults += this->faults();
    }
    return faults;
  }

  /// Names and places of blocks, by what each tile has left.
  std::string blockFaults(Family family) const {
    std::string faults;
    const Tarnlet::LpmSm& engine = chip_.client->family(family).engine();
    std::map<std::pair<U32, U32>, U32> extents;
    std::map<U32, U64> usedOf;
    for (const auto& block : engine.nhiBaseIdxToBlkCollection()) {
      const Tarnlet::NhiTableIdx name = block.memberKey();
      extents[{name.tile().value(), name.offset()}] = block.value->blkSz();
      usedOf[name.tile().value()] += block.value->blkSz();
      if (block.value->offset() != name.offset()) {
        faults += "a block lies elsewhere than it is named\n";
      }
    }
    for (auto extent = extents.begin(); extent != extents.end(); ++extent) {
      const auto next = std::next(extent);
      if (next != extents.end() && next->first.first == extent->first.first &&
          extent->first.second + extent->second > next->first.second) {
        faults += "two blocks lie over each other\n";
      }
    }
    for (const auto& tile : engine.nhiAllocatorCollection()) {
      const U64 used = tile.value->entriesCapacity() - tile.value->freeEntries();
      if (used != usedOf[tile.memberKey().value()]) {
        faults += "tile " + std::to_string(tile.memberKey().value()) + " has " +
                  std::to_string(used) + " entries used, and blocks of " +
                  std::to_string(usedOf[tile.memberKey().value()]) + " named\n";
      }
    }
    return faults.empty() ? "" : familyName(family) + (": " + faults);
  }

  std::string lookupFaults() const {
    std::string faults;
    ReferenceTrie trie;
    std::vector<std::string> texts;
    for (const auto& [key, nextHops] : routes_) {
      trie.insert(key.prefix, static_cast<ReferenceTrie::Value>(texts.size()));
      texts.push_back(toText(key.prefix) + " to");
      for (const U64 nextHop : nextHops) {
        texts.back() += " " + std::to_string(nextHop);
      }
    }
    for (const auto& [key, nextHops] : routes_) {
      const IpAddress address = key.prefix.lastAddress();
      const std::string expected = texts[trie.longestMatch(address)->value];
      const std::string seenText = chip_.lookup(toText(address));
      if (seenText != expected) {
        faults += seenText + ", expected " + expected + "\n";
      }
    }
    return faults;
  }

  const TiledChip& shape_;
  LastingChip chip_;
  std::map<RouteKey, std::vector<U64>> routes_;
};

std::string faultOfRestarts(const TiledChip& shape, const std::vector<Step>& steps) {
  const Environment tileSize("NHI_TABLE_SIZE", std::to_string(shape.entriesPerTile));
  Run run(shape);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const std::string faults =
        run.carryOut(steps[i]) + (i + 1 == steps.size() ? run.faults() : std::string());
    if (!faults.empty()) {
      std::ostringstream text;
      text << "after step " << i << ", " << steps[i] << ":\n" << faults;
      return text.str();
    }
  }
  return "";
}

TEST(RestartProperty, namesNeverRepeatAndLookupsStayRightOverRestarts) {
  seen = {};
  Tarnlet::Testing::forAllCases(150, faultOfRestarts, tiledChip(), steps(500));
  // Cases in which nothing happens would hold as well.
  EXPECT_GT(seen.placed, 5000U);
  EXPECT_GT(seen.updated, 500U);
  EXPECT_GT(seen.withdrawn, 3000U);
  EXPECT_GT(seen.refused, 20U);
  EXPECT_GT(seen.restarts, 200U);
  EXPECT_GT(seen.strangers, 50U);
  EXPECT_GT(seen.compactions, 5U);
  EXPECT_GT(seen.nearlyFull, 100U);
}

}  // namespace
}  // namespace Quarle::Agent::Testing
