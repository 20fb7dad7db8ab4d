#pragma once

#include <array>
#include <bit>

#include "framework/Vellor/Types.h"

/// Look-up tables of one CRC polynomial of degree 16: remainder 0 at the start, most significant
/// bit first, nothing reflected or inverted. Eight bytes are taken at a time.
///
/// Immutable, one object per polynomial for the life of the process.
class xpCrcTables {
 public:
  explicit xpCrcTables(U16 poly);

  /// The tables of `poly`, with or without its top bit; built at the first call for it. Safe to
  /// call from several threads.
  static const xpCrcTables& of(U32 poly);

  /// The remainder after one more byte.
  U16 addByte(U16 crc, U8 byte) const {
    return static_cast<U16>(crc << 8 ^ tables_[0][static_cast<U8>(crc >> 8 ^ byte)]);
  }

  /// The remainder after eight more bytes; the low byte of `bytes` is the first of them.
  U16 addWord(U16 crc, U64 bytes) const {
    // The remainder stands in front of the next two bytes, its high byte first.
    const U64 word = bytes ^ static_cast<U16>(crc << 8 | crc >> 8);
    return static_cast<U16>(tables_[7][word & 0xff] ^ tables_[6][word >> 8 & 0xff] ^
                            tables_[5][word >> 16 & 0xff] ^ tables_[4][word >> 24 & 0xff] ^
                            tables_[3][word >> 32 & 0xff] ^ tables_[2][word >> 40 & 0xff] ^
                            tables_[1][word >> 48 & 0xff] ^ tables_[0][word >> 56]);
  }

 private:
  // tables_[k][b]: the remainder of byte b with k zero bytes behind it.
  std::array<std::array<U16, 256>, 8> tables_;
};

// Words are loaded straight from byte buffers and kept so in the chip's memory.
static_assert(std::endian::native == std::endian::little);
