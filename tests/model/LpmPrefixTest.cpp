#include "model/LpmPrefix.h"

#include <sstream>
#include <string>

#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using Corsel::Ip6Prefix;
using Corsel::Prefix;
using Dunlix::VrfAndIp6Prefix;
using Dunlix::VrfAndPrefix;

LpmPrefixV4::Ptr v4(const char* text, U32 vrf = 0) {
  return lpmPrefixV4Factory(VrfAndPrefix(vrf, Prefix(text)));
}

LpmPrefixV6::Ptr v6(const char* text, U32 vrf = 0) {
  return lpmPrefixV6Factory(VrfAndIp6Prefix(vrf, Ip6Prefix(text)));
}

/// The first `bytes` key bytes in hexadecimal; whatever stands behind them must be zero.
std::string bytesOf(const SubTrieBranch& branch, U32 bytes) {
  std::string text;
  for (U32 index = 0; index < 18; ++index) {
    if (index < bytes) {
      text += Vellor::format("%02x", unsigned{branch.u8(index)}).str();
    } else {
      EXPECT_EQ(branch.u8(index), 0U) << "byte " << index;
    }
  }
  return text;
}

TEST(LpmPrefix, theAbstractOperationsRaiseTheirTexts) {
  const LpmPrefix::Ptr prefix(new LpmPrefix);
  const auto raised = [](auto action) {
    try {
      action();
    } catch (const Vellor::NoImplementationException& exception) {
      return exception.message().str();
    }
    return std::string("nothing was raised");
  };
  EXPECT_EQ(raised([&] { prefix->len(); }), "method must be implemeted in the derived class");
  EXPECT_EQ(raised([&] { prefix->branch(0); }), "method must be implemented in the derived class");
  EXPECT_EQ(raised([&] { prefix->stringValue(); }),
            "method must be implemented in the derived class");
}

TEST(LpmPrefix, lengthCountsTheVrfBits) {
  EXPECT_EQ(v4("10.1.2.0/24")->len(), 40U);
  EXPECT_EQ(v4("0.0.0.0/0")->len(), 16U);
  EXPECT_EQ(v4("10.1.2.3/32")->len(), 48U);
  EXPECT_EQ(v6("::/0")->len(), 16U);
  EXPECT_EQ(v6("2001:db8::1/128")->len(), 144U);
}

TEST(LpmPrefix, printsVrfAndPrefix) {
  EXPECT_EQ(v4("10.1.2.0/24", 7)->stringValue(), "vrf 7 prefix 10.1.2.0/24");
  EXPECT_EQ(v6("2001:db8::/32", 65536)->stringValue(), "vrf 65536 prefix 2001:db8::/32");
}

TEST(LpmPrefix, branchOfNoBitsIsAllZero) {
  EXPECT_EQ(v4("255.255.255.255/32", 0xffff)->branch(0), SubTrieBranch());
  EXPECT_EQ(v6("ffff::/16", 0xffff)->branch(0), SubTrieBranch());
  EXPECT_EQ(v4("0.0.0.0/0")->branch(0), SubTrieBranch());
}

TEST(LpmPrefix, branchKeepsTheFirstBitsOfVrfAndAddress) {
  const LpmPrefixV4::Ptr prefix = v4("10.1.2.0/24", 0x1234);
  EXPECT_EQ(bytesOf(prefix->branch(12), 2), "1230");
  EXPECT_EQ(bytesOf(prefix->branch(16), 2), "1234");
  EXPECT_EQ(bytesOf(prefix->branch(20), 3), "123400");
  EXPECT_EQ(bytesOf(prefix->branch(21), 3), "123408");
  EXPECT_EQ(bytesOf(prefix->branch(24), 3), "12340a");
  EXPECT_EQ(bytesOf(prefix->branch(40), 6), "12340a010200");
}

TEST(LpmPrefix, theWholeV4KeyFillsSixBytes) {
  EXPECT_EQ(bytesOf(v4("10.1.2.3/32", 0x1234)->branch(48), 6), "12340a010203");
}

TEST(LpmPrefix, theWholeV6KeyFillsEighteenBytes) {
  EXPECT_EQ(bytesOf(v6("102:304:506:708:90a:b0c:d0e:f10/128", 0xfffe)->branch(144), 18),
            "fffe0102030405060708090a0b0c0d0e0f10");
}

TEST(LpmPrefix, aVrfAbove65535GivesTheKeyOfItsLow16Bits) {
  EXPECT_EQ(v4("10.0.0.0/8", 0x51234)->branch(48), v4("10.0.0.0/8", 0x1234)->branch(48));
  EXPECT_EQ(v6("2001:db8::/32", 0xffff1234)->branch(144), v6("2001:db8::/32", 0x1234)->branch(144));
  EXPECT_EQ(v4("10.0.0.0/8", 0x51234)->vrfAndPrefix().vrf().value(), 0x51234U);
}

TEST(LpmPrefix, branchReadsOnPastTheLengthIntoTheStoredAddress) {
  const auto prefix = lpmPrefixV4Factory(VrfAndPrefix(0, Prefix(0x0a010203, 8)));
  EXPECT_EQ(prefix->len(), 24U);
  EXPECT_EQ(bytesOf(prefix->branch(48), 6), "00000a010203");
}

/// Bit by bit, as one reads the layout of a key.
SubTrieBranch branchBitByBit(const std::string& keyBytes, U32 branchLen) {
  SubTrieBranch branch;
  for (U32 bit = 0; bit < branchLen; ++bit) {
    const U8 mask = static_cast<U8>(0x80 >> bit % 8);
    if ((static_cast<U8>(keyBytes[bit / 8]) & mask) != 0) {
      branch.u8Is(bit / 8, branch.u8(bit / 8) | mask);
    }
  }
  return branch;
}

TEST(LpmPrefix, branchIsTheBitsOfTheKeyForEveryLength) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 round = 0; round < 50; ++round) {
    const U32 vrf = static_cast<U32>(random.word());
    Ip6Prefix::Bytes address{};
    std::string key{static_cast<char>(vrf >> 8), static_cast<char>(vrf)};
    for (U8& byte : address) {
      byte = random.byte();
      key += static_cast<char>(byte);
    }
    const LpmPrefix::Ptr long_ = lpmPrefixV6Factory(VrfAndIp6Prefix(vrf, Ip6Prefix(address, 0)));
    for (U32 len = 0; len <= 144; ++len) {
      ASSERT_EQ(long_->branch(static_cast<U8>(len)), branchBitByBit(key, len)) << "length " << len;
    }
    const U32 word =
        U32{address[0]} << 24 | U32{address[1]} << 16 | U32{address[2]} << 8 | U32{address[3]};
    const LpmPrefix::Ptr short_ = lpmPrefixV4Factory(VrfAndPrefix(vrf, Prefix(word, 0)));
    for (U32 len = 0; len <= 48; ++len) {
      ASSERT_EQ(short_->branch(static_cast<U8>(len)), branchBitByBit(key, len)) << "length " << len;
    }
  }
}

TEST(LpmPrefixDeathTest, aBranchLongerThanTheKeyIsFatal) {
  const auto shortKey = v4("10.0.0.0/8");
  const auto longKey = v6("2001:db8::/32");
  EXPECT_DEATH(shortKey->branch(49), "Assertion `branchLen <= vrfBits \\+ 32' failed");
  EXPECT_DEATH(longKey->branch(145), "Assertion `branchLen <= vrfBits \\+ 128' failed");
}

TEST(LpmPrefixV4, startsWithoutOwnersFanoutOrNextHop) {
  const LpmPrefixV4::Ptr prefix = v4("10.0.0.0/8");
  EXPECT_EQ(prefix->ownerLpmPrefix(), nullptr);
  EXPECT_EQ(prefix->otherOwnerLists(), 0U);
  EXPECT_EQ(prefix->prefixFanoutLists(), 0U);
  EXPECT_EQ(prefix->nhBlock(), NextHopBlock());
}

TEST(LpmPrefixV4, keepsItsOwnersNotes) {
  const LpmPrefixV4::Ptr prefix = v4("10.0.0.0/8");
  const LpmPrefixV4::Ptr owner = v4("0.0.0.0/0");
  prefix->ownerLpmPrefixIs(owner);
  prefix->otherOwnerListIs(owner->vrfAndPrefix(), true);
  prefix->nhBlockIs(NextHopBlock(1, 2));
  EXPECT_EQ(prefix->ownerLpmPrefix(), owner);
  EXPECT_TRUE(prefix->otherOwnerList(owner->vrfAndPrefix()));
  EXPECT_FALSE(prefix->otherOwnerList(prefix->vrfAndPrefix()));
  EXPECT_EQ(prefix->nhBlock(), NextHopBlock(1, 2));
}

LpmPrefixList listOf(std::initializer_list<LpmPrefix::Ptr> prefixes) {
  LpmPrefixList list;
  for (const LpmPrefix::Ptr& prefix : prefixes) {
    list.prefixEnq(prefix);
  }
  return list;
}

TEST(LpmPrefixList, equalListsHoldTheSameObjectsInOrder) {
  const LpmPrefix::Ptr a = v4("10.0.0.0/8");
  const LpmPrefix::Ptr b = v4("11.0.0.0/8");
  const LpmPrefix::Ptr twinOfA = v4("10.0.0.0/8");
  const LpmPrefixList list = listOf({a, nullptr, b});
  EXPECT_EQ(list, list);
  EXPECT_EQ(list, listOf({a, nullptr, b}));
  EXPECT_NE(list, listOf({b, nullptr, a}));
  EXPECT_NE(list, listOf({a, nullptr}));
  EXPECT_NE(list, listOf({twinOfA, nullptr, b}));
  EXPECT_EQ(list.prefixs(), 3U);
  EXPECT_EQ(list.prefix(1), nullptr);
  EXPECT_EQ(list.prefix(2), b);
}

TEST(LpmPrefixList, aCopyHoldsItsPrefixes) {
  LpmPrefixList copy;
  {
    const LpmPrefixList list = listOf({v4("10.0.0.0/8")});
    copy = list;
  }
  EXPECT_EQ(copy.prefix(0)->stringValue(), "vrf 0 prefix 10.0.0.0/8");
  EXPECT_EQ(copy.prefixMetadata(), (PrefixMetadata{0, 1}));
}

TEST(LpmPrefixList, hasNoTextForm) {
  EXPECT_EQ(valueToStrep(listOf({nullptr})), "None");
  std::ostringstream stream;
  stream << listOf({nullptr});
  EXPECT_EQ(stream.str(), "None");
}

}  // namespace
}  // namespace Quarle::Tarnlet
