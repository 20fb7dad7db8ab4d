// From JSON text to a profile. The reader settles what is a field, which fields must stand, and
// their types; whether the numbers make a chip is settled by `checkProfile`. Unknown fields are
// refused, so that a misspelt optional one does not silently mean its default.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <sstream>
#include <utility>

#include <nlohmann/json.hpp>

#include "xdksim/ChipProfile.h"
#include "xdksim/ProfileCheck.h"

namespace XdkSim {

namespace {

using Json = nlohmann::json;

/// One object of the file, and the way to it.
class Node {
 public:
  Node(const Json& json, const std::string& source, std::string path)
      : json_(json), source_(source), path_(std::move(path)) {
    if (!json_.is_object()) {
      fails(path_, excerpt(json_), "an object");
    }
  }

  const std::string& path() const { return path_; }

  std::string pathOf(const std::string& field) const {
    return path_.empty() ? field : path_ + "." + field;
  }

  bool has(const std::string& field) const { return json_.contains(field); }

  void onlyFields(std::initializer_list<const char*> known) const {
    for (const auto& [field, value] : json_.items()) {
      if (std::find(known.begin(), known.end(), field) != known.end()) {
        continue;
      }
      std::string list;
      for (const char* name : known) {
        list += list.empty() ? "" : ", ";
        list += name;
      }
      fails(pathOf(field), "unknown field", "one of " + list);
    }
  }

  U32 number(const std::string& field) const {
    return numberOf(member(field, "a number"), pathOf(field));
  }

  U32 number(const std::string& field, U32 absent) const {
    return has(field) ? number(field) : absent;
  }

  std::string text(const std::string& field) const {
    const Json& value = member(field, "a text");
    if (!value.is_string()) {
      fails(pathOf(field), excerpt(value), "a text");
    }
    return value.get<std::string>();
  }

  Node object(const std::string& field) const {
    return {member(field, "an object"), source_, pathOf(field)};
  }

  std::vector<Node> objects(const std::string& field) const {
    const Json& value = array(field, "an array of objects");
    std::vector<Node> nodes;
    for (std::size_t i = 0; i < value.size(); ++i) {
      nodes.emplace_back(value[i], source_, pathOf(field) + "[" + std::to_string(i) + "]");
    }
    return nodes;
  }

  std::array<U8, 8> eightBytes(const std::string& field) const {
    const char* expected = "an array of 8 numbers from 0 to 255";
    const Json& value = array(field, expected);
    std::array<U8, 8> bytes{};
    if (value.size() != bytes.size()) {
      fails(pathOf(field), std::to_string(value.size()) + " members", expected);
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      const std::string path = pathOf(field) + "[" + std::to_string(i) + "]";
      const U32 byte = numberOf(value[i], path);
      if (byte > 255) {
        fails(path, std::to_string(byte), "0 to 255");
      }
      bytes[i] = static_cast<U8>(byte);
    }
    return bytes;
  }

  [[noreturn]] void fails(const std::string& path,
                          const std::string& what,
                          const std::string& expected) const {
    profileFails(source_, path, what, expected);
  }

 private:
  const Json& member(const std::string& field, const char* expected) const {
    const auto found = json_.find(field);
    if (found == json_.end()) {
      fails(pathOf(field), "missing", expected);
    }
    return *found;
  }

  const Json& array(const std::string& field, const char* expected) const {
    const Json& value = member(field, expected);
    if (!value.is_array()) {
      fails(pathOf(field), excerpt(value), expected);
    }
    return value;
  }

  U32 numberOf(const Json& value, const std::string& path) const {
    if (!value.is_number_unsigned() || value.get<U64>() > std::numeric_limits<U32>::max()) {
      fails(path, excerpt(value), "a number from 0 to 4294967295");
    }
    return value.get<U32>();
  }

  /// The value as written, short enough for one line.
  static std::string excerpt(const Json& value) {
    constexpr std::size_t kLongest = 40;
    std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
    if (text.size() > kLongest) {
      text.resize(kLongest - 3);
      text += "...";
    }
    return text;
  }

  const Json& json_;
  const std::string& source_;
  std::string path_;
};

/// A family's tables, and for each the path of the record that it comes from.
struct Tables {
  std::vector<PrefixTableProfile> tables;
  std::vector<std::string> paths;
};

Tables readTables(const Node& family) {
  Tables result;
  for (const Node& record : family.objects("tables")) {
    record.onlyFields({"id", "count", "tread", "rows", "sramWidth", "hashPolySelect"});
    const auto next = static_cast<U32>(result.tables.size());
    if (record.has("id") && record.number("id") != next) {
      record.fails(record.pathOf("id"), std::to_string(record.number("id")), std::to_string(next));
    }
    const U32 count = record.number("count", 1);
    const U32 room = ChipProfile::kMaxTables - next;
    if (count < 1 || count > room) {
      record.fails(record.pathOf("count"), std::to_string(count),
                   room == 0 ? "no more than 32 tables in all"
                             : "1 to " + std::to_string(room) + ", 32 tables in all");
    }
    for (U32 id = next; id < next + count; ++id) {
      // Tables 2k and 2k + 1 share a row of polynomials: with equal columns too, prefixes that
      // collide in one would collide in the other.
      result.tables.push_back({.tread = record.number("tread"),
                               .rows = record.number("rows"),
                               .sramWidth = record.number("sramWidth", 256),
                               .hashPolySelect = record.number("hashPolySelect", id % 2)});
      result.paths.push_back(record.path());
    }
  }
  return result;
}

NhiProfile readNhi(const Node& node) {
  node.onlyFields({"pairsPerEntry", "blockBaseWidth", "tiles", "groupMask", "tileBitmap",
                   "entriesPerTile", "tableSize"});
  NhiProfile nhi;
  nhi.pairsPerEntry = node.number("pairsPerEntry");
  nhi.blockBaseWidth = node.number("blockBaseWidth");
  nhi.entriesPerTile = node.number("entriesPerTile", nhi.entriesPerTile);
  nhi.tableSize = node.number("tableSize", 0);
  if (node.has("groupMask") || node.has("tileBitmap")) {
    if (node.has("tiles")) {
      node.fails(node.pathOf("tiles"), "stands beside groupMask and tileBitmap",
                 "either the count or the mask and the bitmap");
    }
    nhi.groupMask = node.number("groupMask");
    nhi.tileBitmap = node.eightBytes("tileBitmap");
    return nhi;
  }
  const U32 tiles = node.number("tiles");
  if (tiles < 1 || tiles > NhiProfile::kMaxTiles) {
    node.fails(node.pathOf("tiles"), std::to_string(tiles),
               "1 to " + std::to_string(NhiProfile::kMaxTiles));
  }
  nhi.tilesIs(tiles);
  return nhi;
}

/// Fills `family` and yields the paths of its tables.
std::vector<std::string> readFamily(const Node& node, FamilyProfile& family) {
  node.onlyFields({"keyWidth", "vrfIdWidth", "tables", "nhi"});
  family.keyWidth = node.number("keyWidth");
  family.vrfIdWidth = node.number("vrfIdWidth");
  Tables tables = readTables(node);
  family.tables = std::move(tables.tables);
  family.nhi = readNhi(node.object("nhi"));
  return std::move(tables.paths);
}

/// "line L, column C" of byte `offset` of `text`.
std::string lineAndColumn(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, std::min(offset, text.size()));
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const std::size_t lineStart = before.rfind('\n') == before.npos ? 0 : before.rfind('\n') + 1;
  return "line " + std::to_string(line) + ", column " +
         std::to_string(before.size() - lineStart + 1);
}

Json parseJson(std::string_view text, const std::string& source) {
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& error) {
    // The error counts bytes from 1.
    const std::size_t offset = error.byte == 0 ? 0 : error.byte - 1;
    profileFails(source, lineAndColumn(text, offset), "not JSON", "a chip profile in JSON");
  }
}

}  // namespace

ChipProfile parseProfile(std::string_view text, const std::string& source) {
  const Json json = parseJson(text, source);
  const Node root(json, source, "");
  root.onlyFields({"name", "description", "ipv4", "ipv6", "nextHopTable"});
  ChipProfile profile;
  profile.name = root.text("name");
  profile.description = root.text("description");
  const std::vector<std::string> pathsV4 = readFamily(root.object("ipv4"), profile.ipv4);
  const std::vector<std::string> pathsV6 = readFamily(root.object("ipv6"), profile.ipv6);
  const Node nextHopTable = root.object("nextHopTable");
  nextHopTable.onlyFields({"rows"});
  profile.nextHopRows = nextHopTable.number("rows");
  checkProfile(profile, source, [&](Family family, U32 table) {
    return (family == Family::ipv4 ? pathsV4 : pathsV6)[table];
  });
  return profile;
}

ChipProfile readProfile(const std::string& path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  // A directory opens, but nothing can be read from it. Nothing is read from an empty file either,
  // without an error.
  if (!file || (!(text << file.rdbuf()) && errno != 0)) {
    profileFails(path, "", std::string("cannot be read (") + std::strerror(errno) + ")",
                 "a chip profile in JSON");
  }
  return parseProfile(text.str(), path);
}

}  // namespace XdkSim
