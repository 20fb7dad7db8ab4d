// The road of `tarnlet restart`: an image in, the client's warm start, a comparison with the table,
// the resynchronisation, the verification. As with a load, what the chip should hold by the end
// comes from the answers of the client; without a table it is what the client says it has found.

#include "cli/RestartRun.h"

#include <sys/resource.h>

#include "agent/ChipContexts.h"
#include "agent/PrefixStore.h"
#include "agent/restart/RestartHelper.h"
#include "agent/restart/RowAccess.h"
#include "agent/source/RouteOrder.h"
#include "cli/BatchedRequests.h"
#include "cli/ChipCheck.h"
#include "cli/FileCopy.h"
#include "cli/GroupListFile.h"
#include "cli/RouteInput.h"
#include "cli/WantedGroups.h"
#include "xdksim/SimLpmMgr.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

namespace Quarle::Cli {

namespace {

using Agent::Family;
using Agent::RouteEntry;
using Agent::RouteKey;
using Agent::SwId;
using Clock = std::chrono::steady_clock;

constexpr std::array kFamilies = {Family::ipv4, Family::ipv6};

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::uint64_t peakMemory() {
  constexpr std::uint64_t kUnit = 1024;
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) * kUnit;
}

class RestartRun {
 public:
  RestartRun(const RestartOptions& options, Progress& progress)
      : options_(options), progress_(progress) {
    openChip();
  }

  RestartResult run();

 private:
  void openChip();
  void startClient();
  void report();
  void noteRoutes();
  void compare();
  void resync();
  void verify();
  void verify(Family family, FamilyRestart& result);

  void noteEvent(const Agent::RouteEvent& event);
  std::vector<U64> nextHopsOnChip(SwId group) const;
  /// Where the route should lead: what the table tells, or else what it has.
  SwId wantedGroup(const RouteEntry& route) const;

  std::vector<RouteEntry>& routes(Family family) { return input_.table.routes(family); }

  const RestartOptions& options_;
  Progress& progress_;
  std::unique_ptr<XdkSim::Chip> chip_;
  std::optional<XdkSim::SimLpmMgr> manager4_;
  std::optional<XdkSim::SimLpmMgr> manager6_;
  Agent::RibLoad input_;
  std::optional<WantedGroups> groups_;
  std::optional<FileCopy> listCopy_;
  std::optional<Agent::Client> client_;
  std::vector<SwId> groupIds_;
  // Where each route leads, by the client's answers.
  std::unordered_map<RouteKey, SwId, Agent::RouteKeyHash> placed_;
  RestartResult result_;
};

void RestartRun::openChip() {
  XdkSim::ChipImage image(options_.chipImage);
  if (!options_.chip.empty()) {
    image.requireShape(XdkSim::findProfile(options_.chip));
  }
  result_.finishedWrite = image.finishedWrite();
  if (options_.dryRun) {
    chip_ = std::make_unique<XdkSim::Chip>(image.profile());
    std::ranges::copy(image.words(), chip_->memory().words().begin());
    chip_->memoryChanged();
  } else {
    chip_ = std::make_unique<XdkSim::Chip>(std::move(image));
  }
  manager4_.emplace(*chip_, XdkSim::Family::ipv4);
  manager6_.emplace(*chip_, XdkSim::Family::ipv6);
  result_.chip = chip_->profile().name;
}

void RestartRun::startClient() {
  const std::filesystem::path list = groupListOf(options_.chipImage);
  if (options_.dryRun) {
    listCopy_.emplace(list);
  }
  progress_.stepIs("taking over", 0);
  client_.emplace(
      Agent::ChipAccess{
          .systemStatus = Agent::systemStatusOf(*chip_), .ipv4 = &*manager4_, .ipv6 = &*manager6_},
      Agent::ClientOptions{.hashShuffling = options_.shuffling,
                           .groupList = listCopy_ ? listCopy_->path() : list,
                           .chipName = result_.chip,
                           .warmStart = Agent::WarmStart{.keepBadRows = options_.keepBadRows}});
  client_->answerHandlerIs([this](const Agent::RouteEvent& event) { noteEvent(event); });
}

RestartResult RestartRun::run() {
  input_ = readRoutes(options_, progress_);
  result_.input = input_.report;
  startClient();
  report();
  noteRoutes();
  if (options_.hasSource()) {
    groups_.emplace(input_.table, options_);
    compare();
    resync();
  }
  result_.nextHops = client_->groups().statistics();
  for (const Family family : kFamilies) {
    const Agent::FamilyClient& client = client_->family(family);
    FamilyRestart& result = result_.family(family);
    result.resync = client.resyncCounts();
    result.routes = client.routes();
    result.statistics = client.statistics();
    result.commands = {.prefix = client.commands().prefix - result.recovery.rewrites.prefix,
                       .nhi = client.commands().nhi - result.recovery.rewrites.nhi};
    for (const Agent::RefusalReason reason : Agent::kRefusalReasons) {
      if (const std::uint64_t count = client.refused().count(reason)) {
        result.refused[reason] = count;
      }
    }
  }
  if (options_.verifyMode() != Verify::none) {
    verify();
  }
  result_.peakMemory = peakMemory();
  return std::move(result_);
}

void RestartRun::report() {
  const Agent::RestartReport& report = client_->restartReport();
  for (const Family family : kFamilies) {
    result_.family(family).preFlight = report.preFlight[static_cast<std::size_t>(family)];
    result_.family(family).recovery = client_->family(family).recovery();
  }
  result_.groups = report.groups;
  result_.groupListFault = report.groupListFault;
  if (listCopy_) {
    listCopy_->nameOriginal(result_.groupListFault);
  }
  result_.refusedWrites = report.faults;
  result_.preFlightSeconds = report.preFlightSeconds;
  result_.reclaimSeconds = report.reclaimSeconds;
}

void RestartRun::noteRoutes() {
  for (const Family family : kFamilies) {
    const Agent::FamilyClient& client = client_->family(family);
    for (const auto& request : client.engine().config()->requestCollection()) {
      const RouteKey key = Agent::routeKeyOf(family, *request.key);
      if (const std::optional<SwId> group = client.groupOf(key)) {
        placed_.emplace(key, *group);
      }
    }
  }
}

/// The client's answers are taken one by one: a request's own, a retry's, a withdrawal's.
void RestartRun::noteEvent(const Agent::RouteEvent& event) {
  switch (event.answer.outcome) {
    case Agent::Outcome::placed:
    case Agent::Outcome::updated:
      placed_[event.key] = event.group;
      return;
    case Agent::Outcome::withdrawn:
      // Perhaps of a wish alone, for a route that then never stood.
      placed_.erase(event.key);
      return;
    case Agent::Outcome::unchanged:
    case Agent::Outcome::absent:
    case Agent::Outcome::refused:
      return;
  }
}

/// The rows themselves tell it even where the list of groups does not.
std::vector<U64> RestartRun::nextHopsOnChip(SwId group) const {
  const Agent::NextHopBlock block = client_->groups().block(group);
  std::vector<U64> nextHops;
  for (U32 row = Agent::firstRow(block); row < Agent::endRow(block); ++row) {
    xpNextHopEntry entry;
    if (chip_->readNextHopRow(row, entry) != XP_NO_ERR || entry.valid == 0) {
      return {};
    }
    nextHops.push_back(entry.nextHopId);
  }
  return nextHops;
}

void RestartRun::compare() {
  std::unordered_map<U64, std::vector<U64>> onChip;
  for (const Family family : kFamilies) {
    Differing differing;
    std::uint64_t found = 0;
    for (const RouteEntry& route : routes(family)) {
      const auto place = placed_.find({.vrf = 0, .prefix = route.prefix});
      if (place == placed_.end()) {
        ++differing.missing;
        continue;
      }
      ++found;
      const SwId group = place->second;
      const auto [hops, isNew] = onChip.try_emplace(group.value());
      if (isNew) {
        hops->second = nextHopsOnChip(group);
      }
      if (groups_->isTold(route) &&
          hops->second != groups_->groups()[groups_->groupOf(route, /*changed=*/false)]) {
        ++differing.nextHops;
      }
    }
    FamilyRestart& result = result_.family(family);
    differing.surplus = result.recovery.routes - found;
    result.differing = differing;
  }
}

SwId RestartRun::wantedGroup(const RouteEntry& route) const {
  if (!groups_->isTold(route)) {
    const auto place = placed_.find({.vrf = 0, .prefix = route.prefix});
    if (place != placed_.end()) {
      return place->second;
    }
  }
  return groupIds_[groups_->groupOf(route, /*changed=*/false)];
}

void RestartRun::resync() {
  client_->resyncBegin();
  for (const std::vector<U64>& nextHops : groups_->groups()) {
    groupIds_.push_back(client_->groupIs(nextHops));
  }
  for (const Family family : kFamilies) {
    Agent::FamilyClient& client = client_->family(family);
    Agent::sortRoutes(routes(family));
    progress_.stepIs(std::string("requesting ") + Agent::familyName(family), routes(family).size());
    const Clock::time_point start = Clock::now();
    BatchedRequests batch(client);
    std::uint64_t done = 0;
    for (const RouteEntry& route : routes(family)) {
      batch.add({.key = {.vrf = 0, .prefix = route.prefix}, .group = wantedGroup(route)}, done);
      progress_.doneIs(++done);
    }
    batch.flush();
    result_.family(family).resyncSeconds = secondsSince(start);
  }
  progress_.stepIs("withdrawing", 0);
  const Clock::time_point start = Clock::now();
  client_->resyncEnd();
  result_.withdrawalSeconds = secondsSince(start);
}

void RestartRun::verify() {
  std::set<SwId> inUse(groupIds_.begin(), groupIds_.end());
  for (const auto& [key, group] : placed_) {
    inUse.insert(group);
  }
  const std::vector<SwId> groups(inUse.begin(), inUse.end());
  const RowCheck rows = checkRows(
      *chip_, *client_,
      {result_.ipv4.preFlight.keptRows.size(), result_.ipv6.preFlight.keptRows.size()}, groups);
  result_.rowsWrong = rows.wrong;
  result_.faults.insert(result_.faults.end(), rows.faults.begin(), rows.faults.end());
  for (const Family family : kFamilies) {
    verify(family, result_.family(family));
  }
}

void RestartRun::verify(Family family, FamilyRestart& result) {
  progress_.stepIs(std::string("verifying ") + Agent::familyName(family), result.routes);
  const Clock::time_point start = Clock::now();
  std::map<std::uint16_t, RouteCheck> checks;
  const auto checkOf = [&](U32 vrf) -> RouteCheck& {
    const auto number = static_cast<std::uint16_t>(vrf);
    return checks.try_emplace(number, *chip_, *client_, number).first->second;
  };
  // Those that were refused too.
  for (const RouteEntry& route : routes(family)) {
    placed_.try_emplace({.vrf = 0, .prefix = route.prefix});
  }
  // Neighbours share rows: one after the other they are in the processor's caches.
  std::vector<std::pair<RouteKey, SwId>> sorted;
  for (const auto& place : placed_) {
    if (place.first.prefix.family == family) {
      sorted.emplace_back(place);
    }
  }
  std::sort(sorted.begin(), sorted.end());
  for (const auto& [key, group] : sorted) {
    if (group != SwId()) {
      checkOf(key.vrf).expect(key.prefix, group);
    }
  }
  const std::size_t step = options_.verifyMode() == Verify::all ? 1 : RouteCheck::kSampleStep;
  for (std::size_t i = 0; i < sorted.size(); i += step) {
    checkOf(sorted[i].first.vrf).lookUp(sorted[i].first.prefix);
    progress_.doneIs(i);
  }
  for (const auto& [vrf, check] : checks) {
    result.lookups += check.lookups();
    result.lookupsWrong += check.wrong();
    result_.faults.insert(result_.faults.end(), check.faults().begin(), check.faults().end());
  }
  result.verifySeconds = secondsSince(start);
}

}  // namespace

RestartResult runRestart(const RestartOptions& options, Progress& progress) {
  RestartRun run(options, progress);
  try {
    return run.run();
  } catch (const Agent::ChipWriteError& error) {
    throw RunStopped(error.what());
  } catch (const Agent::PreFlightError& error) {
    throw RunStopped(error.what());
  } catch (const Agent::BadRowError& error) {
    throw RunStopped(error.what());
  }
}

}  // namespace Quarle::Cli
