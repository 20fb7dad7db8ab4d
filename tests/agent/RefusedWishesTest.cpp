#include "agent/RefusedWishes.h"

#include <string>

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using TarnletNextHop::SwId;

RouteKey key(U32 vrf) { return {.vrf = vrf, .prefix = {}}; }

class RefusedWishesTest : public ::testing::Test {
 protected:
  void put(U32 vrf, RefusalReason reason) {
    wishes.put({.key = key(vrf), .group = SwId(7), .reason = reason});
  }

  /// The VRFs in a line, first to last.
  static std::string text(const RefusedWishes::Line& line) {
    std::string result;
    for (const RefusedWish& wish : line) {
      result += std::to_string(wish.key.vrf) + " ";
    }
    return result;
  }

  std::string noRow() const { return text(wishes.of(RefusalReason::noRow)); }

  std::string rowFull() const { return text(wishes.of(RefusalReason::rowFull)); }

  RefusedWishes wishes;
};

TEST_F(RefusedWishesTest, linesKeepTheOrderOfRefusal) {
  put(3, RefusalReason::noRow);
  put(1, RefusalReason::noRow);
  put(2, RefusalReason::rowFull);
  EXPECT_EQ(noRow(), "3 1 ");
  EXPECT_EQ(rowFull(), "2 ");
  EXPECT_EQ(wishes.size(), 3U);
  EXPECT_EQ(wishes.count(RefusalReason::noRow), 2U);
}

TEST_F(RefusedWishesTest, aWishRefusedAgainGoesToTheEndOfItsLine) {
  put(1, RefusalReason::noRow);
  put(2, RefusalReason::noRow);
  put(1, RefusalReason::noRow);
  EXPECT_EQ(noRow(), "2 1 ");
  EXPECT_EQ(wishes.size(), 2U);
}

TEST_F(RefusedWishesTest, aWishRefusedForAnotherReasonChangesItsLine) {
  put(1, RefusalReason::noRow);
  put(2, RefusalReason::rowFull);
  put(1, RefusalReason::rowFull);
  EXPECT_EQ(noRow(), "");
  EXPECT_EQ(rowFull(), "2 1 ");
  EXPECT_EQ(wishes.find(key(1))->reason, RefusalReason::rowFull);
}

TEST_F(RefusedWishesTest, aWithdrawalStandsApartAndCountsAsHeadroom) {
  put(1, RefusalReason::headroom);
  wishes.put({.key = key(2), .group = SwId(), .reason = RefusalReason::headroom});
  EXPECT_EQ(text(wishes.of(RefusalReason::headroom)), "1 ");
  EXPECT_EQ(text(wishes.withdrawals()), "2 ");
  EXPECT_EQ(wishes.count(RefusalReason::headroom), 2U);
  put(2, RefusalReason::headroom);
  EXPECT_EQ(text(wishes.withdrawals()), "");
  EXPECT_EQ(text(wishes.of(RefusalReason::headroom)), "1 2 ");
}

TEST_F(RefusedWishesTest, anErasedWishIsGoneEverywhere) {
  put(1, RefusalReason::noRow);
  put(2, RefusalReason::noRow);
  EXPECT_TRUE(wishes.erase(key(1)));
  EXPECT_FALSE(wishes.erase(key(1)));
  EXPECT_EQ(wishes.find(key(1)), nullptr);
  EXPECT_EQ(noRow(), "2 ");
  EXPECT_TRUE(wishes.erase(key(2)));
  EXPECT_TRUE(wishes.empty());
}

TEST_F(RefusedWishesTest, allAreVisitedOnce) {
  put(1, RefusalReason::noRow);
  put(2, RefusalReason::invalid);
  wishes.put({.key = key(3), .group = SwId(), .reason = RefusalReason::headroom});
  U32 sum = 0;
  wishes.forEach([&sum](const RefusedWish& wish) { sum = sum * 10 + wish.key.vrf; });
  EXPECT_EQ(sum, 123U);
}

}  // namespace
}  // namespace Quarle::Agent
