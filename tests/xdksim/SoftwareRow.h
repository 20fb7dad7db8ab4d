#pragma once

#include <array>
#include <bit>

#include "framework/Xdk/Xdk.h"
#include "xdksim/ChipProfile.h"
#include "xdksim/HashPolynomials.h"
#include "xdksim/LpmKey.h"

namespace XdkSim {

/// The row of `key` as the software computes it: over the reversed bytes of the hashed bits.
inline U32 softwareRow(const PrefixTableProfile& table, U32 id, const LpmKey& key) {
  crcHashFunction function(144, static_cast<U32>(std::bit_width(table.rows)) - 1,
                           hashPolynomial(id, table.hashPolySelect), true, table.tread);
  const LpmKey hashed = key.prefix(table.tread);
  std::array<U8, 18> bytes;
  for (U32 i = 0; i < bytes.size(); ++i) {
    bytes[i] = hashed.byte(17 - i);
  }
  XpBitVector vector(144, bytes.data(), 144);
  return function.hash(vector);
}

}  // namespace XdkSim
