#include "agent/Client.h"

#include <algorithm>

#include "config/TarnletConfigurator.h"

namespace Quarle::Agent {

namespace {

// The next-hop table hands out no longer runs.
constexpr U32 kLongestRun = 1024;

constexpr U32 largestOf(U32 bits) { return bits >= 32 ? ~U32{0} : (U32{1} << bits) - 1; }

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
}

/// Both families name the same rows, so the narrower pair decides.
GroupLimits Client::Configs::groupLimits() const {
  const U32 sizeBits = std::min(ipv4->nhiBlockEcmpWidth(), ipv6->nhiBlockEcmpWidth());
  const U32 baseBits = std::min(ipv4->nhiBlockBaseWidth(), ipv6->nhiBlockBaseWidth());
  return {.maxWays = std::min(largestOf(sizeBits), kLongestRun), .maxBase = largestOf(baseBits)};
}

Client::Client(const ChipAccess& chip, const ClientOptions& options)
    : configs_(chip.systemStatus, options),
      groups_(configs_.nextHops,
              configs_.groupLimits(),
              chip.ipv4,
              [this](std::span<const GroupMove> moves) { moveGroups(moves); }),
      ipv4_(configs_.ipv4, groups_, chip.ipv4),
      ipv6_(configs_.ipv6, groups_, chip.ipv6) {
  ipv4_.hashShufflingIs(options.hashShuffling);
  ipv6_.hashShufflingIs(options.hashShuffling);
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
