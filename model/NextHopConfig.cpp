#include "model/NextHopConfig.h"

namespace Quarle::TarnletNextHop {

VELLOR_FWK_TYPE(ShuffleCmd, "Quarle::TarnletNextHop::ShuffleCmd");
VELLOR_FWK_TYPE(Config, "Quarle::TarnletNextHop::Config");
VELLOR_FWK_TYPE(Status, "Quarle::TarnletNextHop::Status");

ShuffleCmd::Ptr shuffleCmdFactory(SwId swId,
                                  const NextHopBlock& nextHopBlock,
                                  const NextHopBlock& prevNextHopBlock) {
  return new ShuffleCmd(swId, nextHopBlock, prevNextHopBlock);
}

Config::Ptr configFactory(const Vellor::Name& name) { return new Config(name); }

Status::Ptr statusFactory(const Vellor::Name& name) { return new Status(name); }

}  // namespace Quarle::TarnletNextHop
