#include <cstdlib>

#include "tests/support/ChipStory.h"
#include "tests/support/TraceLines.h"
#include "tests/support/Words.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::Testing::TraceLines;

/// An environment variable for the time of one test.
class Environment {
 public:
  Environment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }

  ~Environment() { unsetenv(name_); }

  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
};

std::string treads(const ConfigBase& config) {
  std::string out;
  for (U32 i = 0; i < config.prefixTableSortedByTreads(); ++i) {
    const PrefixTable::Ptr table = config.prefixTableSortedByTread(static_cast<U8>(i));
    out += (out.empty() ? "" : " ") + std::to_string(table->tableConfig()->tread()) + ":t" +
           std::to_string(table->tableId().value());
  }
  return out;
}

using LpmSmStartUp = ChipTest;
using LpmSmStartUpDeathTest = ChipTest;

TEST_F(LpmSmStartUp, requestsThatStandBeforeAreInstalledByTheSweep) {
  chip.tables({{.id = 0, .tread = 35}});
  chip.wantSilently("10.1.0.0/24", via(7));
  EXPECT_EQ(chip.status()->prefixToNextHopBlocks(), 0U);

  TraceLines trace("TarnletSm", {1, 3});
  chip.start();
  EXPECT_TRUE(says(trace.take(), {"1: handleInitialized ",
                                  "3: insert prefix vrf 0 prefix "
                                  "10.1.0.0/24"}));
  EXPECT_TRUE(chip.installed("10.1.0.0/24"));
  EXPECT_EQ(chip.lookup("10.1.0.9"), "7/1");
}

TEST_F(LpmSmStartUp, withoutARestartHelperItIsInitializedAndSweeps) {
  chip.tables({{.id = 0, .tread = 35}});
  chip.wantSilently("10.1.0.0/24", via(7)).wantSilently("10.64.0.0/24", via(8));
  EXPECT_EQ(chip.sm().restartHelper(), nullptr);
  EXPECT_TRUE(chip.sm().initialized());
  EXPECT_EQ(chip.status()->prefixToNextHopBlocks(), 2U);
}

TEST_F(LpmSmStartUp, standingInvalidRequestsAreIgnoredByTheSweep) {
  chip.tables({{.id = 0, .tread = 35}});
  chip.wantSilently("10.1.0.0/24", NextHopBlock());
  TraceLines trace("TarnletSm", {3});
  chip.start();
  EXPECT_EQ(trace.take(), "3: ignore prefix vrf 0 prefix 10.1.0.0/24\n");
  EXPECT_COMMANDS(chip, "");
}

TEST_F(LpmSmStartUp, commandsOfEarlierTimesAreDropped) {
  chip.tables({{.id = 0, .tread = 35}});
  chip.status()->pendingCmdEnq(nhiCommandFactory(NhiTableIdx(0, 3), NextHopBlockList()));
  chip.start();
  EXPECT_COMMANDS(chip, "");
}

TEST_F(LpmSmStartUp, tablesAreSortedByFallingTread) {
  chip.tables({{.id = 0, .tread = 24},
               {.id = 1, .tread = 35},
               {.id = 2, .tread = 16},
               {.id = 3, .tread = 28}});
  chip.start();
  EXPECT_EQ(treads(*chip.config()), "35:t1 28:t3 24:t0 16:t2");
  EXPECT_EQ(chip.sm().prefixTables(), 4U);
  EXPECT_EQ(chip.table(3)->tableConfig(), chip.config()->prefixTableConfig(3));
}

TEST_F(LpmSmStartUp, tablesOfEqualTreadKeepTheOrderOfTheConfiguration) {
  chip.tables({{.id = 0, .tread = 35},
               {.id = 1, .tread = 35},
               {.id = 2, .tread = 35},
               {.id = 3, .tread = 35}});
  chip.start();
  // The configuration's map is walked in bit-reversed order of the ids.
  EXPECT_EQ(treads(*chip.config()), "35:t0 35:t2 35:t1 35:t3");
}

TEST_F(LpmSmStartUp, everyTileGetsAnAllocatorOfItsOwn) {
  chip.tables({{.id = 0, .tread = 35}}).tiles(3, 50).start();
  ASSERT_EQ(chip.sm().nhiAllocators(), 3U);
  for (U8 tile = 0; tile < 3; ++tile) {
    const Brumel::BestFitAllocator::Ptr allocator = chip.sm().nhiAllocator(tile);
    EXPECT_EQ(allocator->name(), "nhiAllocator");
    EXPECT_EQ(allocator->entriesCapacity(), 50U);
    EXPECT_EQ(allocator->offset(), 0U);
    EXPECT_EQ(allocator->maxBlkSz(), 27U);
  }
}

TEST_F(LpmSmStartUp, theEnvironmentReplacesTheBlockLimitInAllTiles) {
  const Environment limit("NHI_MAX_BLOCK_SIZE", "5");
  chip.tables({{.id = 0, .tread = 35}}).tiles(3, 50).start();
  for (U8 tile = 0; tile < 3; ++tile) {
    EXPECT_EQ(chip.sm().nhiAllocator(tile)->maxBlkSz(), 5U);
  }
  EXPECT_EQ(chip.config()->nhiMaxBlockSize(), 27U);
}

TEST_F(LpmSmStartUp, theEnvironmentIsReadAtEveryStart) {
  chip.tables({{.id = 0, .tread = 35}}).start();
  EXPECT_EQ(chip.sm().nhiAllocator(0)->maxBlkSz(), 27U);
  {
    const Environment limit("NHI_MAX_BLOCK_SIZE", "9x");
    EXPECT_EQ(chip.restartCold().sm().nhiAllocator(0)->maxBlkSz(), 9U);
  }
  {
    const Environment limit("NHI_MAX_BLOCK_SIZE", "many");
    EXPECT_EQ(chip.restartCold().sm().nhiAllocator(0)->maxBlkSz(), 0U);
  }
  EXPECT_EQ(chip.restartCold().sm().nhiAllocator(0)->maxBlkSz(), 27U);
}

TEST_F(LpmSmStartUp, theConfiguredLimitIsNotAskedForWhenTheEnvironmentHasOne) {
  // Without pairs the configuration could only divide by zero.
  const Environment limit("NHI_MAX_BLOCK_SIZE", "5");
  chip.tables({{.id = 0, .tread = 35}}).pairsPerEntry(0).start();
  EXPECT_EQ(chip.sm().nhiAllocator(0)->maxBlkSz(), 5U);
}

TEST_F(LpmSmStartUp, aNewMachineBeginsWithTheseValues) {
  chip.tables({{.id = 0, .tread = 35}});
  LpmSm& sm = chip.sm();
  EXPECT_EQ(sm.name(), "sm");
  EXPECT_EQ(sm.config(), chip.config());
  EXPECT_EQ(sm.status(), chip.status());
  EXPECT_EQ(sm.nhiBaseIdxToBlks(), 0U);
  EXPECT_EQ(sm.nhiBaseIdxToSubTries(), 0U);
  EXPECT_EQ(sm.numNhiBlockDefrag(), 0U);
  EXPECT_TRUE(sm.nhiSharingEnabled());
  EXPECT_EQ(sm.sharedNhis(), 0U);
  EXPECT_EQ(sm.prefixToSubTries(), 0U);
  EXPECT_TRUE(sm.hashShufflingEnabled());
  EXPECT_EQ(sm.numHashShufflingAttempt(), 0U);
  EXPECT_EQ(sm.numHashShufflingSuccess(), 0U);
  EXPECT_EQ(sm.vellorFwkActivity(), nullptr);
}

TEST_F(LpmSmStartUp, bothFactoriesMakeTheSame) {
  chip.tables({{.id = 0, .tread = 35}});
  const LpmSm::Ptr sm = LpmSmIs("other", chip.config(), chip.status(), nullptr);
  EXPECT_EQ(sm->name(), "other");
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->prefixTables(), 1U);
}

TEST_F(LpmSmStartUpDeathTest, everyPrefixLengthNeedsItsLeastTread) {
  chip.tables({{.id = 0, .tread = 35}});
  chip.config()->leastTreadForPrefixLenDel(48);
  EXPECT_DEATH(chip.start(),
               assertion("config()->leastTreadForPrefixLens() == config()->keyLength() + (U32)1"));
  chip.config()->leastTreadForPrefixLenIs(48, 0);
  chip.config()->leastTreadForPrefixLenIs(49, 0);
  EXPECT_DEATH(chip.start(),
               assertion("config()->leastTreadForPrefixLens() == config()->keyLength() + (U32)1"));
}

}  // namespace
