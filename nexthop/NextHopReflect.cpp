// The face of the next-hop table's machine.

#include "framework/Vellor/Reflect.h"
#include "nexthop/TarnletNextHopSm.h"

namespace Quarle::TarnletNextHop {

namespace {

using Vellor::operation;

constexpr auto kLpmNextHopSm = Vellor::operations(
    operation<&LpmNextHopSm::handleRequest>("handleRequest", "swId"),
    operation<&LpmNextHopSm::insertEntry>("insertEntry", "swId", "nway"),
    operation<&LpmNextHopSm::deleteEntry>("deleteEntry", "swId"),
    operation<&LpmNextHopSm::updateEntry>("updateEntry", "swId", "nway"),
    operation<&LpmNextHopSm::processDefrag>("processDefrag", "defragCmds"),
    operation<&LpmNextHopSm::handleInitialized>("handleInitialized"),
    operation<&LpmNextHopSm::hasNotificationActiveIs>("hasNotificationActiveIs",
                                                      "hasNotificationActiveIs"),
    operation<&LpmNextHopSm::vellorDoZombieReactors>("vellorDoZombieReactors", "on"));

}  // namespace

VELLOR_REFLECTED_TYPE(LpmNextHopSm, "Quarle::TarnletNextHop::LpmNextHopSm", kLpmNextHopSm);

}  // namespace Quarle::TarnletNextHop
