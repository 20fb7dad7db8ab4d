#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "tests/agent/ChipClient.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::ChipClient;
using Testing::keyOf;

class Batch : public ::testing::Test {
 public:
  static std::string text(const std::vector<Answer>& answers) {
    std::string result;
    for (const Answer& answer : answers) {
      result += Testing::toText(answer) + "\n";
    }
    return result;
  }

 protected:
  ChipClient chip{XdkSim::readProfile(TARNLET_SOURCE_DIR "/profiles/lab.json")};
  FamilyClient& ipv4 = chip.client.family(Family::ipv4);
};

TEST_F(Batch, changesAreMadeInOrder) {
  const SwId one = chip.client.groupIs(std::vector<U64>{1});
  const SwId two = chip.client.groupIs(std::vector<U64>{2});
  const RouteKey key = keyOf("10.1.0.0/16");
  const std::vector<RouteChange> changes = {
      {key, one}, {key, one}, {key, two}, {key, SwId()}, {key, SwId()}, {keyOf("10.0.0.0/8"), two}};
  std::vector<Answer> answers(changes.size());
  ipv4.batch(changes, answers);
  EXPECT_EQ(text(answers), "placed\nunchanged\nupdated\nwithdrawn\nabsent\nplaced\n");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.0.0.0/8 to 2");
}

TEST_F(Batch, nobodyNeedsTheAnswers) {
  const SwId one = chip.client.groupIs(std::vector<U64>{1});
  ipv4.batch(std::vector<RouteChange>{{keyOf("10.1.0.0/16"), one}}, {});
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 1");
  EXPECT_EQ(chip.events(), "request 10.1.0.0/16 placed\n");
}

TEST_F(Batch, whatCannotBeARouteIsRefusedAmongOthers) {
  const SwId one = chip.client.groupIs(std::vector<U64>{1});
  RouteKey tooLong = keyOf("10.0.0.0/8");
  tooLong.prefix.length = 200;
  RouteKey bitsBehind = keyOf("10.1.0.0/16");
  bitsBehind.prefix.length = 8;
  const std::vector<RouteChange> changes = {
      {keyOf("10.0.0.0/8"), one}, {tooLong, one},    {keyOf("10.0.0.0/8", 70000), one},
      {bitsBehind, one},          {tooLong, SwId()}, {keyOf("10.1.0.0/16"), one}};
  std::vector<Answer> answers(changes.size());
  ipv4.batch(changes, answers);
  EXPECT_EQ(text(answers),
            "placed\nrefused invalid\nrefused invalid\nrefused invalid\nwithdrawn\nplaced\n");
}

struct Setting {
  const char* name;
  Family family;
  // Each table has this part of its rows.
  U32 rowsPart;

  friend std::ostream& operator<<(std::ostream& stream, const Setting& setting) {
    return stream << setting.name;
  }
};

class BatchOn : public ::testing::TestWithParam<Setting> {
 protected:
  static XdkSim::ChipProfile profile() {
    XdkSim::ChipProfile result = XdkSim::readProfile(TARNLET_SOURCE_DIR "/profiles/lab.json");
    for (XdkSim::FamilyProfile* family : {&result.ipv4, &result.ipv6}) {
      for (XdkSim::PrefixTableProfile& table : family->tables) {
        table.rows = std::max(table.rows / GetParam().rowsPart, 4U);
      }
    }
    return result;
  }

  // Few places, so that many changes meet on one route and one row.
  RouteChange randomChange() {
    const bool ipv4 = GetParam().family == Family::ipv4;
    const U64 top = ipv4 ? U64{10} << 56 : U64{0x2001} << 48;
    const AddressBits bits{.high = top | U64{random.below(300)} << 40, .low = 0};
    const unsigned length = 8 + random.below(ipv4 ? 25 : 40);
    const SwId group = random.below(3) == 0 ? SwId() : groups[random.below(4)];
    return {{.vrf = 0, .prefix = RoutePrefix::of(GetParam().family, bits, length)}, group};
  }

  const U64 seed = Tarnlet::Testing::testSeed();
  Random random{seed};
  ChipClient chip{profile()};
  ChipClient other{profile()};
  std::vector<SwId> groups;
};

TEST_P(BatchOn, leavesWhatTheSameRequestsOneByOneLeave) {
  for (U64 i = 1; i <= 4; ++i) {
    groups.push_back(chip.client.groupIs(std::vector<U64>{i}));
    ASSERT_EQ(other.client.groupIs(std::vector<U64>{i}), groups.back());
  }
  FamilyClient& family = chip.client.family(GetParam().family);
  FamilyClient& otherFamily = other.client.family(GetParam().family);
  for (const U32 size : {1U, 5U, 26U, 27U, 28U, 29U, 33U, 1500U}) {
    std::vector<RouteChange> changes(size);
    std::generate(changes.begin(), changes.end(), [this] { return randomChange(); });
    std::vector<Answer> expected;
    for (const auto& [key, group] : changes) {
      expected.push_back(group == SwId() ? otherFamily.routeDel(key)
                                         : otherFamily.routeIs(key, group));
    }
    std::vector<Answer> answers(size);
    family.batch(changes, answers);
    ASSERT_EQ(Batch::text(answers), Batch::text(expected)) << "seed " << seed << " size " << size;
    ASSERT_EQ(chip.events(), other.events()) << "seed " << seed << " size " << size;
  }
  EXPECT_EQ(family.commands(), otherFamily.commands()) << "seed " << seed;
  if (GetParam().rowsPart > 1) {
    EXPECT_FALSE(family.refused().empty()) << "seed " << seed;
  }
  EXPECT_EQ(chip.wrongLookups(), "") << "seed " << seed;
}

INSTANTIATE_TEST_SUITE_P(Chips,
                         BatchOn,
                         ::testing::Values(Setting{"ipv4", Family::ipv4, 1},
                                           Setting{"ipv6", Family::ipv6, 1},
                                           Setting{"crowdedIpv4", Family::ipv4, 64},
                                           Setting{"crowdedIpv6", Family::ipv6, 64}),
                         [](const auto& setting) { return setting.param.name; });

}  // namespace
}  // namespace Quarle::Agent
