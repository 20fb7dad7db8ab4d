#pragma once

#include <algorithm>
#include <string>

#include "framework/Xdk/XpExport.h"
#include "framework/Xdk/XpLpmEntry.h"
#include "framework/Xdk/XpStatus.h"
#include "xdksim/EntryLayout.h"
#include "xdksim/RowBits.h"

/// A prefix row as it lies in the chip's memory: 128 or 256 bits, of which the header takes 40.
///
///     bits    0..1   2..3  4..11      12..19  20..25    26..39      40...
///     field   key    mode  branch     stride  NHI tile  NHI offset  branch, then the leaves
///             size         length
///
/// The header holds what a chip can need and no bit more: the codes 0 to 3 of key size and mode,
/// lengths up to 255 (a branch has up to 144 bits, a leaf 128), 64 tiles, 16384 entries of a tile.
/// The branch follows as one integer of `branchLen` bits, then the leaf fields of `stride` bits
/// each, slot 0 first; what is left over is zero. A row of zeros is empty.
namespace XdkSim {

inline constexpr U32 kHeaderBits = 40;

struct RowField {
  U32 first;
  U32 count;
};

inline constexpr RowField kKeySizeField{.first = 0, .count = 2};
inline constexpr RowField kModeField{.first = 2, .count = 2};
inline constexpr RowField kBranchLenField{.first = 4, .count = 8};
inline constexpr RowField kStrideField{.first = 12, .count = 8};
inline constexpr RowField kNhiTileField{.first = 20, .count = 6};
inline constexpr RowField kNhiOffsetField{.first = 26, .count = 14};
static_assert(kNhiOffsetField.first + kNhiOffsetField.count == kHeaderBits);

/// A look at one row of memory, which may hold anything: no row makes an operation here undefined.
class PrefixRow {
 public:
  PrefixRow(const U64* words, U32 width) : words_(words), width_(width) {}

  /// Whether nothing was ever written here or the row was cleared.
  bool empty() const { return rowBits(words_, 0, kHeaderBits) == 0; }

  U32 keySize() const { return field(kKeySizeField); }

  U32 mode() const { return field(kModeField); }

  U32 branchLen() const { return field(kBranchLenField); }

  U32 stride() const { return field(kStrideField); }

  U32 nhiTile() const { return field(kNhiTileField); }

  U32 nhiOffset() const { return field(kNhiOffsetField); }

  /// Bits that branch and leaves have together.
  U32 usable() const { return width_ - kHeaderBits; }

  /// Leaf fields in this row.
  U32 slots() const {
    return stride() == 0 || branchLen() >= usable()
               ? 0
               : std::min((usable() - branchLen()) / stride(), xpLpmPrefixEntry::kLeaves);
  }

  /// `count` bits of the branch from its bit `first` (0 is its last key bit) on.
  ///
  /// REQUIRES: `count` <= 64, `first + count` <= the smaller of branch length and usable bits.
  U64 branchBits(U32 first, U32 count) const { return rowBits(words_, kHeaderBits + first, count); }

  /// REQUIRES: `slot` < `slots()`.
  Leaf leaf(U32 slot) const {
    const U32 width = stride();
    const U32 first = kHeaderBits + branchLen() + slot * width;
    const U32 lowWidth = std::min(width, 64U);
    return {.low = rowBits(words_, first, lowWidth),
            .high = rowBits(words_, first + lowWidth, std::min(width - lowWidth, 64U))};
  }

 private:
  U32 field(RowField which) const {
    return static_cast<U32>(rowBits(words_, which.first, which.count));
  }

  const U64* words_;
  U32 width_;
};

/// Packs `entry` into the row of `width` bits at `words`. When a field does not fit the row is left
/// as it is, `error` is set to what and what was expected, and `XP_ERR_FIELD_TOO_WIDE` returned.
XDK_API XP_STATUS packPrefixRow(const xpLpmPrefixEntry& entry,
                                U32 width,
                                U64* words,
                                std::string& error);

/// The record of `row`. Whatever the row holds, the record has only what the row's bits spell.
XDK_API xpLpmPrefixEntry unpackPrefixRow(const PrefixRow& row);

}  // namespace XdkSim
