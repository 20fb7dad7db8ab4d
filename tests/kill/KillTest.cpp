// A process that loads and changes routes on a chip in a file is killed at any moment, in its own
// start-up too, and another one comes. What nobody was changing answers right at all times.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "agent/source/Random.h"
#include "tests/agent/LastingChip.h"
#include "tests/kill/Asker.h"
#include "tests/kill/ImageClient.h"
#include "tests/kill/RequestLog.h"
#include "tests/kill/SmallWorld.h"
#include "tests/kill/Wishes.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

namespace Quarle::Agent::Testing {
namespace {

using Room = Asker::Room;

class Killed : public ::testing::Test {
 protected:
  void makeChip(const XdkSim::ChipProfile& profile) {
    { const XdkSim::ChipImage made(path, profile); }
    ImageClient(path).start(/*isCold=*/true);
  }

  /// The life of a process: it takes the chip over, asks for what was wanted, and goes on.
  [[noreturn]] void live(Room room, U64 seed) {
    try {
      ImageClient image(path);
      image.start(/*isCold=*/false);
      Asker asker(*image.client, image.chip, room, wishes,
                  [this](bool begins, U32 route, U32 list) {
                    log.add(begins ? RequestLog::Kind::begin : RequestLog::Kind::end, route, list);
                  });
      asker.resynchronise();
      Random changes(seed);
      while (log.size() < RequestLog::kRoom / 2) {
        asker.change(changes);
      }
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      _exit(1);
    }
    pause();
    _exit(0);
  }

  /// Lets a process live for a while and kills it. Some are killed as they start, some while they
  /// take up what was wanted, most later.
  void liveAndBeKilled(Room room) {
    constexpr useconds_t kLook = 20;
    const U64 seed = random.next();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      live(room, seed);
    }
    int status = 0;
    pid_t ended = 0;
    if (random.chance(250)) {
      usleep(random.below(4000));
    } else {
      const U64 records = random.below(random.chance(300) ? 700 : 6000);
      while (log.size() < records && ended == 0) {
        usleep(kLook);
        ended = waitpid(child, &status, WNOHANG);
      }
      usleep(random.below(200));
    }
    if (ended == 0) {
      ASSERT_EQ(kill(child, SIGKILL), 0);
      ASSERT_EQ(waitpid(child, &status, 0), child);
    }
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
        << "it ended by itself, wait status " << status;
    begun += log.size();
    log.moveTo(wishes);
  }

  /// Takes the chip over, and brings it to what was wanted.
  void takeOver(ImageClient& next, Room room) {
    next.start(/*isCold=*/false);
    const RestartReport& report = next.client->restartReport();
    ASSERT_EQ(report.groupListFault, "");
    ASSERT_EQ(report.faults, std::vector<std::string>());
    ASSERT_EQ(report.groups.strangers, 0U);
    if (room == Room::ample) {
      ASSERT_EQ(wishes.faults(next.chip), "") << "taken over";
    }
    Asker asker(*next.client, next.chip, room, wishes);
    asker.resynchronise();
    if (room == Room::ample) {
      ASSERT_EQ(wishes.faults(next.chip), "") << "resynchronised";
      ASSERT_TRUE(wishes.isSettled());
    } else if (!wishes.faults(next.chip).empty()) {
      ASSERT_NO_FATAL_FAILURE(comesRightWithRoom(next, asker));
    }
    ASSERT_EQ(asker.audited(), "");
  }

  /// A compaction slides a block over itself. Who is killed there leaves a row that reads the wrong
  /// pairs, and its routes need a new block to be put right. While there is no room for one they
  /// must be on the list of refused, and come right as soon as there is.
  void comesRightWithRoom(ImageClient& next, Asker& asker) {
    ++unmended;
    ASSERT_EQ(wishes.faults(next.chip, [&](U32 route) { return asker.isRefused(route); }), "")
        << "resynchronised";
    asker.thinOut(/*nth=*/30);
    ASSERT_EQ(wishes.faults(next.chip), "") << "with room again";
  }

  const U64 seed = Tarnlet::Testing::testSeed();
  Random random{seed};
  Wishes wishes{nestedKeys({.ipv4 = 240, .ipv6 = 120}, seed)};
  RequestLog log;
  TestFolder folder;
  const std::filesystem::path path = folder / "chip.img";
  U64 begun = 0;
  // Restarts behind which some routes had to wait for room to be right again.
  U64 unmended = 0;
};

TEST_F(Killed, atAnyMomentNoAnswerWasWrongAndTheNextOneGoesOn) {
  ASSERT_NO_FATAL_FAILURE(makeChip(oneTileProfile(256, 2048, 1024)));
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
    ASSERT_NO_FATAL_FAILURE(liveAndBeKilled(Room::ample));
    ImageClient next(path);
    ASSERT_EQ(wishes.faults(next.chip), "") << "as it was left";
    // Else the next process has to do with it.
    if (random.chance(600)) {
      ASSERT_NO_FATAL_FAILURE(takeOver(next, Room::ample));
    }
  }
  EXPECT_GT(begun, 20'000U);
}

TEST_F(Killed, onAChipTooSmallTheNextOneBringsOrder) {
  constexpr U32 kEntries = 40;
  const Environment tileSize("NHI_TABLE_SIZE", std::to_string(kEntries));
  ASSERT_NO_FATAL_FAILURE(makeChip(oneTileProfile(4, kEntries, 96)));
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
    ASSERT_NO_FATAL_FAILURE(liveAndBeKilled(Room::scarce));
    if (random.chance(600)) {
      ImageClient next(path);
      ASSERT_NO_FATAL_FAILURE(takeOver(next, Room::scarce));
    }
  }
  EXPECT_GT(begun, 5'000U);
  EXPECT_LE(unmended, 5U);
}

}  // namespace
}  // namespace Quarle::Agent::Testing
