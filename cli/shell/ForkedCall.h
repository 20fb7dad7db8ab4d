#pragma once

#include <functional>
#include <string>

namespace Quarle::Cli {

/// What became of a call that may end its process.
struct ForkedCall {
  // Whether it came back.
  bool returned = false;
  // What it wrote to the standard error stream, without the last line end.
  std::string text;
};

/// Makes the call in a child process, which ends with it. What it changes is gone with the child.
/// Raises std::system_error when there can be no child.
ForkedCall callForked(const std::function<void()>& call);

/// What the call writes to a descriptor that it is given; one below 256. Raises std::system_error.
std::string writtenBy(const std::function<void(int descriptor)>& call);

}  // namespace Quarle::Cli
