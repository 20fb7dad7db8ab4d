#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/NextHopBlock.h"

namespace Quarle::TarnletNextHop {

/// One relocation of a group's rows: what stood at `prevNextHopBlock` now belongs at
/// `nextHopBlock`.
class VELLOR_API ShuffleCmd : public Vellor::PtrInterface {
  VELLOR_OBJECT(ShuffleCmd, Vellor::PtrInterface);

 public:
  ShuffleCmd(SwId swId, const NextHopBlock& nextHopBlock, const NextHopBlock& prevNextHopBlock)
      : swId_(swId), nextHopBlock_(nextHopBlock), prevNextHopBlock_(prevNextHopBlock) {}

  VELLOR_CONST(swId, SwId, TarnletNextHop::SwId);
  VELLOR_CONST(nextHopBlock, NextHopBlock, TarnletNextHop::NextHopBlock);
  // Of the same size.
  VELLOR_CONST(prevNextHopBlock, PrevNextHopBlock, TarnletNextHop::NextHopBlock);

  VELLOR_OBJ_END;
};

VELLOR_API ShuffleCmd::Ptr shuffleCmdFactory(SwId swId,
                                             const NextHopBlock& nextHopBlock,
                                             const NextHopBlock& prevNextHopBlock);

/// Input entity of the next-hop table: its size and the wanted size of each group.
class VELLOR_API Config : public Vellor::Entity {
  VELLOR_ENTITY(Config, Vellor::Entity);

 public:
  explicit Config(Vellor::Name name) : Vellor::Entity(std::move(name)) {}

  // Rows. Set before the state machine is built.
  VELLOR_ATTR(tableSize, TableSize, U32, 0);
  // Ways of each group. Writer: the client.
  VELLOR_MAP(request, Request, SwId, Nway);

  VELLOR_END;
};

/// Output entity of the next-hop table. LpmNextHopSm writes it, the client reads and drains it.
class VELLOR_API Status : public Vellor::Entity {
  VELLOR_ENTITY(Status, Vellor::Entity);

 public:
  explicit Status(Vellor::Name name) : Vellor::Entity(std::move(name)) {}

  // The rows of each group that has some.
  VELLOR_MAP(swIdToNextHopBlock, SwIdToNextHopBlock, SwId, NextHopBlock);
  // Moves, oldest first.
  VELLOR_QUEUE(shuffleCmd, ShuffleCmd, TarnletNextHop::ShuffleCmd::Ptr);

  VELLOR_END;
};

VELLOR_API Config::Ptr configFactory(const Vellor::Name& name);
VELLOR_API Status::Ptr statusFactory(const Vellor::Name& name);

}  // namespace Quarle::TarnletNextHop
