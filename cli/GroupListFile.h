#pragma once

#include <filesystem>

namespace Quarle::Cli {

/// Where the next-hop groups of the chip in this image are kept.
inline std::filesystem::path groupListOf(std::filesystem::path chipImage) {
  chipImage += ".groups";
  return chipImage;
}

}  // namespace Quarle::Cli
