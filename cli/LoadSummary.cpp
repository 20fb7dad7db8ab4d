// What people read of a load.

#include "cli/LoadReport.h"

#include "cli/FamilyTable.h"
#include "cli/Text.h"

#include <utility>

namespace Quarle::Cli {

namespace {

std::uint64_t refusedFor(const FamilyResult& result, Agent::RefusalReason reason) {
  const auto place = result.refused.find(reason);
  return place == result.refused.end() ? 0 : place->second;
}

std::uint64_t refusedAll(const FamilyResult& result) {
  std::uint64_t sum = 0;
  for (const auto& [reason, count] : result.refused) {
    sum += count;
  }
  return sum;
}

std::string lookupText(const FamilyResult& result) {
  return result.lookupsWrong == 0
             ? grouped(result.lookups) + " right"
             : grouped(result.lookupsWrong) + " WRONG of " + grouped(result.lookups);
}

std::string loadTable(const LoadOptions& options, const PhaseResult& phase) {
  FamilyTable<PhaseResult> table(phase);
  table.row("routes", [](const FamilyResult& r) { return grouped(r.routes); });
  table.row("placed", [](const FamilyResult& r) { return grouped(r.placed); });
  table.row("refused", [](const FamilyResult& r) { return grouped(refusedAll(r)); });
  for (const Agent::RefusalReason reason : Agent::kRefusalReasons) {
    if (refusedFor(phase.ipv4, reason) + refusedFor(phase.ipv6, reason) != 0) {
      table.row(std::string("  ") + sentence(reason),
                [reason](const FamilyResult& r) { return grouped(refusedFor(r, reason)); });
    }
  }
  table.row("prefix rows", [](const FamilyResult& r) {
    return share(r.statistics.rowsUsed, r.statistics.rowCapacity);
  });
  table.row("NHI entries", [](const FamilyResult& r) {
    return share(r.statistics.nhiEntriesUsed, r.statistics.nhiEntryCapacity);
  });
  table.row("NHI tiles", [](const FamilyResult& r) { return grouped(r.statistics.nhiTiles); });
  table.row("NHI blocks", [](const FamilyResult& r) { return grouped(r.statistics.nhiBlocks); });
  table.row("  rows that share",
            [](const FamilyResult& r) { return grouped(r.statistics.nhiShared); });
  table.row("rows moved", [](const FamilyResult& r) {
    return grouped(r.statistics.shuffleSuccesses) + " of " + grouped(r.statistics.shuffleAttempts) +
           " collisions";
  });
  table.row("NHI blocks moved",
            [](const FamilyResult& r) { return grouped(r.statistics.defragMoves); });
  table.row(options.noChip ? "commands dropped" : "commands written", [](const FamilyResult& r) {
    return grouped(r.commands.prefix) + " prefix, " + grouped(r.commands.nhi) + " NHI";
  });
  table.row("load", [](const FamilyResult& r) { return format("%.2f s", r.loadSeconds); });
  table.row("rate", [](const FamilyResult& r) {
    return grouped(static_cast<std::uint64_t>(r.requestsPerSecond())) + " routes/s";
  });
  table.row("memory",
            [](const FamilyResult& r) { return format("%.0f bytes/route", r.bytesPerRoute()); });
  if (options.verifyMode() != Verify::none) {
    table.row("look-ups", lookupText);
    table.row("verification",
              [](const FamilyResult& r) { return format("%.2f s", r.verifySeconds); });
  }
  return table.text();
}

/// The phases behind the load, a line for each family and phase.
std::string phaseLines(const LoadOptions& options, const LoadResult& result) {
  std::string text;
  for (auto phase = result.phases.begin() + 1; phase != result.phases.end(); ++phase) {
    for (const auto& [name, family] : {std::pair{"IPv4", &phase->ipv4}, {"IPv6", &phase->ipv6}}) {
      text += format("%-17s %s  %9s requests  %9s placed  %9s refused  %9s requests/s",
                     phase->name.c_str(), name, grouped(family->requests).c_str(),
                     grouped(family->placed).c_str(), grouped(refusedAll(*family)).c_str(),
                     grouped(static_cast<std::uint64_t>(family->requestsPerSecond())).c_str());
      text +=
          options.verifyMode() == Verify::none ? "\n" : "  look-ups " + lookupText(*family) + "\n";
    }
  }
  return text.empty() ? text : "\n" + text;
}

std::string inputLine(const LoadOptions& options, const LoadResult& result) {
  std::string text = options.synthetic ? "a synthetic table" : options.rib;
  if (result.input.badLines != 0) {
    text += ", " + grouped(result.input.badLines) + " bad lines left out";
  }
  if (result.input.duplicates != 0) {
    text += ", " + grouped(result.input.duplicates) + " routes repeated";
  }
  return text;
}

}  // namespace

std::string toSummary(const LoadOptions& options, const LoadResult& result) {
  const PhaseResult& load = result.load();
  std::string text = "tarnlet " TARNLET_VERSION ", chip " + result.chip + ", " +
                     inputLine(options, result) + ", " + toText(options.order) + ", seed " +
                     std::to_string(options.seed) + "\n\n";
  text += loadTable(options, load);
  text += "\nnext-hop table: " + grouped(load.nextHops.groups) + " groups in " +
          share(load.nextHops.rowsUsed, load.nextHops.rowCapacity) + " of the rows";
  text += load.nextHops.shuffles == 0 ? "\n" : ", " + grouped(load.nextHops.shuffles) + " moved\n";
  text += phaseLines(options, result);
  if (result.everyCommand) {
    const Agent::HitlessCounts& counts = *result.everyCommand;
    text += "\nevery command: " + grouped(counts.writes()) + " writes, " + grouped(counts.lookups) +
            " look-ups after them, " + grouped(counts.wrong) + " wrong, excused by window";
    for (const Agent::Window window : Agent::kWindows) {
      text += std::string(" ") + Agent::toText(window) + " " + grouped(counts.excusedBy(window));
    }
    text += "\n";
  }
  if (options.verifyMode() != Verify::none) {
    text += result.wrong() == 0
                ? "\nEvery look-up in the chip is right.\n"
                : "\n" + grouped(result.wrong()) + " look-ups or rows in the chip are WRONG.\n";
  }
  return text;
}

}  // namespace Quarle::Cli
