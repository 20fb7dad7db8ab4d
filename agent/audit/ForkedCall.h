#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace Quarle::Agent {

/// What became of a call that may end its process.
struct ForkedCall {
  enum class End {
    // It came back.
    returned,
    // It raised an exception.
    raised,
    // It ended the process.
    died,
  };

  End end = End::returned;
  // Of an exception its text, and of a process that has ended the line on the condition that did
  // not hold, "Failed(condition)  context", or else the last line of what it wrote. In one line,
  // and empty for a call that came back.
  std::string words;
  // How the process has ended: "ended by signal 6, Aborted".
  std::string ending;
  // What was written to the standard error stream beside that, such as trace lines, as it was; of
  // very much the end.
  std::string told;

  bool returned() const { return end == End::returned; }

  /// Why it did not come back, in one line.
  std::string reason() const;
};

/// How the line on a condition that did not hold begins.
inline constexpr std::string_view kFailedCondition = "Failed(";

/// Makes the call in a child process, which ends with it: what it changes and what it prints to the
/// standard output are gone with the child, and it leaves no core file. Raises std::system_error
/// when there can be no child.
ForkedCall callForked(const std::function<void()>& call);

}  // namespace Quarle::Agent
