#include "agent/Client.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>

#include "agent/restart/PreFlight.h"
#include "config/TarnletConfigurator.h"

namespace Quarle::Agent {

namespace {

// The next-hop table hands out no longer runs.
constexpr U32 kLongestRun = 1024;

constexpr U32 largestOf(U32 bits) { return bits >= 32 ? ~U32{0} : (U32{1} << bits) - 1; }

FamilyOptions familyOptions(const ClientOptions& options,
                            U8 maxLength,
                            const std::optional<FamilyWarmStart>& warmStart) {
  return {.maxLength = maxLength,
          .headroom = options.headroom,
          .retriesPerEvent = options.retriesPerEvent,
          .warmStart = warmStart};
}

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

std::size_t indexOf(Family family) { return static_cast<std::size_t>(family); }

}  // namespace

Client::Configs::Configs(const Sennet::SystemStatus::Ptr& systemStatus,
                         const ClientOptions& options)
    : ipv4(Tarnlet::configV4Factory("ipv4")),
      ipv6(Tarnlet::configV6Factory("ipv6")),
      nextHops(TarnletNextHop::configFactory("nextHops")) {
  const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
  tarnletConfiguratorFactory(systemStatus, ipv4, ipv6, nextHops, treads)->doConfig();
  ipv4->supportMultiNhiEntriesPerSubTrieIs(options.multiEntryRows);
  ipv6->supportMultiNhiEntriesPerSubTrieIs(options.multiEntryRows);
  checkProfile(*ipv4, options.maxLengthV4);
  checkProfile(*ipv6, options.maxLengthV6);
}

/// Both families name the same rows, so the narrower pair decides.
GroupLimits Client::Configs::groupLimits() const {
  const U32 sizeBits = std::min(ipv4->nhiBlockEcmpWidth(), ipv6->nhiBlockEcmpWidth());
  const U32 baseBits = std::min(ipv4->nhiBlockBaseWidth(), ipv6->nhiBlockBaseWidth());
  return {.maxWays = std::min(largestOf(sizeBits), kLongestRun), .maxBase = largestOf(baseBits)};
}

Client::Client(const ChipAccess& chip, const ClientOptions& options)
    : configs_(chip.systemStatus, options),
      starts_(starts(chip, options)),
      groups_(configs_.nextHops, configs_.groupLimits(), chip.ipv4, faults_, groupOwner()),
      ipv4_(configs_.ipv4,
            shared(),
            chip.ipv4,
            familyOptions(options, options.maxLengthV4, starts_[indexOf(Family::ipv4)].options)),
      ipv6_(configs_.ipv6,
            shared(),
            chip.ipv6,
            familyOptions(options, options.maxLengthV6, starts_[indexOf(Family::ipv6)].options)) {
  starts_ = {};
  ipv4_.hashShufflingIs(options.hashShuffling);
  ipv6_.hashShufflingIs(options.hashShuffling);
  if (options.warmStart) {
    recoverGroups(options);
  }
  if (!options.groupList.empty()) {
    groups_.listIs(std::make_unique<GroupList>(options.groupList, options.chipName, faults_));
  }
  try {
    faults_.raiseIfAny();
  } catch (const std::exception& fault) {
    // The chip goes on forwarding, and somebody has to look after it.
    if (!options.warmStart) {
      throw;
    }
    report_.faults.emplace_back(fault.what());
  }
}

std::array<Client::FamilyStart, 2> Client::starts(const ChipAccess& chip,
                                                  const ClientOptions& options) {
  std::array<FamilyStart, 2> result;
  if (!options.warmStart) {
    return result;
  }
  if (chip.ipv4 == nullptr || chip.ipv6 == nullptr) {
    throw std::invalid_argument("a warm start without a manager of each family, expected both");
  }
  const Clock::time_point begin = Clock::now();
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    xpIpRouteLpmMgr& manager = family == Family::ipv4 ? *chip.ipv4 : *chip.ipv6;
    const Tarnlet::ConfigBase& config =
        family == Family::ipv4 ? static_cast<const Tarnlet::ConfigBase&>(*configs_.ipv4)
                               : *configs_.ipv6;
    PreFlightReport& report = report_.preFlight[indexOf(family)];
    report = preFlight(family, config, manager,
                       {.keepBadRows = options.warmStart->keepBadRows,
                        .nextHopRows = configs_.nextHops->tableSize()});
    FamilyStart& start = result[indexOf(family)];
    start.walk = std::make_unique<WalkLpmMgr>(manager, report.keptRows);
    start.options = {.walkManager = start.walk.get(),
                     .dropsRewrites = report.rewritesOnly && !options.warmStart->writesRewrites};
  }
  report_.preFlightSeconds = secondsSince(begin);
  return result;
}

/// Each route gets its group back, wherever that is told.
void Client::recoverGroups(const ClientOptions& options) {
  const Clock::time_point begin = Clock::now();
  GroupList::Contents list;
  if (!options.groupList.empty()) {
    list = GroupList::read(options.groupList, options.chipName);
  }
  report_.groupListFault = list.fault;
  std::vector<AdoptedBlock> adopted = ipv4_.adoptedBlocks();
  const std::vector<AdoptedBlock> adopted6 = ipv6_.adoptedBlocks();
  adopted.insert(adopted.end(), adopted6.begin(), adopted6.end());
  report_.groups = groups_.recover(list.groups, adopted);
  report_.reclaimSeconds = secondsSince(begin);
}

std::vector<SwId> Client::adoptedOwnGroups() const {
  std::vector<SwId> own;
  for (const SwId group : groups_.adopted()) {
    if (groups_.kind(group) == GroupKind::own) {
      own.push_back(group);
    }
  }
  return own;
}

void Client::resyncBegin() {
  ipv4_.resyncBegin();
  ipv6_.resyncBegin();
}

U64 Client::resyncEnd(U64 most) {
  U64 left = 0;
  for (FamilyClient* family : {&ipv4_, &ipv6_}) {
    const auto [done, stillLeft] = family->resyncEnd(most);
    most -= done;
    left += stillLeft;
  }
  if (left == 0) {
    groups_.adoptedAreReleased();
  }
  settle();
  return left;
}

NextHopGroups::Owner Client::groupOwner() {
  return {.followMoves = [this](std::span<const GroupMove> moves) { moveGroups(moves); },
          .canFollow = [this] { return ipv4_.canFollow() && ipv6_.canFollow(); }};
}

FamilyClient::Shared Client::shared() {
  return {.groups = groups_,
          .faults = faults_,
          .answerHandler = answerHandler_,
          .rowsCameFree = [this] { retryGroups(); }};
}

SwId Client::groupIs(std::span<const U64> nextHops) {
  const SwId group = groups_.hold(nextHops);
  settle();
  return group;
}

SwId Client::ownGroupIs(std::span<const U64> nextHops) {
  const SwId group = groups_.make(nextHops);
  settle();
  return group;
}

Answer Client::groupNextHopsAre(SwId group, std::span<const U64> nextHops) {
  const std::span<const U64> present = groups_.nextHops(group);
  const bool same = !groups_.refusal(group) &&
                    std::equal(present.begin(), present.end(), nextHops.begin(), nextHops.end());
  const std::optional<RefusalReason> refusal = groups_.change(group, nextHops);
  if (!refusal && !same) {
    // Wishes for the group may wait for rows that it has now.
    retryGroups();
  }
  settle();
  if (refusal) {
    return {.outcome = Outcome::refused, .reason = *refusal};
  }
  return {.outcome = same ? Outcome::unchanged : Outcome::updated};
}

void Client::groupDel(SwId group) {
  groups_.release(group);
  settle();
}

void Client::retryGroups() {
  ipv4_.retryGroups();
  ipv6_.retryGroups();
}

void Client::settle() {
  if (groups_.takeRoom()) {
    retryGroups();
  }
  faults_.raiseIfAny();
}

void Client::moveGroups(std::span<const GroupMove> moves) {
  const auto routes4 = ipv4_.routesOf(moves);
  const auto routes6 = ipv6_.routesOf(moves);
  for (std::size_t i = 0; i < moves.size(); ++i) {
    groups_.rowsAreMoved(moves[i]);
    ipv4_.groupMoved(routes4[i], moves[i]);
    ipv6_.groupMoved(routes6[i], moves[i]);
    groups_.rowsAreLeft(moves[i]);
  }
}

}  // namespace Quarle::Agent
