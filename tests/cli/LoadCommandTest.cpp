// The program from outside: what it prints, and how it ends.

#include <string>
#include <vector>

#include "tests/cli/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Cli {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using Testing::ProgramRun;
using Testing::runProgram;
using ::testing::StartsWith;
using Testing::TemporaryDirectory;

/// A run that ends with one line and a code.
void expectError(const std::string& arguments, int exitCode, const std::string& line) {
  const ProgramRun run = runProgram(arguments);
  EXPECT_EQ(run.exitCode, exitCode) << arguments;
  EXPECT_EQ(run.err, "tarnlet: " + line + "\n") << arguments;
  EXPECT_EQ(run.out, "") << arguments;
}

/// The result without what differs from run to run.
json withoutTimes(json result) {
  for (const char* family : {"ipv4", "ipv6"}) {
    for (const char* field : {"seconds", "routes_per_second", "bytes_per_route"}) {
      result[family].erase(field);
    }
  }
  return result;
}

class LoadCommand : public ::testing::Test {
 protected:
  /// Loads a file of this content onto the chip `lab`.
  ProgramRun loadText(const std::string& content, const std::string& more = "") {
    return runProgram("load --chip lab --json --rib " + directory.file("rib.txt", content) + " " +
                      more);
  }

  TemporaryDirectory directory;
};

TEST_F(LoadCommand, versionAndHelpEndWell) {
  const ProgramRun version = runProgram("--version");
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_THAT(version.out, StartsWith("tarnlet "));
  const ProgramRun help = runProgram("load --help");
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_THAT(help.out, HasSubstr("--synthetic N4,N6"));
  EXPECT_THAT(help.out, HasSubstr("Exit codes: 0 done"));
}

TEST_F(LoadCommand, unknownWordsAreToldWithTheNearest) {
  expectError("lod", 2,
              "there is no command \"lod\", expected one that tarnlet --help lists, nearest "
              "\"load\"");
  expectError("xyzzy", 2, "there is no command \"xyzzy\", expected one that tarnlet --help lists");
  expectError("", 2, "no command given, expected one that tarnlet --help lists");
  expectError("load --chip lab --sinthetic 1,1", 2,
              "load: there is no option \"--sinthetic\", expected one that tarnlet load --help "
              "lists, nearest \"--synthetic\"");
  expectError("restart --chipimage=x", 2,
              "restart: there is no option \"--chipimage\", expected one that tarnlet restart "
              "--help lists, nearest \"--chip-image\"");
}

TEST_F(LoadCommand, everyPromisedFieldIsThere) {
  const ProgramRun run = runProgram("load --synthetic 2000,400 --chip compact --json");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json result = run.json();
  const json shape = json::parse(R"({
    "routes": 0, "placed": 0, "refused": {}, "lookups": 0, "lookups_wrong": 0,
    "commands": {"prefix": 0, "nhi": 0}, "seconds": {"load": 0, "verify": 0},
    "routes_per_second": 0, "bytes_per_route": 0, "rows": {"used": 0, "capacity": 0},
    "subtries": 0,
    "nhi": {"blocks": 0, "entries_used": 0, "entries_capacity": 0, "shared": 0},
    "shuffle": {"attempts": 0, "success": 0}, "defrag_moves": 0})");
  const json fields = shape.flatten();
  for (const char* family : {"ipv4", "ipv6"}) {
    for (const auto& [path, value] : fields.items()) {
      EXPECT_TRUE(result.at(family).contains(json::json_pointer(path))) << family << path;
    }
  }
  for (const char* field : {"groups", "rows_used", "rows_capacity", "shuffles"}) {
    EXPECT_TRUE(result.at("next_hop_table").contains(field)) << field;
  }
  EXPECT_EQ(result.at("chip"), "compact");
  EXPECT_EQ(result.at("seed"), 1);
  EXPECT_TRUE(result.at("version").is_string());
}

TEST_F(LoadCommand, aSyntheticTableIsPlacedAndLookedUp) {
  const ProgramRun run = runProgram("load --synthetic 2000,400 --chip compact --json");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json result = run.json();
  EXPECT_EQ(result["ipv4"]["routes"], 2000);
  EXPECT_EQ(result["ipv4"]["placed"], 2000);
  EXPECT_EQ(result["ipv6"]["placed"], 400);
  EXPECT_GT(result["ipv4"]["lookups"], 3900);
  EXPECT_EQ(result["ipv4"]["lookups_wrong"], 0);
  EXPECT_EQ(result["ipv6"]["lookups_wrong"], 0);
  EXPECT_EQ(result["rows_wrong"], 0);
  EXPECT_EQ(result["next_hop_table"]["groups"], 64);
}

TEST_F(LoadCommand, equalSeedsGiveEqualRuns) {
  const std::string arguments = "load --synthetic 3000,500 --order shuffled --json --seed ";
  const json first = withoutTimes(runProgram(arguments + "7").json());
  EXPECT_EQ(first, withoutTimes(runProgram(arguments + "7").json()));
  EXPECT_NE(first["ipv4"], withoutTimes(runProgram(arguments + "8").json())["ipv4"]);
}

TEST_F(LoadCommand, theSummaryTellsTheSame) {
  const ProgramRun run = runProgram("load --synthetic 2000,400");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "") << "no progress line where there is no terminal";
  EXPECT_THAT(run.out, StartsWith("tarnlet "));
  EXPECT_THAT(
      run.out,
      HasSubstr(
          "\nplaced                                       2,000                           400\n"));
  EXPECT_THAT(run.out, HasSubstr("\nEvery look-up in the chip is right.\n"));
}

TEST_F(LoadCommand, badLinesAreReportedAndLeftOut) {
  const ProgramRun run =
      loadText("10.0.0.0/8\n# all of it\n10.0.0.0/8/9\n\n10.1.0.0/16\n10.0.0.1/8\n");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_THAT(run.err, HasSubstr("rib.txt:3: "));
  EXPECT_THAT(run.err, HasSubstr("rib.txt:6: "));
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 2) << run.err;
  EXPECT_THAT(run.err, HasSubstr(", expected "));
  EXPECT_EQ(run.json()["ipv4"]["placed"], 2);
  EXPECT_EQ(run.json()["input"]["bad_lines"], 2);
}

TEST_F(LoadCommand, manyBadLinesAreReportedByNumber) {
  std::string content;
  for (int i = 0; i < 30; ++i) {
    content += "bad\n";
  }
  const ProgramRun run = loadText(content);
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 11) << run.err;
  EXPECT_THAT(run.err, HasSubstr("rib.txt: 20 more bad lines\n"));
}

TEST_F(LoadCommand, strictStopsAtABadLine) {
  const ProgramRun run = loadText("10.0.0.0/8\nbad\nworse\n", "--strict");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(run.err, StartsWith("tarnlet: "));
  EXPECT_THAT(run.err, HasSubstr("rib.txt:2: "));
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

TEST_F(LoadCommand, repeatedRoutesCountOnce) {
  const json result = loadText("10.0.0.0/8\n10.0.0.0/8\n").json();
  EXPECT_EQ(result["ipv4"]["routes"], 1);
  EXPECT_EQ(result["input"]["duplicates"], 1);
}

TEST_F(LoadCommand, anEmptyFileIsAnEmptyTable) {
  const ProgramRun run = loadText("");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(run.json()["ipv4"]["routes"], 0);
}

TEST_F(LoadCommand, compressedFilesAreToldByContent) {
  const std::string plain = directory.file("table", "10.0.0.0/8\n2001:db8::/32\n");
  for (const char* packer : {"gzip", "bzip2"}) {
    const std::string packed = directory.path(std::string("packed.") + packer);
    if (std::system((std::string("command -v ") + packer + " >/dev/null").c_str()) != 0) {
      continue;
    }
    ASSERT_EQ(std::system((std::string(packer) + " -c " + plain + " >" + packed).c_str()), 0);
    const ProgramRun run = runProgram("load --chip lab --json --rib " + packed);
    EXPECT_EQ(run.exitCode, 0) << packer << ": " << run.err;
    EXPECT_EQ(run.json()["ipv4"]["placed"], 1) << packer;
    EXPECT_EQ(run.json()["ipv6"]["placed"], 1) << packer;
  }
}

TEST_F(LoadCommand, theFilesOwnNextHopsMakeTheGroups) {
  const std::string content =
      "10.1.0.0/16 192.0.2.1 192.0.2.2\n"
      "10.2.0.0/16 192.0.2.1 192.0.2.2\n"
      "10.3.0.0/16 192.0.2.1\n";
  const json own = loadText(content).json();
  EXPECT_EQ(own["next_hop_table"]["groups"], 2);
  EXPECT_EQ(own["next_hop_table"]["rows_used"], 3);
  const json madeUp = loadText(content, "--nexthops 5").json();
  EXPECT_EQ(madeUp["next_hop_table"]["groups"], 5);
}

TEST_F(LoadCommand, refusedRoutesAreCountedByReasonAndNoError) {
  const ProgramRun run =
      runProgram("load --synthetic 3000,400 --chip lab --nexthops 8 --order shuffled --json");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  const json ipv4 = run.json()["ipv4"];
  std::uint64_t refused = 0;
  for (const auto& [reason, count] : ipv4["refused"].items()) {
    refused += count.get<std::uint64_t>();
  }
  EXPECT_EQ(ipv4["placed"].get<std::uint64_t>() + refused, 3000U);
  EXPECT_GT(ipv4["refused"]["noRow"], 0);
  EXPECT_EQ(ipv4["lookups_wrong"], 0) << "refused addresses must not be found";
}

TEST_F(LoadCommand, churnVerifiesEveryPhase) {
  const ProgramRun run = runProgram("load --synthetic 2000,400 --churn --json");
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const json result = run.json();
  const json& phases = result["phases"];
  std::vector<std::string> names;
  for (const json& phase : phases) {
    names.push_back(phase["name"]);
    EXPECT_EQ(phase["ipv4"]["lookups"], result["ipv4"]["lookups"]) << phase["name"];
    EXPECT_EQ(phase["ipv4"]["lookups_wrong"], 0) << phase["name"];
    EXPECT_EQ(phase["ipv6"]["lookups_wrong"], 0) << phase["name"];
  }
  EXPECT_EQ(names, (std::vector<std::string>{"load", "withdraw-half", "announce-again",
                                             "change-next-hops"}));
  const std::uint64_t withdrawn = phases[1]["ipv4"]["requests"];
  EXPECT_NEAR(static_cast<double>(withdrawn), 1000, 150);
  EXPECT_EQ(phases[1]["ipv4"]["placed"], 2000 - withdrawn);
  EXPECT_EQ(phases[2]["ipv4"]["placed"], 2000);
  EXPECT_EQ(phases[3]["ipv4"]["requests"], 2000);
  EXPECT_GE(phases[3]["ipv4"]["commands"]["prefix"], 2000) << "each route was given another group";
}

TEST_F(LoadCommand, withoutAChipCommandsAreCountedAndNothingIsLookedUp) {
  const json bare = runProgram("load --synthetic 2000,400 --no-chip --json").json();
  const json whole = runProgram("load --synthetic 2000,400 --json").json();
  EXPECT_EQ(bare["ipv4"]["commands"], whole["ipv4"]["commands"]);
  EXPECT_EQ(bare["ipv4"]["lookups"], 0);
  EXPECT_EQ(bare["verify"], "none");
}

TEST_F(LoadCommand, aSampleIsLookedUpWhenAskedFor) {
  const json result = runProgram("load --synthetic 6400,640 --verify sample --json").json();
  EXPECT_EQ(result["ipv4"]["placed"], 6400);
  EXPECT_GE(result["ipv4"]["lookups"], 190);
  EXPECT_LE(result["ipv4"]["lookups"], 200);
}

TEST_F(LoadCommand, shufflingCanBeSwitchedOff) {
  const std::string arguments = "load --synthetic 20000,0 --json --shuffling ";
  EXPECT_GT(runProgram(arguments + "on").json()["ipv4"]["shuffle"]["success"], 0);
  EXPECT_EQ(runProgram(arguments + "off").json()["ipv4"]["shuffle"]["attempts"], 0);
}

TEST_F(LoadCommand, whatCannotBeReadEndsWithOneLineAndCodeTwo) {
  const ProgramRun missing = runProgram("load --rib /nonexistent/rib.txt");
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_THAT(missing.err, StartsWith("tarnlet: /nonexistent/rib.txt: "));
  EXPECT_EQ(std::count(missing.err.begin(), missing.err.end(), '\n'), 1) << missing.err;
  const ProgramRun chip = runProgram("load --synthetic 1,1 --chip nonesuch");
  EXPECT_EQ(chip.exitCode, 2);
  EXPECT_THAT(chip.err, HasSubstr("nonesuch"));
  EXPECT_EQ(std::count(chip.err.begin(), chip.err.end(), '\n'), 1) << chip.err;
}

TEST_F(LoadCommand, wrongUseEndsWithOneLineAndCodeTwo) {
  expectError("load", 2, "load: no routes given, expected --rib FILE or --synthetic N4,N6");
  expectError("load --synthetic 12", 2,
              "--synthetic: \"12\", expected N4,N6, each from 0 to 4000000");
  expectError("load --synthetic 1,4000001", 2,
              "--synthetic: \"1,4000001\", expected N4,N6, each from 0 to 4000000");
  expectError("load --synthetic 1,1 --order upwards", 2,
              "--order: \"upwards\", expected sorted|shuffled");
  expectError("load --synthetic 1,1 --nexthops 0", 2,
              "--nexthops: \"0\", expected a number from 1 to 1000000");
  expectError("load --synthetic 1,1 --seed x", 2,
              "--seed: \"x\", expected a number from 0 to 18446744073709551615");
  expectError("load --synthetic 1,1 --no-chip --verify all", 2,
              "--verify all: nothing is written with --no-chip, expected none");
  expectError("load --synthetic 1,1 --strict", 2,
              "--strict: there are no lines to be strict about, expected --rib FILE");
  for (const char* arguments : {"", "lode", "load --frobnicate", "load --rib x --synthetic 1,1"}) {
    const ProgramRun run = runProgram(arguments);
    EXPECT_EQ(run.exitCode, 2) << arguments;
    EXPECT_THAT(run.err, StartsWith("tarnlet: ")) << arguments;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
  }
}

TEST_F(LoadCommand, aFullDiskIsNotTakenForSuccess) {
  const std::string command =
      std::string(TARNLET_PROGRAM) + " load --synthetic 10,10 >/dev/full 2>/dev/null";
  const int status = std::system(command.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 2);
}

}  // namespace
}  // namespace Quarle::Cli
