// What an address may answer while routes are wished for and groups change.

#include "agent/ExpectedRoutes.h"

#include <string>

#include "tests/agent/ChipClient.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::keyOf;

class Expected : public ::testing::Test {
 protected:
  /// A route that stands.
  void route(const std::string& prefix, U64 nextHop) {
    wish(prefix, nextHop);
    routes.wishHolds(keyOf(prefix));
  }

  void wish(const std::string& prefix, U64 nextHop) { routes.wishIs(keyOf(prefix), id(nextHop)); }

  void change(const std::string& prefix, U64 nextHop) {
    routes.changeIs(keyOf(prefix), id(nextHop));
  }

  /// Length and next hop of each match, then what changes: "16:1 16:2 8:5 16:1>2", "none" at the
  /// end when no match is right too.
  std::string answers() const {
    const ExpectedRoutes::Answers& answers =
        routes.answersAt({.vrf = 0, .address = keyOf("10.1.0.0/16").prefix.firstAddress()});
    std::string text;
    for (const ReferenceTrie::Match& match : answers.matches) {
      text += std::to_string(match.length) + ":" + nextHop(match.value) + " ";
    }
    for (const ExpectedRoutes::Change& change : answers.changes) {
      text += std::to_string(change.length) + ":" + nextHop(change.before) + ">" +
              nextHop(change.after) + " ";
    }
    return text + (answers.none ? "none" : "");
  }

  ExpectedRoutes routes;

 private:
  ExpectedRoutes::NextHopsId id(U64 nextHop) { return routes.idOf({&nextHop, 1}); }

  std::string nextHop(ExpectedRoutes::NextHopsId id) const {
    return std::to_string(routes.nextHops(id).front());
  }
};

TEST_F(Expected, aRouteThatComesMayBeThereOrNot) {
  EXPECT_EQ(answers(), "none");
  wish("10.1.0.0/16", 1);
  EXPECT_EQ(answers(), "16:1 none");
  routes.wishHolds(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:1 ");
}

TEST_F(Expected, aRouteThatGoesMayShowWhatCoversIt) {
  route("10.0.0.0/8", 5);
  route("10.1.0.0/16", 1);
  routes.wishIs(keyOf("10.1.0.0/16"), std::nullopt);
  EXPECT_EQ(answers(), "16:1 8:5 ");
  routes.wishIsDropped(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:1 ");
  routes.wishIs(keyOf("10.1.0.0/16"), std::nullopt);
  routes.wishHolds(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "8:5 ");
}

TEST_F(Expected, aChangeOfTheGroupIsOldOrNewUntilItIsAnswered) {
  route("10.0.0.0/8", 5);
  route("10.1.0.0/16", 1);
  change("10.1.0.0/16", 2);
  EXPECT_EQ(answers(), "16:1 16:2 16:1>2 ");
  routes.changeHolds(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:2 ");
  change("10.1.0.0/16", 3);
  routes.changeIsDropped(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:2 ");
}

TEST_F(Expected, aWishOutlivesTheChangeOfTheGroupThatTheRouteLeadsTo) {
  route("10.1.0.0/16", 1);
  wish("10.1.0.0/16", 9);
  change("10.1.0.0/16", 2);
  EXPECT_EQ(answers(), "16:1 16:2 16:9 16:1>2 ");
  routes.changeHolds(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:2 16:9 ");
  change("10.1.0.0/16", 3);
  routes.changeIsDropped(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:2 16:9 ");
  routes.wishIsDropped(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:2 ");
}

TEST_F(Expected, aWishThatIsDroppedLeavesTheChange) {
  route("10.1.0.0/16", 1);
  change("10.1.0.0/16", 2);
  routes.wishIs(keyOf("10.1.0.0/16"), std::nullopt);
  EXPECT_EQ(answers(), "16:1 16:2 16:1>2 none");
  routes.wishIsDropped(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:1 16:2 16:1>2 ");
}

TEST_F(Expected, aWishThatComesTrueTakesTheRouteOutOfTheChange) {
  route("10.1.0.0/16", 1);
  change("10.1.0.0/16", 2);
  wish("10.1.0.0/16", 9);
  routes.wishHolds(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:9 ");
  routes.changeHolds(keyOf("10.1.0.0/16"));
  EXPECT_EQ(answers(), "16:9 ") << "it leads to another group now";
}

TEST_F(Expected, whatNobodyWaitsForIsAnsweredInVain) {
  route("10.1.0.0/16", 1);
  routes.wishHolds(keyOf("10.1.0.0/16"));
  routes.wishIsDropped(keyOf("10.1.0.0/16"));
  routes.changeHolds(keyOf("10.1.0.0/16"));
  routes.changeIsDropped(keyOf("10.1.0.0/16"));
  routes.wishIs(keyOf("10.2.0.0/16"), std::nullopt);
  routes.wishHolds(keyOf("10.2.0.0/16"));
  EXPECT_EQ(answers(), "16:1 ");
}

TEST_F(Expected, routesWithNothingUnderWayDoNotDisturbOneAnother) {
  route("10.0.0.0/8", 5);
  route("10.1.0.0/16", 1);
  change("10.0.0.0/8", 6);
  change("10.1.0.0/16", 2);
  routes.changeHolds(keyOf("10.0.0.0/8"));
  EXPECT_EQ(answers(), "16:1 16:2 16:1>2 ");
  wish("10.2.0.0/16", 7);
  routes.changeHolds(keyOf("10.1.0.0/16"));
  wish("10.3.0.0/16", 8);
  EXPECT_EQ(answers(), "16:2 ");
}

}  // namespace
}  // namespace Quarle::Agent
