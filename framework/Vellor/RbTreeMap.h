#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/Vellor/Pool.h"
#include "framework/Vellor/Prefetch.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Ordered map, ascending key; a member of value types: copying the owner copies the map.
///
/// A sorted array that copies share until one of them changes. So a copy costs one counter, and
/// comparing a map with its copy one comparison. Maps here hold a few dozen members of some bytes;
/// a search is a binary search.
///
/// `memo` is one word for the owner, forgotten at each change of content: a key type keeps its hash
/// there.
template <class Key, class Value>
class RbTreeMap {
 public:
  struct Member {
    // The key goes into the value's tail padding where it has some.
    [[no_unique_address]] Value value;
    Key key;
  };

  class Iterator;

  RbTreeMap() = default;

  RbTreeMap(const RbTreeMap& other) : rep_(other.rep_) {
    if (rep_ != nullptr) {
      ++rep_->references;
    }
  }

  RbTreeMap(RbTreeMap&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}

  RbTreeMap& operator=(RbTreeMap other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }

  ~RbTreeMap() { drop(rep_); }

  U32 count() const { return rep_ == nullptr ? 0 : rep_->count; }

  const Member* begin() const { return rep_ == nullptr ? nullptr : rep_->members(); }

  const Member* end() const { return rep_ == nullptr ? nullptr : rep_->members() + rep_->count; }

  const Member* find(const Key& key) const {
    const Member* at = lowerBound(key);
    return at != end() && at->key == key ? at : nullptr;
  }

  /// The first member whose key is not below `key`, or end().
  const Member* lowerBound(const Key& key) const {
    const Member* first = begin();
    U32 left = count();
    // Keys are mostly 0 to n - 1: then the key is its own position.
    if (key < left && first[key].key == key) {
      return first + key;
    }
    while (left > 0) {
      const U32 half = left / 2;
      if (first[half].key < key) {
        first += half + 1;
        left -= half + 1;
      } else {
        left = half;
      }
    }
    return first;
  }

  bool isMember(const Key& key) const { return find(key) != nullptr; }

  Value value(const Key& key) const {
    const Member* member = find(key);
    return member == nullptr ? Value() : member->value;
  }

  /// Creates or replaces. False when an equal value stood there already.
  bool set(const Key& key, const Value& value) {
    const Member* at = lowerBound(key);
    const U32 place = static_cast<U32>(at - begin());
    if (at != end() && at->key == key) {
      if (at->value == value) {
        return false;
      }
      own(count());
      rep_->members()[place].value = value;
      return true;
    }
    // Copied first: `value` may stand in this very map, which moves.
    const Member added{value, key};
    own(count() + 1);
    Member* members = rep_->members();
    for (U32 i = rep_->count; i > place; --i) {
      members[i] = members[i - 1];
    }
    members[place] = added;
    ++rep_->count;
    return true;
  }

  /// Removes and yields the old value, or the default when `key` is absent; `removed` tells which.
  Value take(const Key& key, bool& removed) {
    const Member* at = find(key);
    removed = at != nullptr;
    if (at == nullptr) {
      return Value();
    }
    const U32 place = static_cast<U32>(at - begin());
    own(count());
    Member* members = rep_->members();
    Value old = members[place].value;
    for (U32 i = place; i + 1 < rep_->count; ++i) {
      members[i] = members[i + 1];
    }
    --rep_->count;
    return old;
  }

  void clear() { drop(std::exchange(rep_, nullptr)); }

  /// Room for this many members without growth.
  void reserve(U32 capacity) {
    if (capacity > 0) {
      own(capacity < count() ? count() : capacity);
    }
  }

  /// Adds at the end. REQUIRES: `key` is above all keys.
  void append(const Key& key, const Value& value) {
    const Member added{value, key};
    own(count() + 1);
    rep_->members()[rep_->count] = added;
    ++rep_->count;
  }

  Iterator iterator() const { return Iterator(this); }

  /// The owner's word of this content, made by `make()` when it is not known.
  template <class Make>
  U32 memo(Make&& make) const {
    if (rep_ == nullptr) {
      return make();
    }
    if (!rep_->memoKnown) {
      rep_->memo = make();
      rep_->memoKnown = true;
    }
    return rep_->memo;
  }

  bool sharesContentWith(const RbTreeMap& other) const { return rep_ == other.rep_; }

  /// Asks the memory for the content; worth it when other work comes before the first look.
  void prefetch() const { Vellor::prefetch(rep_); }

  friend bool operator==(const RbTreeMap& a, const RbTreeMap& b) {
    if (a.rep_ == b.rep_) {
      return true;
    }
    if (a.count() != b.count()) {
      return false;
    }
    if (a.count() == 0) {
      return true;
    }
    if (a.rep_->memoKnown && b.rep_->memoKnown && a.rep_->memo != b.rep_->memo) {
      return false;
    }
    const Member* other = b.begin();
    for (const Member& member : a) {
      if (!(member.key == other->key) || !(member.value == other->value)) {
        return false;
      }
      ++other;
    }
    return true;
  }

 private:
  static_assert(std::is_trivially_copyable_v<Key> && std::is_trivially_copyable_v<Value>);
  static_assert(std::is_integral_v<Key>);

  struct Rep {
    U32 references;
    U16 count;
    U16 capacity;
    U32 memo;
    bool memoKnown;

    Member* members() { return reinterpret_cast<Member*>(this + 1); }
  };

  static std::size_t bytes(U32 capacity) { return sizeof(Rep) + capacity * sizeof(Member); }

  static void drop(Rep* rep) {
    if (rep != nullptr && --rep->references == 0) {
      Pool::giveBack(rep, bytes(rep->capacity));
    }
  }

  /// Makes the content this map's own, with room for `capacity` members, ready for a change.
  void own(U32 capacity) {
    if (rep_ != nullptr && rep_->references == 1 && rep_->capacity >= capacity) {
      rep_->memoKnown = false;
      return;
    }
    U32 room = capacity < 4 ? 4 : capacity;
    if (rep_ != nullptr && rep_->count != 0 && capacity > rep_->count) {
      room = capacity + capacity / 2;
    }
    Rep* mine = new (Pool::take(bytes(room))) Rep{1, 0, static_cast<U16>(room), 0, false};
    for (const Member& member : *this) {
      new (mine->members() + mine->count) Member(member);
      ++mine->count;
    }
    drop(std::exchange(rep_, mine));
  }

  Rep* rep_ = nullptr;
};

/// Walks ascending keys and tolerates any change of the map meanwhile.
template <class Key, class Value>
class RbTreeMap<Key, Value>::Iterator {
 public:
  Iterator() = default;

  explicit Iterator(const RbTreeMap* map) : map_(map) { settle(map->begin()); }

  explicit operator bool() const { return on_; }

  const Key& key() const { return key_; }

  /// The current value of the member, or its last one when it has been removed.
  Value value() const {
    const Member* member = map_->find(key_);
    return member == nullptr ? value_ : member->value;
  }

  bool isMemberOf(const Key& key) const { return map_->isMember(key); }

  Iterator& operator++() {
    const Member* at = map_->lowerBound(key_);
    if (at != map_->end() && at->key == key_) {
      ++at;
    }
    settle(at);
    return *this;
  }

 private:
  void settle(const Member* at) {
    on_ = at != map_->end();
    if (on_) {
      key_ = at->key;
      value_ = at->value;
    }
  }

  const RbTreeMap* map_ = nullptr;
  Key key_{};
  Value value_{};
  bool on_ = false;
};

}  // namespace Vellor
