// The soak from outside: which runs it makes, when it ends, and what it says of one that fails.
// Most of it drives a program that only looks like the property tests.

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "tests/cli/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Bench {
namespace {

using Cli::Testing::contentOf;
using Cli::Testing::TemporaryDirectory;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

using SoakRun = Cli::Testing::ProgramRun;

class Soak : public ::testing::Test {
 protected:
  /// A program of two tests that notes each of its runs and does `body` in it.
  void programDoes(const std::string& body) {
    std::filesystem::create_directories(directory.path("build/bin"));
    const std::string program = directory.file("build/bin/property_tests",
                                               "#!/bin/sh\n"
                                               "if [ \"$1\" = --gtest_list_tests ]; then\n"
                                               "  printf 'Some banner\\nWindow.\\n  opens\\n'\n"
                                               "  printf 'Engine.\\n  runs\\n'\n"
                                               "  exit 0\n"
                                               "fi\n"
                                               "echo \"$VELLOR_TEST_SEED $1\" >>" +
                                                   directory.path("runs") + "\n" + body + "\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  }

  SoakRun soak(const std::string& arguments, const std::string& build) const {
    return Cli::Testing::runCommand("BUILD=" + build + " " TARNLET_SOURCE_DIR "/bench/soak " +
                                    arguments);
  }

  SoakRun soak(const std::string& arguments) const {
    return soak(arguments, directory.path("build"));
  }

  std::string runs() const { return contentOf(directory.path("runs")); }

  TemporaryDirectory directory;
};

TEST_F(Soak, everyTestRunsWithOneSeedAfterTheOtherUntilTheTimeIsOver) {
  programDoes("sleep 0.05");
  const auto start = std::chrono::steady_clock::now();
  const SoakRun run = soak("--minutes 0.034 --seed 7");
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out,
              MatchesRegex("soak: none failed; runs [0-9]+, seconds [0-9]+, seeds 7 to [0-9]+\n"));
  EXPECT_EQ(run.err, "") << "no progress line where there is no terminal";
  EXPECT_GT(took.count(), 1.0);
  EXPECT_THAT(runs(), StartsWith("7 --gtest_filter=Window.opens\n"
                                 "7 --gtest_filter=Engine.runs\n"
                                 "8 --gtest_filter=Window.opens\n"));
}

TEST_F(Soak, withoutTimeThereIsOneRun) {
  programDoes("true");
  const SoakRun run = soak("--minutes 0 --seed 3");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, MatchesRegex("soak: none failed; runs 1, seconds [0-9]+, seeds 3 to 3\n"));
  EXPECT_EQ(runs(), "3 --gtest_filter=Window.opens\n");
}

TEST_F(Soak, theFirstRunThatFailsEndsItAndSaysHowToRepeatIt) {
  programDoes(
      "[ \"$VELLOR_TEST_SEED $1\" != '8 --gtest_filter=Engine.runs' ] || { echo a small case; exit "
      "1; }");
  const SoakRun run = soak("--minutes 0.2 --seed 7");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("a small case\n"));
  EXPECT_EQ(run.out,
            "soak: Engine.runs FAILED with seed 8 after 3 runs without fault; to repeat "
            "it: VELLOR_TEST_SEED=8 " +
                directory.path("build/bin/property_tests") + " --gtest_filter=Engine.runs\n");
  EXPECT_THAT(runs(), EndsWith("8 --gtest_filter=Engine.runs\n"));
}

TEST_F(Soak, aCrashIsAFailureToo) {
  programDoes("kill -ABRT $$");
  const SoakRun run = soak("--minutes 0.2 --seed 5");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.out, HasSubstr("Window.opens FAILED with seed 5"));
}

TEST_F(Soak, withoutASeedTheTimeIsTheFirst) {
  programDoes("true");
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(soak("--minutes 0").exitCode, 0);
  const std::time_t seed = std::stoll(runs());
  EXPECT_GE(seed, before);
  EXPECT_LE(seed, std::time(nullptr));
}

TEST_F(Soak, theRealPropertyTestsAreFoundAndHold) {
  const auto build = std::filesystem::path(TARNLET_PROGRAM).parent_path().parent_path();
  setenv("ONLY", "LpmSmProperty.aRouteThatComesAndGoes*", 1);
  const SoakRun run = soak("--minutes 0.02", build.string());
  unsetenv("ONLY");
  EXPECT_EQ(run.exitCode, 0) << run.err << run.out;
  EXPECT_THAT(run.out, StartsWith("soak: none failed; runs "));
}

TEST_F(Soak, whatCannotBeUsedEndsWithOneLineAndCodeTwo) {
  programDoes("true");
  const auto expectError = [this](const std::string& arguments, const std::string& line) {
    const SoakRun run = soak(arguments);
    EXPECT_EQ(run.exitCode, 2) << arguments;
    EXPECT_EQ(run.err, "bench/soak: " + line + "\n") << arguments;
    EXPECT_EQ(run.out, "") << arguments;
  };
  const std::string expected = ", expected bench/soak --minutes N [--seed S]";
  expectError("", "no --minutes" + expected);
  expectError("--minutes", "\"--minutes\" without a value" + expected);
  expectError("--minutes five", "--minutes \"five\" is no number" + expected);
  expectError("--minutes -1", "--minutes \"-1\" is no number" + expected);
  expectError("--minutes 1 --seed 0x1", "--seed \"0x1\" is no number below 10^18" + expected);
  expectError("--hours 1", "unknown argument \"--hours\"" + expected);
  setenv("ONLY", "Nothing.*", 1);
  const SoakRun named = soak("--minutes 1", directory.path("nowhere"));
  unsetenv("ONLY");
  EXPECT_EQ(named.exitCode, 2);
  EXPECT_THAT(named.err, StartsWith("bench/soak: " + directory.path("nowhere/bin/property_tests") +
                                    " is not there, expected "));
  EXPECT_EQ(runs(), "");
}

}  // namespace
}  // namespace Quarle::Bench
