// What programs read of a restart. Field names are an interface: they stay.

#include "cli/InputJson.h"
#include "cli/RestartReport.h"

namespace Quarle::Cli {

namespace {

using Json = nlohmann::ordered_json;

Json refusedRowsJson(const FamilyRestart& result, bool keepBadRows) {
  Json refused = Json::object();
  for (std::size_t i = 0; i < Agent::kRowFaults; ++i) {
    const auto fault = static_cast<Agent::RowFault>(i);
    if (isRefused(fault, keepBadRows)) {
      refused[Agent::toText(fault)] = result.preFlight[fault].found;
    }
  }
  return refused;
}

Json mendedRowsJson(const FamilyRestart& result, bool keepBadRows) {
  Json mended = Json::object();
  for (std::size_t i = 0; i < Agent::kRowFaults; ++i) {
    const auto fault = static_cast<Agent::RowFault>(i);
    if (!isRefused(fault, keepBadRows)) {
      mended[Agent::toText(fault)] = result.preFlight[fault].mended;
    }
  }
  return mended;
}

Json familyJson(const RestartResult& restart, const FamilyRestart& result, bool keepBadRows) {
  Json json{
      {"rows_read", result.recovery.rowsRead},
      {"rows_refused", refusedRowsJson(result, keepBadRows)},
      {"rows_mended", mendedRowsJson(result, keepBadRows)},
      {"rows_kept_bad", result.preFlight.keptRows.size()},
      {"recovered", result.recovery.routes},
      {"differ", nullptr},
      {"seconds",
       {{"walk", result.recovery.walkSeconds},
        {"reclaim", restart.reclaimSeconds},
        {"sweep", result.recovery.rewriteSeconds},
        {"resync", result.resyncSeconds},
        {"verify", result.verifySeconds}}},
      {"rows_per_second", result.rowsPerSecond()},
      {"routes_per_second", result.routesPerSecond()},
      {"sweep_commands",
       {{"prefix", result.recovery.rewrites.prefix},
        {"nhi", result.recovery.rewrites.nhi},
        {"written", !result.preFlight.rewritesOnly}}},
      {"longest_queue", result.recovery.longestQueue},
      {"routes", result.routes},
      {"commands", {{"prefix", result.commands.prefix}, {"nhi", result.commands.nhi}}},
      {"lookups", result.lookups},
      {"lookups_wrong", result.lookupsWrong},
      {"rows", {{"used", result.statistics.rowsUsed}, {"capacity", result.statistics.rowCapacity}}},
  };
  if (result.differing) {
    json["differ"] = result.differing->all();
    json["differing"] = {{"missing", result.differing->missing},
                         {"surplus", result.differing->surplus},
                         {"next_hops", result.differing->nextHops}};
    const Agent::ResyncCounts& counts = result.resync;
    json["resync"] = {{"unchanged", counts.unchanged}, {"changed", counts.changed},
                      {"added", counts.added},         {"refused", counts.refused},
                      {"withdrawn", counts.withdrawn}, {"waiting", counts.waiting}};
    Json refused = Json::object();
    for (const Agent::RefusalReason reason : Agent::kRefusalReasons) {
      const auto place = result.refused.find(reason);
      refused[Agent::toText(reason)] = place == result.refused.end() ? 0 : place->second;
    }
    json["refused"] = std::move(refused);
  }
  return json;
}

Json groupsJson(const RestartResult& result) {
  const Agent::GroupRecovery& groups = result.groups;
  return {{"list_fault", result.groupListFault},
          {"recovered", groups.known},
          {"dropped", groups.dropped},
          {"strangers", groups.strangers},
          {"stranger_routes", groups.strangerRoutes},
          {"moves_finished", groups.movesFinished},
          {"rows_rewritten", groups.rowsRewritten},
          {"rows_cleared", groups.rowsCleared}};
}

}  // namespace

std::string toJson(const RestartOptions& options, const RestartResult& result) {
  Json json;
  json["ipv4"] = familyJson(result, result.ipv4, options.keepBadRows);
  json["ipv6"] = familyJson(result, result.ipv6, options.keepBadRows);
  json["groups"] = groupsJson(result);
  json["next_hop_table"] = {{"groups", result.nextHops.groups},
                            {"strangers", result.nextHops.strangers},
                            {"rows_used", result.nextHops.rowsUsed},
                            {"rows_capacity", result.nextHops.rowCapacity}};
  json["rows_wrong"] = result.rowsWrong;
  json["writes_refused"] = result.refusedWrites.size();
  json["write_finished"] = result.finishedWrite;
  json["seconds"] = {{"pre_flight", result.preFlightSeconds},
                     {"withdraw", result.withdrawalSeconds}};
  json["peak_memory"] = result.peakMemory;
  if (options.hasSource()) {
    json["input"] = inputJson(options, result.input);
  }
  json["verify"] = toText(options.verifyMode());
  json["dry_run"] = options.dryRun;
  json["keep_bad_rows"] = options.keepBadRows;
  json["chip"] = result.chip;
  json["chip_image"] = options.chipImage;
  json["seed"] = options.seed;
  json["version"] = TARNLET_VERSION;
  // A file's name may hold any bytes.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Quarle::Cli
