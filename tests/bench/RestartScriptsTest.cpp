// bench/restart and bench/kill from outside, on a table that takes no time.

#include <algorithm>
#include <string>

#include "tests/bench/Script.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Bench {
namespace {

using ::testing::HasSubstr;
using Testing::runScript;
using Testing::ScriptRun;

class RestartScripts : public ::testing::Test {
 protected:
  RestartScripts() {
    std::string content;
    for (int i = 0; i < 3000; ++i) {
      const std::string route = std::to_string(i / 250) + "." + std::to_string(i % 250);
      content += "10." + route + ".0/24 192.0.2." + std::to_string(i % 7) + "\n";
    }
    for (int i = 0; i < 500; ++i) {
      content +=
          "2001:db8:" + std::to_string(i) + "::/48 2001:db8::" + std::to_string(i % 5) + "\n";
    }
    rib = directory.file("rib.txt", content);
  }

  Cli::Testing::TemporaryDirectory directory;
  std::string rib;
};

TEST_F(RestartScripts, theRestartIsHeldAgainstTheLoad) {
  const ScriptRun run = runScript("restart", rib + " 2", "CHIP=compact LIMIT=1000");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 6) << run.out;
  EXPECT_THAT(run.out, HasSubstr("\nipv4    3,000 "));
  EXPECT_THAT(run.out, HasSubstr("\nipv6      500 "));
  EXPECT_THAT(run.out, HasSubstr("\nwalk and sweep over load, median of 2: ipv4 "));
}

TEST_F(RestartScripts, aRestartAboveTheLimitEndsWithCodeOne) {
  const ScriptRun run = runScript("restart", rib + " 1", "CHIP=compact LIMIT=0");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr(" times the load, expected at most 0.0\n"));
}

TEST_F(RestartScripts, everyKillIsFollowedByARightRestart) {
  const ScriptRun run = runScript("kill", rib + " 4 7", "CHIP=compact");
  EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 4) << run.out;
  EXPECT_THAT(run.out, HasSubstr(" look-ups right\n"));
}

TEST_F(RestartScripts, aLookUpThatIsWrongEndsTheKillsWithCodeOne) {
  // A program that loads well, lives on, and finds two look-ups wrong behind it.
  std::filesystem::create_directories(directory.path("build/bin"));
  const std::string family = R"({"recovered":1,"lookups":2,"lookups_wrong":2,"differ":0,)"
                             R"("rows_refused":{},"rows_mended":{},"refused":{}})";
  const std::string program =
      directory.file("build/bin/tarnlet",
                     "#!/bin/sh\n"
                     "if [ $1 = load ]; then\n"
                     "  while [ $1 != --chip-image ]; do shift; done\n"
                     "  echo chip >$2\n"
                     "  echo groups >$2.groups\n"
                     "  exec sleep 1\n"
                     "fi\n"
                     "echo '{\"groups\":{\"list_fault\":\"\",\"strangers\":0},\"rows_wrong\":0,"
                     "\"writes_refused\":0,\"ipv4\":" +
                         family + ",\"ipv6\":" + family + "}'\n");
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  const ScriptRun run =
      runScript("kill", rib + " 2 1", "SECONDS_MOST=2 BUILD=" + directory.path("build"));
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.out, ::testing::MatchesRegex("kill 1 after .* s: .*ipv4: 2 look-ups are "
                                               "wrong; ipv6: 2 look-ups are wrong\n"));
}

TEST_F(RestartScripts, wrongUseEndsWithOneLineAndCodeTwo) {
  for (const std::string name : {"restart", "kill"}) {
    EXPECT_EQ(runScript(name, "").exitCode, 2);
    EXPECT_EQ(runScript(name, rib + " many").exitCode, 2);
    const ScriptRun run = runScript(name, "/nowhere");
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "bench/" + name +
                           ": /nowhere cannot be read, expected a text file with one prefix a "
                           "line\n");
  }
}

}  // namespace
}  // namespace Quarle::Bench
