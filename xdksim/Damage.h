#pragma once

#include <functional>
#include <span>
#include <vector>

#include "framework/Xdk/XpExport.h"
#include "xdksim/Chip.h"

/// What a memory may suffer behind the back of its SDK: flipped bits and rows written half. Every
/// operation leaves the chip ready for the next look-up or read.
namespace XdkSim {

/// One bit of a row, counted from the lowest of its first word.
struct RowBit {
  RowPlace place;
  U32 bit = 0;

  bool operator==(const RowBit&) const = default;
};

/// The rows of `chip` that have any bit set, in the order of their words.
XDK_API std::vector<RowPlace> usedRows(const Chip& chip);

/// The same of one kind and family.
XDK_API std::vector<RowPlace> usedRows(const Chip& chip, RowKind kind, Family family);

/// Turns over one bit.
///
/// REQUIRES: the row exists and has such a bit.
XDK_API void flipBit(Chip& chip, const RowBit& bit);

/// Turns over `count` different bits drawn from `rows`, and yields them in the order in which they
/// were drawn. Equal seeds draw equal bits from equal lists.
///
/// REQUIRES: the rows exist, none stands twice, and they have at least `count` bits in all.
XDK_API std::vector<RowBit> flipRandomBits(Chip& chip,
                                           std::span<const RowPlace> rows,
                                           U32 count,
                                           U64 seed);

/// Runs `write`, which writes the row at `place`, and gives back their old content to the words of
/// the row whose bit in `newWords` is not set (bit 0 is the first word). Yields what `write` did.
///
/// REQUIRES: the row exists.
XDK_API XP_STATUS writeHalf(Chip& chip,
                            const RowPlace& place,
                            U32 newWords,
                            const std::function<XP_STATUS()>& write);

}  // namespace XdkSim
