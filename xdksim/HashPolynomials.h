#pragma once

#include <array>

#include "framework/Vellor/Types.h"

namespace XdkSim {

/// The polynomials of the chip's row hash, 16 rows of 4: tables 2k and 2k + 1 use row k.
///
/// The software above keeps a table of its own. That is deliberate: as with a real chip the two
/// only agree when both are right, and a wrong entry on either side shows as a look-up that misses.
inline constexpr std::array<U32, 64> kHashPolynomials = {
    0x1B1DD, 0x1901B, 0x1FA8B, 0x1F1CB,  // tables 0, 1
    0x17329, 0x15483, 0x1C867, 0x1E015,  // tables 2, 3
    0x19B6D, 0x14881, 0x1EFE3, 0x10219,  // tables 4, 5
    0x1C7B5, 0x1D10F, 0x1EA51, 0x1FF33,  // tables 6, 7
    0x1899B, 0x1BE21, 0x1A485, 0x1395F,  // tables 8, 9
    0x192A7, 0x19EF1, 0x1DB4B, 0x13E31,  // tables 10, 11
    0x146A1, 0x1B76F, 0x13571, 0x13999,  // tables 12, 13
    0x1158F, 0x141FF, 0x1B0D9, 0x14691,  // tables 14, 15
    0x12B7D, 0x1B7A9, 0x16B6B, 0x1FF05,  // tables 16, 17
    0x1AC27, 0x17DD7, 0x189AD, 0x1A02D,  // tables 18, 19
    0x1F655, 0x171DD, 0x1FF35, 0x1EB7B,  // tables 20, 21
    0x1203D, 0x14573, 0x154B5, 0x1CE13,  // tables 22, 23
    0x1C553, 0x18357, 0x17CD3, 0x1C9BB,  // tables 24, 25
    0x1797F, 0x1B345, 0x1885F, 0x1386D,  // tables 26, 27
    0x14CC7, 0x1F74F, 0x15297, 0x1B84D,  // tables 28, 29
    0x1FE31, 0x1F571, 0x140CD, 0x155AF,  // tables 30, 31
};

/// The polynomial of table `table` (0 to 31) with column `select` (0 to 3).
constexpr U32 hashPolynomial(U32 table, U32 select) {
  return kHashPolynomials[select + 4 * (table / 2)];
}

}  // namespace XdkSim
