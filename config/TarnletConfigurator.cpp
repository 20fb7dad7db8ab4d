// From a chip's table contexts to the configuration entities. Each value is checked where it is
// read and nothing is rolled back: a context that fails a check ends the process.

#include "config/TarnletConfigurator.h"

#include <bit>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <utility>

#include "config/LpmHashPolyTable.h"
#include "framework/Gimbrel/Gimbrel.h"
#include "framework/Vellor/Invariant.h"
#include "framework/Vellor/Trace.h"
#include "framework/Xdk/XpHashFunction.h"
#include "framework/Xdk/XpTableContext.h"
#include "model/TraceUnits.h"

namespace Quarle {

namespace {

// Places of the three tables in the chip's table-context store.
constexpr U32 kLpmTableIdV4 = 50;
constexpr U32 kLpmTableIdV6 = 51;
constexpr U32 kNextHopTableId = 52;

// The chip does not say how large a tile is.
constexpr U16 kNhiEntriesPerTile = 16384;

// Bits of every hash's input: of the long key, whichever the family.
constexpr U32 kHashWidth = 144;

constexpr U8 kStrides[] = {8, 9, 10, 11, 12, 14, 16, 20, 24, 28, 32, 48, 64, 96, 128};

/// The number that a variable of the environment holds, if it is set.
std::optional<long> environmentNumber(const char* name) {
  const char* text = std::getenv(name);
  if (text == nullptr) {
    return std::nullopt;
  }
  return std::strtol(text, nullptr, 10);
}

Tarnlet::KeyType keyTypeOf(U32 keyWidth) {
  switch (keyWidth) {
    case 48:
      return Tarnlet::keyShort48b;
    case 144:
      return Tarnlet::keyLong144b;
    default:
      VELLOR_ASSERT(false, "false && \"Unsupported LPM key length\"");
      return Tarnlet::keyLong144b;
  }
}

Tarnlet::PrefixTableType tableTypeOf(const xpLpmPrefixTableRecord& prefixTableContext) {
  if (prefixTableContext.sramWidth == 128) {
    return Tarnlet::prefixTableNarrow128b;
  }
  // The text names one of the two widths; clients know it by these words.
  VELLOR_ASSERT(prefixTableContext.sramWidth == 256, "prefixTableContext.sramWidth == 256");
  return Tarnlet::prefixTableWide256b;
}

/// Bits of a row number; of a depth that is no power of two, of its largest power of two. A table
/// without rows has none.
U8 hashBitsOf(U32 depth) {
  return depth == 0 ? 0 : static_cast<U8>(std::log2(static_cast<double>(depth)));
}

/// The select is not held to its four columns: a larger one reaches into the rows below.
U32 hashPolyOf(U32 table, U32 hashPolySelect) {
  const U64 hashPolyEntry = U64{hashPolySelect} + 4 * (table / 2);
  VELLOR_ASSERT(hashPolyEntry < lpmHashPolyTable.size(), "hashPolyEntry < lpmHashPolyTable.size()");
  return lpmHashPolyTable[hashPolyEntry];
}

Tarnlet::XpPrefixTableConfig::Ptr prefixTableConfigOf(U8 table,
                                                      const xpLpmPrefixTableRecord& context) {
  const Tarnlet::PrefixTableType tableType = tableTypeOf(context);
  VELLOR_GIMBREL_TRACE(tarnletConfiguratorTrace, 1, "Creating PrefixTableConfig, tableId: ", table,
                       " tableType: ", tableType, " depth: ", context.depth,
                       " tread: ", context.tread);
  auto tableConfig =
      Tarnlet::xpPrefixTableConfigFactory(table, tableType, context.depth, context.tread);
  const U32 hashPoly = hashPolyOf(table, context.hashPolySelect);
  const U8 hashBits = hashBitsOf(context.depth);
  VELLOR_GIMBREL_TRACE(tarnletConfiguratorTrace, 1,
                       "Setting prefixTable to use hash function, tread: ", context.tread,
                       " hashBits: ", hashBits, " hashPoly: ", hashPoly);
  tableConfig->xdkHashFunctionIs(
      new crcHashFunction(kHashWidth, hashBits, hashPoly, /*enabled=*/true, context.tread));
  return tableConfig;
}

/// The tiles of the groups that count.
U8 availableTilesOf(const xpLpmTableContext& lpmContext) {
  U8 tiles = 0;
  for (U32 group = 0; group < xpLpmTableContext::kNhiTileBytes; ++group) {
    if ((lpmContext.nhiGroupMask >> group & 1U) != 0) {
      tiles = static_cast<U8>(tiles + std::popcount(lpmContext.nhiTileBitmap[group]));
    }
  }
  return tiles;
}

void configureNhi(const xpLpmTableContext& lpmContext, Tarnlet::ConfigBase& lpmConfig) {
  // One override moves the size of the table and the size of a tile.
  const std::optional<long> tableSize = environmentNumber("NHI_TABLE_SIZE");
  const std::optional<long> tiles = environmentNumber("NUMBER_OF_NHI_TILES");
  lpmConfig.nhiTableSizeIs(tableSize ? static_cast<U32>(*tableSize) : lpmContext.nhiTableSize);
  lpmConfig.nhiPairPerEntryIs(lpmContext.nhiPairPerEntry);
  lpmConfig.nhiBlockBaseWidthIs(lpmContext.nhiBlockBaseWidth);
  lpmConfig.nhiEntriesPerTileIs(tableSize ? static_cast<U16>(*tableSize) : kNhiEntriesPerTile);
  lpmConfig.nhiAvailableTilesIs(tiles ? static_cast<U8>(*tiles) : availableTilesOf(lpmContext));
}

}  // namespace

TarnletConfigurator::TarnletConfigurator(Sennet::SystemStatus::PtrConst systemStatus,
                                         Tarnlet::ConfigV4::Ptr lpmConfigV4,
                                         Tarnlet::ConfigV6::Ptr lpmConfigV6,
                                         TarnletNextHop::Config::Ptr lpmNhConfig,
                                         Config::LpmTreadCfg::PtrConst lpmTreadCfg)
    : systemStatus_(std::move(systemStatus)),
      lpmConfigV4_(std::move(lpmConfigV4)),
      lpmConfigV6_(std::move(lpmConfigV6)),
      lpmNhConfig_(std::move(lpmNhConfig)),
      lpmTreadCfg_(std::move(lpmTreadCfg)) {}

void TarnletConfigurator::doConfig() {
  configLpmWithTableContext(kLpmTableIdV4, lpmConfigV4_);
  configLpmWithTableContext(kLpmTableIdV6, lpmConfigV6_);
  configNhWithTableContext();
}

void TarnletConfigurator::configLpmWithTableContext(U32 tableId,
                                                    const Tarnlet::ConfigBase::Ptr& lpmConfig) {
  const Halyard::TableContextEntry::Ptr entry = contextEntry(tableId);
  VELLOR_ASSERT(entry, "contextEntry");
  xpLpmTableContext lpmContext;
  entry->xpTblContext(0, &lpmContext, false);
  VELLOR_ASSERT(lpmContext.vrfIdWidth == Tarnlet::ConfigBase::vrfBits(),
                "lpmContext.vrfIdWidth == Tarnlet::ConfigBase::vrfBits()");
  lpmConfig->keyTypeIs(keyTypeOf(lpmContext.keyWidth));
  for (U8 table = 0; table < xpLpmTableContext::kPrefixTables; ++table) {
    if (lpmContext.prefixTableRecord[table].valid != 0) {
      lpmConfig->prefixTableConfigIs(
          prefixTableConfigOf(table, lpmContext.prefixTableRecord[table]));
    }
  }
  // By the key, not by the family: the lengths that the map is about are the key's.
  const bool lpmTreadUserCfgd = lpmConfig->keyType() == Tarnlet::keyShort48b
                                    ? lpmTreadCfg_->v4TreadUserCfgd()
                                    : lpmTreadCfg_->v6TreadUserCfgd();
  lpmConfig->populateLeastTreadForPrefixLenSettings(lpmTreadUserCfgd);
  configureNhi(lpmContext, *lpmConfig);
  for (const U8 stride : kStrides) {
    lpmConfig->availableStrideIs(stride, true);
  }
  VELLOR_GIMBREL_TRACE(tarnletConfiguratorTrace, 1,
                       "Setting NHI table size: ", lpmConfig->nhiTableSize(),
                       " pairPerEntry: ", lpmConfig->nhiPairPerEntry(),
                       " blockBaseWidth: ", lpmConfig->nhiBlockBaseWidth(),
                       " entriesPerTile: ", lpmConfig->nhiEntriesPerTile(),
                       " availableTiles: ", lpmConfig->nhiAvailableTiles());
}

void TarnletConfigurator::configNhWithTableContext() {
  const Halyard::TableContextEntry::Ptr entry = contextEntry(kNextHopTableId);
  VELLOR_ASSERT(entry, "nhContextEntry");
  xpNhTableContext nhContext;
  entry->xpTblContext(0, &nhContext, false);
  if (lpmNhConfig_->tableSize() == 0) {
    lpmNhConfig_->tableSizeIs(nhContext.rowBlkInc);
    VELLOR_TRACE(tarnletConfiguratorTrace, 1,
                 "Set the NextHop table size to " << nhContext.rowBlkInc);
  } else {
    VELLOR_ASSERT(lpmNhConfig_->tableSize() == nhContext.rowBlkInc,
                  "lpmNhConfig()->tableSize() == nhContext.rowBlkInc");
  }
}

Halyard::TableContextEntry::Ptr TarnletConfigurator::contextEntry(U32 tableId) const {
  const auto firstChip = systemStatus_->chipIteratorConst();
  VELLOR_ASSERT(firstChip && firstChip.value(), "chipStatus");
  return firstChip.value()->tableContext(tableId);
}

TarnletConfigurator::Ptr tarnletConfiguratorFactory(
    const Sennet::SystemStatus::PtrConst& systemStatus,
    const Tarnlet::ConfigV4::Ptr& lpmConfigV4,
    const Tarnlet::ConfigV6::Ptr& lpmConfigV6,
    const TarnletNextHop::Config::Ptr& lpmNhConfig,
    const Config::LpmTreadCfg::PtrConst& lpmTreadCfg) {
  return new TarnletConfigurator(systemStatus, lpmConfigV4, lpmConfigV6, lpmNhConfig, lpmTreadCfg);
}

}  // namespace Quarle
