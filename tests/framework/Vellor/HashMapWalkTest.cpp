#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/Vellor/HashMap.h"
#include "tests/framework/Vellor/CollidingKey.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

using Testing::Child;
using Testing::CollidingKey;

// Few places, so that many keys share one, and places at both ends of the array.
CollidingKey crowdedKey(U32 id) {
  static constexpr U32 kPlaces[] = {0, 1, 0x7fffffff, 0x80000000, 0xfffffffe, 0xffffffff};
  const U32 mixed = integerHash(id);
  const U32 place = mixed % 2 == 0 ? kPlaces[mixed / 2 % 6] : mixed & 0xff000000U;
  return Testing::keyAt(place, id);
}

/// A map with members named by number, whatever kind of map it is.
struct OfRelocatableMembers {
  using Map = HashMap<CollidingKey, U32>;

  static void insert(Map& map, U32 id) { map.set(crowdedKey(id), id); }

  static void erase(Map& map, U32 id) {
    bool removed = false;
    map.take(crowdedKey(id), removed);
  }

  static U32 hash(U32 id) { return placementHash(crowdedKey(id)); }

  static U32 idAt(const Map::Iterator& at) {
    EXPECT_EQ(at.value(), at.key().id);
    return at.key().id;
  }
};

struct OfOtherMembers {
  using Map = HashMap<CollidingKey, std::string>;

  static void insert(Map& map, U32 id) { map.set(crowdedKey(id), std::to_string(id)); }

  static void erase(Map& map, U32 id) {
    bool removed = false;
    map.take(crowdedKey(id), removed);
  }

  static U32 hash(U32 id) { return placementHash(crowdedKey(id)); }

  static U32 idAt(const Map::Iterator& at) {
    EXPECT_EQ(at.value(), std::to_string(at.key().id));
    return at.key().id;
  }
};

/// A number is its own hash: the members keep no key.
struct OfNumbers {
  using Map = HashMap<U32, std::string>;

  // Crowded at both ends of the array.
  static U32 key(U32 id) { return bitReverse(id % 2 == 0 ? id : ~id); }

  static void insert(Map& map, U32 id) { map.set(key(id), std::to_string(id)); }

  static void erase(Map& map, U32 id) {
    bool removed = false;
    map.take(key(id), removed);
  }

  static U32 hash(U32 id) { return placementHash(key(id)); }

  static U32 idAt(const Map::Iterator& at) {
    const U32 id = static_cast<U32>(std::stoul(at.value()));
    EXPECT_EQ(at.key(), key(id));
    return id;
  }
};

struct OfPointerKeys {
  using Map = HashMap<Ptr<Child>, U32>;

  static const Ptr<Child>& object(U32 id) {
    static std::map<U32, Ptr<Child>> objects;
    Ptr<Child>& object = objects[id];
    if (object == nullptr) {
      object = new Child(CollidingKey{id, 0});
    }
    return object;
  }

  static void insert(Map& map, U32 id) { map.set(object(id), id); }

  static void erase(Map& map, U32 id) {
    bool removed = false;
    map.take(object(id), removed);
  }

  static U32 hash(U32 id) { return placementHash(object(id)); }

  static U32 idAt(const Map::Iterator& at) {
    EXPECT_EQ(at.value(), at.key()->fwkKey().id);
    return at.key()->fwkKey().id;
  }
};

struct OfChildren {
  using Map = ChildMap<CollidingKey, Child>;

  static void insert(Map& map, U32 id) { map.put(new Child(crowdedKey(id))); }

  static void erase(Map& map, U32 id) {
    bool removed = false;
    map.take(crowdedKey(id), removed);
  }

  static U32 hash(U32 id) { return placementHash(crowdedKey(id)); }

  static U32 idAt(const Map::Iterator& at) {
    EXPECT_EQ(at->fwkKey(), at.key());
    return at.key().id;
  }
};

/// The contract of a map as a sorted list: by hash, then by insertion.
template <class Kind>
class Model {
 public:
  using Place = std::pair<U32, U32>;

  void insert(U32 id) {
    if (!placeOf_.contains(id)) {
      placeOf_[id] = {Kind::hash(id), ++insertions_};
      members_[placeOf_[id]] = id;
    }
  }

  void erase(U32 id) {
    if (placeOf_.contains(id)) {
      members_.erase(placeOf_[id]);
      placeOf_.erase(id);
    }
  }

  bool isMember(U32 id) const { return placeOf_.contains(id); }

  Place placeOf(U32 id) const { return placeOf_.at(id); }

  /// The first member behind a place, or `none`.
  U32 behind(const Place& place, U32 none) const {
    const auto next = members_.upper_bound(place);
    return next == members_.end() ? none : next->second;
  }

  std::vector<U32> order() const {
    std::vector<U32> ids;
    for (const auto& [place, id] : members_) {
      ids.push_back(id);
    }
    return ids;
  }

 private:
  std::map<Place, U32> members_;
  std::map<U32, Place> placeOf_;
  U32 insertions_ = 0;
};

template <class Kind>
class HashMapWalk : public testing::Test {
 protected:
  static constexpr U32 kNone = ~0U;

  void insert(U32 id) {
    Kind::insert(map_, id);
    model_.insert(id);
  }

  void erase(U32 id) {
    Kind::erase(map_, id);
    model_.erase(id);
  }

  std::vector<U32> walked() const {
    std::vector<U32> ids;
    for (auto at = map_.iterator(); at; ++at) {
      ids.push_back(Kind::idAt(at));
    }
    return ids;
  }

  typename Kind::Map map_;
  Model<Kind> model_;
  Random random_;
};

using Kinds =
    testing::Types<OfRelocatableMembers, OfOtherMembers, OfNumbers, OfPointerKeys, OfChildren>;
TYPED_TEST_SUITE(HashMapWalk, Kinds);

TYPED_TEST(HashMapWalk, followsHashAndInsertionAfterRandomChanges) {
  SCOPED_TRACE(this->random_.seedText());
  for (U32 step = 0; step < 4000; ++step) {
    const U32 id = this->random_.between(0, step < 2000 ? 300 : 40);
    if (this->random_.oneIn(step < 2000 ? 3 : 2)) {
      this->erase(id);
    } else {
      this->insert(id);
    }
    if (step % 50 == 0) {
      ASSERT_EQ(this->walked(), this->model_.order()) << "step " << step;
    }
  }
  EXPECT_EQ(this->walked(), this->model_.order());
}

// Members are inserted under numbers never used before, so the member to follow is known exactly.
TYPED_TEST(HashMapWalk, goesOnFromTheSuccessorWhateverChanges) {
  SCOPED_TRACE(this->random_.seedText());
  Random& random = this->random_;
  U32 fresh = 0;
  for (U32 round = 0; round < 150; ++round) {
    while (this->map_.count() < round % 40) {
      this->insert(fresh++);
    }
    const U32 changes = random.between(0, 3);
    U32 visits = 0;
    auto at = this->map_.iterator();
    while (at && ++visits < 500) {
      const U32 here = TypeParam::idAt(at);
      ASSERT_TRUE(this->model_.isMember(here)) << "round " << round << " visits " << here;
      const auto place = this->model_.placeOf(here);
      for (U32 i = 0; i < changes; ++i) {
        const std::vector<U32> order = this->model_.order();
        if (random.oneIn(2) && !order.empty()) {
          this->erase(random.oneIn(3)
                          ? here
                          : order[random.between(0, static_cast<U32>(order.size()) - 1)]);
        } else if (visits < 200) {
          this->insert(fresh++);
        }
      }
      const U32 expected = this->model_.behind(place, this->kNone);
      ++at;
      ASSERT_EQ(at ? TypeParam::idAt(at) : this->kNone, expected)
          << "round " << round << " behind " << here;
    }
  }
}

// Any number may come back: then a member may be met again, but never lost.
TYPED_TEST(HashMapWalk, visitsWhatStaysExactlyOnceInOrder) {
  SCOPED_TRACE(this->random_.seedText());
  Random& random = this->random_;
  for (U32 round = 0; round < 200; ++round) {
    for (U32 i = 0; i < 40; ++i) {
      this->insert(random.between(0, 60));
    }
    const std::vector<U32> before = this->model_.order();
    std::set<U32> removedMeanwhile;
    std::vector<U32> visited;
    for (auto at = this->map_.iterator(); at && visited.size() < 2000; ++at) {
      visited.push_back(TypeParam::idAt(at));
      for (U32 i = 0; i < 2; ++i) {
        const U32 id = random.between(0, 60);
        if (random.oneIn(2)) {
          this->erase(id);
          removedMeanwhile.insert(id);
        } else {
          this->insert(id);
        }
      }
    }
    const auto stayed = [&](U32 id) {
      return std::find(before.begin(), before.end(), id) != before.end() &&
             !removedMeanwhile.contains(id);
    };
    std::vector<U32> expected;
    std::copy_if(before.begin(), before.end(), std::back_inserter(expected), stayed);
    std::vector<U32> met;
    std::copy_if(visited.begin(), visited.end(), std::back_inserter(met), stayed);
    ASSERT_EQ(met, expected) << "round " << round;
  }
}

TYPED_TEST(HashMapWalk, deletingTheCurrentMemberReachesAllOthers) {
  for (U32 id = 0; id < 200; ++id) {
    this->insert(id);
  }
  const std::vector<U32> expected = this->model_.order();
  std::vector<U32> visited;
  for (auto at = this->map_.iterator(); at; ++at) {
    visited.push_back(TypeParam::idAt(at));
    this->erase(visited.back());
    EXPECT_EQ(TypeParam::idAt(at), visited.back()) << "the iterator lost the removed member";
  }
  EXPECT_EQ(visited, expected);
  EXPECT_EQ(this->map_.count(), 0U);
}

TYPED_TEST(HashMapWalk, clearingTheMapEndsTheWalk) {
  for (U32 id = 0; id < 20; ++id) {
    this->insert(id);
  }
  auto at = this->map_.iterator();
  this->map_.clear();
  ++at;
  EXPECT_FALSE(at);
}

TEST(HashMapIterator, tellsWhetherAKeyIsPresent) {
  HashMap<U32, U32> map;
  map.set(1, 10);
  const auto at = map.iterator();
  EXPECT_TRUE(at.isMemberOf(1));
  EXPECT_FALSE(at.isMemberOf(2));
  map.set(2, 20);
  EXPECT_TRUE(at.isMemberOf(2));
}

TEST(HashMapIterator, readsTheValueAsItIsNow) {
  HashMap<U32, U32> map;
  map.set(1, 10);
  const auto at = map.iterator();
  map.set(1, 11);
  EXPECT_EQ(at.value(), 11U);
  for (U32 key = 2; key < 100; ++key) {
    map.set(key, key);
  }
  EXPECT_EQ(at.value(), 11U);
  bool removed = false;
  map.take(1, removed);
  EXPECT_EQ(at.value(), 10U) << "what it saw when it came to stand there";
}

TEST(HashMapIterator, holdsAReferenceOnItsMember) {
  HashMap<Ptr<Child>, Ptr<Child>> map;
  Child* key = new Child(CollidingKey{1, 0});
  Child* value = new Child(CollidingKey{2, 0});
  map.set(key, value);
  {
    const auto at = map.iterator();
    map.clear();
    EXPECT_EQ(at.key()->fwkKey().id, 1U);
    EXPECT_EQ(at.ptr()->fwkKey().id, 2U);
    EXPECT_EQ(key->references(), 1U);
    EXPECT_EQ(value->references(), 1U);
  }
}

}  // namespace
}  // namespace Vellor
