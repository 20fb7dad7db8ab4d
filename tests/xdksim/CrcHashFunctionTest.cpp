#include <array>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "framework/Xdk/XpHashFunction.h"
#include "tests/support/Random.h"
#include "xdksim/HashPolynomials.h"

namespace {

/// Long division of the bits of `bytes`, most significant first, with 16 zero bits behind them.
U32 naiveRemainder(const std::vector<U8>& bytes, U32 poly) {
  U32 remainder = 0;
  const auto shiftIn = [&](U32 bit) {
    remainder = remainder << 1 | bit;
    if ((remainder & 0x10000) != 0) {
      remainder ^= poly;
    }
  };
  for (const U8 byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) {
      shiftIn(byte >> bit & 1);
    }
  }
  for (int bit = 0; bit < 16; ++bit) {
    shiftIn(0);
  }
  return remainder;
}

U32 hashOf(crcHashFunction& function, std::vector<U8> bytes) {
  const U32 bits = static_cast<U32>(bytes.size()) * 8;
  XpBitVector vector(bits, bytes.data(), bits);
  return function.hash(vector);
}

std::string hex(const std::vector<U8>& bytes) {
  std::string text;
  for (const U8 byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

TEST(CrcHashFunction, isTheRemainderOfALongDivisionForEveryPolynomial) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (const U32 poly : XdkSim::kHashPolynomials) {
    crcHashFunction function(144, 16, poly, true, 35);
    for (int round = 0; round < 200; ++round) {
      std::vector<U8> bytes(18);
      // Zeros in front, as behind a key's tread, in every number of bytes.
      for (U32 i = random.between(0, 18); i < 18; ++i) {
        bytes[i] = random.oneIn(4) ? U8{0} : random.byte();
      }
      ASSERT_EQ(hashOf(function, bytes), naiveRemainder(bytes, poly))
          << "polynomial " << poly << " bytes " << hex(bytes);
    }
  }
}

TEST(CrcHashFunction, everySingleBitHasItsOwnRemainder) {
  // Known answer: of the bit vector 1, the remainder is the polynomial without its top bit.
  crcHashFunction function(144, 16, 0x1B1DD, true, 144);
  std::vector<U8> one(18);
  one[17] = 1;
  EXPECT_EQ(hashOf(function, one), 0xB1DDU);
  for (U32 bit = 0; bit < 144; ++bit) {
    std::vector<U8> bytes(18);
    bytes[bit / 8] = static_cast<U8>(1 << bit % 8);
    ASSERT_EQ(hashOf(function, bytes), naiveRemainder(bytes, 0x1B1DD)) << "bit " << bit;
  }
}

TEST(CrcHashFunction, theRowIsTheLowBitsOfTheRemainder) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 hashBits = 0; hashBits <= 20; ++hashBits) {
    crcHashFunction function(144, hashBits, 0x1F1CB, true, 60);
    for (int round = 0; round < 50; ++round) {
      std::vector<U8> bytes(18);
      for (U8& byte : bytes) {
        byte = random.byte();
      }
      const U32 mask = hashBits >= 16 ? 0xffff : (1U << hashBits) - 1;
      ASSERT_EQ(hashOf(function, bytes), naiveRemainder(bytes, 0x1F1CB) & mask)
          << "hash bits " << hashBits << " bytes " << hex(bytes);
    }
  }
}

TEST(CrcHashFunction, allZerosGoToRowZero) {
  for (const U32 poly : XdkSim::kHashPolynomials) {
    crcHashFunction function(144, 16, poly, true, 16);
    EXPECT_EQ(hashOf(function, std::vector<U8>(18)), 0U);
  }
}

TEST(CrcHashFunction, theTopBitOfThePolynomialMakesNoDifference) {
  crcHashFunction with(144, 16, 0x17329, true, 35);
  crcHashFunction without(144, 16, 0x7329, true, 35);
  std::vector<U8> bytes(18, 0x5a);
  EXPECT_EQ(hashOf(with, bytes), hashOf(without, bytes));
}

TEST(CrcHashFunction, hashesVectorsOfOtherWidths) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 length = 1; length <= 40; ++length) {
    crcHashFunction function(length * 8, 16, 0x1C867, true, 35);
    std::vector<U8> bytes(length);
    for (U8& byte : bytes) {
      byte = random.byte();
    }
    ASSERT_EQ(hashOf(function, bytes), naiveRemainder(bytes, 0x1C867)) << hex(bytes);
  }
}

TEST(HashPolynomials, neighboursShareARowAndTheSelectPicksTheColumn) {
  EXPECT_EQ(XdkSim::hashPolynomial(6, 2), 0x1EA51U);
  EXPECT_EQ(XdkSim::hashPolynomial(7, 2), 0x1EA51U);
  EXPECT_EQ(XdkSim::hashPolynomial(8, 2), 0x1A485U);
  EXPECT_EQ(XdkSim::hashPolynomial(0, 0), 0x1B1DDU);
  EXPECT_EQ(XdkSim::hashPolynomial(31, 3), 0x155AFU);
}

TEST(HashPolynomials, areSixtyFourDifferentOnesOfDegreeSixteen) {
  const std::set<U32> all(XdkSim::kHashPolynomials.begin(), XdkSim::kHashPolynomials.end());
  EXPECT_EQ(all.size(), 64U);
  EXPECT_EQ(*all.begin() >> 16, 1U);
  EXPECT_EQ(*all.rbegin() >> 16, 1U);
}

}  // namespace
