#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Quarle::Agent {

/// Scatters the bits of `value` over all 64, one to one.
constexpr std::uint64_t mixed(std::uint64_t value) {
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
  value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
  return value ^ (value >> 31);
}

/// A small seeded generator (splitmix64) with integer results only, so that a seed gives the same
/// table with every compiler and library. A copy continues as its original would have.
class Random {
 public:
  explicit constexpr Random(std::uint64_t seed) : state_(seed) {}

  constexpr std::uint64_t next() {
    state_ += 0x9e3779b97f4a7c15;
    return mixed(state_);
  }

  /// A number from 0 to `bound` - 1.
  ///
  /// REQUIRES: `bound` > 0.
  constexpr std::uint32_t below(std::uint32_t bound) {
    return static_cast<std::uint32_t>((next() >> 32) * bound >> 32);
  }

  /// True in `perMille` of 1000 cases.
  constexpr bool chance(std::uint32_t perMille) { return below(1000) < perMille; }

 private:
  std::uint64_t state_;
};

/// Puts `values` into an order drawn from `random`.
///
/// REQUIRES: fewer than 2^32 values.
template <typename Value>
constexpr void shuffle(std::vector<Value>& values, Random& random) {
  for (std::size_t last = values.size(); last > 1; --last) {
    std::swap(values[last - 1], values[random.below(static_cast<std::uint32_t>(last))]);
  }
}

}  // namespace Quarle::Agent
