// The client on random chips so small that everything is refused sooner or later: after each
// request what it answered so far is what the chip does, and the counts that it keeps are those
// that can be counted anew.

#include <algorithm>
#include <iterator>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/agent/ChipClient.h"
#include "tests/property/ForAll.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

namespace Quarle::Agent::Testing {
namespace {

/// Of the whole range from the first case on.
U32 number(U32 low, U32 high) {
  return *rc::gen::resize(rc::kNominalSize, rc::gen::inRange<U32>(low, high + 1));
}

struct RandomChip {
  XdkSim::ChipProfile profile;
  // Of both families; the environment says so to the configurator.
  U32 entriesPerTile = 0;
  ClientOptions options;
};

struct Step {
  enum class Kind : U8 { route, withdraw, retry, look };

  Kind kind = Kind::route;
  bool ipv6 = false;
  // Numbers of a prefix and of a list of next hops.
  U32 prefix = 0;
  U32 hops = 0;
};

std::ostream& operator<<(std::ostream& stream, const XdkSim::FamilyProfile& family) {
  stream << family.nhi.tiles() << " tiles, " << family.nhi.pairsPerEntry << " pairs, tables";
  for (const XdkSim::PrefixTableProfile& table : family.tables) {
    stream << " {tread " << table.tread << ", rows " << table.rows << ", width " << table.sramWidth
           << "}";
  }
  return stream;
}

std::ostream& operator<<(std::ostream& stream, const RandomChip& chip) {
  return stream << "IPv4 " << chip.profile.ipv4 << "; IPv6 " << chip.profile.ipv6 << "; "
                << chip.entriesPerTile << " entries to a tile, " << chip.profile.nextHopRows
                << " next-hop rows, headroom " << chip.options.headroom.share << " and "
                << chip.options.headroom.minLargestBlocks << " blocks, "
                << chip.options.retriesPerEvent << " retries, shuffling "
                << chip.options.hashShuffling << ", multi-entry rows "
                << chip.options.multiEntryRows << "\n";
}

std::ostream& operator<<(std::ostream& stream, const Step& step) {
  return stream << (step.ipv6 ? "IPv6 " : "IPv4 ") << static_cast<unsigned>(step.kind) << " #"
                << step.prefix << " via #" << step.hops;
}

/// The treads of the real chips, so that every length finds a table; some of a tread more than
/// once, to move rows between.
void giveMemories(XdkSim::FamilyProfile& family, const std::vector<U32>& treads, U32 narrowest) {
  const U32 most = number(1, 8);
  for (const U32 tread : treads) {
    const U32 tables = number(1, tread == treads.front() ? std::min(most, 4U) : 2);
    // All tables of one tread are of one width.
    const U32 width = tread >= narrowest && number(0, 2) == 0 ? 128 : 256;
    for (U32 i = 0; i < tables; ++i) {
      family.tables.push_back({.tread = tread,
                               .rows = U32{2} << number(0, 3),
                               .sramWidth = width,
                               .hashPolySelect = static_cast<U32>(family.tables.size() % 4)});
    }
  }
  family.nhi.pairsPerEntry = *rc::gen::element<U32>(6, 7, 8, 10);
  family.nhi.blockBaseWidth = 9;
  const U32 tiles = *rc::gen::element<U32>(1, 1, 2, 3, 4, 8, 16);
  family.nhi.tilesIs(tiles);
}

rc::Gen<RandomChip> randomChip() {
  return rc::gen::exec([] {
    RandomChip chip;
    chip.profile.name = "random";
    giveMemories(chip.profile.ipv4, {35, 28, 24, 16}, 24);
    giveMemories(chip.profile.ipv6, {60, 51, 43, 128, 64, 34, 16}, 200);
    chip.entriesPerTile = number(2, 30);
    chip.profile.nextHopRows = number(8, 64);
    chip.options.hashShuffling = number(0, 3) != 0;
    chip.options.multiEntryRows = number(0, 3) != 0;
    chip.options.headroom = {.share = *rc::gen::element(0.0, 0.02, 0.1),
                             .minLargestBlocks = *rc::gen::element<U32>(0, 1, 64)};
    chip.options.retriesPerEvent = *rc::gen::element<U32>(0, 1, 8);
    return chip;
  });
}

rc::Gen<std::vector<Step>> steps(U32 most) {
  const rc::Gen<Step> one = rc::gen::exec([] {
    const U32 kind = number(0, 99);
    return Step{.kind = kind < 66   ? Step::Kind::route
                        : kind < 96 ? Step::Kind::withdraw
                        : kind < 98 ? Step::Kind::retry
                                    : Step::Kind::look,
                .ipv6 = number(0, 3) == 0,
                .prefix = number(0, 150),
                .hops = number(0, 12)};
  });
  return rc::gen::resize(static_cast<int>(most), rc::gen::container<std::vector<Step>>(one));
}

/// The prefix of a number: dense neighbourhoods that share a row of the longest usual tread, and
/// now and then another length, from the default route to a host's.
RoutePrefix prefixOf(bool ipv6, U32 which) {
  const U32 bits = ipv6 ? 128 : 32;
  const U32 rowBits = ipv6 ? 44 : 19;
  const U32 length = which % 31 == 0 ? which / 31 % 5 * (bits / 4) : rowBits + 1 + which * 5 % 7;
  RoutePrefix prefix{.family = ipv6 ? Family::ipv6 : Family::ipv4,
                     .address = {},
                     .length = static_cast<U8>(length)};
  prefix.address[0] = static_cast<U8>(ipv6 ? 0x20 : 10);
  prefix.address[1] = static_cast<U8>(which / 24 * 37);
  // The bits behind those of the row.
  const U32 leaf = which * 0x9e37U & 0xffU;
  for (U32 i = 0; i < 8; ++i) {
    const U32 bit = rowBits + i;
    prefix.address[bit / 8] |= static_cast<U8>((leaf >> (7 - i) & 1) << (7 - bit % 8));
  }
  for (U32 bit = length; bit < 128; ++bit) {
    prefix.address[bit / 8] &= static_cast<U8>(~(0x80U >> bit % 8));
  }
  return prefix;
}

std::vector<U64> hopsOf(U32 which) {
  std::vector<U64> hops(1 + which % 4);
  for (std::size_t i = 0; i < hops.size(); ++i) {
    hops[i] = 100 * which + i;
  }
  return hops;
}

/// What all cases together have seen, so that a property of nothing does not pass.
struct Seen {
  U64 placed = 0;
  U64 updated = 0;
  U64 withdrawn = 0;
  U64 retried = 0;
  U64 shuffled = 0;
  U64 compactions = 0;
  U64 groupMoves = 0;
  std::array<U64, kRefusalReasons.size()> refused{};
};

Seen seen;

void expectEqual(std::string& faults, const std::string& what, U64 found, U64 expected) {
  if (found != expected) {
    faults += what + ": " + std::to_string(found) + ", expected " + std::to_string(expected) + "\n";
  }
}

/// Counts that the library, the client and the chip keep, against those taken anew.
std::string countFaults(ChipClient& chip, Family family) {
  std::string faults;
  const FamilyClient& client = chip.client.family(family);
  const Tarnlet::LpmSm& engine = client.engine();
  const FamilyStatistics statistics = client.statistics();
  const std::string name = familyName(family) + std::string(" ");
  U64 subTries = 0;
  U64 prefixes = 0;
  for (const auto& table : engine.prefixTableCollection()) {
    for (const auto& row : table.value->subTrieCollection()) {
      ++subTries;
      prefixes += row.value->prefixs();
    }
  }
  U64 entries = 0;
  for (const auto& block : engine.nhiBaseIdxToBlkCollection()) {
    entries += block.value->blkSz();
  }
  U64 users = 0;
  for (const auto& info : engine.sharedNhiCollection()) {
    users += info.value->subTrieCount();
  }
  const auto told =
      std::count_if(chip.routes().begin(), chip.routes().end(),
                    [&](const auto& route) { return route.first.prefix.family == family; });
  expectEqual(faults, name + "routes", client.routes(), static_cast<U64>(told));
  expectEqual(faults, name + "prefixes in rows", prefixes, client.routes());
  expectEqual(faults, name + "requests", engine.config()->requests(), client.routes());
  expectEqual(faults, name + "rows told", statistics.rowsUsed, subTries);
  expectEqual(faults, name + "rows in the chip", chip.chip.rowsUsed(chipFamily(family)), subTries);
  expectEqual(faults, name + "NHI entries", statistics.nhiEntriesUsed, entries);
  expectEqual(faults, name + "users of NHI blocks", users, subTries);
  expectEqual(faults, name + "NHI blocks", statistics.nhiBlocks, engine.sharedNhis());
  expectEqual(faults, name + "queue", engine.status()->pendingCmds(), 0);
  U64 wishes = 0;
  for (const RefusalReason reason : kRefusalReasons) {
    wishes += client.refused().count(reason);
  }
  expectEqual(faults, name + "wishes", wishes, client.refused().size());
  return faults;
}

void carryOut(ChipClient& chip, const Step& step) {
  const RouteKey key{.vrf = 0, .prefix = prefixOf(step.ipv6, step.prefix)};
  FamilyClient& family = chip.client.family(key.prefix.family);
  switch (step.kind) {
    case Step::Kind::route: {
      const Answer answer = family.routeIs(key, hopsOf(step.hops));
      seen.placed += answer.outcome == Outcome::placed ? 1 : 0;
      seen.updated += answer.outcome == Outcome::updated ? 1 : 0;
      if (answer.refused()) {
        ++seen.refused[static_cast<std::size_t>(answer.reason)];
      }
      return;
    }
    case Step::Kind::withdraw:
      seen.withdrawn += family.routeDel(key).outcome == Outcome::withdrawn ? 1 : 0;
      return;
    case Step::Kind::retry:
      family.retryRefused(4);
      return;
    case Step::Kind::look:
      family.engine();
      return;
  }
}

std::string faultOfClient(const RandomChip& random, const std::vector<Step>& steps) {
  const Environment tileSize("NHI_TABLE_SIZE", std::to_string(random.entriesPerTile));
  ChipClient chip(random.profile, random.options);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    carryOut(chip, steps[i]);
    const std::string events = chip.events();
    seen.retried += events.find("retry ") != std::string::npos &&
                            events.find("placed", events.find("retry ")) != std::string::npos
                        ? 1
                        : 0;
    std::string faults = countFaults(chip, steps[i].ipv6 ? Family::ipv6 : Family::ipv4);
    // Every route at times, else whatever neighbour has the number of the step.
    if (i % 16 == 15 || i + 1 == steps.size()) {
      faults += chip.wrongLookups({prefixOf(steps[i].ipv6, steps[i].prefix)});
    }
    if (!faults.empty()) {
      std::ostringstream text;
      text << "after step " << i << ", " << steps[i] << ":\n" << faults;
      return text.str();
    }
  }
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const FamilyStatistics statistics = chip.client.family(family).statistics();
    seen.shuffled += statistics.shuffleSuccesses;
    seen.compactions += statistics.defragMoves;
  }
  seen.groupMoves += chip.client.groups().statistics().shuffles;
  // Withdrawals may have to wait for one another.
  chip.leftOvers();
  while (chip.client.retryRefused(1000) != 0) {
  }
  const std::string left = chip.leftOvers();
  return left.empty() ? "" : "left when all is withdrawn:\n" + left;
}

TEST(ClientProperty, theChipDoesWhatWasAnsweredAndNothingIsLeftBehind) {
  seen = {};
  Tarnlet::Testing::forAllCases(2000, faultOfClient, randomChip(), steps(200));
  // Cases in which nothing happens would hold as well.
  EXPECT_GT(seen.placed, 10000U);
  EXPECT_GT(seen.updated, 1000U);
  EXPECT_GT(seen.withdrawn, 1000U);
  EXPECT_GT(seen.retried, 100U);
  EXPECT_GT(seen.shuffled, 100U);
  EXPECT_GT(seen.compactions, 20U);
  EXPECT_GT(seen.groupMoves, 50U);
  for (const RefusalReason reason : kRefusalReasons) {
    if (reason != RefusalReason::invalid) {
      EXPECT_GT(seen.refused[static_cast<std::size_t>(reason)], 20U) << toText(reason);
    }
  }
}

}  // namespace
}  // namespace Quarle::Agent::Testing
