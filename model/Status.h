#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Command.h"
#include "model/LpmPrefix.h"
#include "model/NextHopBlock.h"

namespace Quarle::Tarnlet {

/// Output entity of one address family. LpmSm writes it; the client drains the commands and reads
/// the routes.
class VELLOR_API Status : public Vellor::Entity {
  VELLOR_ENTITY(Status, Vellor::Entity);

 public:
  explicit Status(Vellor::Name name) : Vellor::Entity(std::move(name)) {}

  // The routes now in hardware.
  VELLOR_MAP(prefixToNextHopBlock, PrefixToNextHopBlock, LpmPrefix::Ptr, NextHopBlock);
  // Write commands in the order in which they must reach the hardware. LpmSm enqueues, the client
  // dequeues.
  VELLOR_QUEUE(pendingCmd, PendingCmd, CommandBase::Ptr);

  VELLOR_END;
};

VELLOR_API Status::Ptr statusFactory(const Vellor::Name& name);

}  // namespace Quarle::Tarnlet
