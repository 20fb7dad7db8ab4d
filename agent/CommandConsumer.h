#pragma once

#include <string>

#include "agent/WriteFaults.h"
#include "agent/source/RouteEntry.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

constexpr const char* familyName(Family family) { return family == Family::ipv4 ? "IPv4" : "IPv6"; }

/// What a consumer carried out, by kind of command.
struct CommandCounts {
  U64 prefix = 0;
  U64 nhi = 0;

  bool operator==(const CommandCounts&) const = default;
};

/// Carries each command of one family out into the chip as it is queued, in queue order: the order
/// is what keeps forwarding intact while tables change, so nothing is ever skipped, merged or put
/// off. A compaction queues a hundred thousand commands in one request; the queue stays empty all
/// the same.
///
/// A write that the SDK refuses is noted, and the next ones are carried out: the library takes them
/// all for written, so that each one left out would leave one more row wrong.
///
/// To be made before the engine, whose restart queues commands too.
class CommandConsumer {
 public:
  /// Takes the queue over and carries out what stands in it. Writes through `manager`; without one
  /// the commands are counted and dropped, for running the library by itself. The manager and
  /// `faults` outlive the consumer.
  CommandConsumer(Family family,
                  const Tarnlet::Status::Ptr& status,
                  Tarnlet::KeyType keyType,
                  xpIpRouteLpmMgr* manager,
                  WriteFaults& faults);
  ~CommandConsumer();

  CommandConsumer(const CommandConsumer&) = delete;
  CommandConsumer& operator=(const CommandConsumer&) = delete;

  const CommandCounts& counts() const { return counts_; }

  /// From now on commands are counted and not written, or written again. For commands that are
  /// known to say what the chip holds already, and for nothing else.
  void isDroppingIs(bool isDropping) { isDropping_ = isDropping; }

  /// The most commands that have stood in the queue at once.
  U32 longestQueue() const { return longestQueue_; }

 private:
  /// Its way back to the consumer is uncounted and cut when the consumer ends.
  class Reactor final : public Tarnlet::Status::Notifiee {
    VELLOR_POINTERS(Reactor);

   public:
    void consumerIs(CommandConsumer* consumer) { consumer_ = consumer; }

    void onPendingCmd(const U32& index) override;

   private:
    CommandConsumer* consumer_ = nullptr;
  };

  void drain();
  void carryOut(const Tarnlet::CommandBase& command);
  void write(const Tarnlet::PrefixCommand& command);
  void write(const Tarnlet::NhiCommand& command);
  void noteRefused(const std::string& place, XP_STATUS status);

  const Family family_;
  Tarnlet::Status& status_;
  const Tarnlet::KeyType keyType_;
  xpIpRouteLpmMgr* manager_;
  WriteFaults& faults_;
  CommandCounts counts_;
  U32 longestQueue_ = 0;
  bool isDropping_ = false;
  // Taking a command out notifies as well.
  bool draining_ = false;
  // Kept from command to command: the prefix record is large.
  xpLpmPrefixEntry prefixEntry_;
  xpLpmNhiEntry nhiEntry_;
  Reactor::Ptr reactor_;
};

}  // namespace Quarle::Agent
