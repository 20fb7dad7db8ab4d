#include "framework/Vellor/HashMap.h"

#include <algorithm>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/framework/Vellor/CollidingKey.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

using Testing::Child;
using Testing::CollidingKey;
using Testing::keyAt;

/// The keys in the order of a walk.
template <class Map>
std::string keys(const Map& map) {
  std::ostringstream text;
  for (auto member = map.iterator(); member; ++member) {
    text << (text.tellp() == 0 ? "" : " ") << +member.key();
  }
  return text.str();
}

template <class Key, class Value>
std::string ids(const HashMap<Key, Value>& map) {
  std::ostringstream text;
  for (auto member = map.iterator(); member; ++member) {
    text << (text.tellp() == 0 ? "" : " ") << member.key();
  }
  return text.str();
}

std::vector<U32> bitReversedOrder(U32 count) {
  std::vector<U32> order(count);
  std::iota(order.begin(), order.end(), 0U);
  std::sort(order.begin(), order.end(), [](U32 a, U32 b) { return bitReverse(a) < bitReverse(b); });
  return order;
}

TEST(HashMap, readsTheDefaultOfAnAbsentKeyAndCreatesNothing) {
  const HashMap<U32, U32> map;
  EXPECT_EQ(map.value(7), 0U);
  EXPECT_FALSE(map.isMember(7));
  EXPECT_EQ(map.find(7), nullptr);
  EXPECT_EQ(map.count(), 0U);
  EXPECT_FALSE(map.iterator());
}

TEST(HashMap, createsReplacesAndRemoves) {
  HashMap<U32, std::string> map;
  EXPECT_TRUE(map.set(7, "one"));
  EXPECT_FALSE(map.set(7, "one"));
  EXPECT_TRUE(map.set(7, "two"));
  EXPECT_EQ(map.value(7), "two");
  EXPECT_EQ(map.count(), 1U);
  bool removed = false;
  EXPECT_EQ(map.take(7, removed), "two");
  EXPECT_TRUE(removed);
  EXPECT_EQ(map.take(7, removed), "");
  EXPECT_FALSE(removed);
  EXPECT_EQ(map.count(), 0U);
}

TEST(HashMap, aNullPointerIsNoKey) {
  HashMap<Ptr<Child>, U32> map;
  EXPECT_THROW(map.set(nullptr, 1), RangeException);
  EXPECT_EQ(map.count(), 0U);
  EXPECT_FALSE(map.isMember(nullptr));
}

// In a table of four buckets tables 0 to 3 have a bucket each: 0, 2, 1, 3.
TEST(HashMap, smallNumbersAreWalkedInBitReversedOrder) {
  HashMap<U32, U32> map;
  for (const U32 key : {3U, 1U, 0U, 2U}) {
    map.set(key, key);
  }
  EXPECT_EQ(keys(map), "0 2 1 3");
  for (U32 key = 4; key < 16; ++key) {
    map.set(key, key);
  }
  EXPECT_EQ(keys(map), "0 8 4 12 2 10 6 14 1 9 5 13 3 11 7 15");
}

TEST(HashMap, numbersBelowAPowerOfTwoMayFillItWhole) {
  // Every other key first, then all, then some beyond, then the first half gone: the map passes
  // from homes that are shared to a home for each key and back.
  HashMap<U32, U32> map;
  std::vector<U32> present;
  const auto expectExactly = [&](U32 keysBelow, const char* when) {
    std::vector<bool> expected(keysBelow);
    for (const U32 key : present) {
      expected[key] = true;
    }
    ASSERT_EQ(map.count(), present.size()) << when;
    for (U32 key = 0; key < keysBelow; ++key) {
      ASSERT_EQ(map.isMember(key), expected[key]) << when << " key " << key;
      ASSERT_EQ(map.find(key) != nullptr, expected[key]) << when << " key " << key;
      ASSERT_EQ(map.value(key), expected[key] ? key + 1 : 0) << when << " key " << key;
    }
  };
  for (U32 parity = 0; parity < 2; ++parity) {
    for (U32 key = parity; key < 1024; key += 2) {
      EXPECT_TRUE(map.set(key, key + 1));
      present.push_back(key);
    }
    expectExactly(4096, parity == 0 ? "even keys" : "all keys");
  }
  std::vector<U32> order;
  for (auto member = map.iterator(); member; ++member) {
    order.push_back(member.key());
  }
  EXPECT_EQ(order, bitReversedOrder(1024));
  for (U32 key = 1024; key < 3000; key += 7) {
    EXPECT_TRUE(map.set(key, key + 1));
    present.push_back(key);
  }
  expectExactly(4096, "keys beyond");
  for (U32 key = 0; key < 512; ++key) {
    bool removed = false;
    EXPECT_EQ(map.take(key, removed), key + 1);
    EXPECT_TRUE(removed);
  }
  std::erase_if(present, [](U32 key) { return key < 512; });
  expectExactly(4096, "first half gone");
}

TEST(HashMap, theOrderDependsOnNeitherSizeNorHistory) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (const U32 count : {1U, 2U, 7U, 8U, 9U, 15U, 16U, 17U, 100U, 1000U, 5000U}) {
    std::vector<U32> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0U);
    for (U32 i = count; i > 1; --i) {
      std::swap(numbers[i - 1], numbers[random.between(0, i - 1)]);
    }
    HashMap<U32, U32> map;
    for (const U32 number : numbers) {
      map.set(number, number);
      // Members that come and go leave no trace.
      map.set(number + count, 0);
      bool removed = false;
      map.take(number + count, removed);
    }
    std::vector<U32> walked;
    for (auto member = map.iterator(); member; ++member) {
      walked.push_back(member.key());
    }
    EXPECT_EQ(walked, bitReversedOrder(count)) << count << " members";
    std::vector<U32> raw;
    for (const auto& member : map) {
      raw.push_back(member.memberKey());
    }
    EXPECT_EQ(raw, walked) << count << " members";
  }
}

TEST(HashMap, theFullHashOrdersWhereTheTopBitsAgree) {
  HashMap<CollidingKey, U32> map;
  map.set(keyAt(0x00000003, 3), 0);
  map.set(keyAt(0x00000001, 1), 0);
  map.set(keyAt(0x80000000, 4), 0);
  map.set(keyAt(0x00000002, 2), 0);
  EXPECT_EQ(ids(map), "1 2 3 4");
}

TEST(HashMap, equalHashesStandInOrderOfInsertion) {
  HashMap<CollidingKey, U32> map;
  for (const U32 id : {5U, 1U, 9U, 3U}) {
    map.set(keyAt(0x40000000, id), id);
  }
  map.set(keyAt(0x3fffffff, 2), 2);
  map.set(keyAt(0x40000001, 4), 4);
  EXPECT_EQ(ids(map), "2 5 1 9 3 4");
  // A replaced value keeps the place, a removed and re-inserted member goes behind its equals.
  map.set(keyAt(0x40000000, 1), 100);
  EXPECT_EQ(ids(map), "2 5 1 9 3 4");
  bool removed = false;
  map.take(keyAt(0x40000000, 5), removed);
  map.set(keyAt(0x40000000, 5), 5);
  EXPECT_EQ(ids(map), "2 1 9 3 5 4");
  EXPECT_EQ(map.value(keyAt(0x40000000, 1)), 100U);
}

TEST(HashMap, equalHashesKeepTheirOrderThroughGrowth) {
  HashMap<CollidingKey, U32> map;
  std::string expected;
  for (U32 id = 0; id < 300; ++id) {
    map.set(keyAt(0xffffffff, id), id);
    expected += (id == 0 ? "" : " ") + std::to_string(id);
  }
  EXPECT_EQ(ids(map), expected);
  for (U32 id = 0; id < 300; ++id) {
    EXPECT_EQ(map.value(keyAt(0xffffffff, id)), id);
  }
  EXPECT_EQ(map.value(keyAt(0xffffffff, 300)), 0U);
}

TEST(HashMap, theLikelyMemberIsTheFirstOfTheHashAlone) {
  // Both small and large enough to have homes.
  for (const U32 members : {3U, 300U}) {
    HashMap<CollidingKey, U32> map;
    EXPECT_EQ(map.likely(keyAt(0, 0)), nullptr);
    for (U32 id = 1; id <= members; ++id) {
      map.set(keyAt(id << 20, id), id);
    }
    map.set(keyAt(2U << 20, 1000), 1000);
    for (U32 id = 1; id <= members; ++id) {
      ASSERT_NE(map.likely(keyAt(id << 20, id)), nullptr) << id << " of " << members;
      EXPECT_EQ(map.likely(keyAt(id << 20, id))->value, id) << members;
    }
    EXPECT_EQ(map.likely(keyAt(2U << 20, 1000))->value, 2U) << "the one that came first";
    EXPECT_EQ(map.likely(keyAt((2U << 20) + 1, 2)), nullptr);
    EXPECT_EQ(map.likely(keyAt((members + 1) << 20, 0)), nullptr);
  }
}

TEST(HashMap, aCopyIsIndependentAndKeepsTheOrder) {
  HashMap<CollidingKey, std::string> map;
  for (U32 id = 0; id < 30; ++id) {
    map.set(keyAt(id % 3 << 30, id), std::to_string(id));
  }
  HashMap<CollidingKey, std::string> copy = map;
  EXPECT_EQ(ids(copy), ids(map));
  EXPECT_EQ(copy, map);
  map.set(keyAt(0, 0), "changed");
  EXPECT_EQ(copy.value(keyAt(0, 0)), "0");
  EXPECT_NE(copy, map);
  copy.clear();
  EXPECT_EQ(map.count(), 30U);
}

TEST(HashMap, movingLeavesAnEmptyMap) {
  HashMap<U32, U32> map;
  map.set(1, 2);
  HashMap<U32, U32> taken = std::move(map);
  EXPECT_EQ(taken.value(1), 2U);
  EXPECT_EQ(map.count(), 0U);
  map.set(3, 4);
  EXPECT_EQ(map.value(3), 4U);
}

TEST(HashMap, equalityIsByContentNotByHistory) {
  HashMap<CollidingKey, U32> a;
  HashMap<CollidingKey, U32> b;
  a.set(keyAt(5, 1), 1);
  a.set(keyAt(5, 2), 2);
  b.set(keyAt(5, 2), 2);
  EXPECT_NE(a, b);
  b.set(keyAt(5, 1), 1);
  EXPECT_EQ(a, b);
  b.set(keyAt(5, 1), 3);
  EXPECT_NE(a, b);
}

/// Looks into the map that holds it when it ends.
class Witness : public PtrInterface {
 public:
  Witness(const HashMap<U32, Ptr<Witness>>* map, U32 key, std::vector<bool>* seen)
      : map_(map), key_(key), seen_(seen) {}

  ~Witness() override { seen_->push_back(map_->isMember(key_)); }

 private:
  const HashMap<U32, Ptr<Witness>>* map_;
  U32 key_;
  std::vector<bool>* seen_;
};

TEST(HashMap, aMemberIsGoneBeforeWhatItHeldEnds) {
  std::vector<bool> seen;
  HashMap<U32, Ptr<Witness>> map;
  for (U32 key = 0; key < 20; ++key) {
    map.set(key, new Witness(&map, key, &seen));
  }
  bool removed = false;
  map.take(3, removed);
  map.clear();
  EXPECT_EQ(seen, std::vector<bool>(20, false));
}

TEST(ChildMap, buildsAChildOnceUnderItsKey) {
  ChildMap<CollidingKey, Child> map;
  bool made = false;
  const Ptr<Child> first =
      map.getOrMake(keyAt(1, 1), made, [] { return Ptr<Child>(new Child(keyAt(1, 1), "first")); });
  EXPECT_TRUE(made);
  const Ptr<Child> again =
      map.getOrMake(keyAt(1, 1), made, [] { return Ptr<Child>(new Child(keyAt(1, 1), "again")); });
  EXPECT_FALSE(made);
  EXPECT_EQ(again, first);
  EXPECT_EQ(map.count(), 1U);
}

TEST(ChildMap, puttingAnotherChildOfTheKeyReplacesInPlace) {
  ChildMap<CollidingKey, Child> map;
  for (const U32 id : {1U, 2U, 3U}) {
    map.put(new Child(keyAt(9, id), "old"));
  }
  map.put(new Child(keyAt(9, 2), "new"));
  std::string notes;
  for (auto member = map.iterator(); member; ++member) {
    notes += std::to_string(member.key().id) + member->note() + " ";
  }
  EXPECT_EQ(notes, "1old 2new 3old ");
}

TEST(ChildMap, takingHandsTheChildOver) {
  ChildMap<CollidingKey, Child> map;
  map.put(new Child(keyAt(1, 1)));
  bool removed = false;
  const Ptr<Child> child = map.take(keyAt(1, 1), removed);
  EXPECT_TRUE(removed);
  EXPECT_EQ(child->references(), 1U);
  EXPECT_EQ(map.take(keyAt(1, 1), removed), nullptr);
  EXPECT_FALSE(removed);
}

}  // namespace
}  // namespace Vellor
