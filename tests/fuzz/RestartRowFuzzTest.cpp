#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "framework/Xdk/Xdk.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

/// Bytes like those that a fuzzer finds after a while: mostly small header fields and short leaves.
std::vector<std::uint8_t> rowBytes(std::mt19937_64& random) {
  xpLpmPrefixEntry row;
  const bool longKey = random() % 2 == 0;
  row.keySize = random() % 20 == 0 ? static_cast<U32>(random()) : (longKey ? 2 : 0);
  row.mode = random() % 20 == 0 ? static_cast<U32>(random() % 4) : 1;
  row.branchLen = static_cast<U32>(random() % (random() % 8 == 0 ? 256 : 60));
  row.stride = static_cast<U32>(random() % (random() % 8 == 0 ? 200 : 17));
  row.nhiOffset = static_cast<U32>(random() % 70);
  for (U32 i = 0; i < 8; ++i) {
    row.branch[i] = static_cast<U8>(random());
  }
  for (U64 leaves = random() % 36; leaves != 0; --leaves) {
    const U64 slot = random() % xpLpmPrefixEntry::kLeaves;
    row.leafVal[slot] = random() >> (40 + random() % 24);
    row.leafValHigh[slot] = random() % 30 == 0 ? random() : 0;
  }
  std::vector<std::uint8_t> bytes(1 + sizeof row);
  bytes[0] = longKey ? 1 : 0;
  std::memcpy(bytes.data() + 1, &row, sizeof row);
  bytes.resize(random() % 10 == 0 ? random() % bytes.size() : bytes.size());
  return bytes;
}

TEST(RestartRowFuzz, noRowEndsTheProcess) {
  std::mt19937_64 random(Quarle::Tarnlet::Testing::testSeed());
  for (int i = 0; i < 5'000; ++i) {
    const std::vector<std::uint8_t> bytes = rowBytes(random);
    EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
  }
}

}  // namespace
