#include "agent/CommandConsumer.h"

#include <string>
#include <utility>

#include "agent/CommandEncoding.h"

namespace Quarle::Agent {

namespace {

constexpr U32 kDevice = 0;

std::string in(Family family, const std::string& place) {
  return std::string(familyName(family)) + " " + place;
}

}  // namespace

void throwChipWriteError(const std::string& place, XP_STATUS status) {
  throw ChipWriteError(place + ": the SDK answered " + std::to_string(status) +
                       " to the write, expected " + std::to_string(XP_NO_ERR) + ", " +
                       std::to_string(XP_ERR_BUS_RETRIED) + " or " +
                       std::to_string(XP_ERR_MEMORY_CORRECTED));
}

CommandConsumer::CommandConsumer(Family family,
                                 Tarnlet::Status::Ptr status,
                                 Tarnlet::KeyType keyType,
                                 xpIpRouteLpmMgr* manager)
    : family_(family), status_(std::move(status)), keyType_(keyType), manager_(manager) {}

void CommandConsumer::drain() {
  while (const Tarnlet::CommandBase::Ptr command = status_->pendingCmdDeq()) {
    carryOut(*command);
  }
}

void CommandConsumer::carryOut(const Tarnlet::CommandBase& command) {
  switch (command.cmdType()) {
    case Tarnlet::commandTypePrefix:
      ++counts_.prefix;
      if (manager_ != nullptr) {
        write(static_cast<const Tarnlet::PrefixCommand&>(command));
      }
      return;
    case Tarnlet::commandTypeNhi:
      ++counts_.nhi;
      if (manager_ != nullptr) {
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
    throwChipWriteError(
        in(family_, "prefix table " + std::to_string(table) + " row " + std::to_string(row)),
        status);
  }
}

void CommandConsumer::write(const Tarnlet::NhiCommand& command) {
  encode(command, nhiEntry_);
  const U32 tile = command.index().tile().value();
  const U32 row = command.index().offset();
  const XP_STATUS status = manager_->writeNhiEntry(kDevice, tile, row, &nhiEntry_);
  if (!isWritten(status)) {
    throwChipWriteError(
        in(family_, "NHI tile " + std::to_string(tile) + " row " + std::to_string(row)), status);
  }
}

}  // namespace Quarle::Agent
