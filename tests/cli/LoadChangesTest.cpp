// Random changes behind the load, and look-ups after every single write: what the program counts,
// and that it says the same to people and to programs.

#include <cstdint>
#include <regex>
#include <string>
#include <vector>

#include "tests/cli/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Cli {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::Not;
using Testing::ProgramRun;
using Testing::runProgram;

json jsonOf(const std::string& arguments) {
  const ProgramRun run = runProgram("load --json " + arguments);
  EXPECT_EQ(run.exitCode, 0) << arguments << "\n" << run.err;
  EXPECT_EQ(run.err, "") << arguments;
  return run.exitCode == 0 ? run.json() : json();
}

/// A phase without what differs from run to run.
json withoutTimes(json phase) {
  for (const char* family : {"ipv4", "ipv6"}) {
    for (const char* field : {"seconds", "routes_per_second", "bytes_per_route"}) {
      phase[family].erase(field);
    }
  }
  return phase;
}

/// A line of the summary by its beginning, its numbers without commas.
std::string lineOf(const std::string& summary, const std::string& beginning) {
  const std::string text = std::regex_replace(summary, std::regex(",([0-9])"), "$1");
  const std::size_t start = text.find("\n" + beginning);
  EXPECT_NE(start, std::string::npos) << text;
  return start == std::string::npos
             ? ""
             : text.substr(start + 1, text.find('\n', start + 1) - start - 1);
}

std::string textOf(const json& number) { return std::to_string(number.get<std::uint64_t>()); }

TEST(LoadChanges, areSharedByTheFamiliesAsTheirRoutesAre) {
  const json result = jsonOf("--synthetic 600,200 --changes 400");
  const json& phases = result.at("phases");
  ASSERT_EQ(phases.size(), 2U);
  EXPECT_EQ(phases[0].at("name"), "load");
  const json& changes = phases[1];
  EXPECT_EQ(changes.at("name"), "changes");
  EXPECT_EQ(changes.at("ipv4").at("requests"), 300);
  EXPECT_EQ(changes.at("ipv6").at("requests"), 100);
  EXPECT_EQ(changes.at("rows_wrong"), 0);
  for (const char* family : {"ipv4", "ipv6"}) {
    EXPECT_EQ(result.at(family).at("requests"), result.at(family).at("routes")) << family;
    EXPECT_LT(changes.at(family).at("placed"), result.at(family).at("placed"))
        << family << ": some are withdrawn";
    EXPECT_EQ(changes.at(family).at("lookups"), result.at(family).at("lookups"))
        << family << ": withdrawn routes are looked up too";
    EXPECT_EQ(changes.at(family).at("lookups_wrong"), 0) << family;
  }
  EXPECT_GT(changes.at("next_hop_table").at("groups"), 64) << "some lead to new groups";
}

TEST(LoadChanges, ofATableOfOneFamilyAreAllItsOwn) {
  EXPECT_EQ(jsonOf("--synthetic 0,50 --changes 70").at("phases")[1].at("ipv6").at("requests"), 70);
  const json changes = jsonOf("--synthetic 50,0 --changes 70").at("phases")[1];
  EXPECT_EQ(changes.at("ipv4").at("requests"), 70);
  EXPECT_EQ(changes.at("ipv6").at("requests"), 0);
}

TEST(LoadChanges, ofATableWithoutRoutesAreNone) {
  const Testing::TemporaryDirectory directory;
  const json changes =
      jsonOf("--rib " + directory.file("none.txt", "# none\n") + " --changes 70").at("phases")[1];
  EXPECT_EQ(changes.at("ipv4").at("requests"), 0);
  EXPECT_EQ(changes.at("ipv6").at("requests"), 0);
}

TEST(LoadChanges, comeBehindTheLoadAndTheChurn) {
  const json result = jsonOf("--synthetic 600,200 --changes 400 --churn");
  std::vector<std::string> names;
  for (const json& phase : result.at("phases")) {
    names.push_back(phase.at("name"));
  }
  EXPECT_THAT(names, ::testing::ElementsAre("load", "withdraw-half", "announce-again",
                                            "change-next-hops", "changes"));
  EXPECT_EQ(withoutTimes(result.at("phases")[0]).at("ipv4"),
            withoutTimes(jsonOf("--synthetic 600,200")).at("ipv4"));
}

TEST(LoadChanges, noneIsNoPhase) {
  EXPECT_FALSE(jsonOf("--synthetic 60,20 --changes 0").contains("phases"));
}

TEST(LoadChanges, equalSeedsMakeEqualChanges) {
  const auto changesOf = [](const std::string& seed) {
    return withoutTimes(jsonOf("--synthetic 600,200 --changes 400 --seed " + seed).at("phases")[1]);
  };
  const json first = changesOf("5");
  EXPECT_EQ(first, changesOf("5"));
  EXPECT_NE(first, changesOf("6"));
}

TEST(LoadChanges, withoutAChipMakeTheSameCommands) {
  const std::string arguments = "--synthetic 600,200 --changes 400";
  const json written = jsonOf(arguments).at("phases")[1];
  const json dropped = jsonOf(arguments + " --no-chip").at("phases")[1];
  for (const char* family : {"ipv4", "ipv6"}) {
    EXPECT_GT(written.at(family).at("commands").at("prefix"), 0) << family;
    EXPECT_EQ(written.at(family).at("commands"), dropped.at(family).at("commands")) << family;
  }
}

TEST(LoadChanges, theSummaryTellsTheSame) {
  const std::string arguments = "--synthetic 600,200 --changes 400";
  const json changes = jsonOf(arguments).at("phases")[1];
  const ProgramRun run = runProgram("load " + arguments);
  EXPECT_EQ(run.exitCode, 0);
  for (const auto& [field, name] : {std::pair{"ipv4", "IPv4"}, {"ipv6", "IPv6"}}) {
    const json& family = changes.at(field);
    const std::string line = lineOf(run.out, "changes           " + std::string(name) + "  ");
    EXPECT_THAT(line, HasSubstr(" " + textOf(family.at("requests")) + " requests "));
    EXPECT_THAT(line, HasSubstr(" " + textOf(family.at("placed")) + " placed "));
    EXPECT_THAT(line, HasSubstr(" 0 refused "));
    EXPECT_THAT(line, HasSubstr("  look-ups "));
    EXPECT_THAT(line, ::testing::EndsWith(" right"));
  }
}

TEST(LoadEveryCommand, countsEachWriteOfLoadAndChanges) {
  const json result = jsonOf("--synthetic 300,100 --changes 200 --every-command");
  const json& every = result.at("every_command");
  std::uint64_t prefix = 0;
  std::uint64_t nhi = 0;
  for (const json& phase : result.at("phases")) {
    for (const char* family : {"ipv4", "ipv6"}) {
      prefix += phase.at(family).at("commands").at("prefix").get<std::uint64_t>();
      nhi += phase.at(family).at("commands").at("nhi").get<std::uint64_t>();
    }
  }
  EXPECT_EQ(every.at("prefix"), prefix);
  EXPECT_EQ(every.at("nhi"), nhi);
  EXPECT_GE(every.at("next_hop"), result.at("next_hop_table").at("rows_used"));
  EXPECT_EQ(every.at("commands").get<std::uint64_t>(),
            prefix + nhi + every.at("next_hop").get<std::uint64_t>());
  EXPECT_GT(every.at("lookups"), prefix) << "each prefix row has at least one route";
  EXPECT_EQ(every.at("wrong"), 0);
  EXPECT_EQ(every.at("excused"), json::parse(R"({"slidBlock":0,"changedRow":0,"slidGroup":0})"));
}

TEST(LoadEveryCommand, looksOnAndChangesNothing) {
  const std::string arguments = "--synthetic 300,100 --changes 200 --chip lab --order shuffled";
  const json plain = jsonOf(arguments);
  const json watched = jsonOf(arguments + " --every-command");
  EXPECT_FALSE(plain.contains("every_command"));
  for (std::size_t phase : {0, 1}) {
    EXPECT_EQ(withoutTimes(plain.at("phases")[phase]), withoutTimes(watched.at("phases")[phase]));
  }
}

TEST(LoadEveryCommand, theSummaryTellsTheSame) {
  const std::string arguments = "--synthetic 60,20 --nexthops 4 --changes 30";
  const json every = jsonOf(arguments + " --every-command").at("every_command");
  const ProgramRun run = runProgram("load " + arguments + " --every-command");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(lineOf(run.out, "every command: "),
            "every command: " + textOf(every.at("commands")) + " writes, " +
                textOf(every.at("lookups")) +
                " look-ups after them, 0 wrong, excused by window slidBlock 0 changedRow 0 "
                "slidGroup 0");
  EXPECT_THAT(runProgram("load " + arguments).out, Not(HasSubstr("every command")));
}

TEST(LoadEveryCommand, windowsOfCompactionsAreCountedAndNoError) {
  setenv("NHI_TABLE_SIZE", "56", 1);
  const json result = jsonOf("--synthetic 400,400 --chip lab --changes 20000 --every-command");
  unsetenv("NHI_TABLE_SIZE");
  const json& every = result.at("every_command");
  EXPECT_GT(result.at("phases")[1].at("ipv4").at("defrag_moves"), 0);
  EXPECT_GT(every.at("excused").at("slidBlock"), 0);
  EXPECT_EQ(every.at("wrong"), 0);
}

TEST(LoadEveryCommand, wrongUseEndsWithOneLineAndCodeTwo) {
  const auto expectError = [](const std::string& arguments, const std::string& line) {
    const ProgramRun run = runProgram("load --synthetic 1,1 " + arguments);
    EXPECT_EQ(run.exitCode, 2) << arguments;
    EXPECT_EQ(run.err, "tarnlet: " + line + "\n") << arguments;
    EXPECT_EQ(run.out, "") << arguments;
  };
  const std::string range = ", expected a number from 0 to 4294967295";
  for (const char* number : {"x", "-1", "1.5", "4294967296", "''"}) {
    const std::string quoted = number == std::string("''") ? "" : number;
    expectError("--changes " + std::string(number), "--changes: \"" + quoted + "\"" + range);
  }
  expectError("--every-command --no-chip",
              "--every-command: nothing is written with --no-chip, expected one of the two");
  expectError("--every-command --no-chip --verify none",
              "--every-command: nothing is written with --no-chip, expected one of the two");
}

}  // namespace
}  // namespace Quarle::Cli
