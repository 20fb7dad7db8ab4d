// The software ends between any two writes, pre-flight mends what that leaves, and the library
// takes all of it over.

#include <array>
#include <iterator>
#include <random>

#include "tests/restart/RestartChip.h"

namespace Quarle::Agent::Testing {
namespace {

using Tarnlet::NextHopBlock;
using Routes = std::map<Key, NextHopBlock>;

/// A key with a small choice of leading bits, so that rows fill, collide and repeat each other's
/// content.
Key randomKey(std::mt19937_64& random, bool longKey) {
  Key key;
  key.longKey = longKey;
  key.bytes = {0, 0, 10, static_cast<U8>(random() % 3)};
  for (U32 i = 4; i < key.fullLength() / 8U; ++i) {
    key.bytes[i] = static_cast<U8>(random() % (i < 6 ? 256 : 3));
  }
  const U32 shortest = random() % 8 == 0 ? 20 : 40;
  const U32 length = shortest + static_cast<U32>(random() % (key.fullLength() - shortest + 1U));
  return key.cut(static_cast<U8>(length));
}

/// A key out of few long rows, whose blocks take several entries.
Key crowdedKey(std::mt19937_64& random, bool longKey) {
  Key key;
  key.longKey = longKey;
  key.bytes = {0, 0, 10, static_cast<U8>(random() % 3)};
  // Bits behind those that the largest tables hash.
  const U32 hashed = longKey ? 60 : 35;
  for (U32 bit = hashed; bit < hashed + 6; ++bit) {
    key.bitIs(bit, random() % 2 == 0);
  }
  return key.cut(static_cast<U8>(hashed + 3 + random() % 4));
}

/// Random requests on one chip. After each single command another chip, with the same rows, is
/// restarted.
class CrashTest : public ::testing::TestWithParam<bool> {
 protected:
  // What an update and then a withdrawal may take.
  static constexpr U32 kHeadroom = 5;

  bool longKey() const { return GetParam(); }

  /// One random request: mostly a route or another block for one, else a withdrawal.
  void request(RestartChip& load) {
    before = wanted;
    const bool crowded =
        wanted.size() > mostRoutes || load.sm->nhiAllocator(0)->freeEntries() < kHeadroom;
    if (!wanted.empty() && (crowded || random() % 3 == 0)) {
      const Key key = anyWanted();
      if (load.tryWithdraw(key)) {
        wanted.erase(key);
      }
      return;
    }
    const bool anew = wanted.empty() || random() % 4 != 0;
    const Key key = !anew ? anyWanted() : (crowdedRows ? crowdedKey : randomKey)(random, longKey());
    const U32 base = 1 + static_cast<U32>(random() % blocks);
    if (load.tryRoute(key, base)) {
      wanted[key] = NextHopBlock(base, 1);
    }
  }

  Key anyWanted() {
    return std::next(wanted.begin(), static_cast<long>(random() % wanted.size()))->first;
  }

  std::set<Key> addresses() const {
    std::set<Key> result;
    for (const Routes* routes : {&before, &wanted}) {
      for (const auto& [key, block] : *routes) {
        result.insert(key.lowest());
        result.insert(key.highest());
      }
    }
    return result;
  }

  static std::string answer(const Routes& routes, const Key& address) {
    std::string best = "none";
    U32 longest = 0;
    for (const auto& [key, block] : routes) {
      if (key.len >= longest && address.beginsWith(key)) {
        longest = key.len;
        best = "/" + std::to_string(key.len - Key::kVrf) + " " +
               std::to_string(block.base().value()) + "/" + std::to_string(block.size().value());
      }
    }
    return best;
  }

  /// Whether every address is answered as before or after the request under way.
  void expectAnswers(const RestartChip& chip) const {
    for (const Key& address : addresses()) {
      const std::string seen = chip.lookup(address);
      if (seen != answer(before, address)) {
        ASSERT_EQ(seen, answer(wanted, address)) << textOf(address);
      }
    }
  }

  /// Restarts a copy of the chip as it stands between two commands.
  void crash(const RestartChip& load, bool mayChange = false) {
    RestartChip copy(longKey(), load.chip.profile());
    copy.copyFrom(load);
    const PreFlightReport report =
        mayChange ? copy.preFlight() : watchedPreFlight(copy, addresses());
    for (std::size_t i = 0; i < kRowFaults; ++i) {
      found[i] += report.faults[i].found;
      ASSERT_EQ(report.faults[i].found, report.faults[i].mended);
    }
    const std::vector<std::string> bits = copy.bits();
    copy.start(/*warm=*/true);
    ASSERT_EQ(copy.subTries(), report.rowsSound);
    ASSERT_EQ(copy.usedRows(), report.rowsSound) << "a row was refused";
    ASSERT_EQ(copy.config->requests(), report.prefixes);
    copy.write();
    if (report.rewritesOnly) {
      ++rewrites;
      ASSERT_EQ(copy.bits(), bits);
    }
    ASSERT_EQ(faultsOf(Agent::preFlight(copy.agentFamily(), *copy.config, copy.sdk)), "");
    if (!mayChange) {
      ASSERT_NO_FATAL_FAILURE(expectAnswers(copy));
    }
    ASSERT_NO_FATAL_FAILURE(replay(copy));
  }

  /// As a client asks for its routes anew: what it does not want goes.
  void replay(RestartChip& copy) const {
    std::vector<Key> standing;
    for (auto route = copy.config->requestIterator(); route; ++route) {
      standing.push_back(keyOf(*route.key()));
    }
    for (const Key& key : standing) {
      if (!wanted.contains(key)) {
        copy.tryWithdraw(key);
        copy.write();
      }
    }
    for (const auto& [key, block] : wanted) {
      copy.tryRoute(key, block.base().value());
      copy.write();
    }
    Routes placed;
    for (auto route = copy.status->prefixToNextHopBlockIterator(); route; ++route) {
      placed[keyOf(*route.key())] = route.value();
    }
    for (const Key& address : addresses()) {
      ASSERT_EQ(copy.lookup(address), answer(placed, address)) << textOf(address);
    }
  }

  void run(const XdkSim::ChipProfile& profile, U32 commands, bool mayChange) {
    RestartChip load(longKey(), profile);
    load.start(/*warm=*/false);
    U32 done = 0;
    // Some requests are refused and come to no command.
    for (U32 requests = 0; requests < commands && done < commands; ++requests) {
      request(load);
      for (; load.write(1) != 0; ++done, ++crashes) {
        ASSERT_NO_FATAL_FAILURE(crash(load, mayChange)) << "after command " << done;
      }
    }
    defrags = load.sm->numNhiBlockDefrag();
  }

  U64 foundOf(RowFault fault) const { return found[static_cast<std::size_t>(fault)]; }

  std::mt19937_64 random{Tarnlet::Testing::testSeed()};
  std::size_t mostRoutes = 60;
  U32 blocks = 3;
  bool crowdedRows = false;
  Routes before;
  Routes wanted;
  std::array<U64, kRowFaults> found{};
  U64 rewrites = 0;
  U64 crashes = 0;
  U64 defrags = 0;
};

INSTANTIATE_TEST_SUITE_P(BothFamilies, CrashTest, ::testing::Bool(), [](const auto& info) {
  return info.param ? "ipv6" : "ipv4";
});

TEST_P(CrashTest, betweenAnyTwoCommandsLosesNoRouteAndNoAnswer) {
  ASSERT_NO_FATAL_FAILURE(run(restartProfile(), 1'500, /*mayChange=*/false));
  // Nothing but rows that were moved and stand twice.
  U64 all = 0;
  for (const U64 count : found) {
    all += count;
  }
  EXPECT_GT(all, 0U);
  EXPECT_EQ(all, foundOf(RowFault::twiceInTables));
  EXPECT_EQ(rewrites, crashes);
}

TEST_P(CrashTest, inACompactionIsMended) {
  XdkSim::ChipProfile profile = restartProfile();
  profile.ipv4.nhi.entriesPerTile = 15;
  profile.ipv6.nhi.entriesPerTile = 15;
  blocks = 40;
  mostRoutes = 100;
  crowdedRows = true;
  ASSERT_NO_FATAL_FAILURE(run(profile, 1'500, /*mayChange=*/true));
  EXPECT_GT(defrags, 0U);
  EXPECT_GT(foundOf(RowFault::twoBlocks) + foundOf(RowFault::sharedEntries), 0U);
}

}  // namespace
}  // namespace Quarle::Agent::Testing
