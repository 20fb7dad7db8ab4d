#pragma once

#include "framework/Vellor/Types.h"
#include "framework/Xdk/XpExport.h"

/// Base of the records in which the SDK describes the tables of a chip. A default-constructed
/// context is all zero; whoever holds the chip's table-context store fills it.
class XDK_API xpTableContext {
 public:
  xpTableContext() = default;
  xpTableContext(const xpTableContext&) = default;
  xpTableContext& operator=(const xpTableContext&) = default;
  virtual ~xpTableContext() = default;
};

/// One prefix table of a chip.
struct xpLpmPrefixTableRecord {
  // Zero: the chip has no table of this number, and the other fields mean nothing.
  U8 valid = 0;
  // Rows.
  U32 depth = 0;
  // Bits of one row: 128 or 256.
  U32 sramWidth = 0;
  // Leading key bits that are hashed to select a row.
  U8 tread = 0;
  // Column of the polynomial table, 0 to 3.
  U32 hashPolySelect = 0;
};

/// The prefix tables and the NHI memory of one address family.
class XDK_API xpLpmTableContext : public xpTableContext {
 public:
  static constexpr U32 kPrefixTables = 32;
  static constexpr U32 kNhiTileBytes = 8;

  // Bits of a key: 48 or 144.
  U32 keyWidth = 0;
  // Bits of a key that hold the VRF.
  U8 vrfIdWidth = 0;
  // The record's position is the number of the table.
  xpLpmPrefixTableRecord prefixTableRecord[kPrefixTables];
  // Bit i (0 to 7) says that byte i of `nhiTileBitmap` counts.
  U32 nhiGroupMask = 0;
  // Entries of the whole NHI memory.
  U32 nhiTableSize = 0;
  // Each set bit is one NHI tile that this family may use.
  U8 nhiTileBitmap[kNhiTileBytes] = {};
  U8 nhiPairPerEntry = 0;
  // Bits of a pair that hold the base of a next-hop block.
  U8 nhiBlockBaseWidth = 0;
};

/// The next-hop table.
class XDK_API xpNhTableContext : public xpTableContext {
 public:
  // Rows.
  U32 rowBlkInc = 0;
};
