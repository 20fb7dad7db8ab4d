#pragma once

#include "framework/Vellor/Types.h"
#include "xdksim/LpmKey.h"

/// Bit fields of a memory row. Bit 0 of a row is the lowest bit of its first word; a field's lowest
/// bit is its first.
namespace XdkSim {

/// The `count` bits of `row` from bit `first` on.
///
/// REQUIRES: `count` <= 64, the row has `first + count` bits.
constexpr U64 rowBits(const U64* row, U32 first, U32 count) {
  if (count == 0) {
    return 0;
  }
  const U32 offset = first % 64;
  U64 value = row[first / 64] >> offset;
  if (offset != 0 && offset + count > 64) {
    value |= row[first / 64 + 1] << (64 - offset);
  }
  return value & lowBits(count);
}

/// Stores `value` in the `count` bits of `row` from bit `first` on.
///
/// REQUIRES: `count` <= 64, `value` has no more than `count` bits, the row has `first + count`
/// bits.
constexpr void rowBitsIs(U64* row, U32 first, U32 count, U64 value) {
  if (count == 0) {
    return;
  }
  const U32 offset = first % 64;
  row[first / 64] = (row[first / 64] & ~(lowBits(count) << offset)) | value << offset;
  if (offset != 0 && offset + count > 64) {
    U64& next = row[first / 64 + 1];
    next = (next & ~(lowBits(count) >> (64 - offset))) | value >> (64 - offset);
  }
}

}  // namespace XdkSim
