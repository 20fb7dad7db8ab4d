#pragma once

#include <array>

#include "agent/source/InternetShape.h"

namespace Quarle::Agent {

/// The tries beneath IPv4 blocks, /12 to /23, and beneath IPv6 blocks, /20 to /47.
extern const std::array<ShapeLevel, 12> kIpv4Levels;
extern const std::array<ShapeLevel, 28> kIpv6Levels;

}  // namespace Quarle::Agent
