#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Pool.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Head and tail position of a queue: the index of its first member (the next index when it is
/// empty) and the next index.
struct LinkQueueMetadata {
  U32 head = 0;
  U32 tail = 0;

  friend bool operator==(const LinkQueueMetadata&, const LinkQueueMetadata&) = default;
};

/// Queue of members under ascending `U32` indices. Indices run on over removals and form a ring:
/// what comes after 4294967295 is 0.
///
/// A ring buffer sorted by index. Members queued one after another stand dense, so the index gives
/// the place; after removals from the middle or explicit indices it is searched. An explicit index
/// below the head's goes in front of it, or behind the tail once numbering has run past 4294967295
/// and past it.
///
/// Invariant 1: seen from the head, indices rise.
/// Invariant 2: the next index is behind the tail's.
template <class Value>
class LinkQueue {
 public:
  class Iterator;

  LinkQueue() = default;

  LinkQueue(const LinkQueue& other) : next_(other.next_) {
    if (other.count_ != 0) {
      grow(other.count_);
      for (U32 i = 0; i < other.count_; ++i) {
        new (at(i)) Member(*other.at(i));
        ++count_;
      }
    }
  }

  LinkQueue(LinkQueue&& other) noexcept
      : members_(std::exchange(other.members_, nullptr)),
        capacity_(std::exchange(other.capacity_, 0)),
        first_(std::exchange(other.first_, 0)),
        count_(std::exchange(other.count_, 0)),
        next_(other.next_) {}

  LinkQueue& operator=(LinkQueue other) noexcept {
    std::swap(members_, other.members_);
    std::swap(capacity_, other.capacity_);
    std::swap(first_, other.first_);
    std::swap(count_, other.count_);
    std::swap(next_, other.next_);
    return *this;
  }

  ~LinkQueue() {
    while (count_ != 0) {
      pop();
    }
    release(members_, capacity_);
  }

  U32 count() const { return count_; }

  void reserve(U32 capacity) {
    if (capacity > capacity_) {
      grow(capacity);
    }
  }

  /// Adds at the tail and yields the index. Raises RangeException when the ring of indices is full.
  U32 enq(Value value) {
    const U32 index = next_;
    throwIfFullWith(index);
    if (count_ == capacity_) {
      grow(capacity_ == 0 ? 4 : capacity_ * 2);
    }
    new (at(count_)) Member{index, std::move(value)};
    ++count_;
    next_ = index + 1;
    return index;
  }

  /// Removes the head into `value` and its index into `index`; false on an empty queue.
  bool deq(Value& value, U32& index) {
    if (count_ == 0) {
      return false;
    }
    index = at(0)->index;
    value = std::move(at(0)->value);
    pop();
    return true;
  }

  Value value(U32 index) const {
    const U32 place = lowerBound(index);
    return holds(place, index) ? at(place)->value : Value();
  }

  bool isMember(U32 index) const { return holds(lowerBound(index), index); }

  /// Creates or replaces the member at an explicit index, keeping the order. False when an equal
  /// value stood there. Numbering goes on where it was, or behind this member when that is later.
  /// Raises RangeException as enq() does.
  bool set(U32 index, Value value) {
    const U32 place = lowerBound(index);
    if (holds(place, index)) {
      if (at(place)->value == value) {
        return false;
      }
      [[maybe_unused]] const Value old = std::exchange(at(place)->value, std::move(value));
      return true;
    }
    if (place == count_) {
      throwIfFullWith(index);
      const U32 head = count_ == 0 ? 0 : at(0)->index;
      if (index - head >= next_ - head) {
        next_ = index + 1;
      }
    }
    if (count_ == capacity_) {
      grow(capacity_ == 0 ? 4 : capacity_ * 2);
    }
    new (at(count_)) Member{index, std::move(value)};
    ++count_;
    for (U32 i = count_ - 1; i > place; --i) {
      std::swap(*at(i), *at(i - 1));
    }
    return true;
  }

  Value take(U32 index, bool& removed) {
    const U32 place = lowerBound(index);
    removed = holds(place, index);
    if (!removed) {
      return Value();
    }
    Value old = std::move(at(place)->value);
    for (U32 i = place; i > 0; --i) {
      *at(i) = std::move(*at(i - 1));
    }
    pop();
    return old;
  }

  /// The n-th member from the head. REQUIRES: place < count().
  const Value& nth(U32 place) const { return at(place)->value; }

  U32 indexOfNth(U32 place) const { return at(place)->index; }

  /// The place of the first member whose index is not before `index`.
  U32 lowerBound(U32 index) const {
    if (count_ == 0) {
      return 0;
    }
    const U32 head = at(0)->index;
    // Below the head but passed by numbering is behind the tail.
    const bool passed = next_ < head && index < next_;
    if (index < head && !passed && !wraps()) {
      return 0;
    }
    const U32 distance = index - head;
    if (distance < count_ && at(distance)->index == index) {
      return distance;
    }
    U32 low = 0;
    U32 high = count_;
    while (low < high) {
      const U32 middle = low + (high - low) / 2;
      if (at(middle)->index - head < distance) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  LinkQueueMetadata metadata() const { return {count_ == 0 ? next_ : at(0)->index, next_}; }

  /// Sets where numbering goes on: at `metadata.tail`, or behind the members that stand when that
  /// is later.
  void metadataIs(const LinkQueueMetadata& metadata) {
    next_ = metadata.tail;
    if (count_ == 0) {
      return;
    }
    const U32 tail = at(count_ - 1)->index;
    const bool behindHead = next_ < at(0)->index;
    // A next index before an unwrapped head has run past the end of the index space, if it is
    // within half of it.
    const bool behindTail =
        wraps() ? behindHead && next_ > tail
                : next_ > tail || (behindHead && static_cast<std::int32_t>(next_ - tail) > 0);
    if (!behindTail) {
      next_ = tail + 1;
    }
  }

  Iterator iterator() const { return Iterator(this); }

  /// Equal counts and, walked in order, equal members; the numbering plays no part.
  friend bool operator==(const LinkQueue& a, const LinkQueue& b) {
    if (&a == &b) {
      return true;
    }
    if (a.count_ != b.count_) {
      return false;
    }
    for (U32 i = 0; i < a.count_; ++i) {
      if (!(a.nth(i) == b.nth(i))) {
        return false;
      }
    }
    return true;
  }

 private:
  struct Member {
    U32 index;
    Value value;
  };

  Member* at(U32 place) const {
    U32 slot = first_ + place;
    if (slot >= capacity_) {
      slot -= capacity_;
    }
    return members_ + slot;
  }

  bool holds(U32 place, U32 index) const { return place < count_ && at(place)->index == index; }

  /// Whether the indices have run past 4294967295 between head and tail. REQUIRES: count() > 0.
  bool wraps() const { return at(count_ - 1)->index < at(0)->index; }

  /// A new tail at `index` must leave an index between itself and the head: where numbering would
  /// go on.
  void throwIfFullWith(U32 index) const {
    if (count_ != 0 && at(0)->index - index <= 1) {
      throwRangeException("linkqueue index space full");
    }
  }

  void pop() {
    at(0)->~Member();
    first_ = first_ + 1 == capacity_ ? 0 : first_ + 1;
    --count_;
  }

  void grow(U32 capacity) {
    auto* bigger = static_cast<Member*>(Pool::take(capacity * sizeof(Member)));
    for (U32 i = 0; i < count_; ++i) {
      new (bigger + i) Member(std::move(*at(i)));
      at(i)->~Member();
    }
    release(members_, capacity_);
    members_ = bigger;
    capacity_ = capacity;
    first_ = 0;
  }

  static void release(Member* members, U32 capacity) {
    if (members != nullptr) {
      Pool::giveBack(members, capacity * sizeof(Member));
    }
  }

  Member* members_ = nullptr;
  U32 capacity_ = 0;
  U32 first_ = 0;
  U32 count_ = 0;
  U32 next_ = 0;
};

/// Walks ascending indices and tolerates any change of the queue meanwhile.
template <class Value>
class LinkQueue<Value>::Iterator {
 public:
  Iterator() = default;

  explicit Iterator(const LinkQueue* queue) : queue_(queue) { settle(0); }

  explicit operator bool() const { return on_; }

  U32 key() const { return index_; }

  Value value() const { return queue_->isMember(index_) ? queue_->value(index_) : value_; }

  Value ptr() const { return value(); }

  Value operator->() const requires isPtr<Value> { return value(); }

  bool isMemberOf(U32 index) const { return queue_->isMember(index); }

  Iterator& operator++() {
    const U32 place = queue_->lowerBound(index_);
    if (queue_->holds(place, index_)) {
      settle(place + 1);
    } else {
      // The head that took the place of a removed one may have a smaller index: numbering went
      // round meanwhile.
      const bool behind = place == queue_->count() && place != 0 &&
                          static_cast<std::int32_t>(index_ - queue_->indexOfNth(0)) < 0;
      settle(behind ? 0 : place);
    }
    return *this;
  }

 private:
  void settle(U32 place) {
    on_ = place < queue_->count();
    if (on_) {
      index_ = queue_->indexOfNth(place);
      value_ = queue_->nth(place);
    }
  }

  const LinkQueue* queue_ = nullptr;
  U32 index_ = 0;
  Value value_{};
  bool on_ = false;
};

}  // namespace Vellor
