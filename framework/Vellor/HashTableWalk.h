#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <vector>

#include "framework/Vellor/HashTable.h"
#include "framework/Vellor/MapMember.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Walks the members in order and tolerates any change of the map meanwhile.
template <class Key, class Value, class Member>
class HashTable<Key, Value, Member>::Iterator {
 public:
  Iterator() = default;

  explicit Iterator(const HashTable* map) : map_(map) { settle(0); }

  explicit operator bool() const { return on_; }

  const Key& key() const {
    if constexpr (std::is_same_v<Member, Detail::MapMember<Key, Value>>) {
      return key_;
    } else {
      return value_->fwkKey();
    }
  }

  /// The current value of the member, or its last one when it has been removed.
  Value value() const {
    const Member* member = standing();
    if (member == nullptr) {
      member = map_->find(key());
    }
    return member == nullptr ? value_ : Value(member->value);
  }

  Value ptr() const { return value(); }

  Value operator->() const requires isPtr<Value> { return value(); }

  bool isMemberOf(const Key& key) const { return map_->isMember(key); }

  Iterator& operator++() {
    if (standing() != nullptr) {
      rememberEqualHash();
      settle(place_ + 1);
      return *this;
    }
    findSuccessor();
    return *this;
  }

 private:
  /// The current member where it was last seen, or null when it is not there any more.
  const Member* standing() const {
    if (map_->rep_ == nullptr || place_ >= map_->rep_->limit) {
      return nullptr;
    }
    const Member* member = map_->rep_->members() + place_;
    return !member->vacant() && member->hash() == hash_ && member->memberKey() == key() ? member
                                                                                        : nullptr;
  }

  void settle(U32 place) {
    on_ = false;
    if (map_ == nullptr || map_->rep_ == nullptr) {
      return;
    }
    const Member* at = map_->rep_->members();
    while (place < map_->rep_->limit && at[place].vacant()) {
      ++place;
    }
    if (place >= map_->rep_->limit) {
      return;
    }
    on_ = true;
    place_ = place;
    const U32 hash = at[place].hash();
    if (hash != hash_) {
      visitedOfHash_.clear();
    }
    hash_ = hash;
    if constexpr (std::is_same_v<Member, Detail::MapMember<Key, Value>>) {
      key_ = at[place].memberKey();
    }
    value_ = at[place].value;
  }

  /// Different keys of equal hash are rare. Those already visited are remembered, since place and
  /// hash cannot tell.
  void rememberEqualHash() {
    const U32 next = place_ + 1;
    const Member* at = map_->rep_->members();
    if (next < map_->rep_->limit && !at[next].vacant() && at[next].hash() == hash_) {
      visitedOfHash_.push_back(key());
    }
  }

  void findSuccessor() {
    if (map_->rep_ == nullptr) {
      on_ = false;
      return;
    }
    const Member* at = map_->rep_->members();
    U32 place = map_->rep_->home(hash_);
    while (place < map_->rep_->limit && (at[place].vacant() || at[place].hash() < hash_)) {
      ++place;
    }
    while (place < map_->rep_->limit && !at[place].vacant() && at[place].hash() == hash_ &&
           visited(at[place].memberKey())) {
      ++place;
    }
    if (place < map_->rep_->limit && !at[place].vacant() && at[place].hash() == hash_) {
      visitedOfHash_.push_back(key());
    }
    settle(place);
  }

  bool visited(const Key& candidate) const {
    if (candidate == key()) {
      return true;
    }
    for (const Key& seen : visitedOfHash_) {
      if (seen == candidate) {
        return true;
      }
    }
    return false;
  }

  struct NoKey {};

  const HashTable* map_ = nullptr;
  [[no_unique_address]] std::
      conditional_t<std::is_same_v<Member, Detail::MapMember<Key, Value>>, Key, NoKey>
          key_{};
  Value value_{};
  U32 hash_ = 0;
  U32 place_ = 0;
  bool on_ = false;
  std::vector<Key> visitedOfHash_;
};

template <class Key, class Value, class Member>
class HashTable<Key, Value, Member>::RawIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using value_type = Member;
  using difference_type = std::ptrdiff_t;
  using pointer = const Member*;
  using reference = const Member&;

  RawIterator() = default;

  RawIterator(const Member* at, const Member* past) : at_(at), past_(past) { skip(); }

  const Member& operator*() const { return *at_; }

  const Member* operator->() const { return at_; }

  RawIterator& operator++() {
    ++at_;
    skip();
    return *this;
  }

  RawIterator operator++(int) {
    RawIterator before = *this;
    ++*this;
    return before;
  }

  friend bool operator==(const RawIterator& a, const RawIterator& b) { return a.at_ == b.at_; }

 private:
  void skip() {
    while (at_ != past_ && at_->vacant()) {
      ++at_;
    }
  }

  const Member* at_ = nullptr;
  const Member* past_ = nullptr;
};

}  // namespace Vellor
