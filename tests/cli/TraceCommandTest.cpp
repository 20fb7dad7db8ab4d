// `tarnlet trace`, and the trace that a load leaves.

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "framework/Ferrix/Ferrix.h"
#include "tests/cli/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Cli {
namespace {

using nlohmann::json;
using Testing::contentOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using Testing::ProgramRun;
using Testing::runProgram;
using Testing::TemporaryDirectory;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

class TraceCommand : public ::testing::Test {
 protected:
  ~TraceCommand() override { Ferrix::traceFileDel(); }

  /// A trace of three messages.
  void writeSample() {
    Ferrix::traceFileIs(path);
    Ferrix::MsgDesc desc("model/Sample.cpp", 42);
    for (const char* text : {"one", "two\nlines\x01", "three\xc3"}) {
      Ferrix::write(desc, " text ", text);
    }
    Ferrix::traceFileDel();
  }

  TemporaryDirectory directory;
  std::string path = directory.path("trace");
};

TEST_F(TraceCommand, printsOneLineForEachMessage) {
  writeSample();
  const ProgramRun run = runProgram("trace " + path);
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  const std::vector<std::string> lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 3U) << run.out;
  EXPECT_THAT(lines[0],
              MatchesRegex("20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\."
                           "[0-9]{9}Z model/Sample.cpp:42:  text one"));
  EXPECT_THAT(lines[1], HasSubstr(" text two\\nlines\\x01"));
}

TEST_F(TraceCommand, printsOneObjectForEachMessage) {
  writeSample();
  const ProgramRun run = runProgram("trace --json " + path);
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.err, "");
  const std::vector<std::string> lines = linesOf(run.out);
  ASSERT_EQ(lines.size(), 3U) << run.out;
  const json message = json::parse(lines[1]);
  EXPECT_EQ(message.at("file"), "model/Sample.cpp");
  EXPECT_EQ(message.at("line"), 42);
  EXPECT_EQ(message.at("text"), " text two\nlines\x01");
  EXPECT_EQ(message.at("missed"), 0);
  EXPECT_THAT(message.at("time").get<std::string>(), MatchesRegex("20.*T.*Z"));
  EXPECT_EQ(json::parse(lines[2]).at("text"), " text three\xef\xbf\xbd");
}

TEST_F(TraceCommand, showsWhatALoadTraced) {
  const std::string load = " load --chip lab --json --rib " +
                           directory.file("rib.txt", "10.0.0.0/8\n10.1.0.0/16\n2001:db8::/32\n");
  const ProgramRun without = runProgram(load);
  ASSERT_EQ(without.exitCode, 0) << without.err;
  EXPECT_FALSE(std::filesystem::exists(path));
  ASSERT_EQ(setenv("TARNLET_TRACE_FILE", path.c_str(), 1), 0);
  const ProgramRun with = runProgram(load);
  const ProgramRun again = runProgram(load);
  ASSERT_EQ(unsetenv("TARNLET_TRACE_FILE"), 0);
  ASSERT_EQ(with.exitCode, 0) << with.err;
  ASSERT_EQ(again.exitCode, 0) << again.err;
  const ProgramRun run = runProgram("trace " + path);
  EXPECT_EQ(run.exitCode, 0) << run.err;
  const std::vector<std::string> lines = linesOf(run.out);
  std::size_t tables = 0;
  std::size_t families = 0;
  for (const std::string& line : lines) {
    tables += line.find(": Creating PrefixTableConfig, tableId: ") != std::string::npos ? 1 : 0;
    families += line.find(": Setting NHI table size: ") != std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(families, 4U) << "two families, two runs\n" << run.out;
  EXPECT_GT(tables, 4U) << run.out;
  EXPECT_THAT(lines.front(), HasSubstr(" config/TarnletConfigurator.cpp:"));
  EXPECT_THAT(lines.front(), HasSubstr(" tableType: prefixTable"));
}

TEST_F(TraceCommand, followsAFileThatIsWritten) {
  writeSample();
  const std::string out = directory.path("followed");
  const pid_t follower = fork();
  ASSERT_GE(follower, 0);
  if (follower == 0) {
    std::freopen(out.c_str(), "w", stdout);
    execl(TARNLET_PROGRAM, "tarnlet", "trace", "--follow", path.c_str(), nullptr);
    _exit(127);
  }
  const auto linesNow = [&] { return linesOf(contentOf(out)); };
  const auto awaitLines = [&](std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (linesNow().size() < count && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return linesNow().size();
  };
  EXPECT_EQ(awaitLines(3), 3U);
  Ferrix::traceFileIs(path);
  Ferrix::MsgDesc desc("model/Later.cpp", 7);
  Ferrix::write(desc, " later ", 1);
  EXPECT_EQ(awaitLines(4), 4U);
  EXPECT_THAT(linesNow().back(), HasSubstr(" model/Later.cpp:7:  later 1"));
  kill(follower, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(follower, &status, 0), follower);
  EXPECT_TRUE(WIFSIGNALED(status));
}

TEST_F(TraceCommand, whatCannotBeReadGetsOneLine) {
  const ProgramRun none = runProgram("trace " + path);
  EXPECT_EQ(none.exitCode, 2);
  EXPECT_EQ(none.err, "tarnlet: " + path + ": cannot be opened: No such file or directory\n");
  const ProgramRun other = runProgram("trace " + directory.file("other", std::string(5000, 'x')));
  EXPECT_EQ(other.exitCode, 2);
  EXPECT_EQ(other.err, "tarnlet: " + directory.path("other") +
                           ": no trace file, expected one that begins with \"FERRIX\"\n");
  const ProgramRun bare = runProgram("trace");
  EXPECT_EQ(bare.exitCode, 2);
  EXPECT_EQ(bare.err, "tarnlet: FILE is required\n");
}

TEST_F(TraceCommand, aLoadThatCannotTraceDoesNotBegin) {
  const std::string rib = directory.file("rib.txt", "10.0.0.0/8\n");
  ASSERT_EQ(setenv("TARNLET_TRACE_FILE", rib.c_str(), 1), 0);
  const ProgramRun run = runProgram("load --chip lab --rib " + rib);
  ASSERT_EQ(unsetenv("TARNLET_TRACE_FILE"), 0);
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err,
            "tarnlet: " + rib + ": 11 bytes long, expected a trace file of 4096 bytes or more\n");
}

TEST_F(TraceCommand, tellsWhatIsMissing) {
  writeSample();
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  // The third message gets the number that the sixth would have.
  file.seekp(4096 + (256 << 10) + 56 + 4);
  file.write("\x05\x00\x00\x00", 4);
  file.seekp(64);
  file.write("\x03\x00\x00\x00", 4);
  file.close();
  const ProgramRun run = runProgram("trace " + path);
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(linesOf(run.out).size(), 3U) << run.out;
  EXPECT_EQ(run.err,
            path + ": 3 missing here: overwritten before they were read, or never finished\n" +
                path + ": 3 left out: their descriptions found no room\n");
}

TEST_F(TraceCommand, messagesBeforeADamageArePrinted) {
  writeSample();
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(4096 + (256 << 10) + 24);
  file.write("\x01\x00\x00\x00", 4);
  file.close();
  const ProgramRun run = runProgram("trace " + path);
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_EQ(linesOf(run.out).size(), 1U) << run.out;
  EXPECT_EQ(run.err, "tarnlet: " + path +
                         ": damaged: the message at position 24 has size 1, expected 16 to 56\n");
}

}  // namespace
}  // namespace Quarle::Cli
