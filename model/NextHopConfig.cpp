#include "model/NextHopConfig.h"

namespace Quarle::TarnletNextHop {

ShuffleCmd::Ptr shuffleCmdFactory(SwId swId,
                                  const NextHopBlock& nextHopBlock,
                                  const NextHopBlock& prevNextHopBlock) {
  return new ShuffleCmd(swId, nextHopBlock, prevNextHopBlock);
}

Config::Ptr configFactory(const Vellor::Name& name) { return new Config(name); }

Status::Ptr statusFactory(const Vellor::Name& name) { return new Status(name); }

}  // namespace Quarle::TarnletNextHop
