#pragma once

#include <span>

#include "agent/FamilyClient.h"
#include "agent/NextHopGroups.h"
#include "framework/Sennet/SystemStatus.h"
#include "framework/Xdk/Xdk.h"

namespace Quarle::Agent {

/// The chip as the client reaches it: the table contexts, and the SDK's manager of each family.
struct ChipAccess {
  Sennet::SystemStatus::Ptr systemStatus;
  // Both or neither. Without managers nothing is written: commands are made, counted and dropped.
  xpIpRouteLpmMgr* ipv4 = nullptr;
  xpIpRouteLpmMgr* ipv6 = nullptr;
};

struct ClientOptions {
  // Whether a colliding row may be moved to another table.
  bool hashShuffling = true;
  // Whether a row's pairs may span several NHI entries.
  bool multiEntryRows = true;
};

/// A client of the library for one chip: configures the library from the chip's table contexts,
/// builds its state machines and keeps routes and next-hop groups in step with them.
///
/// Order of calls: construct; `groupIs` for the groups of some routes; `family(f).routeIs` and
/// `routeDel`; `groupDel` for each `groupIs`. A group stays for as long as a route leads there,
/// whatever its holder does. All from one thread.
///
/// Routes of one family are best loaded in a run, then those of the other: the engine's rotation
/// over the NHI tiles is one for the whole process.
class Client {
 public:
  /// The managers outlive the client. A chip whose table contexts make no sense ends the process.
  explicit Client(const ChipAccess& chip, const ClientOptions& options = {});

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  FamilyClient& family(Family which) { return which == Family::ipv4 ? ipv4_ : ipv6_; }

  const FamilyClient& family(Family which) const { return which == Family::ipv4 ? ipv4_ : ipv6_; }

  /// The group of these next hops, in the caller's own numbers, held once more; see
  /// `NextHopGroups`.
  SwId groupIs(std::span<const U64> nextHops) { return groups_.hold(nextHops); }

  /// Gives back one `groupIs`.
  void groupDel(SwId group) { groups_.release(group); }

  const NextHopGroups& groups() const { return groups_; }

 private:
  /// The configurations, filled before anything is built over them.
  struct Configs {
    Configs(const Sennet::SystemStatus::Ptr& systemStatus, const ClientOptions& options);

    GroupLimits groupLimits() const;

    Tarnlet::ConfigV4::Ptr ipv4;
    Tarnlet::ConfigV6::Ptr ipv6;
    TarnletNextHop::Config::Ptr nextHops;
  };

  void moveGroups(std::span<const GroupMove> moves);

  Configs configs_;
  NextHopGroups groups_;
  FamilyClient ipv4_;
  FamilyClient ipv6_;
};

}  // namespace Quarle::Agent
