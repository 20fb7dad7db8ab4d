#include "framework/Vellor/SlotMap.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/framework/Vellor/CollidingKey.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

using Testing::Child;

using Map = HashMap<U8, std::string>;

template <class Value>
std::string keys(const HashMap<U8, Value>& map) {
  std::string text;
  for (auto member = map.iterator(); member; ++member) {
    text += (text.empty() ? "" : " ") + std::to_string(member.key());
  }
  return text;
}

/// Keys by their reversed bits, which is the order of a walk.
struct ByReversedBits {
  bool operator()(U8 a, U8 b) const { return bitReverse(a) < bitReverse(b); }
};

using Model = std::map<U8, std::string, ByReversedBits>;

// In a table of four buckets tiles 0 to 3 have a bucket each: 0, 2, 1, 3.
TEST(SlotMap, fourTilesAreWalkedAsZeroTwoOneThree) {
  HashMap<U8, U32> map;
  for (const U8 tile : {U8{3}, U8{1}, U8{0}, U8{2}}) {
    map.set(tile, tile);
  }
  EXPECT_EQ(keys(map), "0 2 1 3");
}

TEST(SlotMap, sixteenTilesAreWalkedInBitReversedOrder) {
  HashMap<U8, U32> map;
  for (U8 tile = 0; tile < 16; ++tile) {
    map.set(tile, 0);
  }
  EXPECT_EQ(keys(map), "0 8 4 12 2 10 6 14 1 9 5 13 3 11 7 15");
}

TEST(SlotMap, readsTheDefaultOfAnAbsentKeyAndCreatesNothing) {
  Map map;
  EXPECT_EQ(map.value(7), "");
  map.set(8, "x");
  for (const U8 absent : {U8{0}, U8{7}, U8{9}, U8{255}}) {
    EXPECT_EQ(map.value(absent), "") << +absent;
    EXPECT_FALSE(map.isMember(absent)) << +absent;
    EXPECT_EQ(map.find(absent), nullptr) << +absent;
  }
  EXPECT_EQ(map.count(), 1U);
}

TEST(SlotMap, createsReplacesAndRemoves) {
  Map map;
  EXPECT_TRUE(map.set(255, "one"));
  EXPECT_FALSE(map.set(255, "one"));
  EXPECT_TRUE(map.set(255, "two"));
  EXPECT_EQ(map.value(255), "two");
  EXPECT_EQ(map.count(), 1U);
  bool removed = false;
  EXPECT_EQ(map.take(255, removed), "two");
  EXPECT_TRUE(removed);
  EXPECT_EQ(map.take(255, removed), "");
  EXPECT_FALSE(removed);
  EXPECT_EQ(map.count(), 0U);
}

TEST(SlotMap, aMemberMayHoldTheDefaultValue) {
  HashMap<U8, Ptr<Child>> map;
  EXPECT_TRUE(map.set(3, nullptr));
  EXPECT_TRUE(map.isMember(3));
  EXPECT_EQ(map.count(), 1U);
  EXPECT_FALSE(map.set(3, nullptr));
}

TEST(SlotMap, all256KeysHaveAPlace) {
  Map map;
  Model model;
  for (U32 key = 0; key < 256; ++key) {
    map.set(static_cast<U8>(key), std::to_string(key));
    model[static_cast<U8>(key)] = std::to_string(key);
  }
  EXPECT_EQ(map.count(), 256U);
  auto expected = model.begin();
  for (const auto& member : map) {
    ASSERT_NE(expected, model.end());
    EXPECT_EQ(member.key, expected->first);
    EXPECT_EQ(member.value, expected->second);
    ++expected;
  }
  EXPECT_EQ(expected, model.end());
}

TEST(SlotMap, takesAValueThatStandsInItself) {
  Map map;
  map.set(0, "a text that is too long to stand in the string itself");
  for (U32 key = 1; key < 256; ++key) {
    map.set(static_cast<U8>(key), *map.find(0));
  }
  EXPECT_EQ(map.value(255), "a text that is too long to stand in the string itself");
}

TEST(SlotMap, copiesAreIndependentAndMovesLeaveAnEmptyMap) {
  Map map;
  map.set(1, "a");
  map.set(200, "b");
  Map copy = map;
  EXPECT_EQ(copy, map);
  copy.set(1, "c");
  EXPECT_NE(copy, map);
  EXPECT_EQ(map.value(1), "a");
  const Map taken = std::move(map);
  EXPECT_EQ(keys(taken), "200 1");
  EXPECT_EQ(map.count(), 0U);
  map.set(5, "d");
  EXPECT_EQ(keys(map), "5");
}

TEST(SlotMap, equalityIsByContentNotByHistory) {
  Map a;
  Map b;
  a.set(1, "x");
  b.set(1, "x");
  b.set(200, "y");
  EXPECT_NE(a, b);
  bool removed = false;
  b.take(200, removed);
  EXPECT_EQ(a, b);
  b.take(1, removed);
  b.set(2, "x");
  EXPECT_NE(a, b);
}

TEST(SlotMap, renumberingGivesTheKeysFromZeroInTheOrderOfTheWalk) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 round = 0; round < 300; ++round) {
    Map map;
    for (U32 i = random.between(0, 300); i > 0; --i) {
      const U8 key = random.byte();
      map.set(key, std::to_string(key));
    }
    std::vector<std::string> walked;
    for (auto member = map.iterator(); member; ++member) {
      walked.push_back(member.value());
    }
    map.renumber();
    ASSERT_EQ(map.count(), walked.size()) << "round " << round;
    for (U32 key = 0; key < walked.size(); ++key) {
      ASSERT_EQ(map.value(static_cast<U8>(key)), walked[key]) << "round " << round;
    }
  }
}

TEST(SlotMap, holdsItsValuesOnce) {
  const Ptr<Child> child(new Child({}));
  {
    HashMap<U8, Ptr<Child>> map;
    map.set(7, child);
    map.set(200, child);
    map.renumber();
    EXPECT_EQ(child->references(), 3U);
    map.set(0, nullptr);
    EXPECT_EQ(child->references(), 2U);
  }
  EXPECT_EQ(child->references(), 1U);
}

TEST(SlotMap, aWalkGoesOnFromTheSuccessorWhateverChanges) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 round = 0; round < 500; ++round) {
    Map map;
    Model model;
    const auto change = [&](U8 key) {
      if (random.oneIn(2)) {
        bool removed = false;
        map.take(key, removed);
        ASSERT_EQ(removed, model.erase(key) == 1) << "round " << round;
      } else {
        model[key] = std::to_string(random.byte());
        map.set(key, model[key]);
      }
    };
    const U32 highest = random.between(1, 255);
    for (U32 i = random.between(0, 60); i > 0; --i) {
      change(static_cast<U8>(random.between(0, highest)));
    }
    for (auto member = map.iterator(); member;) {
      ASSERT_EQ(member.value(), model.at(member.key())) << "round " << round;
      const U8 here = member.key();
      for (U32 i = random.between(0, 3); i > 0; --i) {
        change(random.oneIn(4) ? here : random.byte());
      }
      const auto next = model.upper_bound(here);
      ++member;
      ASSERT_EQ(bool{member}, next != model.end()) << "round " << round << " behind " << +here;
      if (member) {
        ASSERT_EQ(member.key(), next->first) << "round " << round << " behind " << +here;
      }
    }
    ASSERT_EQ(map.count(), model.size());
  }
}

TEST(SlotMap, anIteratorKeepsWhatItSawAndTellsOfOtherKeys) {
  Map map;
  map.set(1, "a");
  auto at = map.iterator();
  map.set(1, "b");
  EXPECT_EQ(at.value(), "b");
  EXPECT_TRUE(at.isMemberOf(1));
  EXPECT_FALSE(at.isMemberOf(2));
  map.clear();
  EXPECT_EQ(at.key(), 1U);
  EXPECT_FALSE(at.isMemberOf(1));
  ++at;
  EXPECT_FALSE(at);
}

}  // namespace
}  // namespace Vellor
