#pragma once

#include "framework/Vellor/Types.h"
#include "framework/Xdk/XpExport.h"

/// A run of bits as the hash functions take it: a view of the caller's bytes, which must outlive
/// it.
class XDK_API XpBitVector {
 public:
  /// A vector of `bits` bits over `data`, which holds `length` bits.
  ///
  /// REQUIRES: `bits` <= `length`.
  XpBitVector(U32 bits, U8* data, U32 length) : data_(data), bits_(bits), length_(length) {}

  virtual ~XpBitVector() = default;
  XpBitVector(const XpBitVector&) = delete;
  XpBitVector& operator=(const XpBitVector&) = delete;

  const U8* data() const { return data_; }

  U32 bits() const { return bits_; }

  U32 length() const { return length_; }

 private:
  U8* data_;
  U32 bits_;
  U32 length_;
};

/// Selects the row of a prefix table for the bits of a key.
class XDK_API xpHashFunction {
 public:
  xpHashFunction() = default;
  xpHashFunction(const xpHashFunction&) = delete;
  xpHashFunction& operator=(const xpHashFunction&) = delete;

  /// The row for `bits`. The same bits always give the same row.
  virtual U32 hash(XpBitVector& bits) = 0;

  virtual ~xpHashFunction() = default;
};

/// Look-up tables of one polynomial, the library's own.
class xpCrcTables;

/// The CRC hash of one prefix table, bit for bit what the chip computes.
///
/// The bytes of the vector are fed in their order, the most significant bit of each first, into a
/// 16-bit remainder that starts at 0; nothing is reflected or inverted. The row is the low
/// `hashBits` bits of the remainder. So leading zero bytes leave no trace, and with the reversed
/// keys that the tables use the bytes behind the tread cost nothing.
class XDK_API crcHashFunction final : public xpHashFunction {
 public:
  /// A hash over vectors of `width` bits onto 2 to the power `hashBits` rows. `poly` is a
  /// polynomial of degree 16, with or without its top bit. `enabled` and `tread` describe the table
  /// to the chip's own hash unit: the caller has already cleared the bits behind the tread.
  ///
  /// REQUIRES: `width` is a multiple of 8.
  crcHashFunction(U32 width, U32 hashBits, U32 poly, bool enabled, U32 tread);

  /// The row for `bits`, below 2 to the power `hashBits`. No allocation.
  ///
  /// REQUIRES: `bits.bits()` >= the width of this function.
  U32 hash(XpBitVector& bits) override;

  U32 tread() const { return tread_; }

 private:
  const xpCrcTables* tables_;
  U32 bytes_;
  U32 mask_;
  U32 tread_;
};
