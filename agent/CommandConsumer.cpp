#include "agent/CommandConsumer.h"

#include <algorithm>
#include <exception>
#include <string>

#include "agent/CommandEncoding.h"

namespace Quarle::Agent {

namespace {

constexpr U32 kDevice = 0;

}  // namespace

void CommandConsumer::Reactor::onPendingCmd(const U32& /*index*/) {
  if (consumer_ != nullptr && !consumer_->draining_) {
    consumer_->drain();
  }
}

CommandConsumer::CommandConsumer(Family family,
                                 const Tarnlet::Status::Ptr& status,
                                 Tarnlet::KeyType keyType,
                                 xpIpRouteLpmMgr* manager,
                                 WriteFaults& faults)
    : family_(family),
      status_(*status),
      keyType_(keyType),
      manager_(manager),
      faults_(faults),
      reactor_(new Reactor()) {
  reactor_->consumerIs(this);
  reactor_->notifierIs(status);
  reactor_->isRegisteredNotifieeIs(true);
  drain();
}

CommandConsumer::~CommandConsumer() {
  reactor_->isRegisteredNotifieeIs(false);
  reactor_->consumerIs(nullptr);
}

void CommandConsumer::drain() {
  draining_ = true;
  longestQueue_ = std::max(longestQueue_, status_.pendingCmds());
  while (const Tarnlet::CommandBase::Ptr command = status_.pendingCmdDeq()) {
    try {
      carryOut(*command);
    } catch (...) {
      // The notification would keep it to itself.
      faults_.note(std::current_exception());
    }
  }
  draining_ = false;
}

void CommandConsumer::carryOut(const Tarnlet::CommandBase& command) {
  switch (command.cmdType()) {
    case Tarnlet::commandTypePrefix:
      ++counts_.prefix;
      if (manager_ != nullptr && !isDropping_) {
        write(static_cast<const Tarnlet::PrefixCommand&>(command));
      }
      return;
    case Tarnlet::commandTypeNhi:
      ++counts_.nhi;
      if (manager_ != nullptr && !isDropping_) {
        write(static_cast<const Tarnlet::NhiCommand&>(command));
      }
      return;
  }
}

void CommandConsumer::write(const Tarnlet::PrefixCommand& command) {
  encode(command, keyType_, prefixEntry_);
  const U32 table = command.tableId().value();
  const U32 row = command.index().value();
  const XP_STATUS status = manager_->writePrefixEntry(kDevice, table, row, &prefixEntry_);
  if (!isWritten(status)) {
    noteRefused("prefix table " + std::to_string(table) + " row " + std::to_string(row), status);
  }
}

void CommandConsumer::write(const Tarnlet::NhiCommand& command) {
  encode(command, nhiEntry_);
  const U32 tile = command.index().tile().value();
  const U32 row = command.index().offset();
  const XP_STATUS status = manager_->writeNhiEntry(kDevice, tile, row, &nhiEntry_);
  if (!isWritten(status)) {
    noteRefused("NHI tile " + std::to_string(tile) + " row " + std::to_string(row), status);
  }
}

void CommandConsumer::noteRefused(const std::string& place, XP_STATUS status) {
  faults_.note(familyName(family_) + (" " + place), status);
}

}  // namespace Quarle::Agent
