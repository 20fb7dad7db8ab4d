// What people read of a restart.

#include "cli/FamilyTable.h"
#include "cli/RestartReport.h"
#include "cli/Text.h"

namespace Quarle::Cli {

namespace {

using Family = FamilyRestart;
using Table = FamilyTable<RestartResult>;

/// A row with a number, left out where both families have 0.
void rowUnlessZero(Table& table,
                   const RestartResult& result,
                   const std::string& name,
                   const std::function<std::uint64_t(const Family&)>& number) {
  if (number(result.ipv4) + number(result.ipv6) != 0) {
    table.row(name, [&number](const Family& r) { return grouped(number(r)); });
  }
}

std::string refusedRows(const Family& result, bool keepBadRows) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < Agent::kRowFaults; ++i) {
    const auto fault = static_cast<Agent::RowFault>(i);
    sum += isRefused(fault, keepBadRows) ? result.preFlight[fault].found : 0;
  }
  return grouped(sum);
}

void addDifferences(Table& table, const RestartResult& result) {
  table.row("routes that differ", [](const Family& r) { return grouped(r.differing->all()); });
  rowUnlessZero(table, result, "  not on the chip",
                [](const Family& r) { return r.differing->missing; });
  rowUnlessZero(table, result, "  on the chip alone",
                [](const Family& r) { return r.differing->surplus; });
  rowUnlessZero(table, result, "  other next hops",
                [](const Family& r) { return r.differing->nextHops; });
  table.row("unchanged", [](const Family& r) { return grouped(r.resync.unchanged); });
  rowUnlessZero(table, result, "changed", [](const Family& r) { return r.resync.changed; });
  rowUnlessZero(table, result, "added", [](const Family& r) { return r.resync.added; });
  rowUnlessZero(table, result, "withdrawn", [](const Family& r) { return r.resync.withdrawn; });
  rowUnlessZero(table, result, "wait to be withdrawn",
                [](const Family& r) { return r.resync.waiting; });
  for (const Agent::RefusalReason reason : Agent::kRefusalReasons) {
    rowUnlessZero(table, result, std::string("refused, ") + sentence(reason),
                  [reason](const Family& r) {
                    const auto place = r.refused.find(reason);
                    return place == r.refused.end() ? 0 : place->second;
                  });
  }
  table.row("commands written", [](const Family& r) {
    return grouped(r.commands.prefix) + " prefix, " + grouped(r.commands.nhi) + " NHI";
  });
}

std::string lookupText(const Family& result) {
  return result.lookupsWrong == 0
             ? grouped(result.lookups) + " right"
             : grouped(result.lookupsWrong) + " WRONG of " + grouped(result.lookups);
}

std::string familyTable(const RestartOptions& options, const RestartResult& result) {
  Table table(result);
  table.row("rows read", [](const Family& r) { return grouped(r.recovery.rowsRead); });
  table.row("rows refused",
            [&options](const Family& r) { return refusedRows(r, options.keepBadRows); });
  table.row("routes recovered", [](const Family& r) { return grouped(r.recovery.routes); });
  if (result.ipv4.differing) {
    addDifferences(table, result);
  }
  table.row("walk", [](const Family& r) { return format("%.2f s", r.recovery.walkSeconds); });
  table.row("sweep", [](const Family& r) { return format("%.2f s", r.recovery.rewriteSeconds); });
  table.row("  commands", [](const Family& r) {
    return grouped(r.recovery.rewrites.prefix + r.recovery.rewrites.nhi) +
           (r.preFlight.rewritesOnly ? " dropped" : " written");
  });
  table.row("  longest queue", [](const Family& r) { return grouped(r.recovery.longestQueue); });
  table.row("rate", [](const Family& r) {
    return grouped(static_cast<std::uint64_t>(r.rowsPerSecond())) + " rows/s";
  });
  table.row("", [](const Family& r) {
    return grouped(static_cast<std::uint64_t>(r.routesPerSecond())) + " routes/s";
  });
  if (result.ipv4.differing) {
    table.row("resync", [](const Family& r) { return format("%.2f s", r.resyncSeconds); });
  }
  if (options.verifyMode() != Verify::none) {
    table.row("look-ups", lookupText);
    table.row("verification", [](const Family& r) { return format("%.2f s", r.verifySeconds); });
  }
  return table.text();
}

std::string foundLines(const RestartResult& result) {
  std::string text;
  for (const Family* family : {&result.ipv4, &result.ipv6}) {
    for (const std::string& line : Agent::linesOf(family->preFlight)) {
      text += line + "\n";
    }
  }
  if (result.finishedWrite) {
    text += "a write that the process before was ended in: finished\n";
  }
  return text.empty() ? text : "\n" + text;
}

std::string groupLine(const RestartResult& result) {
  const Agent::GroupRecovery& groups = result.groups;
  std::string text = "\nnext-hop groups: " + grouped(groups.known) + " recovered";
  for (const auto& [number, name] : {std::pair{groups.dropped, "dropped"},
                                     {groups.strangers, "unknown"},
                                     {groups.movesFinished, "moves finished"},
                                     {groups.rowsRewritten, "rows rewritten"},
                                     {groups.rowsCleared, "rows cleared"}}) {
    text += number == 0 ? "" : ", " + grouped(number) + " " + name;
  }
  return text + "; " + grouped(result.nextHops.groups) + " groups in " +
         share(result.nextHops.rowsUsed, result.nextHops.rowCapacity) + " of the rows\n";
}

std::string tableName(const RestartOptions& options) {
  if (options.synthetic) {
    return ", to a synthetic table, seed " + std::to_string(options.seed);
  }
  return options.rib.empty() ? "" : ", to " + options.rib;
}

}  // namespace

std::string toSummary(const RestartOptions& options, const RestartResult& result) {
  constexpr double kMebibyte = 1024.0 * 1024.0;
  std::string text = "tarnlet " TARNLET_VERSION ", restart of chip " + result.chip + " in " +
                     options.chipImage + tableName(options) +
                     (options.dryRun ? ", on a copy of it" : "") + "\n\n";
  text += familyTable(options, result);
  text += foundLines(result);
  text += groupLine(result);
  text +=
      format("pre-flight %.2f s, groups %.2f s, ", result.preFlightSeconds, result.reclaimSeconds);
  if (options.hasSource()) {
    text += format("withdrawals %.2f s, ", result.withdrawalSeconds);
  }
  text += format("memory at most %.0f MiB\n", static_cast<double>(result.peakMemory) / kMebibyte);
  const std::uint64_t wrong = result.wrong() - result.refusedWrites.size();
  if (options.verifyMode() != Verify::none) {
    text += wrong == 0 ? "\nEvery look-up in the chip is right.\n"
                       : "\n" + grouped(wrong) + " look-ups or rows in the chip are WRONG.\n";
  }
  return text;
}

}  // namespace Quarle::Cli
