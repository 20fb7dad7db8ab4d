#pragma once

#include <functional>
#include <string>

namespace Quarle::Cli {

/// What the call writes to a descriptor that it is given; one below 256. Raises std::system_error.
std::string writtenBy(const std::function<void(int descriptor)>& call);

}  // namespace Quarle::Cli
