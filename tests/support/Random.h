#pragma once

#include <cstdlib>
#include <random>
#include <string>

#include "framework/Vellor/Types.h"

/// Random numbers of one test, from a seed that VELLOR_TEST_SEED overrides.
class Random {
 public:
  Random() : seed_(seedFromEnvironment()), engine_(seed_) {}

  /// What a failing test shows, so that the run can be repeated.
  std::string seedText() const { return "VELLOR_TEST_SEED=" + std::to_string(seed_); }

  U64 word() { return engine_(); }

  U8 byte() { return static_cast<U8>(word()); }

  /// A number from `low` to `high`.
  U32 between(U32 low, U32 high) { return low + static_cast<U32>(word() % (high - low + 1)); }

  bool oneIn(U32 count) { return between(1, count) == 1; }

 private:
  static U64 seedFromEnvironment() {
    const char* text = std::getenv("VELLOR_TEST_SEED");
    return text != nullptr ? std::strtoull(text, nullptr, 10) : 20240711;
  }

  U64 seed_;
  std::mt19937_64 engine_;
};
