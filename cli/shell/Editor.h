#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quarle::Cli {

/// Reads lines from a terminal, with history and completion. One at a time: the line editor keeps
/// its state in the process.
class Editor {
 public:
  /// What may stand in place of the last word of a line.
  using Completions = std::function<std::vector<std::string>(const std::string& line)>;

  /// The history is kept in `~/.tarnlet_history`; nowhere without a home.
  explicit Editor(Completions completions);
  ~Editor();

  Editor(const Editor&) = delete;
  Editor& operator=(const Editor&) = delete;

  /// The next line; nothing at the end of input.
  std::optional<std::string> line();

 private:
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace Quarle::Cli
