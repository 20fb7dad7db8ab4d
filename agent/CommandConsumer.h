#pragma once

#include <stdexcept>
#include <string>

#include "agent/source/RouteEntry.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// The SDK refused a write: software and chip no longer agree. One line with the operation, the row
/// and the code.
class ChipWriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Raises `ChipWriteError` for a write to `place` that the SDK answered with `status`.
[[noreturn]] void throwChipWriteError(const std::string& place, XP_STATUS status);

constexpr const char* familyName(Family family) { return family == Family::ipv4 ? "IPv4" : "IPv6"; }

/// Whether the write went through: the two codes besides success tell of trouble on the way that
/// the chip has mended.
constexpr bool isWritten(XP_STATUS status) {
  return status == XP_NO_ERR || status == XP_ERR_BUS_RETRIED || status == XP_ERR_MEMORY_CORRECTED;
}

/// What a consumer carried out, by kind of command.
struct CommandCounts {
  U64 prefix = 0;
  U64 nhi = 0;

  bool operator==(const CommandCounts&) const = default;
};

/// Empties the command queue of one family into the chip, in queue order: the order is what keeps
/// forwarding intact while tables change, so nothing is ever skipped, merged or put off.
class CommandConsumer {
 public:
  /// Writes through `manager`; without one the commands are taken from the queue, counted and
  /// dropped, for running the library by itself. The manager outlives the consumer.
  CommandConsumer(Family family,
                  Tarnlet::Status::Ptr status,
                  Tarnlet::KeyType keyType,
                  xpIpRouteLpmMgr* manager);

  /// Carries out every command in the queue. Raises `ChipWriteError` when the SDK refuses one; that
  /// one is lost, and the next call goes on behind it.
  void drain();

  const CommandCounts& counts() const { return counts_; }

 private:
  void carryOut(const Tarnlet::CommandBase& command);
  void write(const Tarnlet::PrefixCommand& command);
  void write(const Tarnlet::NhiCommand& command);

  Family family_;
  Tarnlet::Status::Ptr status_;
  Tarnlet::KeyType keyType_;
  xpIpRouteLpmMgr* manager_;
  CommandCounts counts_;
  // Kept from command to command: the prefix record is large.
  xpLpmPrefixEntry prefixEntry_;
  xpLpmNhiEntry nhiEntry_;
};

}  // namespace Quarle::Agent
