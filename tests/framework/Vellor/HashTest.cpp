#include "framework/Vellor/Hash.h"

#include <set>
#include <string_view>
#include <vector>

#include "framework/Vellor/PtrInterface.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

U32 oneAtATime(std::string_view bytes) {
  OneAtATimeHash hash;
  for (const char byte : bytes) {
    hash.addByte(static_cast<U8>(byte));
  }
  return hash.finish();
}

TEST(Hash, bitReverseSwapsTheEnds) {
  EXPECT_EQ(bitReverse(0), 0U);
  EXPECT_EQ(bitReverse(1), 0x80000000U);
  EXPECT_EQ(bitReverse(0x80000000U), 1U);
  EXPECT_EQ(bitReverse(0x12345678U), 0x1e6a2c48U);
  for (U32 bit = 0; bit < 32; ++bit) {
    EXPECT_EQ(bitReverse(U32{1} << bit), U32{1} << (31 - bit)) << "bit " << bit;
  }
}

// Published values of the hash.
TEST(Hash, oneAtATimeGivesThePublishedValues) {
  EXPECT_EQ(oneAtATime(""), 0U);
  EXPECT_EQ(oneAtATime("a"), 0xca2e9442U);
  EXPECT_EQ(oneAtATime("The quick brown fox jumps over the lazy dog"), 0x519e91f5U);
}

TEST(Hash, oneAtATimeTakesAWordLeastSignificantByteFirst) {
  OneAtATimeHash word;
  word.addU32(0x64636261U);
  EXPECT_EQ(word.finish(), oneAtATime("abcd"));
}

TEST(Hash, oneAtATimeGoesOnAfterAFinish) {
  OneAtATimeHash hash;
  hash.addByte('a');
  EXPECT_EQ(hash.finish(), hash.finish());
  hash.addByte('b');
  EXPECT_EQ(hash.finish(), oneAtATime("ab"));
}

TEST(Hash, integerHashGivesTheValuesOfTheMix) {
  EXPECT_EQ(integerHash(0), 0xcaa3caa3U);
  EXPECT_EQ(integerHash(1), 0x12d60bf6U);
  EXPECT_EQ(integerHash(0x0a000008U), 0xc13c560aU);
  EXPECT_EQ(integerHash(0x0a010218U), 0xca2aaa94U);
  EXPECT_EQ(integerHash(0xffffffffU), 0xbd55fc18U);
}

struct Object : PtrInterface {};

TEST(Hash, integersArePlacedByTheirReversedValue) {
  EXPECT_EQ(placementHash(U8{1}), 0x80000000U);
  EXPECT_EQ(placementHash(U16{0x8001}), 0x80010000U);
  EXPECT_EQ(placementHash(U32{6}), 0x60000000U);
  // The low 32 bits of a wide one.
  EXPECT_EQ(placementHash(U64{0x500000003}), 0xc0000000U);
}

struct KeyWithHash {
  U32 hash() const { return 3; }
};

TEST(Hash, valuesArePlacedByTheirReversedHash) {
  EXPECT_EQ(placementHash(KeyWithHash()), 0xc0000000U);
}

TEST(Hash, pointersArePlacedByAddressUnreversed) {
  const Ptr<Object> object(new Object);
  EXPECT_EQ(placementHash(object), vellorHashU32(object.get()));
  EXPECT_EQ(placementHash(Ptr<Object>()), 0U);
  EXPECT_EQ(vellorHashU32(nullptr), 0U);
}

TEST(Hash, addressesSpreadOverTheTopBits) {
  std::vector<Ptr<Object>> objects;
  std::set<U32> buckets;
  for (int i = 0; i < 1024; ++i) {
    objects.emplace_back(new Object);
    buckets.insert(vellorHashU32(objects.back().get()) >> 24);
  }
  // 1024 addresses over 256 buckets: 251 are hit on average by chance.
  EXPECT_GT(buckets.size(), 200U);
}

TEST(Hash, theSeedChangesTheHashOfAnAddress) {
  const U64 before = addressHashSeed;
  const Object object;
  const U32 plain = vellorHashU32(&object);
  addressHashSeed = before ^ 0x1234567;
  EXPECT_NE(vellorHashU32(&object), plain);
  EXPECT_EQ(vellorHashU32(nullptr), 0U);
  addressHashSeed = before;
}

}  // namespace
}  // namespace Vellor
