#include "xdksim/ChipProfile.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/xdksim/SmallProfile.h"
#include "xdksim/Chip.h"

namespace XdkSim {
namespace {

const std::string kGood = R"({
  "name": "one",
  "description": "A table each.",
  "ipv4": {
    "keyWidth": 48,
    "vrfIdWidth": 16,
    "tables": [{"count": 2, "tread": 35, "rows": 16}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 3}
  },
  "ipv6": {
    "keyWidth": 144,
    "vrfIdWidth": 16,
    "tables": [
      {"id": 0, "tread": 60, "rows": 16, "sramWidth": 256, "hashPolySelect": 3},
      {"id": 1, "count": 2, "tread": 43, "rows": 8, "sramWidth": 128}
    ],
    "nhi": {
      "pairsPerEntry": 8,
      "blockBaseWidth": 12,
      "groupMask": 2,
      "tileBitmap": [255, 129, 0, 0, 0, 0, 0, 1],
      "entriesPerTile": 100,
      "tableSize": 12345
    }
  },
  "nextHopTable": {"rows": 300}
})";

/// The good profile with the first occurrence of `from` replaced.
std::string spoilt(const std::string& from, const std::string& to) {
  std::string text = kGood;
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string errorOf(const std::string& text) {
  try {
    parseProfile(text, "p.json");
  } catch (const ProfileError& error) {
    return error.what();
  }
  return "no error";
}

class ProfileDirectory : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "profiles-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name;
    ASSERT_EQ(setenv("TARNLET_PROFILES", name.c_str(), 1), 0);
  }

  void TearDown() override {
    unsetenv("TARNLET_PROFILES");
    std::filesystem::remove_all(directory_);
  }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(directory_ / name) << text;
  }

  static std::string errorOf(const std::string& nameOrPath) {
    try {
      findProfile(nameOrPath);
    } catch (const ProfileError& error) {
      return error.what();
    }
    return "no error";
  }

  std::filesystem::path directory_;
};

TEST(ChipProfile, everyFieldIsRead) {
  const ChipProfile profile = parseProfile(kGood, "p.json");
  EXPECT_EQ(profile.name, "one");
  EXPECT_EQ(profile.description, "A table each.");
  EXPECT_EQ(profile.nextHopRows, 300U);
  ASSERT_EQ(profile.ipv6.tables.size(), 3U);
  EXPECT_EQ(profile.ipv6.tables[0].hashPolySelect, 3U);
  EXPECT_EQ(profile.ipv6.tables[2].tread, 43U);
  EXPECT_EQ(profile.ipv6.tables[2].rows, 8U);
  EXPECT_EQ(profile.ipv6.tables[2].sramWidth, 128U);
  EXPECT_EQ(profile.ipv6.nhi.pairsPerEntry, 8U);
  EXPECT_EQ(profile.ipv6.nhi.blockBaseWidth, 12U);
  EXPECT_EQ(profile.ipv6.nhi.entriesPerTile, 100U);
  EXPECT_EQ(profile.ipv6.nhi.tableSize, 12345U);
}

TEST(ChipProfile, leftOutFieldsHaveTheirDefaults) {
  const ChipProfile profile = parseProfile(kGood, "p.json");
  ASSERT_EQ(profile.ipv4.tables.size(), 2U);
  EXPECT_EQ(profile.ipv4.tables[0].sramWidth, 256U);
  EXPECT_EQ(profile.ipv4.tables[0].hashPolySelect, 0U);
  EXPECT_EQ(profile.ipv4.tables[1].hashPolySelect, 1U);
  EXPECT_EQ(profile.ipv4.nhi.entriesPerTile, 16384U);
}

TEST(ChipProfile, tilesAreCountedWhereTheGroupMaskAllows) {
  const ChipProfile profile = parseProfile(kGood, "p.json");
  EXPECT_EQ(profile.ipv4.nhi.tiles(), 3U);
  EXPECT_EQ(profile.ipv6.nhi.tiles(), 2U);
  for (U32 count = 0; count <= NhiProfile::kMaxTiles; ++count) {
    NhiProfile nhi;
    nhi.tilesIs(count);
    EXPECT_EQ(nhi.tiles(), count);
  }
}

TEST(ChipProfile, everyErrorIsOneLineOfWhereWhatAndExpected) {
  struct Case {
    std::string from;
    std::string to;
    std::string error;
  };

  const std::vector<Case> cases = {
      {R"("name": "one")", R"("name": 1)", "p.json: name: 1, expected a text"},
      {R"("name": "one",)", "", "p.json: name: missing, expected a text"},
      {R"("rows": 300)", R"("rows": "many")",
       R"(p.json: nextHopTable.rows: "many", expected a number from 0 to 4294967295)"},
      {R"("rows": 300)", R"("rows": -1)",
       "p.json: nextHopTable.rows: -1, expected a number from 0 to 4294967295"},
      {R"("rows": 300)", R"("rows": 1.5)",
       "p.json: nextHopTable.rows: 1.5, expected a number from 0 to 4294967295"},
      {R"("rows": 300)", R"("rows": 4294967296)",
       "p.json: nextHopTable.rows: 4294967296, expected a number from 0 to 4294967295"},
      {R"("rows": 300)", R"("rows": 0)", "p.json: nextHopTable.rows: 0, expected 1 to 1048576"},
      {R"({"rows": 300})", R"([])", "p.json: nextHopTable: [], expected an object"},
      {R"({"rows": 300})", R"({"rows": 300, "wide": 1})",
       "p.json: nextHopTable.wide: unknown field, expected one of rows"},
      {R"("tread": 35)", R"("tred": 35)",
       "p.json: ipv4.tables[0].tred: unknown field, expected one of id, count, tread, rows, "
       "sramWidth, hashPolySelect"},
      {R"("keyWidth": 48)", R"("keyWidth": 144)", "p.json: ipv4.keyWidth: 144, expected 48"},
      {R"("keyWidth": 144)", R"("keyWidth": 128)", "p.json: ipv6.keyWidth: 128, expected 144"},
      {R"("vrfIdWidth": 16)", R"("vrfIdWidth": 12)", "p.json: ipv4.vrfIdWidth: 12, expected 16"},
      {R"("tread": 35)", R"("tread": 49)", "p.json: ipv4.tables[0].tread: 49, expected 1 to 48"},
      {R"("tread": 35)", R"("tread": 0)", "p.json: ipv4.tables[0].tread: 0, expected 1 to 48"},
      {R"("rows": 16)", R"("rows": 6000)",
       "p.json: ipv4.tables[0].rows: 6000, expected a power of two from 1 to 65536"},
      {R"("rows": 8)", R"("rows": 131072)",
       "p.json: ipv6.tables[1].rows: 131072, expected a power of two from 1 to 65536"},
      {R"("sramWidth": 128)", R"("sramWidth": 64)",
       "p.json: ipv6.tables[1].sramWidth: 64, expected 128 or 256"},
      {R"("hashPolySelect": 3)", R"("hashPolySelect": 4)",
       "p.json: ipv6.tables[0].hashPolySelect: 4, expected 0 to 3"},
      {R"("id": 1)", R"("id": 2)", "p.json: ipv6.tables[1].id: 2, expected 1"},
      {R"("count": 2)", R"("count": 0)",
       "p.json: ipv4.tables[0].count: 0, expected 1 to 32, 32 tables in all"},
      {R"("id": 1, "count": 2)", R"("count": 32)",
       "p.json: ipv6.tables[1].count: 32, expected 1 to 31, 32 tables in all"},
      {R"([{"count": 2, "tread": 35, "rows": 16}])", R"([])",
       "p.json: ipv4.tables: 0 tables in all, expected 1 to 32"},
      {R"([{"count": 2, "tread": 35, "rows": 16}])",
       R"([{"count": 32, "tread": 35, "rows": 16}, {"tread": 35, "rows": 16}])",
       "p.json: ipv4.tables[1].count: 1, expected no more than 32 tables in all"},
      {R"([{"count": 2, "tread": 35, "rows": 16}])", R"({"count": 2, "tread": 35, "rows": 16})",
       R"(p.json: ipv4.tables: {"count":2,"rows":16,"tread":35}, expected an array of objects)"},
      {R"([{"count": 2, "tread": 35, "rows": 16}])", R"([7])",
       "p.json: ipv4.tables[0]: 7, expected an object"},
      {R"("pairsPerEntry": 6)", R"("pairsPerEntry": 9)",
       "p.json: ipv4.nhi.pairsPerEntry: 9, expected 6, 7, 8 or 10"},
      {R"("blockBaseWidth": 12)", R"("blockBaseWidth": 17)",
       "p.json: ipv6.nhi.blockBaseWidth: 17, expected 1 to 16 with 8 pairs per entry"},
      {R"("tiles": 3)", R"("tiles": 65)", "p.json: ipv4.nhi.tiles: 65, expected 1 to 64"},
      {R"("tiles": 3)", R"("tiles": 0)", "p.json: ipv4.nhi.tiles: 0, expected 1 to 64"},
      {R"(, "tiles": 3)", "", "p.json: ipv4.nhi.tiles: missing, expected a number"},
      {R"("groupMask": 2)", R"("tiles": 4, "groupMask": 2)",
       "p.json: ipv6.nhi.tiles: stands beside groupMask and tileBitmap, expected either the count "
       "or the mask and the bitmap"},
      {R"("groupMask": 2)", R"("groupMask": 4)", "p.json: ipv6.nhi: 0, expected at least one tile"},
      {R"("groupMask": 2)", R"("groupMask": 256)",
       "p.json: ipv6.nhi.groupMask: 256, expected 0 to 255"},
      {R"(0, 0, 1])", R"(0, 1])",
       "p.json: ipv6.nhi.tileBitmap: 7 members, expected an array of 8 numbers from 0 to 255"},
      {R"([255,)", R"([256,)", "p.json: ipv6.nhi.tileBitmap[0]: 256, expected 0 to 255"},
      {R"("entriesPerTile": 100)", R"("entriesPerTile": 16385)",
       "p.json: ipv6.nhi.entriesPerTile: 16385, expected 1 to 16384"},
      {R"("description": "A table each.",)", R"("description": "A table each.")",
       "p.json: line 4, column 8: not JSON, expected a chip profile in JSON"},
  };
  EXPECT_EQ(errorOf(kGood), "no error");
  for (const Case& one : cases) {
    EXPECT_EQ(errorOf(spoilt(one.from, one.to)), one.error) << one.to;
  }
  EXPECT_EQ(errorOf(""), "p.json: line 1, column 1: not JSON, expected a chip profile in JSON");
  EXPECT_EQ(errorOf("[]"), "p.json: [], expected an object");
}

TEST(ChipProfile, aChipRefusesAProfileBuiltWrongInCode) {
  ChipProfile profile = smallProfile();
  profile.ipv6.tables[3].rows = 24;
  try {
    const Chip chip(profile);
    FAIL() << "a chip was built";
  } catch (const ProfileError& error) {
    EXPECT_STREQ(error.what(),
                 "chip profile \"small\": ipv6.tables[3].rows: 24, expected a power of two from 1 "
                 "to 65536");
  }
}

TEST_F(ProfileDirectory, nameIsLookedUpThere) {
  write("mine.json", kGood);
  EXPECT_EQ(findProfile("mine").name, "one");
}

TEST_F(ProfileDirectory, pathsAreTakenAsTheyAre) {
  write("mine.json", kGood);
  EXPECT_EQ(findProfile((directory_ / "mine.json").string()).name, "one");
}

TEST_F(ProfileDirectory, unknownNameTellsTheKnownOnes) {
  write("mine.json", kGood);
  write("yours.json", kGood);
  write("notes.txt", "");
  EXPECT_EQ(errorOf("theirs"), "chip profile \"theirs\": not found in " + directory_.string() +
                                   ", expected one of mine, yours, or the path of a .json file");
}

TEST_F(ProfileDirectory, unreadableFilesAreNamed) {
  const std::string missing = (directory_ / "none.json").string();
  EXPECT_EQ(
      errorOf(missing),
      missing + ": cannot be read (No such file or directory), expected a chip profile in JSON");
  const std::string folder = (directory_ / "folder.json").string();
  std::filesystem::create_directory(folder);
  EXPECT_EQ(errorOf(folder),
            folder + ": cannot be read (Is a directory), expected a chip profile in JSON");
  write("empty.json", "");
  const std::string empty = (directory_ / "empty.json").string();
  EXPECT_EQ(errorOf(empty),
            empty + ": line 1, column 1: not JSON, expected a chip profile in JSON");
}

struct Shape {
  U32 count;
  U32 tread;
  U32 rows;

  bool operator==(const Shape&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Shape& shape) {
  return out << shape.count << " of tread " << shape.tread << " with " << shape.rows << " rows";
}

/// Runs of equal tables.
std::vector<Shape> shapesOf(const FamilyProfile& family) {
  std::vector<Shape> shapes;
  for (const PrefixTableProfile& table : family.tables) {
    if (shapes.empty() || shapes.back().tread != table.tread || shapes.back().rows != table.rows) {
      shapes.push_back({.count = 0, .tread = table.tread, .rows = table.rows});
    }
    ++shapes.back().count;
  }
  return shapes;
}

TEST(ShippedProfiles, internetHasItsTables) {
  const ChipProfile profile = findProfile("internet");
  EXPECT_EQ(shapesOf(profile.ipv4),
            (std::vector<Shape>{{14, 35, 65536}, {6, 28, 4096}, {2, 24, 512}, {1, 16, 16}}));
  EXPECT_EQ(shapesOf(profile.ipv6), (std::vector<Shape>{{6, 60, 16384},
                                                        {6, 51, 4096},
                                                        {6, 43, 8192},
                                                        {3, 128, 64},
                                                        {3, 64, 256},
                                                        {2, 34, 256},
                                                        {1, 16, 16}}));
  EXPECT_EQ(profile.nextHopRows, 65536U);
}

TEST(ShippedProfiles, compactAndSingleTileHaveTheSameTables) {
  for (const char* name : {"compact", "single-tile"}) {
    const ChipProfile profile = findProfile(name);
    EXPECT_EQ(shapesOf(profile.ipv4),
              (std::vector<Shape>{{14, 35, 8192}, {6, 28, 2048}, {2, 24, 512}, {1, 16, 16}}));
    EXPECT_EQ(shapesOf(profile.ipv6), (std::vector<Shape>{{6, 60, 8192},
                                                          {6, 51, 2048},
                                                          {6, 43, 4096},
                                                          {3, 128, 32},
                                                          {3, 64, 128},
                                                          {2, 34, 128},
                                                          {1, 16, 16}}));
  }
}

TEST(ShippedProfiles, allBuildChipsWhoseNeighboursHashApart) {
  for (const char* name : {"internet", "compact", "single-tile", "lab"}) {
    const Chip chip(findProfile(name));
    EXPECT_EQ(chip.profile().name, name);
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      const FamilyProfile& shape = chip.profile().family(family);
      for (std::size_t i = 0; i + 1 < shape.tables.size(); i += 2) {
        EXPECT_NE(shape.tables[i].hashPolySelect, shape.tables[i + 1].hashPolySelect)
            << name << " " << familyName(family) << " table " << i;
      }
    }
  }
}

TEST(ShippedProfiles, nhiMemoriesAreOfSixPairsWithFiveBitsOfSize) {
  for (const char* name : {"internet", "compact", "single-tile", "lab"}) {
    const ChipProfile profile = findProfile(name);
    const bool many = name == std::string("internet") || name == std::string("compact");
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      const NhiProfile& nhi = profile.family(family).nhi;
      EXPECT_EQ(nhi.pairsPerEntry, 6U) << name;
      EXPECT_EQ(nhi.blockBaseWidth, 16U) << name;
      EXPECT_EQ(nhi.tiles(), many ? 16U : 1U) << name;
      EXPECT_EQ(nhi.entriesPerTile, 16384U) << name;
    }
  }
}

}  // namespace
}  // namespace XdkSim
