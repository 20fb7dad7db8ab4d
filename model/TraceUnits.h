#pragma once

#include "framework/Vellor/Trace.h"

namespace Quarle {

// The trace handles of the source units. `TarnletNextHop` serves the next-hop state machine too.
extern constinit const Vellor::TraceHandle tarnletConfiguratorTrace;
extern constinit const Vellor::TraceHandle tarnletTrace;
extern constinit const Vellor::TraceHandle tarnletSmTrace;
extern constinit const Vellor::TraceHandle tarnletNextHopTrace;

}  // namespace Quarle
