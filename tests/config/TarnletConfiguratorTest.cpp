#include <string>
#include <vector>

#include "config/LpmHashPolyTable.h"
#include "config/TarnletConfigurator.h"
#include "model/Tarnlet.h"
#include "tests/config/BitwiseCrc.h"
#include "tests/config/FakeChip.h"
#include "tests/support/Random.h"
#include "tests/support/TraceLines.h"
#include "xdksim/Chip.h"
#include "xdksim/HashPolynomials.h"

#include <gtest/gtest.h>

namespace {

using namespace Quarle;
using Quarle::Testing::bitwiseCrcRow;
using Quarle::Testing::cutTo;
using Quarle::Testing::EnvironmentVariable;
using Quarle::Testing::FakeChip;
using Quarle::Testing::keyOf;
using Vellor::Testing::TraceLines;

/// The words of the trace line with " hashBits: " for a table of this depth.
std::string hashTraceOf(U32 depth) {
  FakeChip chip;
  chip.table(0, {.depth = depth, .sramWidth = 256, .tread = 35, .hashPolySelect = 0});
  TraceLines trace("TarnletConfigurator", {1});
  chip.configure();
  const std::string lines = trace.take();
  const std::size_t at = lines.find(" hashBits: ");
  return lines.substr(at, lines.find(" hashPoly") - at);
}

/// The polynomial by which a table hashes, found by trying all of them; 0 for none.
U32 polynomialOf(const Tarnlet::XpPrefixTableConfig::Ptr& table, U32 hashBits) {
  for (const U32 poly : lpmHashPolyTable) {
    bool agrees = true;
    for (U32 i = 0; agrees && i < 64; ++i) {
      const U32 address = i * 0x9e3779b9U;
      const U32 row = table->hashFunc(Tarnlet::lpmPrefixV4Factory(
          Dunlix::VrfAndPrefix(static_cast<U16>(i), Corsel::Prefix(address, 32))));
      const auto vrf = static_cast<U16>(i);
      agrees = row == bitwiseCrcRow(cutTo(table->tread(), keyOf(vrf, address)), poly, hashBits);
    }
    if (agrees) {
      return poly;
    }
  }
  return 0;
}

TEST(TarnletConfigurator, aContextWithoutValidTablesGivesNone) {
  FakeChip chip;
  chip.ipv4().prefixTableRecord[3] = {
      .valid = 0, .depth = 16, .sramWidth = 7, .tread = 35, .hashPolySelect = 0};
  chip.configure();
  EXPECT_EQ(chip.configV4->prefixTableConfigs(), 0U);
  EXPECT_EQ(chip.configV6->prefixTableConfigs(), 0U);
}

TEST(TarnletConfigurator, everyValidRecordBecomesATableOfItsNumber) {
  FakeChip chip;
  chip.table(0, {.depth = 65536, .sramWidth = 256, .tread = 35, .hashPolySelect = 0})
      .table(5, {.depth = 512, .sramWidth = 128, .tread = 24, .hashPolySelect = 1})
      .table(31, {.depth = 16, .sramWidth = 256, .tread = 16, .hashPolySelect = 3});
  chip.ipv4().prefixTableRecord[5].valid = 255;
  chip.configure();
  EXPECT_EQ(chip.configV4->prefixTableConfigs(), 3U);
  EXPECT_EQ(chip.tableV4(0)->str(), "0,1,0,35") << "the form has the low 16 bits of the depth";
  EXPECT_EQ(chip.tableV4(0)->depth(), 65536U);
  EXPECT_EQ(chip.tableV4(5)->str(), "5,0,512,24");
  EXPECT_EQ(chip.tableV4(31)->str(), "31,1,16,16");
}

TEST(TarnletConfigurator, contextsAreReadByTheirNumbers) {
  FakeChip chip;
  chip.configure();
  EXPECT_EQ(chip.lpmV4->reads, 1U);
  EXPECT_EQ(chip.lpmV6->reads, 1U);
  EXPECT_EQ(chip.nh->reads, 1U);
  EXPECT_EQ(chip.configV4->keyType(), Tarnlet::keyShort48b);
  EXPECT_EQ(chip.configV6->keyType(), Tarnlet::keyLong144b);
}

TEST(TarnletConfigurator, theFirstChipOfTheWalkCounts) {
  FakeChip chip;
  FakeChip other;
  chip.nextHop().rowBlkInc = 111;
  other.nextHop().rowBlkInc = 222;
  chip.system->chipDel("chip");
  for (const char* name : {"a", "b", "c", "d"}) {
    chip.system->chipIs(name, other.status);
  }
  const Vellor::Name first = chip.system->chipIterator().key();
  chip.system->chipIs(first, chip.status);
  chip.configure();
  EXPECT_EQ(chip.configNh->tableSize(), 111U) << "first is " << first;
}

TEST(TarnletConfigurator, hashBitsAreTheFloorOfTheDepthsLogarithm) {
  EXPECT_EQ(hashTraceOf(4096), " hashBits: 12");
  EXPECT_EQ(hashTraceOf(6000), " hashBits: 12");
  EXPECT_EQ(hashTraceOf(8191), " hashBits: 12");
  EXPECT_EQ(hashTraceOf(8192), " hashBits: 13");
  EXPECT_EQ(hashTraceOf(1), " hashBits: 0");
  EXPECT_EQ(hashTraceOf(0), " hashBits: 0");
  EXPECT_EQ(hashTraceOf(4294967295U), " hashBits: 31");
}

TEST(TarnletConfigurator, neighbouringTablesShareARowOfPolynomials) {
  FakeChip chip;
  for (U32 id = 0; id < 32; ++id) {
    chip.table(id, {.depth = 65536, .sramWidth = 256, .tread = 48, .hashPolySelect = 2});
  }
  chip.configure();
  EXPECT_EQ(polynomialOf(chip.tableV4(6), 16), 0x1EA51U);
  EXPECT_EQ(polynomialOf(chip.tableV4(7), 16), 0x1EA51U);
  EXPECT_EQ(polynomialOf(chip.tableV4(8), 16), 0x1A485U);
  EXPECT_EQ(polynomialOf(chip.tableV4(31), 16), 0x140CDU);
}

TEST(TarnletConfigurator, theSelectPicksTheColumn) {
  FakeChip chip;
  for (U32 id = 0; id < 4; ++id) {
    chip.table(id, {.depth = 6000, .sramWidth = 256, .tread = 35, .hashPolySelect = id});
  }
  chip.configure();
  EXPECT_EQ(polynomialOf(chip.tableV4(0), 12), 0x1B1DDU);
  EXPECT_EQ(polynomialOf(chip.tableV4(1), 12), 0x1901BU);
  EXPECT_EQ(polynomialOf(chip.tableV4(2), 12), 0x1C867U);
  EXPECT_EQ(polynomialOf(chip.tableV4(3), 12), 0x1E015U);
}

TEST(TarnletConfigurator, aSelectAboveItsColumnsReachesIntoTheNextRow) {
  FakeChip chip;
  chip.table(0, {.depth = 4096, .sramWidth = 256, .tread = 35, .hashPolySelect = 5});
  chip.configure();
  EXPECT_EQ(polynomialOf(chip.tableV4(0), 12), 0x15483U);
}

TEST(TarnletConfigurator, thePolynomialsAreTheChips) {
  for (U32 i = 0; i < lpmHashPolyTable.size(); ++i) {
    EXPECT_EQ(lpmHashPolyTable[i], XdkSim::kHashPolynomials[i]) << "entry " << i;
  }
}

TEST(TarnletConfigurator, everyHashTakesTheTablesTread) {
  FakeChip chip;
  chip.table(4, {.depth = 512, .sramWidth = 256, .tread = 28, .hashPolySelect = 0}).configure();
  const auto* hash = dynamic_cast<crcHashFunction*>(chip.tableV4(4)->xdkHashFunction());
  ASSERT_NE(hash, nullptr);
  EXPECT_EQ(hash->tread(), 28U);
}

TEST(TarnletConfigurator, leastTreadsFollowFromTheKey) {
  FakeChip chip;
  chip.configure();
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLens(), 49U);
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLen(38), 35);
  EXPECT_EQ(chip.configV6->leastTreadForPrefixLens(), 145U);
  EXPECT_EQ(chip.configV6->leastTreadForPrefixLen(60), 60);
}

TEST(TarnletConfigurator, aUsersTreadsLeaveNoLeastTread) {
  FakeChip chip;
  chip.treadCfg->v4TreadUserCfgdIs(true);
  chip.configure();
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLens(), 49U);
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLen(38), 0);
  EXPECT_EQ(chip.configV6->leastTreadForPrefixLen(60), 60);

  chip.treadCfg->v4TreadUserCfgdIs(false);
  chip.treadCfg->v6TreadUserCfgdIs(true);
  chip.configure();
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLen(38), 35);
  EXPECT_EQ(chip.configV6->leastTreadForPrefixLen(60), 0);
}

TEST(TarnletConfigurator, theUsersTreadsGoByTheKeyAndNotByTheFamily) {
  FakeChip chip;
  chip.ipv4().keyWidth = 144;
  chip.treadCfg->v4TreadUserCfgdIs(true);
  chip.configure();
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLens(), 145U);
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLen(38), 35);
  chip.treadCfg->v6TreadUserCfgdIs(true);
  chip.configure();
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLen(38), 0);
}

TEST(TarnletConfigurator, nhiNumbersComeFromTheContext) {
  FakeChip chip;
  chip.ipv4().nhiTableSize = 262144;
  chip.ipv4().nhiPairPerEntry = 8;
  chip.ipv4().nhiBlockBaseWidth = 14;
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiTableSize(), 262144U);
  EXPECT_EQ(chip.configV4->nhiPairPerEntry(), 8);
  EXPECT_EQ(chip.configV4->nhiBlockBaseWidth(), 14);
  EXPECT_EQ(chip.configV4->nhiEntriesPerTile(), 16384) << "fixed, whatever the table's size";
  EXPECT_TRUE(chip.configV4->supportMultiNhiEntriesPerSubTrie()) << "the client's to set";
}

TEST(TarnletConfigurator, tilesAreTheBitsOfTheGroupsThatCount) {
  FakeChip chip;
  chip.ipv4().nhiGroupMask = 0x85;
  const U8 bitmap[] = {0xff, 0xff, 0x11, 0xff, 0xff, 0xff, 0xff, 0x80};
  std::copy(std::begin(bitmap), std::end(bitmap), chip.ipv4().nhiTileBitmap);
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 8 + 2 + 1);
  chip.ipv4().nhiGroupMask = 0xff;
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 8 + 8 + 2 + 8 + 8 + 8 + 8 + 1);
}

TEST(TarnletConfigurator, groupsAboveTheEighthPlayNoPart) {
  FakeChip chip;
  chip.ipv4().nhiGroupMask = 0xffffff00U;
  std::fill(std::begin(chip.ipv4().nhiTileBitmap), std::end(chip.ipv4().nhiTileBitmap), 0xff);
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 0);
}

TEST(TarnletConfigurator, aZeroGroupMaskGivesNoTiles) {
  FakeChip chip;
  std::fill(std::begin(chip.ipv4().nhiTileBitmap), std::end(chip.ipv4().nhiTileBitmap), 0xff);
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 0);
}

TEST(TarnletConfigurator, strideListIsTheChips) {
  FakeChip chip;
  chip.configure();
  std::vector<U32> strides;
  for (auto stride = chip.configV4->availableStrideIterator(); stride; ++stride) {
    EXPECT_TRUE(stride.value());
    strides.push_back(stride.key());
  }
  const std::vector<U32> expected = {8, 9, 10, 11, 12, 14, 16, 20, 24, 28, 32, 48, 64, 96, 128};
  EXPECT_EQ(strides, expected);
  EXPECT_EQ(chip.configV6->availableStrides(), 15U);
}

TEST(TarnletConfigurator, theNextHopTableTakesTheChipsSize) {
  FakeChip chip;
  chip.nextHop().rowBlkInc = 65536;
  chip.configure();
  EXPECT_EQ(chip.configNh->tableSize(), 65536U);
  chip.configure();
  EXPECT_EQ(chip.configNh->tableSize(), 65536U) << "the chip's own value is accepted";
}

TEST(TarnletConfigurator, configuringTwiceReplacesTheTables) {
  FakeChip chip;
  chip.table(2, {.depth = 512, .sramWidth = 256, .tread = 35, .hashPolySelect = 0}).configure();
  const Tarnlet::XpPrefixTableConfig::Ptr former = chip.tableV4(2);
  chip.configure();
  EXPECT_NE(chip.tableV4(2), former);
  EXPECT_EQ(former->references(), 1U) << "nothing else keeps the old table and its hash";
  EXPECT_EQ(chip.configV4->prefixTableConfigs(), 1U);
  EXPECT_EQ(chip.configV4->availableStrides(), 15U);
  EXPECT_EQ(chip.configV4->leastTreadForPrefixLens(), 49U);
}

TEST(TarnletConfigurator, attributesStandInDeclarationOrder) {
  const FakeChip chip;
  const char* expected[] = {"systemStatus", "lpmConfigV4", "lpmConfigV6",
                            "lpmNhConfig",  "lpmTreadCfg", "unknown"};
  for (U32 id = 0; id < 6; ++id) {
    EXPECT_EQ(Vellor::attributeString<TarnletConfigurator>(id), expected[id]);
  }
  EXPECT_EQ(chip.configurator->systemStatus().get(), chip.system.get());
  EXPECT_EQ(chip.configurator->lpmConfigV4(), chip.configV4);
  EXPECT_EQ(chip.configurator->lpmConfigV6(), chip.configV6);
  EXPECT_EQ(chip.configurator->lpmNhConfig(), chip.configNh);
  EXPECT_EQ(chip.configurator->lpmTreadCfg().get(), chip.treadCfg.get());
  EXPECT_STREQ(chip.configurator->fwkType()->name, "Quarle::TarnletConfigurator");
}

TEST(TarnletConfigurator, everyTableSelectsTheRowThatTheChipReads) {
  const XdkSim::Chip hardware(XdkSim::findProfile("internet"));
  FakeChip chip;
  ASSERT_TRUE(hardware.fillTableContext(50, &chip.ipv4()));
  ASSERT_TRUE(hardware.fillTableContext(51, &chip.ipv6()));
  ASSERT_TRUE(hardware.fillTableContext(52, &chip.nextHop()));
  chip.configure();
  Random random;
  for (U32 i = 0; i < 100; ++i) {
    const auto vrf = static_cast<U16>(random.word());
    Corsel::Ip6Prefix::Bytes bytes;
    for (U8& byte : bytes) {
      byte = random.byte();
    }
    const U32 address =
        U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | U32{bytes[3]};
    const Tarnlet::LpmPrefix::Ptr v4 =
        Tarnlet::lpmPrefixV4Factory(Dunlix::VrfAndPrefix(vrf, Corsel::Prefix(address, 32)));
    const Tarnlet::LpmPrefix::Ptr v6 =
        Tarnlet::lpmPrefixV6Factory(Dunlix::VrfAndIp6Prefix(vrf, Corsel::Ip6Prefix(bytes, 128)));
    for (const auto& table : hardware.explain(XdkSim::Family::ipv4, vrf, bytes.data()).tables) {
      ASSERT_EQ(chip.configV4->prefixTableConfig(static_cast<U8>(table.table))->hashFunc(v4),
                table.row)
          << random.seedText() << " table " << table.table << " " << v4->stringValue();
    }
    for (const auto& table : hardware.explain(XdkSim::Family::ipv6, vrf, bytes.data()).tables) {
      ASSERT_EQ(chip.configV6->prefixTableConfig(static_cast<U8>(table.table))->hashFunc(v6),
                table.row)
          << random.seedText() << " table " << table.table << " " << v6->stringValue();
    }
  }
}

TEST(ConfiguratorEnvironment, nhiTableSizeMovesTheTableAndTheTile) {
  FakeChip chip;
  chip.ipv4().nhiTableSize = 262144;
  const EnvironmentVariable size("NHI_TABLE_SIZE", "70000");
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiTableSize(), 70000U);
  EXPECT_EQ(chip.configV4->nhiEntriesPerTile(), 4464);
  EXPECT_EQ(chip.configV6->nhiTableSize(), 70000U) << "both families alike";
  EXPECT_EQ(chip.configV6->nhiEntriesPerTile(), 4464);
}

TEST(ConfiguratorEnvironment, noTilesCanBeAskedFor) {
  FakeChip chip;
  chip.ipv4().nhiGroupMask = 1;
  chip.ipv4().nhiTileBitmap[0] = 0xff;
  const EnvironmentVariable tiles("NUMBER_OF_NHI_TILES", "0");
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 0);
}

TEST(ConfiguratorEnvironment, theNumberOfTilesIsCutTo8Bits) {
  FakeChip chip;
  const EnvironmentVariable tiles("NUMBER_OF_NHI_TILES", "259");
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 3);
  EXPECT_EQ(chip.configV6->nhiAvailableTiles(), 3);
}

TEST(ConfiguratorEnvironment, whatIsNoNumberCountsAsZero) {
  FakeChip chip;
  chip.ipv4().nhiTableSize = 262144;
  const EnvironmentVariable size("NHI_TABLE_SIZE", "many");
  const EnvironmentVariable tiles("NUMBER_OF_NHI_TILES", "");
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiTableSize(), 0U);
  EXPECT_EQ(chip.configV4->nhiEntriesPerTile(), 0);
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 0);
}

TEST(ConfiguratorEnvironment, numbersAreDecimal) {
  FakeChip chip;
  const EnvironmentVariable size("NHI_TABLE_SIZE", "010 entries");
  const EnvironmentVariable tiles("NUMBER_OF_NHI_TILES", "0x10");
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiTableSize(), 10U);
  EXPECT_EQ(chip.configV4->nhiAvailableTiles(), 0);
}

TEST(ConfiguratorEnvironment, itIsReadAtEachCall) {
  FakeChip chip;
  chip.ipv4().nhiTableSize = 262144;
  {
    const EnvironmentVariable size("NHI_TABLE_SIZE", "100");
    chip.configure();
    EXPECT_EQ(chip.configV4->nhiTableSize(), 100U);
  }
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiTableSize(), 262144U);
  EXPECT_EQ(chip.configV4->nhiEntriesPerTile(), 16384);
}

TEST(ConfiguratorEnvironment, theBlockLimitIsNotReadHere) {
  FakeChip chip;
  const EnvironmentVariable limit("NHI_MAX_BLOCK_SIZE", "3");
  chip.configure();
  EXPECT_EQ(chip.configV4->nhiMaxBlockSize(), 36);
}

TEST(ConfiguratorTrace, tablesHashesAndNumbersAreTold) {
  FakeChip chip;
  chip.table(8, {.depth = 6000, .sramWidth = 128, .tread = 35, .hashPolySelect = 2});
  chip.ipv4().nhiTableSize = 262144;
  chip.ipv4().nhiGroupMask = 2;
  chip.ipv4().nhiTileBitmap[1] = 0x0f;
  TraceLines trace("TarnletConfigurator", {1});
  chip.configure();
  EXPECT_EQ(trace.take(),
            "1:Creating PrefixTableConfig, tableId: 8 tableType: prefixTableNarrow128b depth: 6000 "
            "tread: 35\n"
            "1:Setting prefixTable to use hash function, tread: 35 hashBits: 12 hashPoly: 107653\n"
            "1:Setting NHI table size: 262144 pairPerEntry: 6 blockBaseWidth: 16 entriesPerTile: "
            "16384 availableTiles: 4\n"
            "1:Setting NHI table size: 0 pairPerEntry: 6 blockBaseWidth: 16 entriesPerTile: 16384 "
            "availableTiles: 0\n"
            "1:Set the NextHop table size to 4096\n");
  EXPECT_EQ(trace.facilityOfLast(), "TarnletConfigurator");
  EXPECT_NE(trace.fileOfLast().find("TarnletConfigurator"), std::string::npos);
}

TEST(TarnletConfiguratorDeathTest, aMissingPrefixContextIsFatal) {
  FakeChip chip;
  chip.status->tableContextDel(51);
  EXPECT_DEATH(chip.configure(), "configLpmWithTableContext: Assertion `contextEntry' failed\\.");
}

TEST(TarnletConfiguratorDeathTest, aMissingNextHopContextIsFatal) {
  FakeChip chip;
  chip.status->tableContextDel(52);
  EXPECT_DEATH(chip.configure(), "configNhWithTableContext: Assertion `nhContextEntry' failed\\.");
}

TEST(TarnletConfiguratorDeathTest, aSystemWithoutChipsIsFatal) {
  FakeChip chip;
  chip.system->chipDel("chip");
  EXPECT_DEATH(chip.configure(), "Assertion `chipStatus' failed\\.");
}

TEST(TarnletConfiguratorDeathTest, theVrfHas16Bits) {
  FakeChip chip;
  chip.ipv4().vrfIdWidth = 12;
  EXPECT_DEATH(chip.configure(),
               "Assertion `lpmContext\\.vrfIdWidth == Tarnlet::ConfigBase::vrfBits\\(\\)' failed");
}

TEST(TarnletConfiguratorDeathTest, aKeyHas48Or144Bits) {
  FakeChip chip;
  chip.ipv6().keyWidth = 96;
  EXPECT_DEATH(chip.configure(), "Assertion `false && \"Unsupported LPM key length\"' failed\\.");
}

TEST(TarnletConfiguratorDeathTest, aRowWidthIsRefusedByTheNameOfTheOtherOne) {
  FakeChip chip;
  chip.table(0, {.depth = 16, .sramWidth = 64, .tread = 35, .hashPolySelect = 0});
  EXPECT_DEATH(chip.configure(), "Assertion `prefixTableContext\\.sramWidth == 256' failed\\.");
}

TEST(TarnletConfiguratorDeathTest, aSizeSetAheadMustBeTheChips) {
  FakeChip chip;
  chip.configNh->tableSizeIs(1024);
  EXPECT_DEATH(chip.configure(),
               "Assertion `lpmNhConfig\\(\\)->tableSize\\(\\) == nhContext\\.rowBlkInc' failed");
}

TEST(TarnletConfiguratorDeathTest, aSelectBehindTheWholeTableIsFatal) {
  FakeChip chip;
  chip.table(31, {.depth = 16, .sramWidth = 256, .tread = 35, .hashPolySelect = 4});
  EXPECT_DEATH(chip.configure(),
               "Assertion `hashPolyEntry < lpmHashPolyTable\\.size\\(\\)' failed\\.");
}

TEST(TableContextEntry, readingIsTheDerivedClasss) {
  Halyard::TableContextEntry entry;
  xpNhTableContext context;
  try {
    entry.xpTblContext(0, &context, false);
    FAIL() << "an exception was expected";
  } catch (const Vellor::NoImplementationException& exception) {
    EXPECT_EQ(exception.message(), "xpTblContext must be implemented in the derived class");
  }
}

TEST(ChipStatus, anUnknownTableHasNoContext) {
  const FakeChip chip;
  EXPECT_EQ(chip.status->tableContext(49), nullptr);
  EXPECT_EQ(chip.status->tableContext(52), chip.nh);
}

}  // namespace
