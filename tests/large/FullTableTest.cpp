// A real full routing table of both families on the default chip: all of it placed, every look-up
// right, loaded in order and at random, and through a round of churn.

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/cli/Program.h"

#include <gtest/gtest.h>

namespace Quarle::Cli {
namespace {

using nlohmann::json;
using Testing::ProgramRun;
using Testing::runProgram;

/// TARNLET_RIB, or the table beside the repository.
std::string ribPath() {
  const char* path = std::getenv("TARNLET_RIB");
  return path != nullptr ? path : TARNLET_SOURCE_DIR "/../shared/ribs/tier1-full.txt.gz";
}

class FullTable : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(ribPath())) {
      GTEST_SKIP() << ribPath() << " is not there; name a routing table in TARNLET_RIB";
    }
  }

  ProgramRun load(const std::string& more) {
    return runProgram("load --rib '" + ribPath() + "' --json " + more);
  }

  /// All routes wanted are placed and found, in both families.
  void expectPerfect(const json& phase) {
    for (const char* name : {"ipv4", "ipv6"}) {
      const json& family = phase[name];
      EXPECT_EQ(family["lookups_wrong"], 0) << name;
      EXPECT_GE(family["lookups"], family["routes"]) << name;
      for (const auto& [reason, count] : family["refused"].items()) {
        EXPECT_EQ(count, 0) << name << " " << reason;
      }
    }
    EXPECT_EQ(phase["rows_wrong"], 0);
  }

  void expectAllPlaced(const json& phase) {
    expectPerfect(phase);
    for (const char* name : {"ipv4", "ipv6"}) {
      EXPECT_GT(phase[name]["routes"], 0) << name;
      EXPECT_EQ(phase[name]["placed"], phase[name]["routes"]) << name;
    }
  }

  void expectChurnRight(const std::string& order) {
    const ProgramRun run = load("--churn --order " + order);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json phases = run.json()["phases"];
    ASSERT_EQ(phases.size(), 4U);
    expectAllPlaced(phases[0]);
    expectPerfect(phases[1]);
    EXPECT_LT(phases[1]["ipv4"]["placed"], phases[1]["ipv4"]["routes"]);
    expectAllPlaced(phases[2]);
    expectAllPlaced(phases[3]);
    EXPECT_EQ(phases[3]["ipv4"]["requests"], phases[3]["ipv4"]["routes"]);
  }
};

TEST_F(FullTable, isRightInOrderAndThroughChurn) { expectChurnRight("sorted"); }

TEST_F(FullTable, isRightShuffledAndThroughChurn) { expectChurnRight("shuffled"); }

TEST_F(FullTable, isPlacedWithoutShufflingToo) {
  const ProgramRun run = load("--order shuffled --shuffling off --verify sample");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  for (const char* name : {"ipv4", "ipv6"}) {
    EXPECT_EQ(run.json()[name]["placed"], run.json()[name]["routes"]) << name;
  }
}

TEST_F(FullTable, aRouteTakesLittleMemory) {
  const json result = load("--no-chip --order shuffled").json();
  EXPECT_LE(result["ipv4"]["bytes_per_route"], 450);
  EXPECT_GT(result["ipv4"]["bytes_per_route"], 0);
}

TEST_F(FullTable, aTightChipRefusesAndStaysRight) {
  const ProgramRun run = load("--chip compact --order shuffled");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json ipv4 = run.json()["ipv4"];
  EXPECT_GT(ipv4["refused"]["noRow"], 1000);
  EXPECT_LT(ipv4["placed"], ipv4["routes"]);
  EXPECT_EQ(ipv4["lookups_wrong"], 0);
}

TEST_F(FullTable, aTightChipHoldsAllInOrder) {
  const ProgramRun run = load("--chip compact --order sorted");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  expectAllPlaced(run.json());
}

}  // namespace
}  // namespace Quarle::Cli
