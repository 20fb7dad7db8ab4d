#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "agent/Answer.h"
#include "agent/CommandConsumer.h"
#include "agent/NextHopGroups.h"
#include "agent/NhiRoom.h"
#include "agent/PrefixStore.h"
#include "agent/RefusedWishes.h"
#include "agent/Resync.h"
#include "agent/RouteKey.h"
#include "agent/TileWindow.h"
#include "agent/WriteFaults.h"
#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// How full one family's memories are, and what the engine did to get there.
struct FamilyStatistics {
  U64 routes = 0;
  // Rows of prefix tables. Each used row is one sub-trie.
  U64 rowsUsed = 0;
  U64 rowCapacity = 0;
  U64 nhiTiles = 0;
  U64 nhiBlocks = 0;
  U64 nhiEntriesUsed = 0;
  U64 nhiEntryCapacity = 0;
  // Sub-tries that needed no NHI block of their own since one with the same content stood: of the
  // users of each block all but the first.
  U64 nhiShared = 0;
  U64 shuffleAttempts = 0;
  U64 shuffleSuccesses = 0;
  // NHI blocks moved by compactions of a tile.
  U64 defragMoves = 0;
};

/// One change of a batch: where the route should lead, or, with the null group, that it should go.
struct RouteChange {
  RouteKey key;
  SwId group;
};

/// How a family takes over what its chip holds.
struct FamilyWarmStart {
  // What the walk reads through; null for the client's own manager.
  xpIpRouteLpmMgr* walkManager = nullptr;
  // Whether the commands of the start-up are dropped: it is known that they only rewrite what the
  // chip holds.
  bool dropsRewrites = false;
};

/// What a family took over, and what that cost.
struct FamilyRecovery {
  U64 rowsRead = 0;
  U64 routes = 0;
  // Prefixes that led nowhere; they are taken out.
  U64 routesWithoutGroup = 0;
  CommandCounts rewrites;
  // The most commands that stood in the queue at once.
  U32 longestQueue = 0;
  double walkSeconds = 0;
  double rewriteSeconds = 0;
};

struct FamilyOptions {
  // Longest prefix that may be requested, in address bits.
  U8 maxLength = 0;
  HeadroomOptions headroom;
  // Refused wishes that are tried again at one event at the most; see `FamilyClient`.
  U32 retriesPerEvent = 8;
  // Nothing: the chip is empty.
  std::optional<FamilyWarmStart> warmStart = {};
};

/// The routes of one address family: takes what a routing daemon wants, asks the engine for it and
/// tells what became of it. What an operation answers stands in the chip when it returns.
///
/// Requests are idempotent, and each replaces what was wished for the same route before. A wish
/// that is refused is kept and tried again by itself when what it lacks may have returned:
///
///   noRow                          after a withdrawal that emptied a row
///   rowFull, nhiCapacityExceeded   after any withdrawal
///   nhiTableFull, headroom         after any withdrawal, and after an update that left room
///   nextHopTableFull               after a group of either family has ended or shrunk
///   invalid                        never
///
/// Withdrawals that had to wait go first. One such event tries at most `retriesPerEvent` wishes, in
/// turn, and gives up once a quarter of them came to nothing: an event costs the same however many
/// wait, and nothing when none does. So on a full chip a wish may wait for many events although
/// there is room; `retryRefused` tries as many as its caller has time for.
///
/// Written by the owner of the `Client`, from one thread. Every operation raises `ChipWriteError`
/// when the SDK refused a write: after its work is done, with all answers told to the handler.
///
/// 1. The engine's `request` and what it has installed agree; a refused wish never stands there.
///    Only a route whose group the table moved while there was no NHI room, which the client does
///    not let happen, stands at the new place and on the list of refused.
/// 2. Each installed route and each refused wish for one holds its group once.
/// 3. The prefix objects of the configuration are those of the installed routes, so that the memory
///    of a withdrawn route returns.
/// 4. No request is made that could end the process for lack of NHI room.
///
/// Operations by source:
///   FamilyClient.cpp    lifetime, requests and what they answer, what may be read
///   FamilyRetries.cpp   retryRefused, retryGroups, which wishes an event tries again
///   FamilyGroups.cpp    routesOf, groupMoved
///   FamilyRestart.cpp   the warm start, resynchronisation
class FamilyClient {
 public:
  /// What both families and their `Client` share.
  struct Shared {
    NextHopGroups& groups;
    WriteFaults& faults;
    const AnswerHandler& answerHandler;
    // Called when next-hop rows have come free.
    std::function<void()> rowsCameFree;
  };

  /// A warm start takes over what the chip holds, and raises what the walk raises. Its routes hold
  /// no group until `NextHopGroups::recover` was told of `adoptedBlocks`, and nothing may be
  /// requested before.
  ///
  /// REQUIRES: `config` is filled by the configurator and passed `checkProfile` for the options'
  /// length; the things shared and `manager` outlive the object; for a warm start there is a
  /// manager.
  FamilyClient(const Tarnlet::ConfigV4::Ptr& config,
               const Shared& shared,
               xpIpRouteLpmMgr* manager,
               const FamilyOptions& options);
  FamilyClient(const Tarnlet::ConfigV6::Ptr& config,
               const Shared& shared,
               xpIpRouteLpmMgr* manager,
               const FamilyOptions& options);

  FamilyClient(const FamilyClient&) = delete;
  FamilyClient& operator=(const FamilyClient&) = delete;

  /// Adds the route or gives it another group.
  ///
  /// REQUIRES: `group` is held by the caller; `key.prefix` is of this family.
  Answer routeIs(const RouteKey& key, SwId group);

  /// The same with the shared group of these next hops, in the caller's own numbers.
  ///
  /// REQUIRES: `key.prefix` is of this family.
  Answer routeIs(const RouteKey& key, std::span<const U64> nextHops);

  /// Withdraws the route, and the wish for it. Refused for `headroom` alone: the route then stays
  /// in the chip until it can be taken out.
  ///
  /// REQUIRES: `key.prefix` is of this family.
  Answer routeDel(const RouteKey& key);

  /// Why a new route would be refused whatever the prefix tables hold; nothing when they decide.
  std::optional<RefusalReason> refusalAheadOfTables(const RouteKey& key) const;

  /// Makes the changes one after the other, as `routeIs` and `routeDel` would, and writes an answer
  /// for each unless `answers` is empty. Refused writes are raised after the last change.
  ///
  /// In a large table that is faster than the same changes one by one: what the next ones need is
  /// fetched while one is worked off (`LookAhead`). Some hundred changes are enough.
  ///
  /// REQUIRES: as for each of them; `answers` is empty or as long as `changes`.
  void batch(std::span<const RouteChange> changes, std::span<Answer> answers);

  /// Tries up to `most` refused wishes again, those that were refused longest ago first; the number
  /// of those served.
  U64 retryRefused(U64 most);

  /// The group that the route leads to in the chip; nothing when it is not installed.
  std::optional<SwId> groupOf(const RouteKey& key) const;

  U32 routes() const { return status_->prefixToNextHopBlocks(); }

  /// The wishes that stand refused now.
  const RefusedWishes& refused() const { return refused_; }

  /// Whether a colliding sub-trie may be moved to another table of its tread.
  void hashShufflingIs(bool enabled) { sm_->hashShufflingEnabledIs(enabled); }

  const CommandCounts& commands() const { return consumer_.counts(); }

  /// Counted anew over all rows and blocks.
  FamilyStatistics statistics() const;

  /// The engine, with all its NHI tiles on view.
  const Tarnlet::LpmSm& engine() const;

  /// The engine itself, for diagnosis: with all its NHI tiles on view, or, when the caller
  /// `changes` something, with the one that the next request may take from. What is changed there
  /// the client does not know of.
  Tarnlet::LpmSm::Ptr engineForDiagnosis(bool changes) const;

  /// What the warm start took over; all zero after a cold one.
  const FamilyRecovery& recovery() const { return recovery_; }

  /// Of the resynchronisation under way, or else of the last one.
  const ResyncCounts& resyncCounts() const { return resyncCounts_; }

  // ---- for `Client` ----

  /// Where the routes lead, each block once.
  std::vector<AdoptedBlock> adoptedBlocks() const;

  /// Every route and every wish that stands now is to be claimed again.
  void resyncBegin();

  struct ResyncStep {
    U64 withdrawn = 0;
    U64 left = 0;
  };

  /// Withdraws up to `most` of those that nobody claimed. Nothing happens once none is left.
  ResyncStep resyncEnd(U64 most);

  /// Whether there is NHI room for routes to follow their groups.
  bool canFollow() const { return room_.forGroupMove(); }

  /// Routes of each of the groups that are about to move, in the order of `moves`; those of one row
  /// of a prefix table stand together.
  std::vector<std::vector<Tarnlet::LpmPrefix::Ptr>> routesOf(
      std::span<const GroupMove> moves) const;

  /// Points `routes` at their group's new place.
  void groupMoved(std::span<const Tarnlet::LpmPrefix::Ptr> routes, const GroupMove& move);

  /// Tries wishes for groups without rows again.
  void retryGroups();

 private:
  /// What a request may have given back. Each includes what stands before it.
  enum class Room : U8 { none, nhi, leaf, row };

  struct Request {
    Answer answer;
    // As `RouteEvent::group`.
    SwId group;
    Room room = Room::none;
  };

  /// The family's restart helper over a status.
  using HelperMaker =
      std::function<Tarnlet::RestartHelperBase::Ptr(const Tarnlet::Status::Ptr& status)>;

  FamilyClient(PrefixStore prefixes,
               const Tarnlet::ConfigBase::Ptr& config,
               const HelperMaker& helper,
               const Shared& shared,
               xpIpRouteLpmMgr* manager,
               const FamilyOptions& options);

  Tarnlet::LpmSm::Ptr startEngine(const HelperMaker& helper, xpIpRouteLpmMgr* manager);
  void dropRoutesWithoutGroup();

  bool canBeServed(const RouteKey& key) const;
  Request want(const RouteKey& key, SwId group);
  Request insert(const RouteKey& key, const Tarnlet::LpmPrefix::Ptr& prefix, SwId group);
  Request update(const RouteKey& key, const Tarnlet::LpmPrefix::Ptr& prefix, SwId group);
  Request withdraw(const RouteKey& key);
  bool isBehind(const RouteKey& key,
                const Tarnlet::LpmPrefix::Ptr& prefix,
                const NextHopBlock& block) const;
  bool mayUpdate(const Tarnlet::LpmPrefix::Ptr& prefix) const;
  /// Points an installed route to other rows, which may stand in `request` already; whether the
  /// engine has done it.
  bool leadTo(const Tarnlet::LpmPrefix::Ptr& prefix, const NextHopBlock& block, bool isRequested);

  Request refuse(const RouteKey& key, SwId group, RefusalReason reason);
  /// Whether there was one.
  bool forgetRefusal(const RouteKey& key);

  /// Tells the answer and uses the room that the request gave back.
  Answer answer(const RouteKey& key, const Request& request);
  void tell(const RouteKey& key, SwId group, const Answer& answer, Cause cause) const;
  /// What follows a request whose answer is told.
  void settle(const Request& request);

  /// Takes the mark off a route that is about to be requested.
  void claim(const RouteKey& key) {
    if (resync_ != nullptr) [[unlikely]] {
      claimMarked(key);
    }
  }

  void claimMarked(const RouteKey& key);
  void useRoom(Room room);
  /// Tries the first wishes of these lines in turn: up to `most`, until `mostFruitless` have
  /// failed.
  U64 retry(std::span<const RefusedWishes::Line* const> lines, U64 most, U64 mostFruitless);
  /// The line whose turn it is; null when nobody waits in any.
  const RefusedWishes::Line* nextLine(std::span<const RefusedWishes::Line* const> lines);
  void retryAfterEvent(std::span<const RefusedWishes::Line* const> lines);
  /// True when it is served.
  bool retryOne(const RefusedWish& wish);

  PrefixStore prefixes_;
  Tarnlet::ConfigBase::Ptr config_;
  Tarnlet::Status::Ptr status_;
  Shared shared_;
  NextHopGroups& groups_;
  const FamilyOptions options_;
  CommandConsumer consumer_;
  FamilyRecovery recovery_;
  Tarnlet::LpmSm::Ptr sm_;
  mutable TileWindow window_;
  NhiRoom room_;
  RefusedWishes refused_;
  // Null outside of a resynchronisation.
  std::unique_ptr<Resync> resync_;
  ResyncCounts resyncCounts_;
  // Where the next retry begins among its lines.
  std::size_t turn_ = 0;
};

}  // namespace Quarle::Agent
