#pragma once

#include <stdexcept>

namespace Quarle::Cli {

/// A command that cannot be carried out. One line: what, where, what was expected.
class ShellError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Quarle::Cli
