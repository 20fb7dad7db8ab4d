#include <map>
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
 protected:
  static XdkSim::ChipProfile lab() {
    return XdkSim::readProfile(TARNLET_SOURCE_DIR "/profiles/lab.json");
  }

  static std::string text(const std::vector<Answer>& answers) {
    std::string result;
    for (const Answer& answer : answers) {
      result += Testing::toText(answer) + "\n";
    }
    return result;
  }

  ChipClient chip{lab()};
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

TEST_F(Batch, leavesWhatTheSameRequestsOneByOneLeave) {
  const U64 seed = Tarnlet::Testing::testSeed();
  Random random(seed);
  ChipClient other(lab());
  std::vector<SwId> groups;
  for (U64 i = 1; i <= 4; ++i) {
    groups.push_back(chip.client.groupIs(std::vector<U64>{i}));
    ASSERT_EQ(other.client.groupIs(std::vector<U64>{i}), groups.back());
  }
  std::vector<RouteChange> changes;
  for (int i = 0; i < 1500; ++i) {
    const AddressBits bits{.high = U64{10} << 56 | U64{random.below(300)} << 40, .low = 0};
    const RoutePrefix prefix = RoutePrefix::of(Family::ipv4, bits, 8 + random.below(25));
    const bool withdraw = random.below(3) == 0;
    changes.push_back({{.vrf = 0, .prefix = prefix}, withdraw ? SwId() : groups[random.below(4)]});
  }
  std::vector<Answer> expected;
  for (const auto& [key, group] : changes) {
    FamilyClient& family = other.client.family(Family::ipv4);
    expected.push_back(group == SwId() ? family.routeDel(key) : family.routeIs(key, group));
  }
  std::vector<Answer> answers(changes.size());
  ipv4.batch(changes, answers);
  EXPECT_EQ(text(answers), text(expected)) << "seed " << seed;
  EXPECT_EQ(chip.events(), other.events()) << "seed " << seed;
  EXPECT_EQ(ipv4.commands(), other.client.family(Family::ipv4).commands()) << "seed " << seed;
  EXPECT_EQ(chip.wrongLookups(), "") << "seed " << seed;
}

}  // namespace
}  // namespace Quarle::Agent
