#include "framework/Corsel/Prefix.h"

#include <sstream>
#include <string>

#include "framework/Vellor/Exception.h"

#include <gtest/gtest.h>

namespace Corsel {
namespace {

/// What construction from a text raises, or the prefix's text.
std::string parsed(const char* text) {
  try {
    return Prefix(text).stringValue().str();
  } catch (const Vellor::RangeException& exception) {
    return "refused: " + exception.message().str();
  }
}

TEST(Prefix, textAndNumbersMeanTheSame) {
  EXPECT_EQ(Prefix("10.1.2.0/24"), Prefix(0x0a010200, 24));
  EXPECT_EQ(Prefix("255.255.255.255/32"), Prefix(0xffffffff, 32));
  EXPECT_EQ(Prefix("0.0.0.0/0"), Prefix());
  EXPECT_EQ(Prefix("128.0.0.0/1").address(), 0x80000000U);
  EXPECT_EQ(Prefix("128.0.0.0/1").len(), 1U);
}

TEST(Prefix, printsAsDottedQuadAndLength) {
  for (const char* text : {"10.1.2.0/24", "0.0.0.0/0", "255.255.255.255/32", "192.0.2.128/25"}) {
    EXPECT_EQ(parsed(text), text);
  }
  std::ostringstream stream;
  stream << Prefix(0x0a010203, 24);
  EXPECT_EQ(stream.str(), "10.1.2.3/24");
}

TEST(Prefix, validityMeansNoBitBehindTheLength) {
  EXPECT_TRUE(Prefix(0, 0).validAsPrefix());
  EXPECT_FALSE(Prefix(1, 0).validAsPrefix());
  EXPECT_FALSE(Prefix(0x80000000, 0).validAsPrefix());
  EXPECT_TRUE(Prefix(0x0a010200, 24).validAsPrefix());
  EXPECT_FALSE(Prefix(0x0a010201, 24).validAsPrefix());
  EXPECT_FALSE(Prefix(0x0a010201, 31).validAsPrefix());
  EXPECT_TRUE(Prefix(0x0a010201, 32).validAsPrefix());
  EXPECT_FALSE(Prefix(0, 33).validAsPrefix());
  EXPECT_FALSE(Prefix(0, 255).validAsPrefix());
}

TEST(Prefix, aTextWithBitsBehindTheLengthIsRefused) {
  EXPECT_EQ(parsed("10.1.2.1/24"), "refused: Prefix::validAsPrefix != true not allowed");
  EXPECT_EQ(parsed("0.0.0.1/0"), "refused: Prefix::validAsPrefix != true not allowed");
}

TEST(Prefix, anyOtherTextIsRefusedByName) {
  for (const char* text : {"",
                           "/",
                           "10.0.0.0",
                           "10.0.0.0/",
                           "/8",
                           "10.0.0/8",
                           "10.0.0.0.0/8",
                           "10.0.0.256/32",
                           "10.0.0.0/33",
                           "10.0.0.0/-1",
                           "10.0.0.0/8x",
                           "x10.0.0.0/8",
                           "10..0.0/8",
                           " 10.0.0.0/8",
                           "10.0.0.0/8 ",
                           "10.0.0.0/8/8",
                           "10.0.0.0/0x8",
                           "10.0.0.0/0008",
                           "0010.0.0.0/8",
                           "2001:db8::/32",
                           "10.0.0.0/99999999999",
                           "10.0.0./8",
                           ".10.0.0.0/8"}) {
    EXPECT_EQ(parsed(text).substr(0, 9 + std::string(text).size() + 3),
              "refused: \"" + std::string(text) + "\" ")
        << parsed(text);
  }
}

TEST(Prefix, hashesAddressAndLengthTogether) {
  // Values of the 32-bit mix over the address, exclusive or the length.
  EXPECT_EQ(Prefix("10.0.0.0/8").hash(), 0xc13c560aU);
  EXPECT_EQ(Prefix("10.1.2.0/24").hash(), 0xca2aaa94U);
  EXPECT_EQ(Prefix("0.0.0.0/0").hash(), 0xcaa3caa3U);
  EXPECT_NE(Prefix("10.0.0.0/8").hash(), Prefix("10.0.0.0/9").hash());
}

TEST(Prefix, comparesAddressFirst) {
  EXPECT_LT(Prefix("10.0.0.0/24"), Prefix("11.0.0.0/8"));
  EXPECT_LT(Prefix("10.0.0.0/8"), Prefix("10.0.0.0/24"));
  EXPECT_NE(Prefix("10.0.0.0/8"), Prefix("10.0.0.0/24"));
}

}  // namespace
}  // namespace Corsel
