#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/HashMap.h"
#include "framework/Vellor/Pool.h"
#include "framework/Vellor/Prefetch.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

namespace Detail {

/// A member of a map as its key object holds it: the place of the key in the map's list, and the
/// value, which lives while the object knows a map for it.
template <class Value_>
struct HeldMember {
  U32 place;

  union {
    Value_ value;
  };

  HeldMember() {}

  HeldMember(const HeldMember&) = delete;
  HeldMember& operator=(const HeldMember&) = delete;

  ~HeldMember() {}
};

}  // namespace Detail

/// Room in an object for what `kMaps` maps at a time say of it: maps to Value that have the object
/// as a key. The object's class shows it by `vellorHeldValues(const Value*)`.
template <class Value, U32 kMaps>
class HeldValues {
 public:
  HeldValues() = default;
  HeldValues(const HeldValues&) = delete;
  HeldValues& operator=(const HeldValues&) = delete;

 private:
  template <class Key, class MapValue>
  friend class HashMap;

  using Held = Detail::HeldMember<Value>;

  /// The member of this map, or null.
  Held* find(const void* map) {
    for (U32 i = 0; i < kMaps; ++i) {
      if (maps_[i] == map) {
        return held_ + i;
      }
    }
    return nullptr;
  }

  /// Room for a member of this map, which has none here; null when other maps have taken it all.
  Held* take(const void* map) {
    Held* room = find(nullptr);
    if (room != nullptr) {
      maps_[room - held_] = map;
    }
    return room;
  }

  /// Another map, or none, has the member of `map` from now on.
  void handOver(const void* map, const void* to) {
    if (const Held* held = find(map)) {
      maps_[held - held_] = to;
    }
  }

  // Null where there is room.
  const void* maps_[kMaps] = {};
  Held held_[kMaps];
};

/// Whether the objects have room for the values of maps that they are keys of.
template <class T, class Value>
concept HoldsValues = requires(T& object, const Value* value) {
  object.vellorHeldValues(value);
};

/// Map keyed by objects that hold its values themselves: nothing is hashed, and who has the object
/// at hand has the value too, where a table of a million members costs a cache miss for each
/// question. Beside the values the map has a list of its keys for walks; a place in it that comes
/// free is taken by a later key. Empty, a map is one null pointer.
///
/// An object that is a key of more such maps than it has room for is served by a table aside.
///
/// An Iterator survives any change of the map: each member that is there from its first step to its
/// last is visited once. Keys that came after the first step are not waited for, so a walk ends
/// even if every step adds one. Raw ranges (`begin()`) survive nothing.
template <class T, class Value>
requires HoldsValues<T, Value>

class HashMap<Ptr<T>, Value> {
  using Key = Ptr<T>;
  using Held = Detail::HeldMember<Value>;

 public:
  class Iterator;
  class RawIterator;

  /// What a raw walk yields.
  struct Member {
    const Key& key;
    const Value& value;

    const Key& memberKey() const { return key; }
  };

  HashMap() = default;

  HashMap(const HashMap& other) { putAll(other); }

  HashMap(HashMap&& other) noexcept { takeAll(other); }

  HashMap& operator=(const HashMap& other) {
    if (this != &other) {
      clear();
      putAll(other);
    }
    return *this;
  }

  HashMap& operator=(HashMap&& other) noexcept {
    if (this != &other) {
      clear();
      takeAll(other);
    }
    return *this;
  }

  ~HashMap() { clear(); }

  U32 count() const { return list_ == nullptr ? 0 : list_->count; }

  bool isMember(const Key& key) const { return find(key) != nullptr; }

  /// The member at `key`, or null. It stays in place until it goes.
  const Held* find(const Key& key) const { return heldAt(key); }

  /// The stored value, or the default of its type.
  Value value(const Key& key) const {
    const Held* member = heldAt(key);
    return member == nullptr ? Value() : member->value;
  }

  /// Creates or replaces. False when an equal value stood there already.
  bool set(const Key& key, const Value& value) {
    if (Held* member = heldAt(key)) {
      if (member->value == value) {
        return false;
      }
      [[maybe_unused]] const Value old = std::exchange(member->value, value);
      return true;
    }
    if (key == nullptr) {
      throwRangeException("null key not allowed");
    }
    const U32 place = placeForOneMore();
    Held* own = held(key).take(this);
    Held& member = own != nullptr ? *own : extra().aside[key.get()];
    new (&member.value) Value(value);
    member.place = place;
    list_->keys()[place] = key;
    ++list_->count;
    return true;
  }

  /// Removes and yields the old value, or the default when `key` is absent; `removed` tells which.
  Value take(const Key& key, bool& removed) {
    Held* member = heldAt(key);
    removed = member != nullptr;
    return removed ? takeOut(key, *member) : Value{};
  }

  void clear() {
    // What ends here may look into this very map, which is sound after each step.
    for (U32 place = 0; place < places(); ++place) {
      const Key& key = list_->keys()[place];
      if (key != nullptr) {
        takeOut(key, *heldAt(key));
      }
    }
  }

  /// Asks the memory for the place of `key` in the list of keys, if it is a member whose object
  /// holds its value.
  void prefetch(const Key& key) const {
    if (key != nullptr && list_ != nullptr) {
      if (const Held* own = held(key).find(this)) {
        Vellor::prefetch(list_->keys() + own->place);
      }
    }
  }

  /// Asks the memory for the list of keys.
  void prefetchAll() const { Vellor::prefetch(list_); }

  Iterator iterator() const { return Iterator(this); }

  RawIterator begin() const { return RawIterator(this, 0); }

  RawIterator end() const { return RawIterator(this, places()); }

  friend bool operator==(const HashMap& a, const HashMap& b) {
    if (a.count() != b.count()) {
      return false;
    }
    for (const Member& member : a) {
      const Held* other = b.find(member.key);
      if (other == nullptr || !(other->value == member.value)) {
        return false;
      }
    }
    return true;
  }

 private:
  // Up to here a free place is looked for; larger lists write theirs down.
  static constexpr U32 kFewPlaces = 32;

  /// What few maps need.
  struct Extra {
    std::vector<U32> vacant;
    // For objects whose own room other maps have taken.
    std::unordered_map<const T*, Held> aside;
  };

  /// The keys, null where one has left. There is a list while there is a key.
  struct List {
    U32 size = 0;
    U32 capacity = 1;
    U32 count = 0;
    Extra* extra = nullptr;

    Key* keys() { return reinterpret_cast<Key*>(this + 1); }

    static std::size_t bytes(U32 capacity) { return sizeof(List) + capacity * sizeof(Key); }

    static List* make() { return new (Pool::take(bytes(1))) List; }

    static void end(List* list) {
      const std::size_t size = bytes(list->capacity);
      if (size <= Pool::kMaxPooled) {
        Pool::giveBack(list, size);
      } else {
        std::free(list);
      }
    }

    /// The list with more places. Large ones grow by realloc, which moves the pages of the largest
    /// and copies nothing.
    static List* grown(List* list) {
      const U32 places = 2 * list->capacity;
      const std::size_t before = bytes(list->capacity);
      const std::size_t size = bytes(places);
      void* block = size <= Pool::kMaxPooled     ? Pool::take(size)
                    : before <= Pool::kMaxPooled ? std::malloc(size)
                                                 : std::realloc(static_cast<void*>(list), size);
      if (block == nullptr) {
        throw std::bad_alloc();
      }
      if (before <= Pool::kMaxPooled) {
        std::memcpy(block, static_cast<void*>(list), before);
        Pool::giveBack(list, before);
      }
      auto* larger = static_cast<List*>(block);
      larger->capacity = places;
      return larger;
    }
  };

  /// Where a walk of so many steps is at one of them. Another address hash seed turns walks round,
  /// since nothing may depend on their order.
  static U32 walkedPlace(U32 step, U32 steps) {
    return (addressHashSeed & 1) == 0 ? step : steps - 1 - step;
  }

  static auto& held(const Key& key) {
    return key->vellorHeldValues(static_cast<const Value*>(nullptr));
  }

  Held* heldAt(const Key& key) const {
    if (key == nullptr || list_ == nullptr) {
      return nullptr;
    }
    if (Held* own = held(key).find(this)) {
      return own;
    }
    if (list_->extra == nullptr || list_->extra->aside.empty()) [[likely]] {
      return nullptr;
    }
    const auto aside = list_->extra->aside.find(key.get());
    return aside == list_->extra->aside.end() ? nullptr : &aside->second;
  }

  U32 places() const { return list_ == nullptr ? 0 : list_->size; }

  Extra& extra() {
    if (list_->extra == nullptr) {
      list_->extra = new Extra;
    }
    return *list_->extra;
  }

  /// A place that is null.
  U32 placeForOneMore() {
    if (list_ == nullptr) {
      list_ = List::make();
    } else if (list_->count < list_->size) {
      return vacantPlace();
    } else if (list_->size == list_->capacity) {
      // It is full, so none of its places has been written down as vacant.
      list_ = List::grown(list_);
    }
    new (list_->keys() + list_->size) Key();
    return list_->size++;
  }

  U32 vacantPlace() {
    if (list_->capacity > kFewPlaces) {
      const U32 place = list_->extra->vacant.back();
      list_->extra->vacant.pop_back();
      return place;
    }
    const Key* keys = list_->keys();
    return static_cast<U32>(std::find(keys, keys + list_->size, nullptr) - keys);
  }

  Value takeOut(const Key& key, Held& member) {
    Value old = std::move(member.value);
    member.value.~Value();
    const U32 place = member.place;
    held(key).handOver(this, nullptr);
    if (list_->extra != nullptr && !list_->extra->aside.empty()) {
      list_->extra->aside.erase(key.get());
    }
    // Held to the end: `key` may be this very place, and the object may end with it.
    const Key last = std::exchange(list_->keys()[place], nullptr);
    if (--list_->count == 0) {
      delete list_->extra;
      List::end(std::exchange(list_, nullptr));
    } else if (list_->capacity > kFewPlaces) {
      extra().vacant.push_back(place);
    }
    return old;
  }

  void putAll(const HashMap& other) {
    for (const Member& member : other) {
      set(member.key, member.value);
    }
  }

  /// REQUIRES: this map is empty.
  void takeAll(HashMap& other) {
    list_ = std::exchange(other.list_, nullptr);
    for (U32 place = 0; place < places(); ++place) {
      if (const Key& key = list_->keys()[place]; key != nullptr) {
        held(key).handOver(&other, this);
      }
    }
  }

  List* list_ = nullptr;
};

/// Walks the members by their places and tolerates any change of the map meanwhile.
template <class T, class Value>
requires HoldsValues<T, Value>

class HashMap<Ptr<T>, Value>::Iterator {
 public:
  Iterator() = default;

  explicit Iterator(const HashMap* map) : map_(map), steps_(map->places()) { settle(0); }

  explicit operator bool() const { return on_; }

  const Key& key() const { return key_; }

  /// The current value of the member, or its last one when it has been removed.
  Value value() const {
    const Held* member = map_->find(key_);
    return member == nullptr ? value_ : member->value;
  }

  Value ptr() const { return value(); }

  Value operator->() const requires isPtr<Value> { return value(); }

  bool isMemberOf(const Key& key) const { return map_->isMember(key); }

  Iterator& operator++() {
    settle(step_ + 1);
    return *this;
  }

 private:
  void settle(U32 step) {
    on_ = false;
    for (; step < steps_; ++step) {
      const U32 place = walkedPlace(step, steps_);
      if (place < map_->places() && map_->list_->keys()[place] != nullptr) {
        on_ = true;
        step_ = step;
        key_ = map_->list_->keys()[place];
        value_ = map_->find(key_)->value;
        return;
      }
    }
  }

  const HashMap* map_ = nullptr;
  U32 steps_ = 0;
  U32 step_ = 0;
  bool on_ = false;
  Key key_;
  Value value_{};
};

template <class T, class Value>
requires HoldsValues<T, Value>

class HashMap<Ptr<T>, Value>::RawIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Member;
  using difference_type = std::ptrdiff_t;
  using pointer = void;
  using reference = Member;

  RawIterator() = default;

  RawIterator(const HashMap* map, U32 step) : map_(map), step_(step) { skip(); }

  Member operator*() const {
    const Key& at = key();
    return {.key = at, .value = map_->find(at)->value};
  }

  RawIterator& operator++() {
    ++step_;
    skip();
    return *this;
  }

  RawIterator operator++(int) {
    RawIterator before = *this;
    ++*this;
    return before;
  }

  friend bool operator==(const RawIterator& a, const RawIterator& b) { return a.step_ == b.step_; }

 private:
  const Key& key() const { return map_->list_->keys()[walkedPlace(step_, map_->places())]; }

  void skip() {
    while (step_ < map_->places() && key() == nullptr) {
      ++step_;
    }
  }

  const HashMap* map_ = nullptr;
  U32 step_ = 0;
};

}  // namespace Vellor
