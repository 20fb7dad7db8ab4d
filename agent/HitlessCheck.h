#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/ExpectedRoutes.h"
#include "agent/NhiUsers.h"
#include "agent/WatchedLpmMgr.h"
#include "framework/Xdk/Xdk.h"
#include "xdksim/Chip.h"

namespace Quarle::Agent {

/// The times during a compaction at which no order of writes can keep every look-up right.
enum class Window : U8 {
  /// A block of NHI entries slides by no more than its size: its new place covers a part of the old
  /// one, and a row that has not been rewritten yet reads what is new there.
  slidBlock,
  /// The row that the request changes was rewritten at the moved place of its old block, and others
  /// take their entries back before it gets its final block.
  changedRow,
  /// A group of next hops slides by less than its size: routes that still lead to the old place
  /// find some of the group's next hops one or more rows on.
  slidGroup,
};

inline constexpr std::array kWindows = {Window::slidBlock, Window::changedRow, Window::slidGroup};

/// "slidBlock"
const char* toText(Window window);

struct HitlessCounts {
  U64 prefixWrites = 0;
  U64 nhiWrites = 0;
  U64 nextHopWrites = 0;
  // Look-ups made after the writes and at the ends of requests.
  U64 lookups = 0;
  U64 wrong = 0;
  // Right ones that found some ways of a group as they were before its change and some as after.
  U64 mixed = 0;
  // Wrong look-ups that a window excuses.
  std::array<U64, kWindows.size()> excused{};

  U64 writes() const { return prefixWrites + nhiWrites + nextHopWrites; }

  U64 excusedBy(Window window) const { return excused[static_cast<std::size_t>(window)]; }

  U64 allExcused() const;
};

/// Watches every single write to a simulated chip and looks up, right after it, each route that the
/// write can have touched: the answer must be one that `ExpectedRoutes` allows. It knows the chip
/// and what was asked for, and nothing of the library.
///
/// Order of calls: give `manager` to the client; around each request `wishIs` and `settled`, then
/// `requestEnds`. Routes that a request changes on the side, such as wishes that are tried again,
/// must have their wish standing; a group that a request needs is made before its `wishIs`, since
/// that may bring what was wished for the same route before. Around a change of a group's next hops
/// `groupChangeIs` and `followed`, then `requestEnds`.
///
/// 1. What a write leaves as it was is not looked up again: the chip's answers follow from its
///    memories alone.
/// 2. A wrong look-up that may lie in a window is held back until the writes that follow show
///    whether it does. None is held back over the end of a request, and every address that was
///    excused is looked up once more there, without any excuse.
class HitlessCheck final : private WriteWatcher {
 public:
  /// Faults whose text is kept; all are counted.
  static constexpr std::size_t kFaultsKept = 10;

  /// The chip outlives the check and is written through `manager` alone.
  explicit HitlessCheck(XdkSim::Chip& chip);
  ~HitlessCheck();

  HitlessCheck(const HitlessCheck&) = delete;
  HitlessCheck& operator=(const HitlessCheck&) = delete;

  /// The SDK's manager whose writes are watched.
  xpIpRouteLpmMgr& manager(Family family);

  /// A request for the route begins: it may lead to `nextHops` from now on.
  void wishIs(const RouteKey& key, std::span<const U64> nextHops);

  /// A withdrawal begins.
  void withdrawalIs(const RouteKey& key);

  /// The request is answered: the route is as it was wished for, or as it was before. Not called
  /// for a wish that waits for better times.
  void settled(const RouteKey& key, bool asWished);

  /// A group is given other next hops: the routes that lead there may lead to either list from now
  /// on and, while rows are rewritten, find some ways of the one and some of the other: whichever
  /// way a packet takes, it goes where somebody wanted it.
  ///
  /// REQUIRES: `routes` are all that lead to the group, and each stands. Wishes for the group have
  /// become wishes for the new next hops, by `wishIs`.
  void groupChangeIs(std::span<const RouteKey> routes, std::span<const U64> nextHops);

  /// The change is answered: the route leads to the group's new next hops, or stayed with the old.
  void followed(const RouteKey& key, bool toNew);

  /// Nothing is under way any more: all that was touched must be right now.
  void requestEnds();

  const HitlessCounts& counts() const { return counts_; }

  /// The first faults in full: the command, the request, the address, what was expected and what
  /// each table of the chip had to say.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  struct Side;
  struct HeldBack;
  struct OpenRow;

  /// A write, by its place in the memory and in the order of all writes.
  struct Command {
    enum class Kind : U8 { prefixRow, nhiRow, nextHopRow, requestEnd };

    Kind kind = Kind::requestEnd;
    Family family = Family::ipv4;
    // Table or tile, then row.
    U32 memory = 0;
    U32 row = 0;
    U64 number = 0;

    std::string text() const;
  };

  using Addresses = std::vector<VrfAddress>;

  void prefixRowWritten(Family family,
                        U32 table,
                        U32 row,
                        const xpLpmPrefixEntry& before,
                        const xpLpmPrefixEntry& now) override;
  void nhiRowWritten(Family family,
                     U32 tile,
                     U32 row,
                     const xpLpmNhiEntry& before,
                     const xpLpmNhiEntry& now) override;
  void nextHopRowWritten(U32 row, const xpNextHopEntry& before, const xpNextHopEntry& now) override;

  void commandIs(const Command& command);
  void judgeOpenRow(Side& side,
                    const RowPlace& place,
                    const xpLpmPrefixEntry& before,
                    const xpLpmPrefixEntry& now);
  void noteSlide(Side& side,
                 const RowPlace& place,
                 const xpLpmPrefixEntry& before,
                 const xpLpmPrefixEntry& now);
  void addAddresses(const RouteKey& key);
  void addAddresses(Family family, const xpLpmPrefixEntry& row, U32 slot);
  /// Looks up what was gathered in `addresses_`, and empties it.
  void checkAddresses();
  void check(const VrfAddress& address);
  bool isExcused(const VrfAddress& address,
                 const XdkSim::LookupResult& seen,
                 const ExpectedRoutes::Answers& expected);
  bool leadsTo(const XdkSim::LookupResult& seen, ExpectedRoutes::NextHopsId list);
  bool isMixed(const XdkSim::LookupResult& seen, const ExpectedRoutes::Answers& expected) const;
  void wrongNow(const VrfAddress& address, const ExpectedRoutes::Answers& expected);
  void wrongAfterAll(const OpenRow& row, const std::string& why);
  std::string expectedText(const IpAddress& address, const ExpectedRoutes::Answers& expected) const;
  std::string listText(ExpectedRoutes::NextHopsId list) const;
  std::string requestText() const;

  Side& side(Family family) { return *sides_[family == Family::ipv4 ? 0 : 1]; }

  XdkSim::Chip& chip_;
  ExpectedRoutes expected_;
  std::array<std::unique_ptr<Side>, 2> sides_;
  HitlessCounts counts_;
  std::vector<std::string> faults_;
  Command command_;
  // Of the request under way, else of the last one: the route, or what a group is given.
  std::optional<RouteKey> request_;
  std::optional<ExpectedRoutes::NextHopsId> groupChange_;
  Addresses addresses_;
  // To be looked up once more when the request ends.
  Addresses excused_;
  std::vector<RouteKey> settled_;
  // Lists found in the rows of a run since the last write to the next-hop table.
  std::map<std::pair<U32, U32>, ExpectedRoutes::NextHopsId> knownRuns_;
};

}  // namespace Quarle::Agent
