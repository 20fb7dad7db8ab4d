#pragma once

#include <compare>
#include <ostream>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Identifier.h"
#include "framework/Vellor/Strep.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Tarnlet {

/// One hardware prefix table of a chip: the number of its record in the chip's LPM table context.
using PrefixTableId = Vellor::Identifier<struct PrefixTableIdTag, U8, 0>;

/// Up to 32, although a chip has tables 0 to 31. Raises Vellor::RangeException.
VELLOR_API void checkIdentifierFromText(const PrefixTableId& tableId);

/// A row of a prefix table, which is the hash index at which one sub-trie is stored.
using PrefixTableIdx = Vellor::Identifier<struct PrefixTableIdxTag, U32, 0>;

/// One tile of the NHI memory.
using NhiTileIdx = Vellor::Identifier<struct NhiTileIdxTag, U8, 0>;

/// Address of a block in the NHI memory: a tile and an entry in it. The default, tile 255 and
/// offset 65535, is no block.
class VELLOR_API NhiTableIdx {
 public:
  constexpr NhiTableIdx() = default;

  constexpr NhiTableIdx(NhiTileIdx tile, U16 offset) : tile_(tile), offset_(offset) {}

  /// Reads the textual form; what it does not name keeps its default.
  NhiTableIdx(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end);

  constexpr NhiTileIdx tile() const { return tile_; }

  constexpr U16 offset() const { return offset_; }

  constexpr void tileIs(NhiTileIdx tile) { tile_ = tile; }

  constexpr void offsetIs(U16 offset) { offset_ = offset; }

  constexpr U32 hash() const { return (U32{tile_.value()} << 16) + offset_; }

  static constexpr NhiTableIdx fromHash(U32 hash) {
    return NhiTableIdx(static_cast<U8>(hash >> 16), static_cast<U16>(hash));
  }

  /// Tile "," offset.
  Vellor::String8 str() const;

  friend constexpr bool operator==(const NhiTableIdx&, const NhiTableIdx&) = default;
  friend constexpr auto operator<=>(const NhiTableIdx&, const NhiTableIdx&) = default;

 private:
  NhiTileIdx tile_ = 255;
  U16 offset_ = 65535;
};

VELLOR_API Vellor::String8 valueToStrep(const NhiTableIdx& index);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                NhiTableIdx* index);
VELLOR_API std::ostream& operator<<(std::ostream& stream, const NhiTableIdx& index);

VELLOR_API const Vellor::FwkType& vellorValueType(const PrefixTableId*);
VELLOR_API const Vellor::FwkType& vellorValueType(const PrefixTableIdx*);
VELLOR_API const Vellor::FwkType& vellorValueType(const NhiTileIdx*);
VELLOR_API const Vellor::FwkType& vellorValueType(const NhiTableIdx*);

}  // namespace Quarle::Tarnlet
