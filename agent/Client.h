#pragma once

#include <array>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/FamilyClient.h"
#include "agent/NextHopGroups.h"
#include "agent/NhiRoom.h"
#include "agent/ProfileCheck.h"
#include "agent/WriteFaults.h"
#include "agent/restart/PreFlightReport.h"
#include "agent/restart/WalkLpmMgr.h"
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

/// How a client takes over the chip as the one before it has left it.
struct WarmStart {
  // Rows that cannot be taken over stay in the chip and go on answering, instead of being cleared.
  bool keepBadRows = false;
  // The library writes all rows once more. That is left out where pre-flight has found that nothing
  // would change.
  bool writesRewrites = false;
};

/// What a warm start has found and done.
struct RestartReport {
  // By `Family`.
  std::array<PreFlightReport, 2> preFlight;
  GroupRecovery groups;
  // Why the list of groups told nothing; empty when it did.
  std::string groupListFault;
  // Writes that the SDK or the file system refused on the way, a line each.
  std::vector<std::string> faults;
  double preFlightSeconds = 0;
  // Of groups and routes, once both families' machines stood.
  double reclaimSeconds = 0;
};

struct ClientOptions {
  // Whether a colliding row may be moved to another table.
  bool hashShuffling = true;
  // Whether a row's pairs may span several NHI entries.
  bool multiEntryRows = true;
  // The longest prefixes that will be requested, in address bits: longer ones are refused, and a
  // chip that cannot serve so long ones need not.
  U8 maxLengthV4 = 32;
  U8 maxLengthV6 = 128;
  // How much of each family's NHI memory is kept back from new routes.
  HeadroomOptions headroom = {};
  // Refused wishes of a family that are tried again when room has returned.
  U32 retriesPerEvent = 8;
  // Where the groups are kept for the next warm start, by the name of the chip; nowhere when empty.
  // See `GroupList`.
  std::filesystem::path groupList = {};
  std::string chipName = {};
  // Nothing: the chip is empty.
  std::optional<WarmStart> warmStart = {};
};

/// A client of the library for one chip: configures the library from the chip's table contexts,
/// builds its state machines and keeps routes and next-hop groups in step with them.
///
/// Order of calls: construct; `answerHandlerIs` if every answer is to be told; then, in any order,
/// `family(f).routeIs` and `routeDel`, with next hops spelled out or with a group from `groupIs` or
/// `ownGroupIs`, and `groupDel` for each of these. A group stays for as long as a route leads
/// there, whatever its holder does. All from one thread.
///
/// After a warm start the client has the routes and groups that the chip holds. A caller then tells
/// what it still wants: `resyncBegin`, every route once more by the ordinary calls, `resyncEnd`.
/// One that does not keeps what was there.
///
/// Every operation raises `ChipWriteError` when the SDK refused a write, after its work is done:
/// what the client knows is whole, and the chip lacks the row that the text names.
class Client {
 public:
  /// Raises `ProfileError` when the chip cannot serve every prefix up to the lengths of `options`;
  /// for a warm start `PreFlightError` and `BadRowError`, and std::invalid_argument without
  /// managers; for a cold one `GroupListError`. The managers outlive the client. A chip whose table
  /// contexts make no sense ends the process.
  explicit Client(const ChipAccess& chip, const ClientOptions& options = {});

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  FamilyClient& family(Family which) { return which == Family::ipv4 ? ipv4_ : ipv6_; }

  const FamilyClient& family(Family which) const { return which == Family::ipv4 ? ipv4_ : ipv6_; }

  /// Tells every answer from now on to `handler`; an empty one ends that.
  void answerHandlerIs(AnswerHandler handler) { answerHandler_ = std::move(handler); }

  /// The group of these next hops, in the caller's own numbers, held once more; it is shared with
  /// all who ask for the same list. A group that cannot be had is one too: routes that should lead
  /// there are refused.
  SwId groupIs(std::span<const U64> nextHops);

  /// A new group of these next hops for the caller alone, held once.
  SwId ownGroupIs(std::span<const U64> nextHops);

  /// Gives the group another list of next hops, for all who hold it, and every route that leads
  /// there follows; see `NextHopGroups`. `updated`, `unchanged`, or `refused` with nothing changed.
  /// Takes a walk over all routes when the number of next hops changes, else one write for each row
  /// that does.
  ///
  /// A route that finds no NHI room to follow stays with the old next hops, whose rows stay for it,
  /// and is on the list of refused until it can.
  ///
  /// REQUIRES: `group` is held by the caller.
  Answer groupNextHopsAre(SwId group, std::span<const U64> nextHops);

  /// Gives back one `groupIs` or `ownGroupIs`.
  void groupDel(SwId group);

  const NextHopGroups& groups() const { return groups_; }

  /// All zero after a cold start.
  const RestartReport& restartReport() const { return report_; }

  /// The groups of before the restart that belonged to their maker alone, until `resyncEnd`.
  std::vector<SwId> adoptedOwnGroups() const;

  /// Holds such a group once more.
  ///
  /// REQUIRES: `group` is one of `adoptedOwnGroups`.
  void ownGroupIs(SwId group) { groups_.hold(group); }

  /// From now on every route that stands, and every wish for one, waits to be claimed: by a request
  /// for it, whatever that asks.
  void resyncBegin();

  /// Withdraws up to `most` of the routes and wishes that nobody has claimed; how many are left.
  /// With none left the resynchronisation is over, and groups of before the restart that nobody
  /// holds end. Until then routes may still be claimed. A route that cannot be withdrawn for lack
  /// of room is on the list of refused.
  ///
  /// REQUIRES: `resyncBegin` came before, and no `resyncEnd` since then has left none.
  U64 resyncEnd(U64 most = std::numeric_limits<U64>::max());

  /// Tries up to `most` refused wishes of each family again; the number of those served.
  U64 retryRefused(U64 most) { return ipv4_.retryRefused(most) + ipv6_.retryRefused(most); }

 private:
  /// The configurations, filled and checked before anything is built over them.
  struct Configs {
    Configs(const Sennet::SystemStatus::Ptr& systemStatus, const ClientOptions& options);

    GroupLimits groupLimits() const;

    Tarnlet::ConfigV4::Ptr ipv4;
    Tarnlet::ConfigV6::Ptr ipv6;
    TarnletNextHop::Config::Ptr nextHops;
  };

  /// What a family's warm start needs, found before any machine is built.
  struct FamilyStart {
    std::unique_ptr<WalkLpmMgr> walk;
    std::optional<FamilyWarmStart> options;
  };

  /// Pre-flight of both families; nothing for a cold start.
  std::array<FamilyStart, 2> starts(const ChipAccess& chip, const ClientOptions& options);
  void recoverGroups(const ClientOptions& options);
  NextHopGroups::Owner groupOwner();
  FamilyClient::Shared shared();
  void moveGroups(std::span<const GroupMove> moves);
  void retryGroups();
  /// The end of an operation on groups.
  void settle();

  Configs configs_;
  RestartReport report_;
  std::array<FamilyStart, 2> starts_;
  WriteFaults faults_;
  AnswerHandler answerHandler_;
  NextHopGroups groups_;
  FamilyClient ipv4_;
  FamilyClient ipv6_;
};

}  // namespace Quarle::Agent
