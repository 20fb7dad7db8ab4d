#include "model/TraceUnits.h"

namespace Quarle {

constinit const Vellor::TraceHandle tarnletConfiguratorTrace("TarnletConfigurator");
constinit const Vellor::TraceHandle tarnletTrace("Tarnlet");
constinit const Vellor::TraceHandle tarnletSmTrace("TarnletSm");
constinit const Vellor::TraceHandle tarnletNextHopTrace("TarnletNextHop");

}  // namespace Quarle
