#pragma once

#include <filesystem>
#include <string>

#include "tests/cli/Program.h"

namespace Quarle::Bench::Testing {

using ScriptRun = Cli::Testing::ProgramRun;

/// Runs bench/NAME on this build with arguments and settings of its environment in the shell's
/// spelling.
inline ScriptRun runScript(const std::string& name,
                           const std::string& arguments,
                           const std::string& settings = "") {
  const std::filesystem::path build =
      std::filesystem::path(TARNLET_PROGRAM).parent_path().parent_path();
  return Cli::Testing::runCommand("BUILD=" + build.string() + " " + settings +
                                  " " TARNLET_SOURCE_DIR "/bench/" + name + " " + arguments);
}

}  // namespace Quarle::Bench::Testing
