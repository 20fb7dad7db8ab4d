// Two families side by side in one process, each through its own window over its own tiles, filled
// and churned: names and places of NHI blocks agree whatever the other family does.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/property/ForAll.h"
#include "tests/support/CommandText.h"
#include "tests/support/TiledFamily.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

namespace {

using namespace Quarle;
using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;

/// Of the whole range from the first case on.
U32 number(U32 low, U32 high) {
  return *rc::gen::resize(rc::kNominalSize, rc::gen::inRange<U32>(low, high + 1));
}

struct TwoFamilies {
  ChipShape ipv4;
  ChipShape ipv6;
  Agent::HeadroomOptions headroom;
  // Per cent of the NHI entries up to which routes are added.
  U32 fill = 0;
  U32 hops = 1;
};

/// What a client does next. Numbers choose modulo what there is.
struct Step {
  enum class Kind : U8 { route, change, withdraw, look, handOver };

  bool ipv6 = false;
  Kind kind = Kind::route;
  U32 which = 0;
  U32 hop = 0;
};

std::ostream& operator<<(std::ostream& stream, const ChipShape& shape) {
  stream << unsigned{shape.tiles} << " tiles of " << shape.entriesPerTile << ", "
         << unsigned{shape.pairsPerEntry} << " pairs, tables";
  for (const TableShape& table : shape.tables) {
    stream << " {tread " << unsigned{table.tread} << ", depth " << table.depth << "}";
  }
  return stream;
}

std::ostream& operator<<(std::ostream& stream, const TwoFamilies& families) {
  return stream << "IPv4 " << families.ipv4 << "; IPv6 " << families.ipv6 << "; filled to "
                << families.fill << " %, " << families.hops << " next hops, headroom "
                << families.headroom.share << " and " << families.headroom.minLargestBlocks
                << " blocks\n";
}

std::ostream& operator<<(std::ostream& stream, const Step& step) {
  return stream << (step.ipv6 ? "IPv6 " : "IPv4 ") << static_cast<unsigned>(step.kind) << " #"
                << step.which << " via " << step.hop;
}

ChipShape shapeOf(bool ipv6, U8 tiles) {
  ChipShape shape;
  shape.longKey = ipv6;
  const U8 tread = static_cast<U8>(number(18, 26));
  shape.tables = {{.id = 0, .tread = tread, .depth = number(16, 64)},
                  {.id = 1, .tread = tread, .depth = number(16, 64)},
                  {.id = 2, .tread = 16, .depth = 2}};
  // Few pairs make blocks of several entries, which a tile soon holds in pieces.
  shape.pairsPerEntry = *rc::gen::element<U8>(1, 2, 2, 3, 6, 10);
  shape.tiles = tiles;
  shape.entriesPerTile = static_cast<U16>(std::max<U32>(3, number(24, 80) / tiles));
  return shape;
}

rc::Gen<TwoFamilies> twoFamilies() {
  return rc::gen::exec([] {
    // Equal and unequal counts; the rotation over the tiles is one for both families.
    static const std::vector<std::pair<U8, U8>> kTiles = {{1, 1},   {2, 2},  {4, 4},
                                                          {16, 16}, {12, 4}, {3, 8}};
    std::pair<U8, U8> tiles = *rc::gen::elementOf(kTiles);
    if (number(0, 3) == 0) {
      tiles = {static_cast<U8>(number(1, 16)), static_cast<U8>(number(1, 16))};
    }
    TwoFamilies families;
    families.ipv4 = shapeOf(false, tiles.first);
    families.ipv6 = shapeOf(true, tiles.second);
    families.fill = number(0, 1) == 0 ? number(30, 90) : number(90, 99);
    families.hops = *rc::gen::element<U32>(3, 1000, 1000);
    families.headroom = {.share = *rc::gen::element(0.0, 0.0, 0.1),
                         .minLargestBlocks = *rc::gen::element<U32>(0, 0, 2)};
    return families;
  });
}

rc::Gen<std::vector<Step>> steps(U32 most) {
  const rc::Gen<Step> one = rc::gen::exec([] {
    const U32 kind = number(0, 99);
    return Step{.ipv6 = number(0, 1) == 1,
                .kind = kind < 70   ? Step::Kind::route
                        : kind < 83 ? Step::Kind::change
                        : kind < 97 ? Step::Kind::withdraw
                        : kind < 99 ? Step::Kind::look
                                    : Step::Kind::handOver,
                .which = number(0, 400),
                .hop = number(0, 1000)};
  });
  return rc::gen::resize(static_cast<int>(most), rc::gen::container<std::vector<Step>>(one));
}

/// The prefix of a number: spread over the rows, with neighbours in most of them.
Key prefixOf(bool ipv6, U32 which) {
  Key key;
  key.longKey = ipv6;
  const U32 bits = (which / 3) * 2654435761U;
  for (U32 i = 0; i < 14; ++i) {
    key.bitIs(14 + i, (bits >> (31 - i) & 1) != 0);
  }
  key.len = static_cast<U8>(28 + which % 3 * 2);
  key.bitIs(key.len - 1U, true);
  return key;
}

/// What all cases together have seen, so that a property of nothing does not pass.
struct Seen {
  U64 placed = 0;
  U64 updated = 0;
  U64 withdrawn = 0;
  U64 refused = 0;
  U64 headroom = 0;
  U64 compactions = 0;
  U64 nearlyFull = 0;
};

Seen seen;

/// Two families and what was done to them, told even when a fatal check ends the process.
class Run {
 public:
  explicit Run(const TwoFamilies& families)
      : families_(families),
        ipv4_(families.ipv4, TiledFamily::Tiles::oneInView, families.headroom),
        ipv6_(families.ipv6, TiledFamily::Tiles::oneInView, families.headroom) {
    std::ostringstream stream;
    stream << families;
    told_ = stream.str();
    running_ = this;
    std::signal(SIGABRT, [](int) {
      if (running_ != nullptr) {
        std::fputs(running_->told_.c_str(), stderr);
      }
    });
  }

  ~Run() { running_ = nullptr; }

  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  void carryOut(const Step& step) {
    TiledFamily& family = step.ipv6 ? ipv6_ : ipv4_;
    const NextHopBlock block(step.hop % families_.hops, 1);
    std::optional<Key> key;
    if (step.kind == Step::Kind::route) {
      key = prefixOf(step.ipv6, step.which);
    } else if (!family.routes().empty()) {
      key = std::next(family.routes().begin(),
                      static_cast<std::ptrdiff_t>(step.which % family.routes().size()))
                ->first;
    }
    switch (step.kind) {
      case Step::Kind::look:
        tell("look", "");
        family.window().widen();
        return;
      case Step::Kind::handOver:
        tell("hand over", "");
        family.windowAnew();
        return;
      case Step::Kind::route:
      case Step::Kind::change:
      case Step::Kind::withdraw:
        break;
    }
    if (!key) {
      return;
    }
    const std::string name = textOf(*key);
    const U64 moves = family.sm().numNhiBlockDefrag();
    const bool full = step.kind == Step::Kind::route && !family.routes().contains(*key) &&
                      family.fill() >= families_.fill;
    if (full || step.kind == Step::Kind::withdraw) {
      tell("withdraw " + name, "");
      count(family.withdraw(*key));
    } else {
      tell("route " + name, " via " + textOf(block));
      count(family.route(*key, block));
    }
    seen.compactions += family.sm().numNhiBlockDefrag() != moves ? 1 : 0;
    seen.nearlyFull += family.fill() >= 97 ? 1 : 0;
  }

  std::string faults(bool ipv6) {
    TiledFamily& family = ipv6 ? ipv6_ : ipv4_;
    std::string faults = family.faults();
    const U64 free = family.window().freeEntries();
    if (family.room().forNewRoute() != (free >= family.room().entriesForRoutes())) {
      faults += "room is told wrong with " + std::to_string(free) + " free entries\n";
    }
    return faults;
  }

  std::string faultsAtTheEnd() { return ipv4_.thoroughFaults() + ipv6_.thoroughFaults(); }

  std::string report(const std::string& faults) const {
    return faults.empty() ? "" : told_ + faults;
  }

 private:
  void tell(const std::string& what, const std::string& more) { told_ += what + more + "\n"; }

  static void count(const std::string& outcome) {
    seen.placed += outcome == "placed" ? 1 : 0;
    seen.updated += outcome == "updated" ? 1 : 0;
    seen.withdrawn += outcome == "withdrawn" ? 1 : 0;
    seen.refused += outcome == "refused" ? 1 : 0;
    seen.headroom += outcome == "headroom" ? 1 : 0;
  }

  static inline Run* running_ = nullptr;

  const TwoFamilies& families_;
  TiledFamily ipv4_;
  TiledFamily ipv6_;
  std::string told_;
};

/// After every request no name stands for two blocks, blocks lie where they are named, and every
/// row of the chip shows its routes' next hops.
std::string faultOfWindows(const TwoFamilies& families, const std::vector<Step>& steps) {
  Run run(families);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    run.carryOut(steps[i]);
    std::string faults = run.faults(steps[i].ipv6);
    if (i % 64 == 63 || i + 1 == steps.size()) {
      faults += run.faultsAtTheEnd();
    }
    if (!faults.empty()) {
      return run.report(faults);
    }
  }
  return "";
}

TEST(TileWindowProperty, namesNeverRepeatAndLookupsStayRight) {
  seen = {};
  forAllCases(400, faultOfWindows, twoFamilies(), steps(900));
  // Cases in which nothing happens would hold as well.
  EXPECT_GT(seen.placed, 10000U);
  EXPECT_GT(seen.updated, 1000U);
  EXPECT_GT(seen.withdrawn, 1000U);
  EXPECT_GT(seen.refused, 1000U);
  EXPECT_GT(seen.headroom, 100U);
  EXPECT_GT(seen.compactions, 100U);
  EXPECT_GT(seen.nearlyFull, 1000U);
}

}  // namespace
