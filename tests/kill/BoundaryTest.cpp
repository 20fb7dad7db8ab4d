// The client dies behind every single one of some thousand commands, and another one takes over.

#include <algorithm>
#include <string>

#include "tests/agent/LastingChip.h"
#include "tests/kill/Asker.h"
#include "tests/kill/SmallWorld.h"
#include "tests/kill/Wishes.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

namespace Quarle::Agent::Testing {
namespace {

using Room = Asker::Room;

#if defined(__SANITIZE_ADDRESS__)
constexpr U64 kStep = 10;
#else
constexpr U64 kStep = 1;
#endif

class EveryBoundary : public ::testing::Test {
 protected:
  static constexpr U64 kCommands = 3000;
  static constexpr U32 kEntries = 1024;
  static constexpr U32 kRows = 8;

  /// Restarts on a copy of the chip as it stands now, with the list of groups as it stands now.
  void crash() {
    LastingChip next(chip.chip.profile());
    std::ranges::copy(chip.chip.memory().words(), next.chip.memory().words().begin());
    next.chip.memoryChanged();
    bytesAre(next.options.groupList, bytesOf(chip.options.groupList));
    Wishes later = wishes;
    ASSERT_EQ(later.faults(next.chip), "") << "as it was left";
    std::string wrong;
    next.watch = [&] {
      if (wrong.empty()) {
        wrong = later.faults(next.chip);
      }
    };
    next.restart();
    const RestartReport& report = next.client->restartReport();
    ASSERT_EQ(report.groupListFault, "");
    ASSERT_EQ(report.faults, std::vector<std::string>());
    ASSERT_EQ(report.groups.strangers, 0U);
    for (const PreFlightReport& each : report.preFlight) {
      mended += each.found();
    }
    Asker asker(*next.client, next.chip, Room::ample, later);
    ASSERT_NO_THROW(asker.resynchronise());
    ASSERT_EQ(wrong, "") << "after a write on the way";
    ASSERT_TRUE(later.isSettled());
    ASSERT_EQ(later.faults(next.chip), "") << "resynchronised";
    ASSERT_EQ(asker.audited(), "");
  }

  const Environment tileSize{"NHI_TABLE_SIZE", std::to_string(kEntries)};
  const U64 seed = Tarnlet::Testing::testSeed();
  Random random{seed};
  LastingChip chip{oneTileProfile(kRows, kEntries, /*nextHopRows=*/512)};
  Wishes wishes{nestedKeys({.ipv4 = 110, .ipv6 = 70}, seed)};
  U64 mended = 0;
};

TEST_F(EveryBoundary, isWhereAClientMayDie) {
  chip.start();
  Asker asker(*chip.client, chip.chip, Room::ample, wishes);
  U64 commands = 0;
  chip.watch = [&] {
    ++commands;
    if (commands % kStep == 0 && !HasFatalFailure()) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " command " + std::to_string(commands));
      ASSERT_NO_FATAL_FAILURE(crash());
    }
  };
  while (commands < kCommands && !HasFatalFailure()) {
    asker.change(random);
  }
  U64 shuffles = 0;
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const FamilyStatistics statistics = chip.client->family(family).statistics();
    EXPECT_GT(statistics.routes, 20U) << familyName(family);
    shuffles += statistics.shuffleSuccesses;
  }
  EXPECT_GT(shuffles, 0U);
  EXPECT_GT(mended, 0U) << "no death was between the two writes that move a row";
}

}  // namespace
}  // namespace Quarle::Agent::Testing
