#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/cli/Program.h"

namespace Quarle::Bench::Testing {

/// What a run of a script left.
struct ScriptRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

/// Runs bench/NAME on this build with arguments and settings of its environment in the shell's
/// spelling.
inline ScriptRun runScript(const std::string& name,
                           const std::string& arguments,
                           const std::string& settings = "") {
  const Cli::Testing::TemporaryDirectory directory;
  const std::string out = directory.path("out");
  const std::string err = directory.path("err");
  const std::filesystem::path build =
      std::filesystem::path(TARNLET_PROGRAM).parent_path().parent_path();
  const std::string command = "BUILD=" + build.string() + " " + settings +
                              " " TARNLET_SOURCE_DIR "/bench/" + name + " " + arguments + " >" +
                              out + " 2>" + err;
  const int status = std::system(command.c_str());
  const auto content = [](const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  };
  return {.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
          .out = content(out),
          .err = content(err)};
}

}  // namespace Quarle::Bench::Testing
