// What a chip must offer before the first route: a line for each thing that it does not.

#include "agent/ProfileCheck.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "agent/ChipContexts.h"
#include "config/TarnletConfigurator.h"
#include "tests/support/ChipShape.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using namespace Tarnlet;
using namespace Tarnlet::Testing;

/// Sets an environment variable for as long as it lives.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }

  ~Variable() { unsetenv(name_); }

  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  const char* name_;
};

/// Tables that may take everything.
const std::vector<TableShape> kTables = {{.id = 0, .tread = 60}, {.id = 1, .tread = 16}};

ConfigBase::Ptr configOf(const std::vector<TableShape>& tables, bool ipv6 = false) {
  const ConfigBase::Ptr config =
      makeConfig({.longKey = ipv6, .tables = tables, .pairsPerEntry = 6});
  config->nhiBlockBaseWidthIs(16);
  return config;
}

/// As the configurator keeps long prefixes from tables of low treads.
ConfigBase::Ptr configWithLeastTreads(const std::vector<TableShape>& tables, bool ipv6 = false) {
  const ConfigBase::Ptr config = configOf(tables, ipv6);
  config->populateLeastTreadForPrefixLenSettings(false);
  return config;
}

std::string faults(const ConfigBase::Ptr& config, U8 maxLength) {
  std::string text;
  for (const std::string& fault : profileFaults(*config, maxLength)) {
    text += fault + "\n";
  }
  return text;
}

std::string longest(const ConfigBase::Ptr& config) {
  const std::optional<U8> length = longestServedLength(*config);
  return length ? "/" + std::to_string(*length) : "none";
}

TEST(ProfileCheck, tablesForEveryLengthAreFine) {
  EXPECT_EQ(faults(configOf(kTables), 32), "");
  EXPECT_EQ(faults(configOf(kTables, true), 128), "");
  EXPECT_EQ(longest(configOf(kTables)), "/32");
  EXPECT_EQ(longest(configOf(kTables, true)), "/128");
  EXPECT_NO_THROW(checkProfile(*configOf(kTables), 32));
}

TEST(ProfileCheck, theProfilesThatComeAlongAreFine) {
  for (const char* name : {"internet", "compact", "single-tile", "lab"}) {
    const XdkSim::Chip chip(
        XdkSim::readProfile(std::string(TARNLET_SOURCE_DIR "/profiles/") + name + ".json"));
    const ConfigV4::Ptr ipv4 = configV4Factory("ipv4");
    const ConfigV6::Ptr ipv6 = configV6Factory("ipv6");
    const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
    tarnletConfiguratorFactory(systemStatusOf(chip), ipv4, ipv6,
                               TarnletNextHop::configFactory("nextHops"), treads)
        ->doConfig();
    EXPECT_EQ(faults(ipv4, 32), "") << name;
    EXPECT_EQ(faults(ipv6, 128), "") << name;
  }
}

// ---- lengths ----

TEST(ProfileCheck, aLengthThatNoTableMayTakeIsNamed) {
  const ConfigBase::Ptr config = configWithLeastTreads({{.id = 0, .tread = 16}});
  EXPECT_EQ(longest(config), "/19");
  EXPECT_EQ(faults(config, 19), "");
  EXPECT_EQ(faults(config, 32),
            "IPv4: no prefix table may take a /20, that is, has a tread from 30 to 36, "
            "expected prefixes up to /19 at the most\n");
}

TEST(ProfileCheck, aGapBelowTheLongestLengthIsAGap) {
  // /20 and /21 ask for a tread of 30 or more, /22 for one of 35 or more.
  const ConfigBase::Ptr config =
      configWithLeastTreads({{.id = 0, .tread = 16}, {.id = 1, .tread = 38}});
  EXPECT_TRUE(servesLength(*config, 19));
  EXPECT_FALSE(servesLength(*config, 20));
  EXPECT_FALSE(servesLength(*config, 21));
  EXPECT_TRUE(servesLength(*config, 22)) << "in the table of just that tread";
  EXPECT_EQ(longest(config), "/19");
  EXPECT_EQ(profileFaults(*config, 32).size(), 1U);
}

TEST(ProfileCheck, theDefaultRouteNeedsATableToo) {
  const ConfigBase::Ptr config = configOf({{.id = 0, .tread = 17}});
  EXPECT_EQ(longest(config), "none");
  EXPECT_EQ(faults(config, 32),
            "IPv4: no prefix table may take a /0, that is, has a tread from 0 to 16, "
            "expected a table for every length from /0 on\n");
  EXPECT_EQ(longest(configOf({})), "none");
}

TEST(ProfileCheck, aRowThatIsNarrowerThanTheKeyIsNamed) {
  const ConfigBase::Ptr config = configOf(
      {{.id = 0, .tread = 16}, {.id = 7, .tread = 60, .type = prefixTableNarrow128b}}, true);
  EXPECT_EQ(longest(config), "/72");
  EXPECT_EQ(faults(config, 72), "") << "a key of 88 bits in 88";
  EXPECT_EQ(faults(config, 128),
            "IPv6: prefix table 7 may be asked to take a /73, a key of 89 bits, with rows that "
            "hold 88, expected prefixes up to /72 at the most\n");
}

TEST(ProfileCheck, aNarrowTableThatIsNotAskedForTheLengthIsFine) {
  // A tread below the least one of /44 and longer.
  EXPECT_EQ(faults(configWithLeastTreads({{.id = 0, .tread = 16},
                                          {.id = 1, .tread = 43, .type = prefixTableNarrow128b},
                                          {.id = 2, .tread = 60}},
                                         true),
                   128),
            "");
}

TEST(ProfileCheck, lengthsBeyondTheAddressCannotBeAskedFor) {
  EXPECT_EQ(faults(configOf(kTables), 33),
            "IPv4: prefixes up to /33, expected none longer than /32\n");
  EXPECT_FALSE(servesLength(*configOf(kTables), 33));
  EXPECT_FALSE(servesLength(*configOf(kTables, true), 129));
}

TEST(ProfileCheck, theKeyMustBeTheFamilys) {
  const ConfigBase::Ptr config = configOf(kTables, true);
  config->keyTypeIs(keyShort48b);
  EXPECT_EQ(faults(config, 128), "IPv6: keys of 48 bits, expected 144\n");
}

TEST(ProfileCheck, leastTreadsMustBeSetForTheKey) {
  const ConfigBase::Ptr config = configOf(kTables);
  config->leastTreadForPrefixLenDel(U8{48});
  EXPECT_EQ(faults(config, 32), "IPv4: least treads for 48 lengths, expected one for each of 49\n");
}

// ---- tables ----

TEST(ProfileCheck, tablesOfOneTreadMustBeOfOneWidth) {
  const TableShape narrow{.id = 3, .tread = 30, .type = prefixTableNarrow128b};
  EXPECT_EQ(faults(configOf({{.id = 0, .tread = 16}, {.id = 1, .tread = 30}, narrow}), 32),
            "IPv4: tables of tread 30 exchange rows, but those of prefix table 1 hold 216 bits and "
            "those of prefix table 3 88, expected one width\n");
  EXPECT_EQ(faults(configOf({{.id = 0, .tread = 16}, {.id = 1, .tread = 31}, narrow}), 32), "");
}

TEST(ProfileCheck, aTableMustHaveRows) {
  EXPECT_EQ(faults(configOf({{.id = 0, .tread = 16}, {.id = 4, .tread = 20, .depth = 0}}), 32),
            "IPv4: prefix table 4 has no rows, expected at least 1\n");
}

TEST(ProfileCheck, thereMustBeAStride) {
  const ConfigBase::Ptr config = configOf(kTables);
  config->availableStrideDelAll();
  config->availableStrideIs(0, true);
  EXPECT_EQ(faults(config, 32), "IPv4: no stride is offered, expected at least one\n");
}

// ---- NHI ----

TEST(ProfileCheck, onlyFourNumbersOfPairsAreKnown) {
  for (U32 pairs = 0; pairs < 256; ++pairs) {
    const ConfigBase::Ptr config = configOf(kTables);
    config->nhiPairPerEntryIs(static_cast<U8>(pairs));
    config->nhiBlockBaseWidthIs(8);
    const bool known = pairs == 6 || pairs == 7 || pairs == 8 || pairs == 10;
    EXPECT_EQ(faults(config, 32), known ? ""
                                        : "IPv4: NHI entries of " + std::to_string(pairs) +
                                              " pairs, expected 6, 7, 8 or 10\n");
  }
}

TEST(ProfileCheck, aPairMustHaveRoomForBaseAndSize) {
  const ConfigBase::Ptr config = configOf(kTables);
  const auto withBase = [&config](U8 pairs, U8 baseWidth) {
    config->nhiPairPerEntryIs(pairs);
    config->nhiBlockBaseWidthIs(baseWidth);
    return faults(config, 32);
  };
  EXPECT_EQ(withBase(6, 20), "");
  EXPECT_EQ(withBase(6, 21),
            "IPv4: NHI pairs of 21 bits with 21 of them for the base of a next-hop block, expected "
            "1 to 20, so that a size has room beside it\n");
  EXPECT_EQ(withBase(7, 17), "");
  EXPECT_NE(withBase(7, 18), "");
  EXPECT_EQ(withBase(8, 15), "");
  EXPECT_NE(withBase(8, 16), "") << "the library takes it, but every group would be refused";
  EXPECT_EQ(withBase(10, 11), "");
  EXPECT_NE(withBase(10, 12), "");
  EXPECT_NE(withBase(10, 200), "");
  EXPECT_NE(withBase(6, 0), "");
}

TEST(ProfileCheck, thereMustBeTilesWithEntries) {
  const ConfigBase::Ptr config = configOf(kTables);
  config->nhiAvailableTilesIs(0);
  config->nhiEntriesPerTileIs(0);
  EXPECT_EQ(faults(config, 32),
            "IPv4: 0 NHI tiles, expected at least 1\n"
            "IPv4: NHI tiles of 0 entries, expected at least 1\n");
  const Variable tiles("NUMBER_OF_NHI_TILES", "many");
  const Variable size("NHI_TABLE_SIZE", "65536");
  EXPECT_EQ(faults(config, 32),
            "IPv4: 0 NHI tiles by NUMBER_OF_NHI_TILES=\"many\" in the environment, expected at "
            "least 1\n"
            "IPv4: NHI tiles of 0 entries by NHI_TABLE_SIZE=\"65536\" in the environment, expected "
            "at least 1\n");
}

TEST(ProfileCheck, theBlockLimitOfTheEnvironmentMustAllowTheLargestBlock) {
  const ConfigBase::Ptr config = configOf(kTables);
  const auto withLimit = [&config](const char* limit) {
    const Variable variable("NHI_MAX_BLOCK_SIZE", limit);
    return faults(config, 32);
  };
  EXPECT_EQ(withLimit("5"), "") << "25 leaves of 8 bits, 6 pairs an entry";
  EXPECT_EQ(withLimit("36"), "");
  EXPECT_EQ(withLimit("4"),
            "IPv4: NHI_MAX_BLOCK_SIZE in the environment is \"4\", expected a number of at least 5 "
            "entries, which a row can need\n");
  for (const char* limit : {"", "0", "-1", "five", "36 entries", " 36", "99999999999"}) {
    EXPECT_NE(withLimit(limit), "") << limit;
  }
}

// ---- as an error ----

TEST(ProfileCheck, theFirstFaultIsRaised) {
  const ConfigBase::Ptr config = configOf(kTables);
  config->nhiEntriesPerTileIs(0);
  config->nhiAvailableTilesIs(0);
  try {
    checkProfile(*config, 32);
    FAIL() << "accepted";
  } catch (const ProfileError& error) {
    EXPECT_STREQ(error.what(), "IPv4: 0 NHI tiles, expected at least 1");
  }
}

}  // namespace
}  // namespace Quarle::Agent
