// The road of `tarnlet load`: routes in, phases of requests, each followed by its verification.
// What the chip should hold is kept here, from the answers of the client alone, and never asked of
// the library.

#include "cli/LoadRun.h"

#include <malloc.h>

#include "agent/ChipContexts.h"
#include "agent/HitlessCheck.h"
#include "agent/source/RouteOrder.h"
#include "cli/BatchedRequests.h"
#include "cli/ChipCheck.h"
#include "cli/GroupListFile.h"
#include "cli/RouteInput.h"
#include "cli/WantedGroups.h"
#include "xdksim/SimLpmMgr.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>

namespace Quarle::Cli {

namespace {

using Agent::Family;
using Agent::RouteEntry;
using Clock = std::chrono::steady_clock;

constexpr Agent::SwId kNotPlaced = {};
// Parts the draw of the half that is withdrawn from the one that orders the routes.
constexpr std::uint64_t kHalfSalt = 0x68616c66;
constexpr std::uint64_t kChangeSalt = 0x6368616e;
// Next hops of groups that changes make up.
constexpr std::uint64_t kFirstChangedNextHop = WantedGroups::kFirstSpare;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::int64_t heapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

std::string stepText(const std::string& what, Family family) {
  return what + " " + Agent::familyName(family);
}

XdkSim::Chip makeChip(const LoadOptions& options, const XdkSim::ChipProfile& profile) {
  if (options.chipImage.empty()) {
    return XdkSim::Chip(profile);
  }
  if (options.replaceImage) {
    return XdkSim::Chip(
        XdkSim::ChipImage(options.chipImage, profile, XdkSim::ExistingFile::replace));
  }
  if (std::filesystem::exists(options.chipImage)) {
    throw XdkSim::ImageError(options.chipImage +
                             ": exists, expected a new file or --replace-image");
  }
  return XdkSim::Chip(XdkSim::ChipImage(options.chipImage, profile));
}

Agent::ClientOptions clientOptions(const LoadOptions& options, const XdkSim::Chip& chip) {
  Agent::ClientOptions result{.hashShuffling = options.shuffling};
  if (!options.chipImage.empty()) {
    result.groupList = groupListOf(options.chipImage);
    result.chipName = chip.profile().name;
  }
  return result;
}

/// One family's routes in the order in which they are requested, and what became of each.
struct Table {
  std::vector<RouteEntry> routes;
  // The group that each route wants now, by its number in `groupIds_`.
  std::vector<std::uint32_t> wanted;
  // The group that each route leads to by the client's answers, or `kNotPlaced`.
  std::vector<Agent::SwId> placed;
  // The random half that is withdrawn and announced again.
  std::vector<bool> inHalf;
};

class LoadRun {
 public:
  LoadRun(const LoadOptions& options, Progress& progress)
      : options_(options),
        progress_(progress),
        profile_(XdkSim::findProfile(options.chip)),
        input_(readRoutes(options, progress)),
        chip_(makeChip(options, profile_)),
        manager4_(chip_, XdkSim::Family::ipv4),
        manager6_(chip_, XdkSim::Family::ipv6),
        groups_(input_.table, options),
        client_({.systemStatus = Agent::systemStatusOf(chip_),
                 .ipv4 = managerOf(Family::ipv4),
                 .ipv6 = managerOf(Family::ipv6)},
                clientOptions(options, chip_)),
        changes_(options.seed ^ kChangeSalt) {
    takeTable(Family::ipv4);
    takeTable(Family::ipv6);
    client_.answerHandlerIs([this](const Agent::RouteEvent& event) { noteLate(event); });
  }

  LoadResult run();

  /// Why the chip refused its last write.
  const std::string& chipError() const { return chip_.lastError(); }

 private:
  xpIpRouteLpmMgr* managerOf(Family family);
  void takeTable(Family family);
  void wantGroups(bool changed);
  Agent::RouteChange announcement(const Table& table, std::size_t i) const;
  static Agent::RouteChange withdrawal(const Table& table, std::size_t i);
  void request(Table& table,
               std::size_t i,
               const Agent::RouteChange& change,
               Agent::FamilyClient& client);
  static void takeAnswer(Table& table,
                         std::size_t i,
                         const Agent::RouteChange& change,
                         const Agent::Answer& answer);
  void noteLate(const Agent::RouteEvent& event);
  void takeLate(Table& table);
  void makeChanges();
  void change(Table& table, std::size_t i, Agent::FamilyClient& client);

  /// `changeOf(table, i)` is the phase's change to one route of a table, if there is one.
  template <typename ChangeOf>
  void runPhaseOf(const std::string& name, const ChangeOf& changeOf);
  template <typename ChangeOf>
  std::uint64_t requestEach(Table& table, Agent::FamilyClient& client, const ChangeOf& changeOf);

  /// `requestAll(table, client)` makes the phase's requests for a table and tells their number.
  template <typename RequestAll>
  void runPhase(const std::string& name, const RequestAll& requestAll);
  template <typename RequestAll>
  FamilyResult load(const std::string& name, Family family, const RequestAll& requestAll);
  void verify(Family family, FamilyResult& result);

  Table& table(Family family) { return family == Family::ipv4 ? table4_ : table6_; }

  const LoadOptions& options_;
  Progress& progress_;
  XdkSim::ChipProfile profile_;
  // Before the chip: a bad file must not cost an image.
  Agent::RibLoad input_;
  XdkSim::Chip chip_;
  XdkSim::SimLpmMgr manager4_;
  XdkSim::SimLpmMgr manager6_;
  std::optional<Agent::HitlessCheck> check_;
  WantedGroups groups_;
  Agent::Client client_;
  std::vector<Agent::SwId> groupIds_;
  Agent::Random changes_;
  std::uint64_t nextNextHop_ = kFirstChangedNextHop;
  // Where routes lead that were refused and served later in the same phase.
  std::unordered_map<Agent::RouteKey, Agent::SwId, Agent::RouteKeyHash> late_;
  Table table4_;
  Table table6_;
  LoadResult result_;
};

xpIpRouteLpmMgr* LoadRun::managerOf(Family family) {
  if (options_.noChip) {
    return nullptr;
  }
  if (!options_.everyCommand) {
    return family == Family::ipv4 ? &manager4_ : &manager6_;
  }
  if (!check_) {
    check_.emplace(chip_);
  }
  return &check_->manager(family);
}

void LoadRun::takeTable(Family family) {
  Table& taken = table(family);
  taken.routes = std::move(input_.table.routes(family));
  Agent::sortRoutes(taken.routes);
  if (options_.order == Order::shuffled) {
    Agent::shuffleRoutes(taken.routes, options_.seed);
  }
  const std::size_t count = taken.routes.size();
  taken.wanted.resize(count);
  taken.placed.assign(count, kNotPlaced);
  taken.inHalf.resize(count);
  Agent::Random random(options_.seed ^ kHalfSalt);
  for (std::size_t i = 0; i < count; ++i) {
    taken.inHalf[i] = random.below(2) == 0;
  }
}

void LoadRun::wantGroups(bool changed) {
  for (Table* each : {&table4_, &table6_}) {
    for (std::size_t i = 0; i < each->routes.size(); ++i) {
      each->wanted[i] = groups_.groupOf(each->routes[i], changed);
    }
  }
}

Agent::RouteChange LoadRun::announcement(const Table& table, std::size_t i) const {
  return {.key = {.vrf = 0, .prefix = table.routes[i].prefix}, .group = groupIds_[table.wanted[i]]};
}

Agent::RouteChange LoadRun::withdrawal(const Table& table, std::size_t i) {
  return {.key = {.vrf = 0, .prefix = table.routes[i].prefix}, .group = kNotPlaced};
}

void LoadRun::takeAnswer(Table& table,
                         std::size_t i,
                         const Agent::RouteChange& change,
                         const Agent::Answer& answer) {
  if (!answer.refused()) {
    table.placed[i] = change.group;
  }
}

void LoadRun::request(Table& table,
                      std::size_t i,
                      const Agent::RouteChange& change,
                      Agent::FamilyClient& client) {
  const auto& [key, group] = change;
  const bool withdraws = group == kNotPlaced;
  if (check_ && withdraws) {
    check_->withdrawalIs(key);
  } else if (check_) {
    check_->wishIs(key, client_.groups().nextHops(group));
  }
  const Agent::Answer answer = withdraws ? client.routeDel(key) : client.routeIs(key, group);
  takeAnswer(table, i, change, answer);
  if (check_) {
    // A refused wish stays: the client may try it again at any time.
    if (!answer.refused()) {
      check_->settled(key, /*asWished=*/true);
    }
    check_->requestEnds();
  }
}

/// Keeps what a retry has changed. An own request comes before the retries that its room allows, so
/// the last word on a route is its own answer unless it is in `late_`.
void LoadRun::noteLate(const Agent::RouteEvent& event) {
  if (event.cause == Agent::Cause::request) {
    if (!late_.empty() && !event.answer.refused()) {
      late_.erase(event.key);
    }
  } else if (event.cause == Agent::Cause::retry && !event.answer.refused()) {
    const bool gone = event.answer.outcome == Agent::Outcome::withdrawn;
    late_[event.key] = gone ? kNotPlaced : event.group;
    if (check_) {
      check_->settled(event.key, /*asWished=*/true);
    }
  }
}

void LoadRun::takeLate(Table& table) {
  for (std::size_t i = 0; i < table.routes.size() && !late_.empty(); ++i) {
    const auto place = late_.find({.vrf = 0, .prefix = table.routes[i].prefix});
    if (place != late_.end()) {
      table.placed[i] = place->second;
      late_.erase(place);
    }
  }
}

LoadResult LoadRun::run() {
  for (const std::vector<std::uint64_t>& nextHops : groups_.groups()) {
    groupIds_.push_back(client_.groupIs(nextHops));
  }
  result_.chip = chip_.profile().name;
  result_.input = input_.report;
  wantGroups(false);
  const auto announceAll = [this](const Table& table, std::size_t i) {
    return std::optional(announcement(table, i));
  };
  runPhaseOf("load", announceAll);
  if (options_.churn) {
    runPhaseOf("withdraw-half", [](const Table& table, std::size_t i) {
      return table.inHalf[i] ? std::optional(withdrawal(table, i)) : std::nullopt;
    });
    runPhaseOf("announce-again", [this](const Table& table, std::size_t i) {
      return table.inHalf[i] ? std::optional(announcement(table, i)) : std::nullopt;
    });
    wantGroups(true);
    runPhaseOf("change-next-hops", announceAll);
  }
  if (options_.changes != 0) {
    makeChanges();
  }
  if (check_) {
    result_.everyCommand = check_->counts();
    result_.faults.insert(result_.faults.begin(), check_->faults().begin(), check_->faults().end());
  }
  return std::move(result_);
}

void LoadRun::makeChanges() {
  const std::uint64_t all = table4_.routes.size() + table6_.routes.size();
  runPhase("changes", [&](Table& table, Agent::FamilyClient& client) {
    const std::uint64_t size = table.routes.size();
    if (size == 0) {
      return std::uint64_t{0};
    }
    const std::uint64_t share4 = options_.changes * table4_.routes.size() / all;
    const std::uint64_t share = &table == &table4_ ? share4 : options_.changes - share4;
    for (std::uint64_t done = 0; done < share; ++done) {
      change(table, changes_.below(static_cast<std::uint32_t>(size)), client);
      progress_.doneIs(done * size / share);
    }
    return share;
  });
}

void LoadRun::change(Table& table, std::size_t i, Agent::FamilyClient& client) {
  if (table.placed[i] != kNotPlaced && changes_.chance(400)) {
    request(table, i, withdrawal(table, i), client);
    return;
  }
  if (!changes_.chance(50)) {
    table.wanted[i] = changes_.below(static_cast<std::uint32_t>(groups_.groups().size()));
    request(table, i, announcement(table, i), client);
    return;
  }
  std::vector<std::uint64_t> nextHops(1 + changes_.below(8));
  for (std::uint64_t& nextHop : nextHops) {
    nextHop = ++nextNextHop_;
  }
  const Agent::SwId group = client_.groupIs(nextHops);
  table.wanted[i] = static_cast<std::uint32_t>(groupIds_.size());
  groupIds_.push_back(group);
  request(table, i, announcement(table, i), client);
  // The route holds it from here on.
  client_.groupDel(group);
}

template <typename ChangeOf>
void LoadRun::runPhaseOf(const std::string& name, const ChangeOf& changeOf) {
  runPhase(name, [&](Table& table, Agent::FamilyClient& client) {
    return requestEach(table, client, changeOf);
  });
}

template <typename ChangeOf>
std::uint64_t LoadRun::requestEach(Table& table,
                                   Agent::FamilyClient& client,
                                   const ChangeOf& changeOf) {
  std::uint64_t requests = 0;
  BatchedRequests batch(
      client, [&table](std::size_t i, const Agent::RouteChange& change,
                       const Agent::Answer& answer) { takeAnswer(table, i, change, answer); });
  for (std::size_t i = 0; i < table.routes.size(); ++i) {
    if (const std::optional<Agent::RouteChange> change = changeOf(table, i)) {
      ++requests;
      // The check goes with each request by itself.
      if (check_) {
        request(table, i, *change, client);
      } else {
        batch.add(*change, i);
      }
    }
    progress_.doneIs(i);
  }
  batch.flush();
  return requests;
}

template <typename RequestAll>
void LoadRun::runPhase(const std::string& name, const RequestAll& requestAll) {
  PhaseResult phase{.name = name, .ipv4 = {}, .ipv6 = {}, .nextHops = {}, .rowsWrong = 0};
  phase.ipv4 = load(name, Family::ipv4, requestAll);
  phase.ipv6 = load(name, Family::ipv6, requestAll);
  phase.nextHops = client_.groups().statistics();
  if (options_.verifyMode() != Verify::none) {
    verify(Family::ipv4, phase.ipv4);
    verify(Family::ipv6, phase.ipv6);
    // Groups made up by changes end with their routes.
    const RowCheck rows = checkRows(chip_, client_, /*strayRows=*/{},
                                    std::span(groupIds_).first(groups_.groups().size()));
    phase.rowsWrong = rows.wrong;
    result_.faults.insert(result_.faults.end(), rows.faults.begin(), rows.faults.end());
  }
  result_.phases.push_back(std::move(phase));
}

template <typename RequestAll>
FamilyResult LoadRun::load(const std::string& name, Family family, const RequestAll& requestAll) {
  Table& routes = table(family);
  Agent::FamilyClient& client = client_.family(family);
  FamilyResult result;
  result.routes = routes.routes.size();
  progress_.stepIs(stepText(name, family), result.routes);
  const Agent::CommandCounts before = client.commands();
  const std::int64_t heapBefore = heapInUse();
  const Clock::time_point start = Clock::now();
  result.requests = requestAll(routes, client);
  result.loadSeconds = secondsSince(start);
  result.heapGrowth = heapInUse() - heapBefore;
  result.commands = {.prefix = client.commands().prefix - before.prefix,
                     .nhi = client.commands().nhi - before.nhi};
  result.placed = client.routes();
  takeLate(routes);
  for (const Agent::RefusalReason reason : Agent::kRefusalReasons) {
    if (const std::uint64_t count = client.refused().count(reason)) {
      result.refused[reason] = count;
    }
  }
  result.statistics = client.statistics();
  return result;
}

void LoadRun::verify(Family family, FamilyResult& result) {
  const Table& routes = table(family);
  progress_.stepIs(stepText("verifying", family), routes.routes.size());
  const Clock::time_point start = Clock::now();
  RouteCheck check(chip_, client_);
  for (std::size_t i = 0; i < routes.routes.size(); ++i) {
    if (routes.placed[i] != kNotPlaced) {
      check.expect(routes.routes[i].prefix, routes.placed[i]);
    }
  }
  const std::size_t step = options_.verifyMode() == Verify::all ? 1 : RouteCheck::kSampleStep;
  for (std::size_t i = 0; i < routes.routes.size(); i += step) {
    check.lookUp(routes.routes[i].prefix);
    progress_.doneIs(i);
  }
  result.verifySeconds = secondsSince(start);
  result.lookups = check.lookups();
  result.lookupsWrong = check.wrong();
  result_.faults.insert(result_.faults.end(), check.faults().begin(), check.faults().end());
}

}  // namespace

LoadResult runLoad(const LoadOptions& options, Progress& progress) {
  LoadRun run(options, progress);
  try {
    return run.run();
  } catch (const Agent::ChipWriteError& error) {
    throw RunStopped(std::string(error.what()) + ": " + run.chipError());
  }
}

}  // namespace Quarle::Cli
