// From a profile to JSON text, and where two profiles differ. Every field is written, defaults too:
// what an image of a chip says must not change with them.

#include <nlohmann/json.hpp>

#include "xdksim/ChipProfile.h"

namespace XdkSim {

namespace {

using Json = nlohmann::ordered_json;

Json familyJson(const FamilyProfile& family) {
  Json tables = Json::array();
  for (std::size_t id = 0; id < family.tables.size(); ++id) {
    const PrefixTableProfile& table = family.tables[id];
    tables.push_back({{"id", id},
                      {"tread", table.tread},
                      {"rows", table.rows},
                      {"sramWidth", table.sramWidth},
                      {"hashPolySelect", table.hashPolySelect}});
  }
  const NhiProfile& nhi = family.nhi;
  return {{"keyWidth", family.keyWidth},
          {"vrfIdWidth", family.vrfIdWidth},
          {"tables", std::move(tables)},
          {"nhi",
           {{"pairsPerEntry", nhi.pairsPerEntry},
            {"blockBaseWidth", nhi.blockBaseWidth},
            {"groupMask", nhi.groupMask},
            {"tileBitmap", nhi.tileBitmap},
            {"entriesPerTile", nhi.entriesPerTile},
            {"tableSize", nhi.tableSize}}}};
}

Json shapeJson(const ChipProfile& profile) {
  return {{"ipv4", familyJson(profile.ipv4)},
          {"ipv6", familyJson(profile.ipv6)},
          {"nextHopTable", {{"rows", profile.nextHopRows}}}};
}

std::string differs(const std::string& path, const std::string& what, const std::string& expected) {
  return path + ": " + what + ", expected " + expected;
}

/// "" or where `one` first differs from `other`, which has the same fields.
std::string difference(const Json& one, const Json& other, const std::string& path) {
  std::string found;
  if (one.is_object()) {
    for (auto field = one.begin(); field != one.end() && found.empty(); ++field) {
      const std::string dot = path.empty() ? "" : ".";
      found = difference(*field, other.at(field.key()), path + dot + field.key());
    }
  } else if (!one.is_array()) {
    found = one == other ? "" : differs(path, one.dump(), other.dump());
  } else if (one.size() != other.size()) {
    found = differs(path, std::to_string(one.size()) + " in all", std::to_string(other.size()));
  } else {
    for (std::size_t i = 0; i < one.size() && found.empty(); ++i) {
      const std::string index = "[" + std::to_string(i) + "]";
      found = difference(one[i], other[i], path + index);
    }
  }
  return found;
}

}  // namespace

std::string profileText(const ChipProfile& profile) {
  Json json = {{"name", profile.name}, {"description", profile.description}};
  json.update(shapeJson(profile));
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string shapeDifference(const ChipProfile& one, const ChipProfile& other) {
  return difference(shapeJson(one), shapeJson(other), "");
}

}  // namespace XdkSim
