#include "agent/Client.h"

#include <algorithm>

#include "config/TarnletConfigurator.h"

namespace Quarle::Agent {

namespace {

// The next-hop table hands out no longer runs.
constexpr U32 kLongestRun = 1024;

constexpr U32 largestOf(U32 bits) { return bits >= 32 ? ~U32{0} : (U32{1} << bits) - 1; }

FamilyOptions familyOptions(const ClientOptions& options, U8 maxLength) {
  return {.maxLength = maxLength,
          .headroom = options.headroom,
          .retriesPerEvent = options.retriesPerEvent};
}

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
      groups_(configs_.nextHops, configs_.groupLimits(), chip.ipv4, faults_, groupOwner()),
      ipv4_(configs_.ipv4, shared(), chip.ipv4, familyOptions(options, options.maxLengthV4)),
      ipv6_(configs_.ipv6, shared(), chip.ipv6, familyOptions(options, options.maxLengthV6)) {
  ipv4_.hashShufflingIs(options.hashShuffling);
  ipv6_.hashShufflingIs(options.hashShuffling);
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
