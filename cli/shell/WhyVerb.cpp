// why: what each table that may hold a prefix has against it, and what else keeps it out.

#include "cli/Text.h"
#include "cli/shell/RouteView.h"
#include "cli/shell/TableCandidates.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"

#include <algorithm>
#include <optional>

namespace Quarle::Cli {

namespace {

using Tarnlet::LpmPrefix;

/// What keeps a route out that no prefix table decides; both empty when they do.
struct Elsewhere {
  std::string missing;
  std::string help;
};

Elsewhere elsewhere(const Session& session,
                    const Agent::RouteKey& key,
                    const Agent::RefusedWish* wish) {
  const Agent::FamilyClient& family = session.client().family(key.prefix.family);
  std::optional<Agent::RefusalReason> reason = family.refusalAheadOfTables(key);
  if (!reason && wish != nullptr) {
    reason = wish->reason;
  }
  if (reason == Agent::RefusalReason::nextHopTableFull) {
    const Agent::NextHopGroups& groups = session.client().groups();
    const Agent::NextHopStatistics statistics = groups.statistics();
    return {.missing = "next-hop rows: the group needs " +
                       std::to_string(groups.nextHops(wish->group).size()) + " in one run, " +
                       share(statistics.rowsUsed, statistics.rowCapacity) + " are taken",
            .help = "withdraw all routes of another group, or lead to a group that has rows"};
  }
  if (reason == Agent::RefusalReason::headroom) {
    const Agent::FamilyStatistics statistics = family.statistics();
    return {
        .missing = "NHI entries: " + share(statistics.nhiEntriesUsed, statistics.nhiEntryCapacity) +
                   " are taken, and the rest is kept for updates and withdrawals",
        .help = "withdraw routes whose rows share their block with no other"};
  }
  if (reason == Agent::RefusalReason::invalid) {
    return {.missing =
                "a chip that can hold it: its length, its VRF or its number of next hops is "
                "beyond this one",
            .help = "ask for a route that this chip can hold"};
  }
  return {};
}

/// A free object for a key that the configuration does not have.
LpmPrefix::Ptr prefixOf(const Session& session, const Agent::RouteKey& key) {
  if (LpmPrefix::Ptr known = session.find(key)) {
    return known;
  }
  if (key.prefix.family == Agent::Family::ipv6) {
    return Tarnlet::lpmPrefixV6Factory(Agent::vrfAndIp6PrefixOf(key));
  }
  return Tarnlet::lpmPrefixV4Factory(Agent::vrfAndPrefixOf(key));
}

}  // namespace

Verdict why(Session& session, const Command& command, Output& output) {
  const Agent::RouteKey key = routeOf(command.words);
  const Agent::RefusedWish* wish = session.client().family(key.prefix.family).refused().find(key);
  if (const std::optional<RouteView> view = softwareView(session, key)) {
    if (output.json()) {
      output.object({{"route", Agent::toText(key)},
                     {"installed", true},
                     {"refused", wish == nullptr ? Json() : Json(Agent::toText(wish->reason))},
                     {"table", view->table},
                     {"row", view->row},
                     {"slot", view->slot}});
    } else {
      output.line(Agent::toText(key) + " is installed: table " + std::to_string(view->table) +
                  " row " + std::to_string(view->row) + " slot " + std::to_string(view->slot));
      if (wish != nullptr) {
        output.line(std::string("its last change was refused: ") + sentence(wish->reason));
      }
    }
    return Verdict::done;
  }
  const std::vector<Candidate> candidates = candidatesFor(session, key, prefixOf(session, key));
  const Elsewhere other = elsewhere(session, key, wish);
  const bool fits = other.missing.empty() &&
                    std::any_of(candidates.begin(), candidates.end(),
                                [](const Candidate& seen) { return seen.missing.empty(); });
  const Candidate* least = fits || !other.missing.empty() ? nullptr : leastOf(candidates);
  if (output.json()) {
    const std::string help = least == nullptr ? other.help : least->help;
    output.object({{"route", Agent::toText(key)},
                   {"installed", false},
                   {"refused", wish == nullptr ? Json() : Json(Agent::toText(wish->reason))},
                   {"fits_now", fits},
                   {"missing", other.missing.empty() ? Json() : Json(other.missing)},
                   {"help", help.empty() ? Json() : Json(help)}});
    for (const Candidate& seen : candidates) {
      output.object({{"table", seen.table},
                     {"tread", seen.tread},
                     {"row", seen.row},
                     {"occupant", seen.occupant.empty() ? Json() : Json(seen.occupant)},
                     {"missing", seen.missing.empty() ? Json() : Json(seen.missing)},
                     {"help", seen.help.empty() ? Json() : Json(seen.help)}});
    }
    return Verdict::done;
  }
  output.line(Agent::toText(key) + " is not installed" +
              (wish == nullptr ? std::string(", and no request for it stands refused")
                               : std::string(", refused: ") + sentence(wish->reason)));
  if (!other.missing.empty()) {
    output.line("missing: " + other.missing);
    output.line("help:    " + other.help);
  }
  for (const Candidate& seen : candidates) {
    output.line("table " + std::to_string(seen.table) + " tread " + std::to_string(seen.tread) +
                " row " + std::to_string(seen.row) + ": " +
                (seen.occupant.empty() ? "free" : seen.occupant));
    output.line("  missing: " + (seen.missing.empty() ? "nothing" : seen.missing));
    if (!seen.help.empty()) {
      output.line("  help:    " + seen.help);
    }
  }
  if (candidates.empty()) {
    output.line("no table of this chip may hold its length");
  } else if (fits) {
    output.line("as things stand it would be placed");
  } else if (least != nullptr) {
    output.line("the least that helps: " + least->help + ", for table " +
                std::to_string(least->table));
  }
  return Verdict::done;
}

}  // namespace Quarle::Cli
