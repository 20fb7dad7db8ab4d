#include "framework/Vellor/HeldMap.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "framework/Vellor/Schema.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

/// With room for two maps to U32 and for one to pointers.
class Thing : public PtrInterface {
  VELLOR_POINTERS(Thing);

 public:
  explicit Thing(U32 id) : id(id) { ++alive; }

  ~Thing() override { --alive; }

  auto& vellorHeldValues(const U32*) { return numbers_; }

  auto& vellorHeldValues(const Vellor::Ptr<Thing>*) { return things_; }

  const U32 id;
  static inline int alive = 0;

 private:
  HeldValues<U32, 2> numbers_;
  HeldValues<Vellor::Ptr<Thing>, 1> things_;
};

using Numbers = HashMap<Thing::Ptr, U32>;
using Things = HashMap<Thing::Ptr, Thing::Ptr>;

std::vector<Thing::Ptr> things(U32 count) {
  std::vector<Thing::Ptr> made;
  for (U32 id = 0; id < count; ++id) {
    made.push_back(new Thing(id));
  }
  return made;
}

std::map<U32, U32> content(const Numbers& map) {
  std::map<U32, U32> seen;
  for (const auto& member : map) {
    EXPECT_TRUE(seen.emplace(member.key->id, member.value).second) << "twice: " << member.key->id;
  }
  return seen;
}

class HeldMap : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(Thing::alive, 0); }

  void TearDown() override { EXPECT_EQ(Thing::alive, 0) << "something still holds a key"; }
};

TEST_F(HeldMap, isOnlyForKeysWithRoomForTheValue) {
  EXPECT_TRUE((HoldsValues<Thing, U32>));
  EXPECT_FALSE((HoldsValues<Thing, U16>));
  EXPECT_FALSE((HoldsValues<PtrInterface, U32>));
}

TEST_F(HeldMap, createsReplacesAndRemoves) {
  const Thing::Ptr key = new Thing(1);
  Numbers map;
  EXPECT_EQ(map.find(key), nullptr);
  EXPECT_EQ(map.value(key), 0U);
  EXPECT_TRUE(map.set(key, 7));
  EXPECT_FALSE(map.set(key, 7));
  EXPECT_TRUE(map.set(key, 8));
  EXPECT_TRUE(map.isMember(key));
  EXPECT_EQ(map.find(key)->value, 8U);
  EXPECT_EQ(map.count(), 1U);
  bool removed = false;
  EXPECT_EQ(map.take(key, removed), 8U);
  EXPECT_TRUE(removed);
  EXPECT_EQ(map.take(key, removed), 0U);
  EXPECT_FALSE(removed);
  EXPECT_EQ(map.count(), 0U);
  EXPECT_FALSE(map.iterator());
}

TEST_F(HeldMap, aNullPointerIsNoKey) {
  Numbers map;
  EXPECT_THROW(map.set(nullptr, 1), RangeException);
  EXPECT_FALSE(map.isMember(nullptr));
  EXPECT_EQ(map.count(), 0U);
}

TEST_F(HeldMap, holdsItsKeysAsLongAsTheyAreMembers) {
  Numbers map;
  map.set(new Thing(1), 1);
  map.set(new Thing(2), 2);
  EXPECT_EQ(Thing::alive, 2);
  auto first = map.iterator();
  Thing* object = first.key().get();
  first = {};
  bool removed = false;
  map.take(object, removed);
  EXPECT_TRUE(removed);
  EXPECT_EQ(Thing::alive, 1);
  map.clear();
  EXPECT_EQ(Thing::alive, 0);
}

TEST_F(HeldMap, severalMapsOfOneKindTellTheirMembersApartBeyondTheRoomToo) {
  const std::vector<Thing::Ptr> keys = things(3);
  std::vector<Numbers> maps(5);
  for (U32 i = 0; i < maps.size(); ++i) {
    for (const Thing::Ptr& key : keys) {
      maps[i].set(key, 10 * i + key->id);
    }
  }
  bool removed = false;
  maps[0].take(keys[1], removed);
  maps[4].take(keys[2], removed);
  for (U32 i = 0; i < maps.size(); ++i) {
    for (const Thing::Ptr& key : keys) {
      const bool isOut = (i == 0 && key->id == 1) || (i == 4 && key->id == 2);
      EXPECT_EQ(maps[i].isMember(key), !isOut) << i << " " << key->id;
      EXPECT_EQ(maps[i].value(key), isOut ? 0 : 10 * i + key->id);
    }
  }
}

TEST_F(HeldMap, aMapThatIsCopiedOrMovedKeepsItsMembers) {
  const std::vector<Thing::Ptr> keys = things(40);
  Numbers map;
  Numbers standsInTheWay;
  for (const Thing::Ptr& key : keys) {
    map.set(key, key->id + 1);
    if (key->id % 2 == 0) {
      standsInTheWay.set(key, 0);
    }
  }
  const Numbers copy = map;
  EXPECT_EQ(copy, map);
  Numbers moved = std::move(map);
  EXPECT_EQ(moved, copy);
  Numbers assigned;
  assigned.set(keys[0], 99);
  assigned = std::move(moved);
  EXPECT_EQ(assigned, copy);
  assigned.set(keys[0], 99);
  EXPECT_FALSE(assigned == copy);
  assigned = copy;
  EXPECT_EQ(assigned, copy);
  EXPECT_EQ(assigned.value(keys[39]), 40U);
}

TEST_F(HeldMap, aKeyThatEndsMayLookIntoTheMap) {
  class Witness : public Thing {
   public:
    Witness(U32 id, const Things* map, const Thing::Ptr& other, std::vector<bool>* seen)
        : Thing(id), map_(map), other_(other), seen_(seen) {}

    ~Witness() override { seen_->push_back(map_->isMember(other_)); }

   private:
    const Things* map_;
    const Thing::Ptr other_;
    std::vector<bool>* seen_;
  };

  const Thing::Ptr stays = new Thing(1);
  std::vector<bool> seen;
  Things map;
  map.set(stays, nullptr);
  map.set(stays, new Witness(2, &map, stays, &seen));
  map.set(new Witness(3, &map, stays, &seen), stays);
  map.set(stays, nullptr);
  EXPECT_EQ(seen, std::vector<bool>{true});
  map.clear();
  EXPECT_EQ(seen, (std::vector<bool>{true, false}));
}

TEST_F(HeldMap, aWalkThatAddsOneAtEachStepEnds) {
  Numbers map;
  map.set(new Thing(0), 0);
  map.set(new Thing(1), 0);
  U32 steps = 0;
  for (auto member = map.iterator(); member; ++member) {
    map.set(new Thing(2 + steps), 0);
    ASSERT_LT(++steps, 10U);
  }
  EXPECT_EQ(map.count(), 2 + steps);
}

TEST_F(HeldMap, aWalkMayTakeOutAndPutBackWhatItStandsOn) {
  const std::vector<Thing::Ptr> keys = things(100);
  Numbers map;
  for (const Thing::Ptr& key : keys) {
    map.set(key, key->id);
  }
  std::set<U32> seen;
  for (auto member = map.iterator(); member; ++member) {
    EXPECT_TRUE(seen.insert(member.key()->id).second);
    bool removed = false;
    const U32 value = map.take(member.key(), removed);
    EXPECT_EQ(member.value(), value) << "the last value of a removed member";
    map.set(member.key(), value + 1000);
    EXPECT_EQ(member.value(), value + 1000);
  }
  EXPECT_EQ(seen.size(), 100U);
}

TEST_F(HeldMap, walksGoTheOtherWayRoundWithAnotherSeed) {
  const U64 seed = std::exchange(addressHashSeed, U64{0});
  const std::vector<Thing::Ptr> keys = things(3);
  Numbers map;
  for (const Thing::Ptr& key : keys) {
    map.set(key, key->id);
  }
  const auto walked = [&map] {
    std::string ids;
    for (auto member = map.iterator(); member; ++member) {
      ids += std::to_string(member.value());
    }
    for (const auto& member : map) {
      ids += std::to_string(member.value);
    }
    return ids;
  };
  EXPECT_EQ(walked(), "012012");
  addressHashSeed = 1;
  EXPECT_EQ(walked(), "210210");
  addressHashSeed = seed;
}

/// Random changes of maps that share their keys, walks meanwhile, against ordinary maps.
TEST_F(HeldMap, behavesAsAnyMapUnderRandomChangesAndWalks) {
  constexpr U32 kMaps = 4;
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 round = 0; round < 60; ++round) {
    const std::vector<Thing::Ptr> keys = things(random.between(1, round % 3 == 0 ? 200 : 40));
    std::vector<Numbers> maps(kMaps);
    std::vector<std::map<U32, U32>> models(kMaps);

    struct Walk {
      Numbers::Iterator at;
      std::set<U32> due;
      std::set<U32> seen;
    };

    std::vector<std::optional<Walk>> walks(kMaps);
    for (U32 step = 0; step < 600; ++step) {
      const U32 i = random.between(0, kMaps - 1);
      const Thing::Ptr& key = keys[random.between(0, static_cast<U32>(keys.size()) - 1)];
      const U32 choice = random.between(0, 99);
      if (choice < 50) {
        const U32 value = random.between(0, 4);
        const auto standing = models[i].find(key->id);
        const bool changes = standing == models[i].end() || standing->second != value;
        ASSERT_EQ(maps[i].set(key, value), changes);
        models[i][key->id] = value;
      } else if (choice < 85) {
        bool removed = false;
        maps[i].take(key, removed);
        ASSERT_EQ(removed, models[i].erase(key->id) == 1);
        if (walks[i]) {
          walks[i]->due.erase(key->id);
        }
      } else if (!walks[i]) {
        Walk& walk = walks[i].emplace();
        walk.at = maps[i].iterator();
        for (const auto& [id, value] : models[i]) {
          walk.due.insert(id);
        }
      } else if (walks[i]->at) {
        walks[i]->seen.insert(walks[i]->at.key()->id);
        walks[i]->due.erase(walks[i]->at.key()->id);
        ++walks[i]->at;
      } else {
        ASSERT_EQ(walks[i]->due, std::set<U32>()) << "never visited";
        walks[i].reset();
      }
      ASSERT_EQ(maps[i].count(), models[i].size());
      ASSERT_EQ(maps[i].isMember(key), models[i].contains(key->id));
    }
    for (U32 i = 0; i < kMaps; ++i) {
      ASSERT_EQ(content(maps[i]), models[i]) << "round " << round << " map " << i;
    }
  }
}

}  // namespace
}  // namespace Vellor
