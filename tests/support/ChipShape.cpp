#include "tests/support/ChipShape.h"

namespace Quarle::Tarnlet::Testing {

std::vector<U8> usualStrides() {
  return {8, 9, 10, 11, 12, 14, 16, 20, 24, 28, 32, 48, 64, 96, 128};
}

const TableShape* ChipShape::table(PrefixTableId id) const {
  for (const TableShape& shape : tables) {
    if (shape.id == id.value()) {
      return &shape;
    }
  }
  return nullptr;
}

ShapedTableConfig::ShapedTableConfig(const TableShape& shape, bool longKey)
    : PrefixTableConfig(shape.id, shape.type, shape.depth, shape.tread) {
  for (const auto& [text, row] : shape.rows) {
    rows_[keyFrom(text, longKey).cut(shape.tread)] = row;
  }
}

U32 ShapedTableConfig::hashFunc(const LpmPrefix::Ptr& lpmPrefix) const {
  return rowOf(keyOf(*lpmPrefix));
}

U32 ShapedTableConfig::rowOf(const Key& key) const {
  // A prefix shorter than the tread hashes the zeros behind it too.
  const Key hashed = key.cut(tread());
  if (const auto given = rows_.find(hashed); given != rows_.end()) {
    return given->second;
  }
  U32 hash = 2166136261U + tableId().value() * 0x9e3779b9U;
  for (const U8 byte : hashed.bytes) {
    hash = (hash ^ byte) * 16777619U;
    hash ^= hash >> 15;
  }
  return hash % depth();
}

ConfigBase::Ptr makeConfig(const ChipShape& shape) {
  const ConfigBase::Ptr config = shape.longKey ? ConfigBase::Ptr(configV6Factory("config"))
                                               : ConfigBase::Ptr(configV4Factory("config"));
  config->keyTypeIs(shape.longKey ? keyLong144b : keyShort48b);
  config->populateLeastTreadForPrefixLenSettings(true);
  for (const auto& [fromLen, leastTread] : shape.leastTreads) {
    for (U32 len = fromLen; len <= config->keyLength(); ++len) {
      config->leastTreadForPrefixLenIs(static_cast<U8>(len), leastTread);
    }
  }
  for (const TableShape& table : shape.tables) {
    config->prefixTableConfigIs(new ShapedTableConfig(table, shape.longKey));
  }
  for (const U8 stride : shape.strides) {
    config->availableStrideIs(stride, true);
  }
  config->nhiPairPerEntryIs(shape.pairsPerEntry);
  config->nhiAvailableTilesIs(shape.tiles);
  config->nhiEntriesPerTileIs(shape.entriesPerTile);
  config->nhiTableSizeIs(U32{shape.entriesPerTile} * shape.tiles);
  config->supportMultiNhiEntriesPerSubTrieIs(shape.multiEntry);
  return config;
}

}  // namespace Quarle::Tarnlet::Testing
