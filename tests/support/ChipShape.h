#pragma once

#include <map>
#include <string>
#include <vector>

#include "model/Tarnlet.h"
#include "tests/support/Key.h"

namespace Quarle::Tarnlet::Testing {

/// One prefix table as a test wants it. A prefix whose first `tread` bits are those of a member of
/// `rows` gets the row given there; all others get a row by a plain hash of their first `tread`
/// bits, another one in each table.
struct TableShape {
  U8 id = 0;
  U8 tread = 0;
  U32 depth = 16;
  PrefixTableType type = prefixTableWide256b;
  std::map<std::string, U32> rows = {};
};

/// What real chips offer.
std::vector<U8> usualStrides();

/// The numbers of a small chip, one address family of it.
struct ChipShape {
  bool longKey = false;
  std::vector<TableShape> tables = {};
  std::vector<U8> strides = usualStrides();
  U8 pairsPerEntry = 8;
  U8 tiles = 1;
  U16 entriesPerTile = 64;
  bool multiEntry = true;
  // From this key length on, this least tread; 0 below the first.
  std::map<U8, U8> leastTreads = {};

  const TableShape* table(PrefixTableId id) const;
};

/// A table whose hash is the test's.
class ShapedTableConfig : public PrefixTableConfig {
 public:
  ShapedTableConfig(const TableShape& shape, bool longKey);

  U32 hashFunc(const LpmPrefix::Ptr& lpmPrefix) const override;

  U32 rowOf(const Key& key) const;

 private:
  std::map<Key, U32> rows_;
};

/// A configuration of this shape, without routes.
ConfigBase::Ptr makeConfig(const ChipShape& shape);

}  // namespace Quarle::Tarnlet::Testing
