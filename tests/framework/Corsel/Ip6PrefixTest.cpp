#include "framework/Corsel/Ip6Prefix.h"

#include <set>
#include <sstream>
#include <string>

#include "framework/Vellor/Exception.h"

#include <gtest/gtest.h>

namespace Corsel {
namespace {

/// What construction from a text raises, or the prefix's text.
std::string parsed(const char* text) {
  try {
    return Ip6Prefix(text).stringValue().str();
  } catch (const Vellor::RangeException& exception) {
    return "refused: " + exception.message().str();
  }
}

TEST(Ip6Prefix, holdsTheAddressInNetworkOrder) {
  const Ip6Prefix prefix("2001:db8:0:1:2:3:4:5/128");
  const Ip6Prefix::Bytes expected{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5};
  EXPECT_EQ(prefix.bytes(), expected);
  EXPECT_EQ(prefix.len(), 128U);
  EXPECT_EQ(prefix, Ip6Prefix(expected, 128));
}

TEST(Ip6Prefix, printsTheCanonicalText) {
  const struct {
    const char* given;
    const char* printed;
  } cases[] = {
      {"::/0", "::/0"},
      {"::1/128", "::1/128"},
      {"1::/16", "1::/16"},
      {"2001:DB8::/32", "2001:db8::/32"},
      {"2001:0db8:0000:0000:0001:0000:0000:0001/128", "2001:db8::1:0:0:1/128"},
      {"1:0:0:2:0:0:0:3/128", "1:0:0:2::3/128"},
      {"0:1:0:1:0:1:0:1/128", "0:1:0:1:0:1:0:1/128"},
      {"1:2:3:4:5:6:7::/112", "1:2:3:4:5:6:7:0/112"},
      {"::2:3:4:5:6:7:8/128", "0:2:3:4:5:6:7:8/128"},
      {"1:0:0:0:0:0:0:0/16", "1::/16"},
      {"::ffff:192.0.2.1/128", "::ffff:c000:201/128"},
      {"64:ff9b::192.0.2.0/120", "64:ff9b::c000:200/120"},
      {"1:2:3:4:5:6:7.8.9.10/128", "1:2:3:4:5:6:708:90a/128"},
  };

  for (const auto& [given, printed] : cases) {
    EXPECT_EQ(parsed(given), printed) << "from " << given;
    EXPECT_EQ(parsed(printed), printed);
  }
  std::ostringstream stream;
  stream << Ip6Prefix("2001:db8::/32");
  EXPECT_EQ(stream.str(), "2001:db8::/32");
}

TEST(Ip6Prefix, validityMeansNoBitBehindTheLength) {
  Ip6Prefix::Bytes bytes{};
  EXPECT_TRUE(Ip6Prefix(bytes, 0).validAsPrefix());
  EXPECT_FALSE(Ip6Prefix(bytes, 129).validAsPrefix());
  bytes[5] = 0x10;
  EXPECT_FALSE(Ip6Prefix(bytes, 43).validAsPrefix());
  EXPECT_TRUE(Ip6Prefix(bytes, 44).validAsPrefix());
  bytes[15] = 1;
  EXPECT_FALSE(Ip6Prefix(bytes, 127).validAsPrefix());
  EXPECT_TRUE(Ip6Prefix(bytes, 128).validAsPrefix());
}

TEST(Ip6Prefix, aTextWithBitsBehindTheLengthIsRefused) {
  EXPECT_EQ(parsed("2001:db8::1/32"), "refused: Ip6Prefix::validAsPrefix != true not allowed");
}

TEST(Ip6Prefix, anyOtherTextIsRefusedByName) {
  for (const char* text : {"",
                           "/",
                           "::",
                           "::/",
                           "::/129",
                           "::/-1",
                           "::/0x1",
                           ":::/0",
                           "1:::/16",
                           "1::2::3/128",
                           "1:2:3:4:5:6:7/112",
                           "1:2:3:4:5:6:7:8:9/128",
                           "1:2:3:4:5:6:7:8::/128",
                           "::1:2:3:4:5:6:7:8/128",
                           "12345::/32",
                           "g::/16",
                           "1:/16",
                           ":1/128",
                           " ::/0",
                           "::/0 ",
                           "10.0.0.0/8",
                           "::1.2.3/128",
                           "::1.2.3.4:5/128",
                           "1.2.3.4::/32",
                           "::256.0.0.1/128",
                           "fe80::1%eth0/128"}) {
    EXPECT_EQ(parsed(text).substr(0, 9 + std::string(text).size() + 3),
              "refused: \"" + std::string(text) + "\" ")
        << parsed(text);
  }
}

TEST(Ip6Prefix, equalPrefixesHashAlikeAndOthersSpread) {
  EXPECT_EQ(Ip6Prefix("2001:db8::/32").hash(), Ip6Prefix("2001:0db8:0::/32").hash());
  std::set<U32> hashes;
  for (unsigned len = 0; len <= 128; ++len) {
    hashes.insert(Ip6Prefix(Ip6Prefix::Bytes{}, static_cast<U8>(len)).hash());
  }
  for (unsigned bit = 0; bit < 128; ++bit) {
    Ip6Prefix::Bytes bytes{};
    bytes[bit / 8] = static_cast<U8>(0x80 >> bit % 8);
    hashes.insert(Ip6Prefix(bytes, 128).hash());
  }
  // The length shares bits with the address, so a few may meet.
  EXPECT_GE(hashes.size(), 250U);
}

TEST(Ip6Prefix, comparesAddressFirst) {
  EXPECT_LT(Ip6Prefix("1::/48"), Ip6Prefix("2::/16"));
  EXPECT_LT(Ip6Prefix("1::/16"), Ip6Prefix("1::/48"));
}

}  // namespace
}  // namespace Corsel
