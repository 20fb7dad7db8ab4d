#pragma once

#include <string>
#include <vector>

#include "cli/shell/Session.h"

namespace Quarle::Cli {

/// What a chip has of something, and how much of it is in use.
struct Resource {
  std::string name;
  U64 size = 0;
  U64 occupied = 0;
  const char* unit = "";
  std::vector<Resource> parts;
};

/// The chip's memories: the families with their prefix tables and NHI tiles, and the next-hop
/// table. Counted from what the library holds.
std::vector<Resource> resourcesOf(const Session& session);

}  // namespace Quarle::Cli
