#include "agent/restart/RowKey.h"
#include "tests/restart/RestartChip.h"

namespace Quarle::Agent::Testing {
namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::SubTrieBranch;

/// A helper by itself, and one behind a walk.
class RestartHelperTest : public ::testing::Test {
 protected:
  /// A helper without a machine.
  RestartHelper& alone(bool longKey) {
    restart = std::make_unique<RestartChip>(longKey);
    restart->status = Tarnlet::statusFactory("status");
    restart->helper = restart->makeHelper();
    return *restart->helper;
  }

  static SubTrieBranch branchOf(const std::string& prefix, bool longKey) {
    const Key key = keyFrom(prefix, longKey);
    SubTrieBranch branch;
    for (U32 i = 0; i < key.bytes.size(); ++i) {
      branch.u8Is(i, key.bytes[i]);
    }
    return branch;
  }

  /// What `createPrefix` says, or the prefix's text.
  static std::string create(RestartHelper& helper,
                            const SubTrieBranch& branch,
                            U8 branchLen,
                            const Leaf& leaf,
                            U8 stride) {
    try {
      return helper.createPrefix(branch, branchLen, leaf.low, leaf.high, stride)
          ->stringValue()
          .str();
    } catch (const BadRowError& error) {
      return error.what();
    }
  }

  U32 interned() const {
    if (restart->longKey) {
      return dynamic_cast<const Tarnlet::ConfigV6&>(*restart->config).lpmPrefixs();
    }
    return dynamic_cast<const Tarnlet::ConfigV4&>(*restart->config).lpmPrefixs();
  }

  std::unique_ptr<RestartChip> restart;
};

TEST_F(RestartHelperTest, aBranchAndALeafSpellAnInternedPrefix) {
  RestartHelper& helper = alone(false);
  const SubTrieBranch branch = branchOf("7|10.1.0.0/16", false);
  // Three bits behind the branch: 101.
  const LpmPrefix::Ptr prefix = helper.createPrefix(branch, 32, 0b1101, 0, 4);
  EXPECT_EQ(prefix->stringValue(), "vrf 7 prefix 10.1.160.0/19");
  EXPECT_EQ(helper.createPrefix(branch, 32, 0b1101, 0, 8), prefix);
  EXPECT_EQ(interned(), 1U);
}

TEST_F(RestartHelperTest, aLeafOfAWholeWordLeavesNothingBehindTheKey) {
  RestartHelper& helper = alone(true);
  // The branch ends with a word, and the leaf has 64 bits.
  EXPECT_EQ(create(helper, branchOf("2001:db8:1::/48", true), 64,
                   {.low = 0x0001000200030004, .high = 1}, 96),
            "vrf 0 prefix 2001:db8:1:1:2:3:4:0/112");
}

TEST_F(RestartHelperTest, theDefaultRouteIsAKeyOfTheVrfAlone) {
  RestartHelper& helper = alone(false);
  EXPECT_EQ(create(helper, SubTrieBranch(), 0, {.low = 1U << 16 | 3}, 24),
            "vrf 3 prefix 0.0.0.0/0");
}

TEST_F(RestartHelperTest, whatSpellsNoPrefixOfTheFamilyIsOneClearError) {
  RestartHelper& ipv4 = alone(false);
  const SubTrieBranch branch = branchOf("10.1.2.0/24", false);
  EXPECT_EQ(create(ipv4, branch, 40, {}, 16),
            "IPv4 prefix row with an empty leaf, expected a stop bit");
  EXPECT_EQ(create(ipv4, branch, 40, {.low = 1U << 9}, 16),
            "IPv4 prefix row with a key of 49 bits, expected 16 to 48");
  EXPECT_EQ(create(ipv4, branch, 200, {.high = U64{1} << 63}, 200),
            "IPv4 prefix row with a key of 327 bits, expected 16 to 48");
  EXPECT_EQ(create(ipv4, branch, 40, {.low = 1U << 4}, 4),
            "IPv4 prefix row with a leaf of 5 bits, expected at most the stride of 4");
  EXPECT_EQ(create(ipv4, SubTrieBranch(), 0, {.low = 1U << 15}, 20),
            "IPv4 prefix row with a key of 15 bits, expected 16 to 48");
  EXPECT_EQ(create(ipv4, branch, 32, {.low = 1}, 4),
            "IPv4 prefix row with bits behind the branch of 32 bits, expected none");
  EXPECT_EQ(interned(), 0U);

  RestartHelper& ipv6 = alone(true);
  EXPECT_EQ(create(ipv6, branchOf("2001:db8::/64", true), 80, {.high = 2}, 128),
            "IPv6 prefix row with a key of 145 bits, expected 16 to 144");
}

TEST_F(RestartHelperTest, anErrorTakesBackWhatItsRowHadMade) {
  RestartHelper& helper = alone(false);
  const SubTrieBranch branch = branchOf("10.1.2.0/24", false);
  create(helper, branch, 40, {.low = 2}, 16);
  create(helper, branch, 40, {.low = 3}, 16);
  EXPECT_EQ(interned(), 2U);
  create(helper, branch, 40, {.low = 1U << 9}, 16);
  EXPECT_EQ(interned(), 0U);
}

TEST_F(RestartHelperTest, deletingUndoesWhatCreatingMade) {
  RestartHelper& helper = alone(true);
  const LpmPrefix::Ptr prefix = helper.createPrefix(branchOf("2001:db8::/32", true), 48, 1, 0, 8);
  EXPECT_EQ(interned(), 1U);
  helper.deletePrefix(prefix);
  EXPECT_EQ(interned(), 0U);
  helper.deletePrefix(prefix);
  EXPECT_EQ(interned(), 0U);
}

TEST_F(RestartHelperTest, deletingLeavesAPrefixThatStoodBefore) {
  RestartHelper& helper = alone(false);
  const LpmPrefix::Ptr stood = internPrefix(*restart->config, keyFrom("10.1.2.0/24", false));
  EXPECT_EQ(helper.createPrefix(branchOf("10.1.2.0/24", false), 40, 1, 0, 8), stood);
  helper.deletePrefix(stood);
  EXPECT_EQ(internPrefix(*restart->config, keyFrom("10.1.2.0/24", false)), stood);
}

TEST_F(RestartHelperTest, aRefusedRowLeavesThePrefixesOfAnAdoptedOne) {
  restart = std::make_unique<RestartChip>(false);
  // The first row's prefix leads nowhere and is not asked for, so that the second row's is none too
  // many to the walk: that row is refused for its block, which is outside of its tile.
  restart->nhi(0, 3, {});
  restart->put(0, {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24"}, .offset = 3});
  restart->put(1, {.branch = "10.1.0.0/19",
                   .stride = 16,
                   .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
                   .offset = 9999});
  restart->start(/*warm=*/true);
  EXPECT_EQ(interned(), 1U);
  const LpmPrefix::Ptr prefix = internPrefix(*restart->config, keyFrom("10.1.0.0/24", false));
  EXPECT_TRUE(restart->config->requestCollection().isMember(prefix)) << "not one object";
}

TEST_F(RestartHelperTest, deletingLeavesWhatTheLastRowWasAdoptedWith) {
  restart = std::make_unique<RestartChip>(false);
  restart->nhi(0, 3, {{7, 1}});
  restart->put(0, {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24"}, .offset = 3});
  restart->start(/*warm=*/true);
  restart->helper->deletePrefix(internPrefix(*restart->config, keyFrom("10.1.0.0/24", false)));
  EXPECT_EQ(interned(), 1U);
}

TEST_F(RestartHelperTest, aRefusedRowLeavesNothing) {
  restart = std::make_unique<RestartChip>(false);
  restart->nhi(0, 3, {{7, 1}, {8, 1}});
  restart->put(1, {.branch = "10.1.0.0/19",
                   .stride = 16,
                   .leaves = {"10.1.0.0/24", "10.1.1.0/24", "10.1.0.0/24"},
                   .offset = 9999});
  restart->start(/*warm=*/true);
  EXPECT_EQ(interned(), 0U);
  EXPECT_EQ(restart->config->requests(), 0U);
}

}  // namespace
}  // namespace Quarle::Agent::Testing
