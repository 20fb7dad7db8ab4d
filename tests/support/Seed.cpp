#include "tests/support/Seed.h"

#include <cstdlib>
#include <iostream>
#include <random>

#include "framework/Vellor/Hash.h"

namespace Quarle::Tarnlet::Testing {

U64 testSeed() {
  static const U64 seed = [] {
    const char* text = std::getenv("VELLOR_TEST_SEED");
    const U64 value = text != nullptr ? std::strtoull(text, nullptr, 10) : 20240711;
    std::cout << "VELLOR_TEST_SEED=" << value << "\n";
    return value;
  }();
  return seed;
}

void shuffleAddressOrder() {
  static std::mt19937_64 random(testSeed());
  Vellor::addressHashSeed = random();
}

}  // namespace Quarle::Tarnlet::Testing
