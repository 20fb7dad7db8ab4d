// The road of `tarnlet load`: routes in, phases of requests, each followed by its verification.
// What the chip should hold is kept here, from the answers of the client alone, and never asked of
// the library.

#include "cli/LoadRun.h"

#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <limits>
#include <utility>

#include "agent/ChipContexts.h"
#include "agent/LookupCheck.h"
#include "agent/source/RouteOrder.h"
#include "cli/WantedGroups.h"
#include "xdksim/SimLpmMgr.h"

namespace Quarle::Cli {

namespace {

using Agent::Family;
using Agent::RouteEntry;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kNotPlaced = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kSampleStep = 64;
// Parts the draw of the half that is withdrawn from the one that orders the routes.
constexpr std::uint64_t kHalfSalt = 0x68616c66;

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

Agent::RibLoad readRoutes(const LoadOptions& options, Progress& progress) {
  if (options.synthetic) {
    progress.stepIs("making routes", 0);
    return {.table = Agent::makeSyntheticTable(*options.synthetic, options.seed), .report = {}};
  }
  progress.stepIs("reading routes", 0);
  std::uint64_t knownTotal = 0;
  Agent::RibLoad load =
      Agent::loadRibFile(options.rib, {.progress = [&](std::uint64_t read, std::uint64_t total) {
                           if (total != knownTotal) {
                             knownTotal = total;
                             progress.stepIs("reading routes", total);
                           }
                           progress.doneIs(read);
                         }});
  const Agent::RibReport& report = load.report;
  progress.clear();
  if (options.strict && report.badLines != 0) {
    throw LoadStopped(report.faults.front());
  }
  for (const std::string& fault : report.faults) {
    std::fprintf(stderr, "%s\n", fault.c_str());
  }
  if (report.badLines > report.faults.size()) {
    std::fprintf(stderr, "%s: %llu more bad lines\n", options.rib.c_str(),
                 static_cast<unsigned long long>(report.badLines - report.faults.size()));
  }
  return load;
}

/// One family's routes in the order in which they are requested, and what became of each.
struct Table {
  std::vector<RouteEntry> routes;
  // The group that each route wants now.
  std::vector<std::uint32_t> wanted;
  // The group that each route leads to by the client's answers, or `kNotPlaced`.
  std::vector<std::uint32_t> placed;
  // The random half that is withdrawn and announced again.
  std::vector<bool> inHalf;
};

class LoadRun {
 public:
  LoadRun(const LoadOptions& options, Progress& progress)
      : options_(options),
        progress_(progress),
        chip_(XdkSim::findProfile(options.chip)),
        manager4_(chip_, XdkSim::Family::ipv4),
        manager6_(chip_, XdkSim::Family::ipv6),
        input_(readRoutes(options, progress)),
        groups_(input_.table, options.nextHopGroups, options.seed),
        client_({.systemStatus = Agent::systemStatusOf(chip_),
                 .ipv4 = options.noChip ? nullptr : &manager4_,
                 .ipv6 = options.noChip ? nullptr : &manager6_},
                {.hashShuffling = options.shuffling}) {
    takeTable(Family::ipv4);
    takeTable(Family::ipv6);
  }

  LoadResult run();

  /// Why the chip refused its last write.
  const std::string& chipError() const { return chip_.lastError(); }

 private:
  void takeTable(Family family);
  void wantGroups(bool changed);
  void announce(Table& table, std::size_t i, Agent::FamilyClient& client) const;

  /// `requestOne(table, i, client)` makes the phase's request for one route of a table; false when
  /// the phase leaves that route alone.
  template <typename RequestOne>
  void runPhase(const std::string& name, const RequestOne& requestOne);
  template <typename RequestOne>
  FamilyResult load(const std::string& name, Family family, const RequestOne& requestOne);
  void verify(Family family, FamilyResult& result);
  std::uint64_t countWrongRows();

  Table& table(Family family) { return family == Family::ipv4 ? table4_ : table6_; }

  const LoadOptions& options_;
  Progress& progress_;
  XdkSim::Chip chip_;
  XdkSim::SimLpmMgr manager4_;
  XdkSim::SimLpmMgr manager6_;
  Agent::RibLoad input_;
  WantedGroups groups_;
  Agent::Client client_;
  std::vector<Agent::SwId> groupIds_;
  Table table4_;
  Table table6_;
  LoadResult result_;
};

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

void LoadRun::announce(Table& table, std::size_t i, Agent::FamilyClient& client) const {
  const std::uint32_t group = table.wanted[i];
  const Agent::Answer answer =
      client.routeIs({.vrf = 0, .prefix = table.routes[i].prefix}, groupIds_[group]);
  if (!answer.refused()) {
    table.placed[i] = group;
  }
}

LoadResult LoadRun::run() {
  for (const std::vector<std::uint64_t>& nextHops : groups_.groups()) {
    groupIds_.push_back(client_.groupIs(nextHops));
  }
  result_.chip = chip_.profile().name;
  result_.input = input_.report;
  wantGroups(false);
  const auto announceAll = [this](Table& table, std::size_t i, Agent::FamilyClient& client) {
    announce(table, i, client);
    return true;
  };
  runPhase("load", announceAll);
  if (options_.churn) {
    runPhase("withdraw-half", [](Table& table, std::size_t i, Agent::FamilyClient& client) {
      if (!table.inHalf[i]) {
        return false;
      }
      client.routeDel({.vrf = 0, .prefix = table.routes[i].prefix});
      table.placed[i] = kNotPlaced;
      return true;
    });
    runPhase("announce-again", [this](Table& table, std::size_t i, Agent::FamilyClient& client) {
      if (table.inHalf[i]) {
        announce(table, i, client);
      }
      return bool{table.inHalf[i]};
    });
    wantGroups(true);
    runPhase("change-next-hops", announceAll);
  }
  return std::move(result_);
}

template <typename RequestOne>
void LoadRun::runPhase(const std::string& name, const RequestOne& requestOne) {
  PhaseResult phase{.name = name, .ipv4 = {}, .ipv6 = {}, .nextHops = {}, .rowsWrong = 0};
  phase.ipv4 = load(name, Family::ipv4, requestOne);
  phase.ipv6 = load(name, Family::ipv6, requestOne);
  phase.nextHops = client_.groups().statistics();
  if (options_.verifyMode() != Verify::none) {
    verify(Family::ipv4, phase.ipv4);
    verify(Family::ipv6, phase.ipv6);
    phase.rowsWrong = countWrongRows();
  }
  result_.phases.push_back(std::move(phase));
}

template <typename RequestOne>
FamilyResult LoadRun::load(const std::string& name, Family family, const RequestOne& requestOne) {
  Table& routes = table(family);
  Agent::FamilyClient& client = client_.family(family);
  FamilyResult result;
  result.routes = routes.routes.size();
  progress_.stepIs(stepText(name, family), result.routes);
  const Agent::CommandCounts before = client.commands();
  const std::int64_t heapBefore = heapInUse();
  const Clock::time_point start = Clock::now();
  for (std::size_t i = 0; i < routes.routes.size(); ++i) {
    result.requests += requestOne(routes, i, client) ? 1 : 0;
    progress_.doneIs(i);
  }
  result.loadSeconds = secondsSince(start);
  result.heapGrowth = heapInUse() - heapBefore;
  result.commands = {.prefix = client.commands().prefix - before.prefix,
                     .nhi = client.commands().nhi - before.nhi};
  result.placed = client.routes();
  for (const auto& [key, refused] : client.refused()) {
    ++result.refused[refused.reason];
  }
  result.statistics = client.statistics();
  return result;
}

void LoadRun::verify(Family family, FamilyResult& result) {
  const Table& routes = table(family);
  progress_.stepIs(stepText("verifying", family), routes.routes.size());
  const Clock::time_point start = Clock::now();
  Agent::ReferenceTrie expected;
  for (std::size_t i = 0; i < routes.routes.size(); ++i) {
    if (routes.placed[i] != kNotPlaced) {
      expected.insert(routes.routes[i].prefix, routes.placed[i]);
    }
  }
  Agent::LookupCheck check(chip_, expected, [this](Agent::ReferenceTrie::Value group) {
    return client_.groups().block(groupIds_[group]);
  });
  const std::size_t step = options_.verifyMode() == Verify::all ? 1 : kSampleStep;
  for (std::size_t i = 0; i < routes.routes.size(); i += step) {
    check.checkPrefix(routes.routes[i].prefix);
    progress_.doneIs(i);
  }
  result.verifySeconds = secondsSince(start);
  result.lookups = check.lookups();
  result.lookupsWrong = check.wrong();
  result_.faults.insert(result_.faults.end(), check.faults().begin(), check.faults().end());
}

std::uint64_t LoadRun::countWrongRows() {
  std::uint64_t wrong = 0;
  const auto fault = [&](const std::string& text) {
    ++wrong;
    if (result_.faults.size() < Agent::LookupCheck::kFaultsKept) {
      result_.faults.push_back(text + "\n");
    }
  };
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const std::uint64_t used = client_.family(family).statistics().rowsUsed;
    const std::uint64_t held = chip_.rowsUsed(Agent::chipFamily(family));
    if (used != held) {
      fault(std::string(Agent::familyName(family)) + " prefix tables: " + std::to_string(held) +
            " rows are used in the chip, expected " + std::to_string(used));
    }
  }
  const Agent::NextHopGroups& groups = client_.groups();
  for (const Agent::SwId id : groupIds_) {
    if (groups.refusal(id)) {
      continue;
    }
    const std::span<const U64> nextHops = groups.nextHops(id);
    for (U32 way = 0; way < nextHops.size(); ++way) {
      const U32 row = groups.block(id).base().value() + way;
      xpNextHopEntry seen;
      const XP_STATUS status = chip_.readNextHopRow(row, seen);
      if (status != XP_NO_ERR || seen.valid != 1 || seen.nextHopId != nextHops[way]) {
        fault("next-hop row " + std::to_string(row) + ": next hop " +
              std::to_string(seen.nextHopId) + ", expected " + std::to_string(nextHops[way]));
      }
    }
  }
  return wrong;
}

}  // namespace

LoadResult runLoad(const LoadOptions& options, Progress& progress) {
  LoadRun run(options, progress);
  try {
    return run.run();
  } catch (const Agent::ChipWriteError& error) {
    throw LoadStopped(std::string(error.what()) + ": " + run.chipError());
  }
}

}  // namespace Quarle::Cli
