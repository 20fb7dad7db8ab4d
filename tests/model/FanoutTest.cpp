#include <algorithm>
#include <string>
#include <vector>

#include "model/Tarnlet.h"
#include "tests/support/TraceLines.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using Corsel::Prefix;
using Dunlix::VrfAndPrefix;
using Vellor::Testing::TraceLines;

LpmPrefixV4::Ptr v4(const Prefix& prefix, U32 vrf = 0) {
  return lpmPrefixV4Factory(VrfAndPrefix(vrf, prefix));
}

/// The fan-out list by rising address.
std::string fanout(const LpmPrefixV4::Ptr& prefix) {
  std::vector<VrfAndPrefix> members;
  for (auto member = prefix->prefixFanoutListIterator(); member; ++member) {
    EXPECT_TRUE(member.value());
    members.push_back(member.key());
  }
  std::sort(members.begin(), members.end());
  std::string text;
  for (const VrfAndPrefix& member : members) {
    text += member.prefix().stringValue().str() + " ";
  }
  return text;
}

TEST(Fanout, coversAPrefixBySixteenOfFourMoreBits) {
  const auto prefix = v4(Prefix("10.0.0.0/16"), 7);
  prefix->createFanoutPrefixV4(36);
  EXPECT_EQ(fanout(prefix),
            "10.0.0.0/20 10.0.16.0/20 10.0.32.0/20 10.0.48.0/20 10.0.64.0/20 10.0.80.0/20 "
            "10.0.96.0/20 10.0.112.0/20 10.0.128.0/20 10.0.144.0/20 10.0.160.0/20 10.0.176.0/20 "
            "10.0.192.0/20 10.0.208.0/20 10.0.224.0/20 10.0.240.0/20 ");
  EXPECT_TRUE(prefix->prefixFanoutList(VrfAndPrefix(7, Prefix("10.0.16.0/20"))));
  EXPECT_FALSE(prefix->prefixFanoutList(VrfAndPrefix(8, Prefix("10.0.16.0/20"))));
}

TEST(Fanout, reachesHostRoutes) {
  const auto prefix = v4(Prefix("10.0.0.4/30"));
  prefix->createFanoutPrefixV4(48);
  EXPECT_EQ(fanout(prefix), "10.0.0.4/32 10.0.0.5/32 10.0.0.6/32 10.0.0.7/32 ");
}

// 32 more bits are a shift of 32, which counts modulo 32.
TEST(Fanout, ofADefaultRouteToHostRoutesIsOneEntry) {
  const auto prefix = v4(Prefix("0.0.0.0/0"));
  prefix->createFanoutPrefixV4(48);
  EXPECT_EQ(fanout(prefix), "0.0.0.0/32 ");
}

TEST(Fanout, addsToWhatIsThere) {
  const auto prefix = v4(Prefix("10.0.0.0/16"));
  prefix->createFanoutPrefixV4(33);
  prefix->createFanoutPrefixV4(34);
  EXPECT_EQ(fanout(prefix),
            "10.0.0.0/17 10.0.0.0/18 10.0.64.0/18 10.0.128.0/17 10.0.128.0/18 10.0.192.0/18 ");
}

void expectRefusal(const LpmPrefixV4::Ptr& prefix, U32 targetTread) {
  const std::string before = fanout(prefix);
  try {
    prefix->createFanoutPrefixV4(targetTread);
    FAIL() << "nothing was raised for " << targetTread;
  } catch (const Vellor::RangeException& exception) {
    EXPECT_EQ(exception.message(), "Prefix::validAsPrefix != true not allowed");
  }
  EXPECT_EQ(fanout(prefix), before);
}

TEST(Fanout, aTreadAboveTheKeyIsRefusedAtTheFirstPrefix) {
  const auto prefix = v4(Prefix("10.0.0.0/16"));
  prefix->createFanoutPrefixV4(33);
  // 16 + 32 bits are a host route; 304 - 16 cut to eight bits would be one again.
  for (const U32 targetTread : {49U, 64U, 80U, 271U, 304U, ~U32{0}}) {
    expectRefusal(prefix, targetTread);
  }
  prefix->createFanoutPrefixV4(34);
  EXPECT_EQ(prefix->prefixFanoutLists(), 6U) << "it stays usable";
}

TEST(Fanout, bitsBehindTheNewLengthAreRefusedAtTheFirstPrefix) {
  const auto prefix = v4(Prefix(0x0a000001, 16));
  expectRefusal(prefix, 36);
  prefix->createFanoutPrefixV4(48);
  EXPECT_EQ(prefix->prefixFanoutLists(), 32768U) << "set bits make pairs of addresses equal";
}

TEST(Fanout, tracesTheStepAndEachPrefix) {
  TraceLines trace("Tarnlet", {3});
  v4(Prefix("10.0.0.0/16"), 7)->createFanoutPrefixV4(33);
  EXPECT_EQ(trace.take(),
            "3: fanout of vrf 7 prefix 10.0.0.0/16 targetTread 33 count 2\n"
            "3:  -- #0 vrf 7 prefix 10.0.0.0/17\n"
            "3:  -- #1 vrf 7 prefix 10.0.128.0/17\n");
}

TEST(FanoutDeathTest, theTreadMustBeAboveTheLength) {
  const auto prefix = v4(Prefix("10.0.0.0/16"));
  EXPECT_DEATH(prefix->createFanoutPrefixV4(32), "Assertion `targetTread > len\\(\\)' failed");
  EXPECT_DEATH(prefix->createFanoutPrefixV4(0), "Assertion `targetTread > len\\(\\)' failed");
}

class FanoutPrefixLen : public testing::Test {
 protected:
  FanoutPrefixLen() { config_->populateLeastTreadForPrefixLenSettings(false); }

  /// Tables of these treads in this order.
  void tables(std::initializer_list<U8> treads) {
    config_->prefixTableSortedByTreadDelAll();
    U8 index = 0;
    for (const U8 tread : treads) {
      config_->prefixTableSortedByTreadIs(
          index,
          prefixTableFactory(index, new PrefixTableConfig(
                                        index, PrefixTableType::prefixTableWide256b, 16, tread)));
      ++index;
    }
  }

  const ConfigV4::Ptr config_ = configV4Factory("config");
};

TEST_F(FanoutPrefixLen, isTheLengthItselfWhereTheFirstTableServes) {
  tables({35, 28, 24, 16});
  EXPECT_EQ(config_->fanoutPrefixLen(48), 48);
  EXPECT_EQ(config_->fanoutPrefixLen(35), 35);
}

TEST_F(FanoutPrefixLen, isTheTreadOfTheTableBeforeTheOneThatServes) {
  tables({35, 28, 24, 16});
  EXPECT_EQ(config_->fanoutPrefixLen(34), 35);
  EXPECT_EQ(config_->fanoutPrefixLen(28), 35);
  EXPECT_EQ(config_->fanoutPrefixLen(27), 28);
  EXPECT_EQ(config_->fanoutPrefixLen(24), 28);
  EXPECT_EQ(config_->fanoutPrefixLen(16), 24);
}

TEST_F(FanoutPrefixLen, tablesBelowTheLeastTreadDoNotServe) {
  // Length 36 asks for a tread of 30 at least, length 38 for 35.
  tables({40, 36, 32, 30, 16});
  EXPECT_EQ(config_->fanoutPrefixLen(36), 40);
  EXPECT_EQ(config_->fanoutPrefixLen(38), 40);
  EXPECT_EQ(config_->fanoutPrefixLen(40), 40);
  config_->populateLeastTreadForPrefixLenSettings(true);
  EXPECT_EQ(config_->fanoutPrefixLen(31), 32);
}

TEST_F(FanoutPrefixLen, readsTheLeastTreadOfTheLowByte) {
  tables({35, 16});
  // 0x126 asks for the least tread of 38, which is 35; table 0 has it.
  EXPECT_EQ(config_->fanoutPrefixLen(0x126), 0x126);
}

TEST_F(FanoutPrefixLen, isTraced) {
  tables({35, 28});
  TraceLines trace("Tarnlet", {3});
  config_->fanoutPrefixLen(34);
  EXPECT_EQ(trace.take(), "3: prefixLen 34 fanoutLen 35\n");
}

using FanoutPrefixLenDeathTest = FanoutPrefixLen;

TEST_F(FanoutPrefixLenDeathTest, noTableIsFatal) {
  EXPECT_DEATH(config_->fanoutPrefixLen(40), "Assertion `prefixTableFound' failed");
  tables({35, 28});
  EXPECT_DEATH(config_->fanoutPrefixLen(27), "Assertion `prefixTableFound' failed");
  EXPECT_DEATH(config_->fanoutPrefixLen(-1), "Assertion `prefixTableFound' failed");
}

TEST_F(FanoutPrefixLenDeathTest, anEmptyElementIsFatal) {
  tables({35, 28, 16});
  config_->prefixTableSortedByTreadDel(1);
  EXPECT_EQ(config_->fanoutPrefixLen(48), 48) << "the walk ends before it";
  EXPECT_DEATH(config_->fanoutPrefixLen(20), "Assertion `prefixTable' failed");
}

}  // namespace
}  // namespace Quarle::Tarnlet
