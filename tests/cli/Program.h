#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Quarle::Cli::Testing {

/// A directory that goes with its object.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string form = (std::filesystem::temp_directory_path() / "tarnlet-XXXXXX").string();
    EXPECT_NE(mkdtemp(form.data()), nullptr);
    path_ = form;
  }

  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  /// Writes a file; its path.
  std::string file(const std::string& name, const std::string& content) const {
    const std::filesystem::path path = path_ / name;
    std::ofstream(path, std::ios::binary) << content;
    return path.string();
  }

  std::string path(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// What a run of the program left.
struct ProgramRun {
  int exitCode = -1;
  std::string out;
  std::string err;

  nlohmann::json json() const { return nlohmann::json::parse(out); }
};

inline std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

/// Runs a command in the shell's spelling, both streams into files.
inline ProgramRun runCommand(const std::string& command) {
  const TemporaryDirectory directory;
  const std::string out = directory.path("out");
  const std::string err = directory.path("err");
  const std::string whole = command + " >" + out + " 2>" + err;
  const int status = std::system(whole.c_str());
  return {.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1,
          .out = contentOf(out),
          .err = contentOf(err)};
}

/// Runs `tarnlet` with arguments in the shell's spelling.
inline ProgramRun runProgram(const std::string& arguments) {
  return runCommand(std::string(TARNLET_PROGRAM) + " " + arguments);
}

}  // namespace Quarle::Cli::Testing
