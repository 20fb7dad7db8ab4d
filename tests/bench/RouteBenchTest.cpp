// The macro benchmark from outside, on tables too small to measure anything: what its lines say can
// be read, and is true of the table.

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Quarle::Bench {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct BenchRun {
  int exitCode = -1;
  // Both streams.
  std::string text;

  std::vector<json> lines() const {
    std::vector<json> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      result.push_back(json::parse(line));
    }
    return result;
  }
};

BenchRun runBench(const std::string& arguments) {
  const auto program = std::filesystem::path(TARNLET_PROGRAM).parent_path() / "RouteBench";
  FILE* pipe = popen((program.string() + " " + arguments + " 2>&1").c_str(), "r");
  BenchRun run;
  char part[4096];
  while (const std::size_t read = std::fread(part, 1, sizeof part, pipe)) {
    run.text.append(part, read);
  }
  const int status = pclose(pipe);
  run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

std::string nameOf(const json& line) {
  return line.at("family").get<std::string>() + " " + line.at("op").get<std::string>();
}

class RouteBench : public ::testing::TestWithParam<const char*> {};

TEST_P(RouteBench, everyRouteIsInsertedUpdatedAndDeletedInEachFamily) {
  const BenchRun run =
      runBench(std::string("--synthetic 3000,1000 --counts --through ") + GetParam());
  ASSERT_EQ(run.exitCode, 0) << run.text;
  std::vector<std::string> names;
  for (const json& line : run.lines()) {
    names.push_back(nameOf(line));
    EXPECT_EQ(line.at("name"), std::string("tarnlet_") + GetParam());
    EXPECT_EQ(line.at("order"), "shuffled");
    EXPECT_EQ(line.at("routes"), line.at("family") == "ipv4" ? 3000 : 1000);
    EXPECT_EQ(line.at("unserved"), 0) << line;
    EXPECT_GT(line.at("seconds"), 0.0) << line;
    EXPECT_GT(line.at("cpu_seconds"), 0.0) << line;
    EXPECT_NEAR(line.at("rate").get<double>() * line.at("seconds").get<double>(),
                line.at("routes").get<double>(), 1)
        << line;
    EXPECT_GT(line.at("bytes_per_route"), 100) << line;
    EXPECT_GE(line.at("commands").at("prefix"), line.at("routes")) << line;
  }
  EXPECT_THAT(names, ElementsAre("ipv4 insert", "ipv4 update", "ipv4 delete", "ipv6 insert",
                                 "ipv6 update", "ipv6 delete"));
}

INSTANTIATE_TEST_SUITE_P(Through, RouteBench, ::testing::Values("library", "client", "batches"));

TEST(RouteBenchOptions, aRepetitionStartsFromNothing) {
  const BenchRun run = runBench("--synthetic 2000,0 --family ipv4 --repeat 2");
  ASSERT_EQ(run.exitCode, 0) << run.text;
  const std::vector<json> lines = run.lines();
  ASSERT_EQ(lines.size(), 6U) << run.text;
  // In one process the second load would find its memory in the pools of the first.
  EXPECT_EQ(lines[0].at("bytes_per_route"), lines[3].at("bytes_per_route"));
}

TEST(RouteBenchOptions, drainingSeldomChangesNothingButTheTimes) {
  const auto commandsOf = [](const std::string& more) {
    const BenchRun run = runBench("--synthetic 2000,0 --family ipv4 --counts " + more);
    EXPECT_EQ(run.exitCode, 0) << run.text;
    std::string text;
    for (const json& line : run.lines()) {
      text += nameOf(line) + " " + line.at("commands").dump() + " " + line.at("unserved").dump();
    }
    return text;
  };
  EXPECT_EQ(commandsOf("--drain-every 1"), commandsOf("--drain-every 1000"));
}

TEST(RouteBenchOptions, theOrderIsThatOfTheCommandLine) {
  const auto commandsOf = [](const std::string& order) {
    // On a chip that is too small the order decides who comes in.
    const BenchRun run =
        runBench("--synthetic 3000,0 --family ipv4 --chip lab --counts --order " + order);
    EXPECT_EQ(run.exitCode, 0) << run.text;
    const json line = run.lines().front();
    EXPECT_EQ(line.at("order"), order);
    return line.at("commands").dump();
  };
  EXPECT_NE(commandsOf("sorted"), commandsOf("shuffled"));
}

TEST(RouteBenchOptions, routesWithoutRoomAreCountedAndTheRunGoesOn) {
  const BenchRun run = runBench("--synthetic 3000,0 --family ipv4 --chip lab");
  ASSERT_EQ(run.exitCode, 0) << run.text;
  const std::vector<json> lines = run.lines();
  ASSERT_EQ(lines.size(), 3U) << run.text;
  EXPECT_GT(lines[0].at("unserved"), 0) << run.text;
  EXPECT_EQ(lines[2].at("unserved"), 0) << run.text;
}

TEST(RouteBenchOptions, theLargeChipOfTheCurveCanBeUsed) {
  const BenchRun run =
      runBench("--synthetic 1000,1000 --chip " TARNLET_SOURCE_DIR "/bench/profiles/wide.json");
  ASSERT_EQ(run.exitCode, 0) << run.text;
  EXPECT_EQ(run.lines().size(), 6U) << run.text;
}

TEST(RouteBenchOptions, whatCannotBeUsedEndsWithOneLine) {
  const auto expectError = [](const std::string& arguments, const std::string& part) {
    const BenchRun run = runBench(arguments);
    EXPECT_EQ(run.exitCode, 2) << arguments;
    EXPECT_THAT(run.text, ::testing::StartsWith("RouteBench: ")) << arguments;
    EXPECT_THAT(run.text, HasSubstr(part)) << arguments;
    EXPECT_EQ(run.text.find('\n'), run.text.size() - 1) << arguments << run.text;
  };
  expectError("", "expected --rib FILE or --synthetic N4,N6");
  expectError("--synthetic 5", "expected N4,N6");
  expectError("--synthetic 5,5 --order random", "random");
  expectError("--synthetic 5,5 --through chip", "chip");
  expectError("--rib no/such/file", "no/such/file");
  expectError("--synthetic 5,5 --chip no-such-chip", "no-such-chip");
}

}  // namespace
}  // namespace Quarle::Bench
