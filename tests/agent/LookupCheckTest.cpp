#include "agent/LookupCheck.h"

#include <string>
#include <vector>

#include "agent/source/RouteText.h"
#include "tests/agent/ChipClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::ChipClient;
using ::testing::HasSubstr;
using Testing::keyOf;
using ::testing::StartsWith;
using Testing::tinyOptions;
using Testing::tinyProfile;

class LookupCheckTest : public ::testing::Test {
 protected:
  LookupCheckTest() {
    client_.route("10.0.0.0/8", {1});
    client_.route("10.1.0.0/16", {2, 3});
    expected.insert(keyOf("10.0.0.0/8").prefix, 1);
    expected.insert(keyOf("10.1.0.0/16").prefix, 2);
  }

  LookupCheck makeCheck() {
    return LookupCheck(client_.chip, expected, [](ReferenceTrie::Value value) {
      const NextHopBlock blocks[] = {{0, 0}, {0, 1}, {1, 2}, {1, 1}};
      return blocks[value];
    });
  }

  ReferenceTrie expected;

 private:
  ChipClient client_{tinyProfile({{.tread = 16, .rows = 1}}), tinyOptions()};
};

TEST_F(LookupCheckTest, rightAnswersAreCounted) {
  LookupCheck check = makeCheck();
  check.checkPrefix(keyOf("10.0.0.0/8").prefix);
  check.checkPrefix(keyOf("10.1.0.0/16").prefix);
  check.checkPrefix(keyOf("11.0.0.0/8").prefix);
  EXPECT_EQ(check.lookups(), 6U);
  EXPECT_EQ(check.wrong(), 0U);
}

TEST_F(LookupCheckTest, aHostRouteIsLookedUpOnce) {
  LookupCheck check = makeCheck();
  check.checkPrefix(keyOf("10.1.2.3/32").prefix);
  EXPECT_EQ(check.lookups(), 1U);
}

TEST_F(LookupCheckTest, aMissingRouteIsWrong) {
  expected.insert(keyOf("10.1.2.0/24").prefix, 2);
  LookupCheck check = makeCheck();
  check.checkPrefix(keyOf("10.1.2.0/24").prefix);
  EXPECT_EQ(check.wrong(), 2U);
  EXPECT_THAT(check.faults().at(0),
              StartsWith("10.1.2.0: expected a match of 10.1.2.0/24 to 2 next-hop rows from row 1, "
                         "the chip saw\nipv4 10.1.2.0\n"));
  EXPECT_THAT(check.faults().at(0), HasSubstr("longest match 10.1.0.0/16"));
}

TEST_F(LookupCheckTest, aRouteTooManyIsWrong) {
  expected.erase(keyOf("10.0.0.0/8").prefix);
  LookupCheck check = makeCheck();
  check.checkPrefix(keyOf("10.0.0.0/8").prefix);
  EXPECT_EQ(check.wrong(), 2U);
  EXPECT_THAT(check.faults().at(1), StartsWith("10.255.255.255: expected no match, the chip saw"));
}

TEST_F(LookupCheckTest, otherNextHopsAreWrong) {
  // Another run of rows, and a shorter one that begins at the same row.
  for (const ReferenceTrie::Value other : {1, 3}) {
    expected.insert(keyOf("10.1.0.0/16").prefix, other);
    LookupCheck check = makeCheck();
    check.checkPrefix(keyOf("10.1.0.0/16").prefix);
    EXPECT_EQ(check.wrong(), 2U) << other;
  }
}

TEST_F(LookupCheckTest, allWrongAnswersCountButTheFirstAloneAreKept) {
  expected.erase(keyOf("10.0.0.0/8").prefix);
  LookupCheck check = makeCheck();
  for (int i = 0; i < 20; ++i) {
    check.checkPrefix(keyOf("10.200." + std::to_string(i) + ".0/24").prefix);
  }
  EXPECT_EQ(check.wrong(), 40U);
  EXPECT_EQ(check.faults().size(), LookupCheck::kFaultsKept);
}

}  // namespace
}  // namespace Quarle::Agent
