#include <array>
#include <string>

#include "config/XpPrefixTableConfig.h"
#include "framework/Vellor/Exception.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"
#include "tests/config/BitwiseCrc.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace {

using namespace Quarle::Tarnlet;
using Quarle::Testing::bitwiseCrcRow;
using Quarle::Testing::cutTo;
using Quarle::Testing::keyOf;

LpmPrefix::Ptr ipv4(U16 vrf, const char* prefix) {
  return lpmPrefixV4Factory(Dunlix::VrfAndPrefix(vrf, Corsel::Prefix(prefix)));
}

LpmPrefix::Ptr ipv6(U16 vrf, const char* prefix) {
  return lpmPrefixV6Factory(Dunlix::VrfAndIp6Prefix(vrf, Corsel::Ip6Prefix(prefix)));
}

/// Notes what it is asked and answers what it is told.
class RecordingHash : public xpHashFunction {
 public:
  RecordingHash(U32 answer, U32& ends) : answer_(answer), ends_(ends) {}

  ~RecordingHash() override { ++ends_; }

  U32 hash(XpBitVector& bits) override {
    width = bits.bits();
    length = bits.length();
    bytes.clear();
    for (U32 i = 0; i < length / 8; ++i) {
      bytes += Vellor::format("%02x", unsigned{bits.data()[i]}).str();
    }
    return answer_;
  }

  U32 width = 0;
  U32 length = 0;
  std::string bytes;

 private:
  U32 answer_;
  U32& ends_;
};

struct RecordedTable {
  explicit RecordedTable(U8 tread, U32 answer = 0)
      : hash(new RecordingHash(answer, ends)),
        config(xpPrefixTableConfigFactory(3, prefixTableWide256b, 4096, tread)) {
    config->xdkHashFunctionIs(hash);
  }

  U32 ends = 0;
  RecordingHash* hash;
  XpPrefixTableConfig::Ptr config;
};

TEST(XpPrefixTableConfig, theFactoryFixesTheShape) {
  const XpPrefixTableConfig::Ptr config =
      xpPrefixTableConfigFactory(7, prefixTableNarrow128b, 8192, 35);
  EXPECT_EQ(config->tableId(), PrefixTableId(7));
  EXPECT_EQ(config->tableType(), prefixTableNarrow128b);
  EXPECT_EQ(config->depth(), 8192U);
  EXPECT_EQ(config->tread(), 35);
  EXPECT_EQ(config->entrySize(), 88);
  EXPECT_EQ(config->xdkHashFunction(), nullptr);
  EXPECT_STREQ(config->fwkType()->name, "Quarle::Tarnlet::XpPrefixTableConfig");
}

TEST(XpPrefixTableConfig, theKeyIsHashedLastByteFirst) {
  RecordedTable table(48);
  table.config->hashFunc(ipv4(0x1234, "10.11.12.13/32"));
  EXPECT_EQ(table.hash->bytes, "0000000000000000000000000d0c0b0a3412");
  EXPECT_EQ(table.hash->width, 144U);
  EXPECT_EQ(table.hash->length, 144U);
}

TEST(XpPrefixTableConfig, bitsBehindTheTreadAreZero) {
  RecordedTable table(35);
  table.config->hashFunc(ipv4(0xffff, "255.255.255.255/32"));
  EXPECT_EQ(table.hash->bytes, "00000000000000000000000000e0ffffffff");
}

TEST(XpPrefixTableConfig, all144BitsOfALongKeyAreHashed) {
  RecordedTable table(144);
  table.config->hashFunc(ipv6(0xabcd, "102:304:506:708:90a:b0c:d0e:f10/128"));
  EXPECT_EQ(table.hash->bytes, "100f0e0d0c0b0a090807060504030201cdab");
}

TEST(XpPrefixTableConfig, aLongKeyIsCutToTheTread) {
  RecordedTable table(60);
  table.config->hashFunc(ipv6(0, "ffff:ffff:ffff:ffff::/64"));
  EXPECT_EQ(table.hash->bytes, "00000000000000000000f0ffffffffff0000");
}

TEST(XpPrefixTableConfig, theRowIsTheHashObjectsAnswerAsItIs) {
  RecordedTable table(35, 0xfedcba98U);
  EXPECT_EQ(table.config->hashFunc(ipv4(0, "10.0.0.0/19")), 0xfedcba98U)
      << "not reduced to the depth";
}

TEST(XpPrefixTableConfig, prefixesThatAgreeInTheTreadShareTheirRow) {
  Random random;
  for (const U8 tread : {16, 24, 28, 35, 48}) {
    const XpPrefixTableConfig::Ptr config =
        xpPrefixTableConfigFactory(0, prefixTableWide256b, 4096, tread);
    config->xdkHashFunctionIs(new crcHashFunction(144, 12, 0x1B1DD, true, tread));
    for (U32 i = 0; i < 500; ++i) {
      const auto vrf = static_cast<U16>(random.word());
      const auto address = static_cast<U32>(random.word());
      const U32 behind = tread == 16 ? ~U32{0} : (U32{1} << (48 - tread)) - 1;
      const U32 other = (address & ~behind) | (static_cast<U32>(random.word()) & behind);
      const auto rowOf = [&](U32 host) {
        return config->hashFunc(
            lpmPrefixV4Factory(Dunlix::VrfAndPrefix(vrf, Corsel::Prefix(host, 32))));
      };
      ASSERT_EQ(rowOf(address), rowOf(other))
          << random.seedText() << " tread " << unsigned{tread} << " vrf " << vrf << " addresses "
          << address << " " << other;
      ASSERT_EQ(rowOf(address), bitwiseCrcRow(cutTo(tread, keyOf(vrf, address)), 0x1B1DD, 12))
          << random.seedText() << " tread " << unsigned{tread} << " vrf " << vrf << " address "
          << address;
    }
  }
}

TEST(XpPrefixTableConfig, theHashObjectEndsWithTheTable) {
  RecordedTable table(35);
  EXPECT_EQ(table.config->xdkHashFunction(), table.hash);
  EXPECT_EQ(table.ends, 0U);
  table.config = nullptr;
  EXPECT_EQ(table.ends, 1U);
}

TEST(XpPrefixTableConfig, cleaningUpDestroysTheHashObjectOnce) {
  RecordedTable table(35);
  table.config->doCleanup();
  EXPECT_EQ(table.ends, 1U);
  EXPECT_EQ(table.config->xdkHashFunction(), nullptr);
  table.config->doCleanup();
  table.config = nullptr;
  EXPECT_EQ(table.ends, 1U);
}

TEST(XpPrefixTableConfig, aReplacedHashObjectEnds) {
  RecordedTable table(35);
  U32 otherEnds = 0;
  table.config->xdkHashFunctionIs(table.hash);
  EXPECT_EQ(table.ends, 0U) << "the same object again";
  table.config->xdkHashFunctionIs(new RecordingHash(5, otherEnds));
  EXPECT_EQ(table.ends, 1U);
  EXPECT_EQ(otherEnds, 0U);
  EXPECT_EQ(table.config->hashFunc(ipv4(0, "10.0.0.0/19")), 5U);
}

TEST(XpPrefixTableConfig, attributesGoOnBehindThoseOfTheBase) {
  EXPECT_EQ(Vellor::attributeString<XpPrefixTableConfig>(0), "tableId");
  EXPECT_EQ(Vellor::attributeString<XpPrefixTableConfig>(3), "tread");
  EXPECT_EQ(Vellor::attributeString<XpPrefixTableConfig>(4), "xdkHashFunction");
  EXPECT_EQ(Vellor::attributeString<XpPrefixTableConfig>(5), "unknown");
}

TEST(XpPrefixTableConfigDeathTest, aTableWithoutAHashObjectHasNoRows) {
  const XpPrefixTableConfig::Ptr config =
      xpPrefixTableConfigFactory(0, prefixTableWide256b, 4096, 35);
  EXPECT_DEATH(config->hashFunc(ipv4(0, "10.0.0.0/19")),
               "hashFunc: Assertion `xdkHashFunction\\(\\)' failed\\.");
}

}  // namespace
