#pragma once

#include "agent/source/RouteEntry.h"
#include "framework/Sennet/SystemStatus.h"
#include "xdksim/Chip.h"

namespace Quarle::Agent {

/// What a driver reports of one simulated chip: a system of that chip alone with the table contexts
/// that the configurator reads. The chip outlives the result.
Sennet::SystemStatus::Ptr systemStatusOf(const XdkSim::Chip& chip);

/// The chip's word for a family.
constexpr XdkSim::Family chipFamily(Family family) {
  return family == Family::ipv4 ? XdkSim::Family::ipv4 : XdkSim::Family::ipv6;
}

}  // namespace Quarle::Agent
