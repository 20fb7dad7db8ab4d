// The program: lines from a pipe, verbs by themselves, what is written and how it ends.

#include <fstream>
#include <iterator>

#include "tests/cli/Program.h"

#include <gmock/gmock.h>

namespace Quarle::Cli {
namespace {

using ::testing::HasSubstr;
using Testing::ProgramRun;
using Testing::runProgram;
using ::testing::StartsWith;

class ShellCommand : public ::testing::Test {
 protected:
  ShellCommand() {
    const std::string rib = directory.file("rib.txt",
                                           "10.0.0.0/8 192.0.2.1\n"
                                           "10.1.2.0/24 192.0.2.1 192.0.2.2\n"
                                           "2001:db8::/32 2001:db8::1\n");
    EXPECT_EQ(runProgram("load --chip lab --rib " + rib + " --chip-image " + image).exitCode, 0);
  }

  ProgramRun one(const std::string& words) { return runProgram(words + " --chip-image " + image); }

  ProgramRun pipe(const std::string& lines, const std::string& options = "") {
    return runProgram("shell --chip-image " + image + " " + options + " <" +
                      directory.file("lines", lines));
  }

  std::string content(const std::string& path) const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  Testing::TemporaryDirectory directory;
  const std::string image = directory.path("chip.img");
};

TEST_F(ShellCommand, aPipeHasNoPromptAndTellsBadLinesByNumber) {
  const ProgramRun run = pipe("get ipv4.engine.name\n\nget ipv4.engine.nam\nquit\nget ipv4\n");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.out, "'ipv4'\n");
  EXPECT_EQ(run.err,
            "line 3: get: ipv4.engine has no attribute \"nam\", expected one of 17 names of LpmSm, "
            "nearest \"name\"\n");
}

TEST_F(ShellCommand, aPipeThatGoesWellEndsWithZero) {
  const ProgramRun run = pipe("lookup 10.1.2.3\naudit all\n", "--json");
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, StartsWith("{\"address\":\"10.1.2.3\""));
  EXPECT_THAT(run.out, HasSubstr("\n{\"passed\":true,\"faults\":0"));
}

TEST_F(ShellCommand, verbsByThemselvesAnswerAsInTheShell) {
  EXPECT_THAT(one("show tables").out, StartsWith("family   table"));
  EXPECT_THAT(one("lookup 10.1.2.3").out, HasSubstr("all agree"));
  EXPECT_EQ(one("get 'ipv4.config.request[10.1.2.0/24].size'").out, "2\n");
  EXPECT_EQ(one("call ipv4.engine verifyLpmRoute '[vrf 0 10.1.2.0/24]'").out, "passed\n");
  EXPECT_EQ(one("audit 10.1.2.0/24").out, "10.1.2.0/24: all checks hold\n");
  EXPECT_THAT(one("why 10.1.2.0/24").out, HasSubstr("is installed"));
  EXPECT_EQ(one("call ipv4.engine printNhiTiles 1").out,
            "{'tileId':0,'freeEntries':16382,'entriesCapacity':16384,},");
}

TEST_F(ShellCommand, whatIsWrongWithAVerbIsOneLineAndCodeOne) {
  const ProgramRun run = one("get ipv4.engin");
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(run.err,
            "tarnlet: get: there is no \"ipv4.engin\", expected ipv4, ipv6 or nexthops with "
            ".config, .status or .engine, nearest \"ipv4.engine\"\n");
}

TEST_F(ShellCommand, theFilesStayAsTheyAreWithoutWrite) {
  const std::string before = content(image) + content(image + ".groups");
  pipe("show summary\nset ipv4.config.request[10.1.2.0/24] 0,1\nlookup 10.1.2.3\naudit all\n");
  EXPECT_TRUE(content(image) + content(image + ".groups") == before);
}

TEST_F(ShellCommand, withWriteAChangeReachesTheImage) {
  EXPECT_EQ(one("set 'ipv4.config.request[10.1.2.0/24]' 0,1 --write").exitCode, 0);
  EXPECT_EQ(one("get 'ipv4.config.request[10.1.2.0/24].size'").out, "1\n");
}

TEST_F(ShellCommand, aDamagedStateEndsWithTwo) {
  const ProgramRun run =
      pipe("set ipv4.engine.prefixToSubTrie[10.1.2.0/24].nhiBaseIdx 0,99\naudit 10.1.2.0/24\n");
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.out, StartsWith("10.1.2.0/24: Failed("));
}

TEST_F(ShellCommand, aLoadedChipNeedsNoImage) {
  const ProgramRun run =
      runProgram("shell --chip lab --synthetic 20,5 <" + directory.file("lines", "audit all\n"));
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_THAT(run.out, ::testing::EndsWith("all is right\n"));
}

TEST_F(ShellCommand, optionsThatDoNotGoTogetherAreTold) {
  const auto told = [](const std::string& arguments, const std::string& line) {
    const ProgramRun run = runProgram(arguments);
    EXPECT_EQ(run.exitCode, 2) << arguments;
    EXPECT_EQ(run.err, "tarnlet: " + line + "\n") << arguments;
    EXPECT_EQ(run.out, "") << arguments;
  };
  told("get ipv4.engine --jsn",
       "get: there is no option \"--jsn\", expected --chip-image FILE, --write, --json or --all, "
       "nearest \"--json\"");
  told("lookup 1.2.3.4", "lookup: no chip given, expected --chip-image FILE");
  told("shell", "shell: expected one of --chip-image FILE and --chip PROFILE");
  told("shell --chip lab --write",
       "--write: there is nothing to write to, expected --chip-image FILE");
  told("shell --chip-image " + image + " --synthetic 1,1",
       "--rib, --synthetic: not with --chip-image, expected --chip PROFILE");
}

}  // namespace
}  // namespace Quarle::Cli
