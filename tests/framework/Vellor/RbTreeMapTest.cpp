#include "framework/Vellor/RbTreeMap.h"

#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

/// A value with tail padding, which the map may use for the key.
class Padded {
 public:
  Padded() = default;

  Padded(U32 wide, U16 narrow) : wide_(wide), narrow_(narrow) {}

  friend bool operator==(const Padded&, const Padded&) = default;

  friend std::ostream& operator<<(std::ostream& stream, const Padded& value) {
    return stream << value.wide_ << '/' << value.narrow_;
  }

 private:
  U32 wide_ = 0;
  U16 narrow_ = 0;
};

using Map = RbTreeMap<U8, Padded>;

std::string text(const Map& map) {
  std::ostringstream stream;
  for (auto member = map.iterator(); member; ++member) {
    stream << +member.key() << "=" << member.value() << " ";
  }
  return stream.str();
}

Map filled(U32 members) {
  Map map;
  for (U32 key = 0; key < members; ++key) {
    map.set(static_cast<U8>(key), Padded(key, 1));
  }
  return map;
}

TEST(RbTreeMap, walksAscendingKeys) {
  Map map;
  for (const U8 key : {U8{200}, U8{3}, U8{0}, U8{255}, U8{7}}) {
    EXPECT_TRUE(map.set(key, Padded(key, key)));
  }
  EXPECT_EQ(text(map), "0=0/0 3=3/3 7=7/7 200=200/200 255=255/255 ");
}

TEST(RbTreeMap, readsTheDefaultOfAnAbsentKeyAndCreatesNothing) {
  const Map map = filled(3);
  EXPECT_EQ(map.value(3), Padded());
  EXPECT_FALSE(map.isMember(3));
  EXPECT_EQ(map.count(), 3U);
  EXPECT_EQ(Map().value(0), Padded());
}

TEST(RbTreeMap, tellsWhetherAnythingChanged) {
  Map map;
  EXPECT_TRUE(map.set(1, Padded(1, 1)));
  EXPECT_FALSE(map.set(1, Padded(1, 1)));
  EXPECT_TRUE(map.set(1, Padded(1, 2)));
  bool removed = false;
  EXPECT_EQ(map.take(1, removed), Padded(1, 2));
  EXPECT_TRUE(removed);
  EXPECT_EQ(map.take(1, removed), Padded());
  EXPECT_FALSE(removed);
}

TEST(RbTreeMap, replacingAValueKeepsItsKey) {
  Map map = filled(256);
  for (U32 key = 0; key < 256; ++key) {
    map.set(static_cast<U8>(key), Padded(~U32{0}, 65535));
  }
  U32 expected = 0;
  for (const auto& member : map) {
    EXPECT_EQ(member.key, expected++);
    EXPECT_EQ(member.value, Padded(~U32{0}, 65535));
  }
  EXPECT_EQ(expected, 256U);
}

TEST(RbTreeMap, aChangedCopyLeavesTheOriginalAlone) {
  const Map original = filled(4);
  const std::string before = text(original);
  bool removed = false;
  Map copy = original;
  copy.set(0, Padded(9, 9));
  EXPECT_EQ(text(copy), "0=9/9 1=1/1 2=2/1 3=3/1 ");
  copy = original;
  copy.set(100, Padded(1, 1));
  EXPECT_EQ(copy.count(), 5U);
  copy = original;
  copy.take(2, removed);
  EXPECT_EQ(text(copy), "0=0/1 1=1/1 3=3/1 ");
  copy = original;
  copy.append(50, Padded(5, 5));
  EXPECT_EQ(copy.count(), 5U);
  copy = original;
  copy.clear();
  EXPECT_EQ(copy.count(), 0U);
  EXPECT_EQ(text(original), before);
}

TEST(RbTreeMap, aChangedOriginalLeavesItsCopyAlone) {
  Map original = filled(4);
  const Map copy = original;
  original.set(1, Padded(9, 9));
  original.clear();
  original.set(7, Padded());
  EXPECT_EQ(text(copy), "0=0/1 1=1/1 2=2/1 3=3/1 ");
}

TEST(RbTreeMap, aCopyOutlivesItsOriginal) {
  Map copy;
  {
    const Map original = filled(20);
    copy = original;
    EXPECT_TRUE(copy.sharesContentWith(original));
  }
  EXPECT_EQ(copy, filled(20));
}

TEST(RbTreeMap, reservingLessThanACopyHoldsKeepsItsMembers) {
  const Map original = filled(40);
  Map copy = original;
  copy.reserve(2);
  EXPECT_EQ(copy, original);
  copy.set(40, Padded());
  EXPECT_EQ(copy.count(), 41U);
}

TEST(RbTreeMap, takesAValueThatStandsInItself) {
  // Each size up to the largest, so that growth moves the members under the value.
  Map map;
  map.set(0, Padded(7, 8));
  for (U32 key = 1; key < 256; ++key) {
    map.set(static_cast<U8>(key), map.find(0)->value);
    EXPECT_EQ(map.value(static_cast<U8>(key)), Padded(7, 8)) << "key " << key;
  }
  Map appended;
  appended.append(0, Padded(7, 8));
  for (U32 key = 1; key < 256; ++key) {
    appended.append(static_cast<U8>(key), appended.begin()->value);
  }
  EXPECT_EQ(appended, map);
}

TEST(RbTreeMap, equalityIsMemberByMember) {
  const Map a = filled(3);
  EXPECT_EQ(a, filled(3));
  EXPECT_NE(a, filled(2));
  EXPECT_NE(a, Map());
  Map otherKey = filled(2);
  otherKey.set(3, Padded(2, 1));
  EXPECT_NE(a, otherKey);
  Map otherValue = filled(3);
  otherValue.set(2, Padded(2, 2));
  EXPECT_NE(a, otherValue);
}

TEST(RbTreeMap, anEmptiedMapEqualsANewOne) {
  Map map = filled(1);
  bool removed = false;
  map.take(0, removed);
  EXPECT_EQ(map, Map());
  EXPECT_EQ(Map(), map);
}

TEST(RbTreeMap, theMemoIsMadeOnceForAContent) {
  int made = 0;
  const auto make = [&made] { return static_cast<U32>(++made); };
  Map map = filled(3);
  EXPECT_EQ(map.memo(make), 1U);
  EXPECT_EQ(map.memo(make), 1U);
  const Map copy = map;
  EXPECT_EQ(copy.memo(make), 1U);
}

TEST(RbTreeMap, everyChangeForgetsTheMemo) {
  int made = 0;
  const auto make = [&made] { return static_cast<U32>(++made); };
  bool removed = false;
  Map map = filled(3);
  const Map copy = map;
  EXPECT_EQ(map.memo(make), 1U);
  map.set(1, Padded(5, 5));
  EXPECT_EQ(map.memo(make), 2U) << "after a replacement in a shared content";
  map.set(1, Padded(6, 6));
  EXPECT_EQ(map.memo(make), 3U) << "after a replacement";
  map.set(9, Padded(6, 6));
  EXPECT_EQ(map.memo(make), 4U) << "after an insertion";
  map.take(0, removed);
  EXPECT_EQ(map.memo(make), 5U) << "after a removal";
  map.append(10, Padded(6, 6));
  EXPECT_EQ(map.memo(make), 6U) << "after an append";
  map.clear();
  EXPECT_EQ(map.memo(make), 7U) << "after a clear";
  EXPECT_EQ(copy.memo(make), 1U) << "the copy's content never changed";
}

TEST(RbTreeMap, writesThatChangeNothingKeepTheMemo) {
  int made = 0;
  const auto make = [&made] { return static_cast<U32>(++made); };
  bool removed = false;
  Map map = filled(3);
  EXPECT_EQ(map.memo(make), 1U);
  map.set(1, Padded(1, 1));
  map.take(200, removed);
  EXPECT_EQ(map.memo(make), 1U);
}

TEST(RbTreeMap, differentMemosMeanDifferentContents) {
  Map a = filled(3);
  Map b = filled(3);
  EXPECT_EQ(a.memo([] { return 1U; }), 1U);
  EXPECT_EQ(a, b);
  EXPECT_EQ(b.memo([] { return 2U; }), 2U);
  EXPECT_NE(a, b);
}

TEST(RbTreeMap, aWalkThatDeletesTheMemberItStandsOnReachesAllOthers) {
  Map map = filled(30);
  U32 visited = 0;
  bool removed = false;
  for (auto member = map.iterator(); member; ++member) {
    EXPECT_EQ(member.key(), visited++);
    map.take(member.key(), removed);
  }
  EXPECT_EQ(visited, 30U);
  EXPECT_EQ(map.count(), 0U);
}

TEST(RbTreeMap, aWalkGoesOnFromTheSuccessorWhateverChanges) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 round = 0; round < 300; ++round) {
    Map map;
    std::map<U8, Padded> model;
    const auto set = [&](U8 key, const Padded& value) {
      map.set(key, value);
      model[key] = value;
    };
    for (U32 i = random.between(0, 30); i > 0; --i) {
      set(random.byte(), Padded(i, 0));
    }
    for (auto member = map.iterator(); member;) {
      ASSERT_EQ(member.value(), model.at(member.key())) << "round " << round;
      const U8 here = member.key();
      for (U32 i = 0; i < 3; ++i) {
        const U8 key = random.oneIn(4) ? here : random.byte();
        if (random.oneIn(2)) {
          bool removed = false;
          map.take(key, removed);
          ASSERT_EQ(removed, model.erase(key) == 1) << "round " << round;
        } else {
          set(key, Padded(i, 1));
        }
      }
      const auto next = model.upper_bound(here);
      ++member;
      ASSERT_EQ(bool{member}, next != model.end()) << "round " << round << " behind " << +here;
      if (member) {
        ASSERT_EQ(member.key(), next->first) << "round " << round << " behind " << +here;
      }
    }
  }
}

}  // namespace
}  // namespace Vellor
