// What programs read of a load. Field names are an interface: they stay.

#include "cli/InputJson.h"
#include "cli/LoadReport.h"

namespace Quarle::Cli {

namespace {

using Json = nlohmann::ordered_json;

Json refusedJson(const FamilyResult& result) {
  Json refused = Json::object();
  for (const Agent::RefusalReason reason : Agent::kRefusalReasons) {
    const auto place = result.refused.find(reason);
    refused[Agent::toText(reason)] = place == result.refused.end() ? 0 : place->second;
  }
  return refused;
}

Json familyJson(const FamilyResult& result) {
  const Agent::FamilyStatistics& statistics = result.statistics;
  return {
      {"routes", result.routes},
      {"requests", result.requests},
      {"placed", result.placed},
      {"refused", refusedJson(result)},
      {"lookups", result.lookups},
      {"lookups_wrong", result.lookupsWrong},
      {"commands", {{"prefix", result.commands.prefix}, {"nhi", result.commands.nhi}}},
      {"seconds", {{"load", result.loadSeconds}, {"verify", result.verifySeconds}}},
      {"routes_per_second", result.requestsPerSecond()},
      {"bytes_per_route", result.bytesPerRoute()},
      {"rows", {{"used", statistics.rowsUsed}, {"capacity", statistics.rowCapacity}}},
      {"subtries", statistics.rowsUsed},
      {"nhi",
       {{"tiles", statistics.nhiTiles},
        {"blocks", statistics.nhiBlocks},
        {"entries_used", statistics.nhiEntriesUsed},
        {"entries_capacity", statistics.nhiEntryCapacity},
        {"shared", statistics.nhiShared}}},
      {"shuffle",
       {{"attempts", statistics.shuffleAttempts}, {"success", statistics.shuffleSuccesses}}},
      {"defrag_moves", statistics.defragMoves},
  };
}

Json nextHopJson(const PhaseResult& phase) {
  return {{"groups", phase.nextHops.groups},
          {"rows_used", phase.nextHops.rowsUsed},
          {"rows_capacity", phase.nextHops.rowCapacity},
          {"shuffles", phase.nextHops.shuffles}};
}

/// The fields that every phase has, in `json`.
void addPhase(Json& json, const PhaseResult& phase) {
  json["ipv4"] = familyJson(phase.ipv4);
  json["ipv6"] = familyJson(phase.ipv6);
  json["next_hop_table"] = nextHopJson(phase);
  json["rows_wrong"] = phase.rowsWrong;
}

}  // namespace

std::string toJson(const LoadOptions& options, const LoadResult& result) {
  Json json;
  addPhase(json, result.load());
  if (result.phases.size() > 1) {
    Json phases = Json::array();
    for (const PhaseResult& phase : result.phases) {
      Json one{{"name", phase.name}};
      addPhase(one, phase);
      phases.push_back(std::move(one));
    }
    json["phases"] = std::move(phases);
  }
  if (result.everyCommand) {
    const Agent::HitlessCounts& counts = *result.everyCommand;
    Json excused;
    for (const Agent::Window window : Agent::kWindows) {
      excused[Agent::toText(window)] = counts.excusedBy(window);
    }
    json["every_command"] = {{"commands", counts.writes()}, {"prefix", counts.prefixWrites},
                             {"nhi", counts.nhiWrites},     {"next_hop", counts.nextHopWrites},
                             {"lookups", counts.lookups},   {"wrong", counts.wrong},
                             {"excused", excused}};
  }
  json["input"] = inputJson(options, result.input);
  json["order"] = toText(options.order);
  json["verify"] = toText(options.verifyMode());
  json["written"] = !options.noChip;
  json["shuffling"] = options.shuffling;
  json["chip"] = result.chip;
  if (!options.chipImage.empty()) {
    json["chip_image"] = options.chipImage;
  }
  json["seed"] = options.seed;
  json["version"] = TARNLET_VERSION;
  // A file's name may hold any bytes.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Quarle::Cli
