// The SDK refuses a write in the middle of a request: the operation raises it, and nothing in the
// client or the library is left half done.

#include <optional>
#include <string>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/Client.h"
#include "tests/agent/ChipClient.h"
#include "xdksim/SimLpmMgr.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::keyOf;

/// How many writes still go through before one is refused, for all managers of a chip.
struct Fuse {
  std::optional<U64> left;

  bool blows() {
    if (left == U64{0}) {
      left.reset();
      return true;
    }
    if (left) {
      --*left;
    }
    return false;
  }
};

class FusedManager final : public xpIpRouteLpmMgr {
 public:
  FusedManager(XdkSim::Chip& chip, XdkSim::Family family, Fuse& fuse)
      : chip_(chip, family), fuse_(fuse) {}

  XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override {
    return fuse_.blows() ? XP_ERR_OUT_OF_RANGE : chip_.writePrefixEntry(device, table, row, entry);
  }

  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) override {
    return fuse_.blows() ? XP_ERR_OUT_OF_RANGE : chip_.writeNhiEntry(device, tile, row, entry);
  }

  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override {
    return fuse_.blows() ? XP_ERR_OUT_OF_RANGE : chip_.writeNextHopEntry(device, row, entry);
  }

 private:
  XdkSim::SimLpmMgr chip_;
  Fuse& fuse_;
};

class WriteFault : public ::testing::Test {
 protected:
  /// Runs the operation; whether it raised.
  template <typename Operation>
  bool raises(const Operation& operation) {
    try {
      operation();
    } catch (const ChipWriteError& error) {
      text_ = error.what();
      return true;
    }
    return false;
  }

  XdkSim::Chip chip_{XdkSim::readProfile(TARNLET_SOURCE_DIR "/profiles/lab.json")};
  Fuse fuse_;
  FusedManager manager4_{chip_, XdkSim::Family::ipv4, fuse_};
  FusedManager manager6_{chip_, XdkSim::Family::ipv6, fuse_};
  Client client_{{.systemStatus = systemStatusOf(chip_), .ipv4 = &manager4_, .ipv6 = &manager6_}};
  FamilyClient& ipv4_ = client_.family(Family::ipv4);
  std::string text_;
};

TEST_F(WriteFault, theOperationRaisesItOnceAfterTheAnswerIsTold) {
  std::string told;
  client_.answerHandlerIs(
      [&told](const RouteEvent& event) { told += toText(event.answer.outcome); });
  fuse_.left = 2;
  // Next-hop row, NHI row, prefix row.
  EXPECT_TRUE(raises([this] { ipv4_.routeIs(keyOf("10.1.0.0/16"), std::vector<U64>{7}); }));
  EXPECT_EQ(text_.find("IPv4 prefix table"), 0U) << text_;
  EXPECT_EQ(told, "placed");
  EXPECT_EQ(ipv4_.routes(), 1U);
  EXPECT_FALSE(raises([this] { ipv4_.routeIs(keyOf("10.2.0.0/16"), std::vector<U64>{7}); }));
  EXPECT_NE(chip_.rowsUsed(XdkSim::Family::ipv4), 0U);
}

TEST_F(WriteFault, aBatchGoesOnToItsEnd) {
  const SwId group = client_.groupIs(std::vector<U64>{7});
  const std::vector<RouteChange> changes = {
      {keyOf("10.1.0.0/16"), group}, {keyOf("10.2.0.0/16"), group}, {keyOf("10.1.0.0/16"), SwId()}};
  std::vector<Answer> answers(changes.size());
  fuse_.left = 0;
  EXPECT_TRUE(raises([&] { ipv4_.batch(changes, answers); }));
  EXPECT_EQ(answers[2].outcome, Outcome::withdrawn);
  EXPECT_EQ(ipv4_.routes(), 1U);
}

// A story with everything in it, its n-th write refused, for every n.
TEST_F(WriteFault, whicheverWriteIsRefusedTheStateStaysWhole) {
  const auto story = [this](int step) {
    const auto at = [](int i) { return keyOf("10.1." + std::to_string(i) + ".0/24"); };
    if (step < 9) {
      ipv4_.routeIs(at(step), std::vector<U64>{1 + U64(step) % 3});
    } else if (step == 9) {
      ipv4_.routeIs(at(2), std::vector<U64>{5, 6});
    } else if (step == 10) {
      const SwId group = *ipv4_.groupOf(at(2));
      client_.groupNextHopsAre(group, std::vector<U64>{5, 6, 7});
    } else {
      ipv4_.routeDel(at(step - 11));
    }
  };
  constexpr int kSteps = 20;
  int faults = 1;
  U64 n = 0;
  for (; faults != 0; ++n) {
    faults = 0;
    fuse_.left = n;
    for (int step = 0; step < kSteps; ++step) {
      faults += raises([&] { story(step); }) ? 1 : 0;
      ASSERT_EQ(ipv4_.routes(), ipv4_.engine().config()->requests());
      ASSERT_EQ(ipv4_.engine().status()->pendingCmds(), 0U);
    }
    ASSERT_LE(faults, 1) << "write " << n << ": one write was refused";
    ASSERT_EQ(ipv4_.routes(), 0U) << "write " << n;
    ASSERT_EQ(ipv4_.statistics().nhiEntriesUsed, 0U) << "write " << n;
    ASSERT_EQ(client_.groups().statistics().rowsUsed, 0U) << "write " << n;
    ASSERT_TRUE(ipv4_.refused().empty()) << "write " << n;
  }
  EXPECT_GT(n, 40U) << "writes of the story";
}

}  // namespace
}  // namespace Quarle::Agent
