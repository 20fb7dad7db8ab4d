// A process that loads and changes a real full table is killed, and another one takes over.

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/bench/Script.h"

#include <gtest/gtest.h>

namespace Quarle::Bench {
namespace {

/// TARNLET_RIB, or the table beside the repository.
std::string ribPath() {
  const char* path = std::getenv("TARNLET_RIB");
  return path != nullptr ? path : TARNLET_SOURCE_DIR "/../shared/ribs/tier1-full.txt.gz";
}

TEST(KilledTable, isTakenOverAndBroughtBack) {
  if (!std::filesystem::exists(ribPath())) {
    GTEST_SKIP() << ribPath() << " is not there; name a routing table in TARNLET_RIB";
  }
  const Testing::ScriptRun run = Testing::runScript("kill", "'" + ribPath() + "' 3");
  EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
}

}  // namespace
}  // namespace Quarle::Bench
