#include "cli/ChipCheck.h"

#include "agent/ChipContexts.h"

namespace Quarle::Cli {

using Agent::Family;

RouteCheck::RouteCheck(const XdkSim::Chip& chip, const Agent::Client& client, std::uint16_t vrf)
    : check_(
          chip,
          expected_,
          [&client](Agent::ReferenceTrie::Value group) {
            return client.groups().block(Agent::SwId(group));
          },
          vrf) {}

RowCheck checkRows(const XdkSim::Chip& chip,
                   const Agent::Client& client,
                   const std::array<std::uint64_t, 2>& strayRows,
                   std::span<const Agent::SwId> groups) {
  RowCheck check;
  const auto fault = [&check](const std::string& text) {
    ++check.wrong;
    if (check.faults.size() < Agent::LookupCheck::kFaultsKept) {
      check.faults.push_back(text + "\n");
    }
  };
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const std::uint64_t used =
        client.family(family).statistics().rowsUsed + strayRows[static_cast<std::size_t>(family)];
    const std::uint64_t held = chip.rowsUsed(Agent::chipFamily(family));
    if (used != held) {
      fault(std::string(Agent::familyName(family)) + " prefix tables: " + std::to_string(held) +
            " rows are used in the chip, expected " + std::to_string(used));
    }
  }
  for (const Agent::SwId group : groups) {
    if (client.groups().refusal(group)) {
      continue;
    }
    const std::span<const U64> nextHops = client.groups().nextHops(group);
    for (U32 way = 0; way < nextHops.size(); ++way) {
      const U32 row = client.groups().block(group).base().value() + way;
      xpNextHopEntry seen;
      const XP_STATUS status = chip.readNextHopRow(row, seen);
      if (status != XP_NO_ERR || seen.valid != 1 || seen.nextHopId != nextHops[way]) {
        fault("next-hop row " + std::to_string(row) + ": next hop " +
              std::to_string(seen.nextHopId) + ", expected " + std::to_string(nextHops[way]));
      }
    }
  }
  return check;
}

}  // namespace Quarle::Cli
