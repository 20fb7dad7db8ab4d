#include "framework/Brumel/BitTree.h"

#include <cstdlib>
#include <iterator>
#include <random>
#include <set>

#include <gtest/gtest.h>

namespace {

using Brumel::BFA::BitTree;

TEST(BitTree, treeWithoutNumbersIsEmpty) {
  const BitTree tree(0);
  EXPECT_TRUE(tree.empty());
  EXPECT_EQ(tree.lowestAtLeast(0), BitTree::kNone);
}

TEST(BitTree, emptyTreeFindsNothing) {
  for (const U32 bound : {1u, 64u, 65u, 4096u, 4097u, 300000u}) {
    const BitTree tree(bound);
    EXPECT_TRUE(tree.empty());
    EXPECT_EQ(tree.lowestAtLeast(0), BitTree::kNone);
    EXPECT_EQ(tree.lowestAtLeast(bound + 100), BitTree::kNone);
    EXPECT_EQ(tree.highestAtMost(bound - 1), BitTree::kNone);
  }
}

TEST(BitTree, agreesWithAnOrderedSet) {
  const char* text = std::getenv("VELLOR_TEST_SEED");
  const U32 seed =
      text != nullptr ? static_cast<U32>(std::strtoul(text, nullptr, 10)) : std::random_device()();
  std::mt19937 random(seed);
  for (const U32 bound : {1u, 2u, 63u, 64u, 65u, 4095u, 4096u, 4097u, 262144u, 300000u}) {
    BitTree tree(bound);
    std::set<U32> model;
    for (int step = 0; step < 4000; ++step) {
      SCOPED_TRACE(testing::Message()
                   << "VELLOR_TEST_SEED=" << seed << " bound " << bound << " step " << step);
      const U32 number = static_cast<U32>(random() % bound);
      if (model.size() < 20 + random() % 20) {
        tree.insert(number);
        model.insert(number);
      } else {
        const auto victim = model.lower_bound(number);
        const U32 leaving = victim != model.end() ? *victim : *model.begin();
        tree.erase(leaving);
        model.erase(leaving);
      }
      const U32 asked = static_cast<U32>(random() % bound);
      const auto above = model.lower_bound(asked);
      const auto behind = model.upper_bound(asked);
      ASSERT_EQ(tree.empty(), model.empty());
      ASSERT_EQ(tree.lowest(), *model.begin());
      ASSERT_EQ(tree.lowestAtLeast(asked), above != model.end() ? *above : BitTree::kNone);
      ASSERT_EQ(tree.highestAtMost(asked),
                behind != model.begin() ? *std::prev(behind) : BitTree::kNone);
    }
  }
}

}  // namespace
