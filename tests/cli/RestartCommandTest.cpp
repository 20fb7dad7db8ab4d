// Loads onto a chip in a file, and the process that takes over from there: what it prints, and how
// it ends.

#include <optional>
#include <regex>
#include <string>

#include "tests/cli/Program.h"
#include "xdksim/Chip.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Cli {
namespace {

using nlohmann::json;
using Testing::contentOf;
using ::testing::HasSubstr;
using Testing::ProgramRun;
using Testing::runProgram;
using Testing::TemporaryDirectory;

/// Runs of blanks as one.
std::string tight(const std::string& text) {
  return std::regex_replace(text, std::regex(" +"), " ");
}

/// A chip with room for some hundred routes.
const char* const kProfile = R"({
  "name": "small",
  "description": "A few tables.",
  "ipv4": {
    "keyWidth": 48, "vrfIdWidth": 16,
    "tables": [{"count": 4, "tread": 35, "rows": 256, "sramWidth": 256},
               {"count": 2, "tread": 28, "rows": 128, "sramWidth": 256},
               {"count": 2, "tread": 24, "rows": 128, "sramWidth": 128},
               {"count": 1, "tread": 16, "rows": 4, "sramWidth": 256}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 1}
  },
  "ipv6": {
    "keyWidth": 144, "vrfIdWidth": 16,
    "tables": [{"count": 4, "tread": 60, "rows": 256, "sramWidth": 256},
               {"count": 2, "tread": 43, "rows": 128, "sramWidth": 256},
               {"count": 2, "tread": 128, "rows": 64, "sramWidth": 256},
               {"count": 1, "tread": 34, "rows": 64, "sramWidth": 256},
               {"count": 1, "tread": 16, "rows": 4, "sramWidth": 256}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 1}
  },
  "nextHopTable": {"rows": 4096}
})";

class RestartCommand : public ::testing::Test {
 protected:
  ProgramRun load(const std::string& arguments) {
    const ProgramRun run = runProgram(loadOnto + " " + arguments);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    return run;
  }

  ProgramRun restart(const std::string& arguments) {
    return runProgram("restart --chip-image " + image + " " + arguments);
  }

  /// What a restart that ends well tells.
  json restarted(const std::string& arguments = "") {
    const ProgramRun run = restart("--json " + arguments);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    return run.exitCode == 0 ? run.json() : json();
  }

  std::string ribOf(const std::string& content) {
    return "--rib " + directory.file("rib.txt", content);
  }

  void expectError(const std::string& arguments, int exitCode, const std::string& line) {
    const ProgramRun run = runProgram(arguments);
    EXPECT_EQ(run.exitCode, exitCode) << arguments;
    EXPECT_EQ(run.err, "tarnlet: " + line + "\n") << arguments;
    EXPECT_EQ(run.out, "") << arguments;
  }

  /// Copies a used row of the first table of IPv4 to where its prefixes do not hash to.
  void misplaceRow() {
    XdkSim::Chip chip{XdkSim::ChipImage(image)};
    std::optional<xpLpmPrefixEntry> used;
    for (U32 table = 0; table < chip.profile().ipv4.tables.size(); ++table) {
      for (U32 row = 0; row < chip.profile().ipv4.tables[table].rows; ++row) {
        xpLpmPrefixEntry entry;
        ASSERT_EQ(chip.readPrefixRow(XdkSim::Family::ipv4, table, row, entry), XP_NO_ERR);
        const bool isEmpty = entry.branchLen == 0 && entry.stride == 0;
        if (!used && !isEmpty) {
          used = entry;
        } else if (used && isEmpty) {
          ASSERT_EQ(chip.writePrefixRow(XdkSim::Family::ipv4, table, row, *used), XP_NO_ERR);
          return;
        }
      }
      used.reset();
    }
    FAIL() << "no table has both";
  }

  TemporaryDirectory directory;
  const std::string image = directory.path("chip.img");
  const std::string profile = directory.file("small.json", kProfile);
  const std::string loadOnto = "load --chip " + profile + " --chip-image " + image;
};

TEST_F(RestartCommand, everyPromisedFieldIsThere) {
  load("--synthetic 300,100");
  const json result = restarted("--synthetic 300,100");
  const json shape = json::parse(R"({
    "rows_read": 0, "rows_refused": {"wrong keySize": 0, "wrong mode": 0,
      "branch length + stride too large": 0, "stride is zero": 0,
      "prefix hash does not match with offset": 0, "NHI tile doesn't exist": 0,
      "NHI block out of bound": 0},
    "rows_mended": {"prefix in another row too": 0}, "rows_kept_bad": 0,
    "recovered": 0, "differ": 0, "differing": {"missing": 0, "surplus": 0, "next_hops": 0},
    "seconds": {"walk": 0, "reclaim": 0, "sweep": 0, "resync": 0, "verify": 0},
    "rows_per_second": 0, "routes_per_second": 0, "longest_queue": 0,
    "sweep_commands": {"prefix": 0, "nhi": 0, "written": false},
    "resync": {"unchanged": 0, "changed": 0, "added": 0, "refused": 0, "withdrawn": 0,
      "waiting": 0},
    "refused": {"noRow": 0}, "routes": 0, "lookups": 0, "lookups_wrong": 0,
    "commands": {"prefix": 0, "nhi": 0}, "rows": {"used": 0, "capacity": 0}})");
  const json fields = shape.flatten();
  for (const char* family : {"ipv4", "ipv6"}) {
    for (const auto& [path, value] : fields.items()) {
      EXPECT_TRUE(result.at(family).contains(json::json_pointer(path))) << family << path;
    }
  }
  for (const char* field :
       {"/groups/recovered", "/groups/list_fault", "/groups/dropped", "/groups/strangers",
        "/next_hop_table/rows_used", "/rows_wrong", "/writes_refused", "/write_finished",
        "/seconds/pre_flight", "/seconds/withdraw", "/peak_memory", "/dry_run", "/chip",
        "/chip_image", "/version"}) {
    EXPECT_TRUE(result.contains(json::json_pointer(field))) << field;
  }
}

TEST_F(RestartCommand, takesOverWhatALoadHasLeft) {
  const json loaded = load("--synthetic 300,100 --changes 500 --json").json();
  EXPECT_EQ(loaded.at("chip_image"), image);
  const json& left = loaded.at("phases").back();
  for (const int round : {1, 2}) {
    const json result = restarted();
    for (const char* name : {"ipv4", "ipv6"}) {
      const json& family = result.at(name);
      EXPECT_EQ(family.at("recovered"), left.at(name).at("placed")) << name << " round " << round;
      EXPECT_EQ(family.at("routes"), family.at("recovered")) << name;
      EXPECT_EQ(family.at("rows_read"), family.at("rows").at("capacity")) << name;
      EXPECT_EQ(family.at("rows").at("used"), left.at(name).at("rows").at("used")) << name;
      EXPECT_EQ(family.at("commands"), json::parse(R"({"prefix": 0, "nhi": 0})")) << name;
      EXPECT_EQ(family.at("sweep_commands").at("written"), false) << name;
      EXPECT_GE(family.at("sweep_commands").at("prefix"), family.at("recovered")) << name;
      EXPECT_LE(family.at("longest_queue"), 2) << name;
      EXPECT_TRUE(family.at("differ").is_null()) << name;
      EXPECT_GT(family.at("lookups"), family.at("recovered")) << name;
      EXPECT_EQ(family.at("lookups_wrong"), 0) << name;
    }
    EXPECT_EQ(result.at("groups").at("recovered"), left.at("next_hop_table").at("groups"));
    EXPECT_EQ(result.at("groups").at("strangers"), 0);
    EXPECT_EQ(result.at("next_hop_table").at("rows_used"),
              left.at("next_hop_table").at("rows_used"));
    EXPECT_EQ(result.at("rows_wrong"), 0);
    EXPECT_EQ(result.at("chip"), "small");
  }
}

TEST_F(RestartCommand, theSameTableIsNoWrite) {
  load("--synthetic 300,100 --order shuffled --seed 4");
  const std::string before = contentOf(image);
  const json result = restarted("--synthetic 300,100 --seed 4");
  for (const char* name : {"ipv4", "ipv6"}) {
    EXPECT_EQ(result.at(name).at("differ"), 0) << name;
    EXPECT_EQ(result.at(name).at("resync").at("unchanged"), result.at(name).at("recovered"));
    EXPECT_EQ(result.at(name).at("commands"), json::parse(R"({"prefix": 0, "nhi": 0})")) << name;
  }
  EXPECT_EQ(contentOf(image), before);
}

TEST_F(RestartCommand, aTableThatDiffersIsToldAndBroughtAbout) {
  load(
      ribOf("10.0.0.0/8 192.0.2.1\n10.1.0.0/16 192.0.2.2\n10.2.0.0/16 2001:db8::1 2001:db8::2\n"
            "10.3.0.0/16 192.0.2.1\n2001:db8::/32 2001:db8::1\n"));
  const std::string rib = ribOf(
      "2001:db8::/32 2001:db8::1\n10.0.0.0/8 192.0.2.1\n10.1.0.0/16 192.0.2.3\n"
      "10.2.0.0/16 2001:db8::1 2001:db8::2\n10.4.0.0/16 192.0.2.9\n10.5.0.0/16 192.0.2.9\n");
  const json result = restarted(rib);
  const json& ipv4 = result.at("ipv4");
  EXPECT_EQ(ipv4.at("recovered"), 4);
  EXPECT_EQ(ipv4.at("differ"), 4);
  EXPECT_EQ(ipv4.at("differing"), json::parse(R"({"missing": 2, "surplus": 1, "next_hops": 1})"));
  EXPECT_EQ(ipv4.at("resync"), json::parse(R"({"unchanged": 2, "changed": 1, "added": 2,
                                               "refused": 0, "withdrawn": 1, "waiting": 0})"));
  EXPECT_EQ(ipv4.at("routes"), 5);
  EXPECT_GT(ipv4.at("commands").at("prefix"), 0);
  EXPECT_EQ(ipv4.at("lookups"), 10);
  EXPECT_EQ(ipv4.at("lookups_wrong"), 0);
  EXPECT_EQ(result.at("ipv6").at("differ"), 0);
  EXPECT_EQ(restarted(rib).at("ipv4").at("differ"), 0);
}

TEST_F(RestartCommand, aRouteThatNamesNoNextHopsKeepsThoseThatItHas) {
  load(ribOf("10.0.0.0/8 192.0.2.1\n10.1.0.0/16 192.0.2.2\n"));
  const json kept = restarted(ribOf("10.0.0.0/8\n10.1.0.0/16 192.0.2.2\n10.2.0.0/16\n")).at("ipv4");
  EXPECT_EQ(kept.at("differing"), json::parse(R"({"missing": 1, "surplus": 0, "next_hops": 0})"));
  EXPECT_EQ(kept.at("resync").at("unchanged"), 2);
  EXPECT_EQ(kept.at("lookups_wrong"), 0);
  const json told = restarted(ribOf("10.0.0.0/8 192.0.2.1\n10.1.0.0/16\n10.2.0.0/16\n") +
                              " --nexthops 3 --verify none")
                        .at("ipv4");
  EXPECT_GE(told.at("differing").at("next_hops"), 2) << "all lead to made-up groups now";
  EXPECT_EQ(told.at("lookups"), 0);
}

TEST_F(RestartCommand, aDryRunTellsTheSameAndLeavesTheFilesAlone) {
  load("--synthetic 300,100");
  misplaceRow();
  const std::string before = contentOf(image);
  const std::string groups = contentOf(image + ".groups");
  const std::string table = "--synthetic 200,100 --seed 3";
  json rehearsed = restarted(table + " --dry-run");
  EXPECT_EQ(rehearsed.at("dry_run"), true);
  EXPECT_TRUE(contentOf(image) == before);
  EXPECT_TRUE(contentOf(image + ".groups") == groups);
  json done = restarted(table);
  EXPECT_FALSE(contentOf(image) == before);
  for (json* result : {&rehearsed, &done}) {
    for (const char* field : {"seconds", "peak_memory", "dry_run"}) {
      result->erase(field);
    }
    for (const char* family : {"ipv4", "ipv6"}) {
      for (const char* field : {"seconds", "rows_per_second", "routes_per_second"}) {
        (*result)[family].erase(field);
      }
    }
  }
  EXPECT_EQ(rehearsed, done);
  EXPECT_GT(done.at("ipv4").at("differ"), 0);
}

TEST_F(RestartCommand, badRowsAreRefusedByReasonAndCleared) {
  load("--synthetic 300,100");
  misplaceRow();
  const json ipv4 = restarted().at("ipv4");
  EXPECT_EQ(ipv4.at("rows_refused").at("prefix hash does not match with offset"), 1);
  EXPECT_EQ(ipv4.at("rows_kept_bad"), 0);
  EXPECT_EQ(ipv4.at("recovered"), 300);
  EXPECT_EQ(restarted().at("ipv4").at("rows_refused").at("prefix hash does not match with offset"),
            0);
}

TEST_F(RestartCommand, badRowsMayBeKept) {
  load("--synthetic 300,100");
  misplaceRow();
  for (const int round : {1, 2}) {
    const json ipv4 = restarted("--keep-bad-rows").at("ipv4");
    EXPECT_EQ(ipv4.at("rows_refused").at("prefix hash does not match with offset"), 1) << round;
    EXPECT_EQ(ipv4.at("rows_kept_bad"), 1) << round;
    EXPECT_EQ(ipv4.at("recovered"), 300) << round;
  }
}

TEST_F(RestartCommand, withoutTheListOfGroupsAllIsFoundAndRebuilt) {
  load("--synthetic 300,100");
  std::filesystem::remove(image + ".groups");
  const ProgramRun run = restart("--synthetic 300,100 --json");
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "tarnlet: next-hop groups " + image +
                         ".groups: cannot be read, expected a file; the routes keep their next "
                         "hops until they are requested\n");
  const json result = run.json();
  EXPECT_EQ(result.at("ipv4").at("differ"), 0) << "the rows tell the next hops";
  EXPECT_EQ(result.at("ipv4").at("resync").at("changed"), 300);
  EXPECT_GT(result.at("groups").at("strangers"), 0);
  EXPECT_EQ(result.at("groups").at("stranger_routes"), 400);
  EXPECT_EQ(result.at("next_hop_table").at("strangers"), 0);
  EXPECT_EQ(result.at("ipv4").at("lookups_wrong"), 0);
  EXPECT_EQ(restarted("--synthetic 300,100").at("ipv4").at("resync").at("changed"), 0);
}

TEST_F(RestartCommand, aDryRunWithoutTheListNamesTheListThatIsMissing) {
  load("--synthetic 30,10");
  std::filesystem::remove(image + ".groups");
  EXPECT_THAT(restart("--dry-run").err, HasSubstr("next-hop groups " + image + ".groups: "));
  EXPECT_FALSE(std::filesystem::exists(image + ".groups"));
}

TEST_F(RestartCommand, wishesThatTheChipRefusesAreCountedByReason) {
  ASSERT_EQ(runProgram("load --chip lab --synthetic 300,100 --chip-image " + image).exitCode, 0);
  const json ipv4 = restarted("--synthetic 300,100").at("ipv4");
  const std::uint64_t recovered = ipv4.at("recovered");
  EXPECT_GT(recovered, 0U);
  EXPECT_LT(recovered, 300U);
  EXPECT_EQ(ipv4.at("differing").at("missing"), 300 - recovered);
  std::uint64_t refused = 0;
  for (const auto& [reason, count] : ipv4.at("refused").items()) {
    refused += count.get<std::uint64_t>();
  }
  EXPECT_EQ(refused, 300 - ipv4.at("routes").get<std::uint64_t>());
  EXPECT_GT(ipv4.at("lookups"), 400) << "refused routes are looked up too";
  EXPECT_EQ(ipv4.at("lookups_wrong"), 0);
}

TEST_F(RestartCommand, aListThatCanBeNeitherReadNorWrittenIsToldAndTheChipIsRight) {
  load("--synthetic 30,10");
  std::filesystem::remove(image + ".groups");
  std::filesystem::create_directories(image + ".groups/inside");
  const ProgramRun run = restart("--json");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_THAT(run.err, HasSubstr("chip.img.groups: cannot be read, expected a file; "));
  EXPECT_THAT(run.err, HasSubstr("chip.img.groups: cannot be put in place (Is a directory), "));
  const json result = run.json();
  EXPECT_EQ(result.at("writes_refused"), 1);
  EXPECT_EQ(result.at("ipv4").at("recovered"), 30);
  EXPECT_EQ(result.at("ipv4").at("lookups_wrong"), 0);
}

TEST_F(RestartCommand, theSummaryTellsTheSame) {
  load(ribOf("10.0.0.0/8 192.0.2.1\n10.1.0.0/16 192.0.2.2\n10.3.0.0/16 192.0.2.1\n"));
  misplaceRow();
  const ProgramRun run = restart(ribOf("10.0.0.0/8 192.0.2.1\n10.1.0.0/16 192.0.2.3\n"));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  const std::string text = tight(run.out);
  for (const char* line :
       {"\nrows refused 1 0\n", "\nroutes recovered 3 0\n", "\nroutes that differ 2 0\n",
        "\n on the chip alone 1 0\n", "\n other next hops 1 0\n", "\nunchanged 1 0\n",
        "\nchanged 1 0\n", "\nwithdrawn 1 0\n", "\nlook-ups 4 right 0 right\n",
        "\nIPv4 prefix rows, prefix hash does not match with offset: 1 found, 1 cleared\n",
        "\nnext-hop groups: 2 recovered; 2 groups in 2 of ",
        "\nEvery look-up in the chip is right.\n"}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
  EXPECT_THAT(text, ::testing::Not(HasSubstr("not on the chip")));
}

TEST_F(RestartCommand, aLoadTakesANewFileUnlessToldOtherwise) {
  load("--synthetic 30,10");
  expectError(loadOnto + " --synthetic 30,10", 2,
              image + ": exists, expected a new file or --replace-image");
  expectError(
      loadOnto + " --rib /nowhere --replace-image", 2,
      "/nowhere: cannot be opened (No such file or directory), expected a readable file of routes");
  EXPECT_EQ(restarted().at("ipv4").at("recovered"), 30) << "a bad table costs no image";
  EXPECT_EQ(runProgram(loadOnto + " --synthetic 20,10 --replace-image").exitCode, 0);
  EXPECT_EQ(restarted().at("ipv4").at("recovered"), 20);
}

TEST_F(RestartCommand, aWatchedLoadOntoAFileIsTheSame) {
  load("--synthetic 300,100 --every-command");
  EXPECT_EQ(restarted("--synthetic 300,100").at("ipv4").at("differ"), 0);
}

TEST_F(RestartCommand, anImageThatCannotBeUsedEndsWithOneLineAndCodeTwo) {
  load("--synthetic 30,10");
  const std::string restart = "restart --chip-image " + image;
  expectError("restart --chip-image /nowhere", 2,
              "/nowhere: cannot be opened (No such file or directory), expected a chip image");
  expectError(restart + " --chip internet", 2,
              image + ": chip \"small\": ipv4.tables: 9 in all, expected 23 of \"internet\"");
  const std::string text = directory.file("text.img", "10.0.0.0/8\n");
  expectError("restart --chip-image " + text, 2,
              text + ": is something else, expected a chip image, which begins with \"XDKSIMG\"");
  {
    const XdkSim::ChipImage held(image);
    expectError(restart, 2, image + ": is in use by another chip, expected one at a time");
  }
  std::string bytes = contentOf(image);
  bytes[200] ^= 1;
  const ProgramRun damaged =
      runProgram("restart --chip-image " + directory.file("damaged.img", bytes));
  EXPECT_EQ(damaged.exitCode, 2);
  EXPECT_THAT(damaged.err, ::testing::MatchesRegex("tarnlet: .*/damaged\\.img: header is damaged, "
                                                   "its checksum is 0x.*, expected 0x.*\n"));
  EXPECT_EQ(restarted("--chip " + profile).at("ipv4").at("recovered"), 30);
}

TEST_F(RestartCommand, wrongUseEndsWithOneLineAndCodeTwo) {
  expectError("restart", 2, "restart: no chip given, expected --chip-image FILE");
  expectError("restart --chip-image x --strict", 2,
              "--strict: there are no lines to be strict about, expected --rib FILE");
  expectError(
      "restart --chip-image x --nexthops 4", 2,
      "--nexthops: there are no routes to lead there, expected --rib FILE or --synthetic N4,N6");
  expectError("load --synthetic 1,1 --replace-image", 2,
              "--replace-image: there is no image to replace, expected --chip-image FILE");
  expectError("load --synthetic 1,1 --no-chip --chip-image x", 2,
              "--chip-image: nothing is written with --no-chip, expected one of the two");
  load("--synthetic 3,1");
  const std::string rib = directory.file("bad.txt", "bad\n");
  expectError("restart --chip-image " + image + " --strict --rib " + rib, 1,
              rib + ":1: \"bad\" is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32");
}

}  // namespace
}  // namespace Quarle::Cli
