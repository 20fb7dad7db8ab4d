#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>

namespace Quarle::Agent {

/// An address as one 128-bit number, left aligned: its first bit is the top bit of `high`, so an
/// IPv4 address fills the top 32 bits of `high` and both families mask, compare and hash alike.
struct AddressBits {
  std::uint64_t high = 0;
  std::uint64_t low = 0;

  auto operator<=>(const AddressBits&) const = default;

  static constexpr AddressBits of(const std::array<std::uint8_t, 16>& bytes) {
    return {.high = word(bytes, 0), .low = word(bytes, 8)};
  }

  constexpr std::array<std::uint8_t, 16> bytes() const {
    std::array<std::uint8_t, 16> result{};
    for (unsigned i = 0; i < 8; ++i) {
      result[i] = static_cast<std::uint8_t>(high >> (56 - 8 * i));
      result[8 + i] = static_cast<std::uint8_t>(low >> (56 - 8 * i));
    }
    return result;
  }

  /// The first `length` bits, zeros behind.
  ///
  /// REQUIRES: `length` <= 128.
  constexpr AddressBits masked(unsigned length) const {
    if (length <= 64) {
      return {.high = high & leading(length), .low = 0};
    }
    return {.high = high, .low = low & leading(length - 64)};
  }

  /// The first `length` bits, ones behind.
  ///
  /// REQUIRES: `length` <= 128.
  constexpr AddressBits filled(unsigned length) const {
    if (length <= 64) {
      return {.high = high | ~leading(length), .low = ~std::uint64_t{0}};
    }
    return {.high = high, .low = low | ~leading(length - 64)};
  }

  /// The same bits with bit `index` set, 0 being the first.
  ///
  /// REQUIRES: `index` < 128.
  constexpr AddressBits withBit(unsigned index) const {
    AddressBits result = *this;
    if (index < 64) {
      result.high |= std::uint64_t{1} << (63 - index);
    } else {
      result.low |= std::uint64_t{1} << (127 - index);
    }
    return result;
  }

 private:
  static constexpr std::uint64_t leading(unsigned count) {
    return count == 0 ? 0 : ~std::uint64_t{0} << (64 - count);
  }

  static constexpr std::uint64_t word(const std::array<std::uint8_t, 16>& bytes, unsigned first) {
    const std::uint64_t native = std::bit_cast<std::array<std::uint64_t, 2>>(bytes)[first / 8];
    return std::endian::native == std::endian::big ? native : __builtin_bswap64(native);
  }
};

}  // namespace Quarle::Agent
