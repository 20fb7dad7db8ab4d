#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/Vellor/HashMap.h"
#include "framework/Vellor/Pool.h"
#include "framework/Vellor/Prefetch.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

namespace Detail {

/// Bit 0 goes to bit 7, bit 7 to bit 0.
constexpr U8 bitReverse8(U8 x) { return static_cast<U8>(bitReverse(x) >> 24); }

}  // namespace Detail

/// Map keyed by `U8`: slots of a sub-trie, lengths of a key.
///
/// The keys are few and mostly dense, so a value stands at its key in an array whose size is a
/// power of two, beside a set of the keys that are there. A walk goes by the reversed bits of the
/// key, as in every HashMap, which in an array of 2^n places is the order of the n reversed bits.
template <class Value>
class HashMap<U8, Value> {
 public:
  class Iterator;
  class RawIterator;

  /// What a raw walk yields.
  struct Member {
    U8 key;
    const Value& value;
  };

  HashMap() = default;

  HashMap(const HashMap& other) {
    for (const Member& member : other) {
      set(member.key, member.value);
    }
  }

  HashMap(HashMap&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}

  HashMap& operator=(HashMap other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }

  ~HashMap() { clear(); }

  U32 count() const { return rep_ == nullptr ? 0 : rep_->count; }

  bool isMember(U8 key) const { return rep_ != nullptr && rep_->has(key); }

  /// The value at `key`, or null. It stays in place until the next change of the map.
  const Value* find(U8 key) const { return isMember(key) ? rep_->values() + key : nullptr; }

  Value value(U8 key) const { return isMember(key) ? rep_->values()[key] : Value(); }

  /// Creates or replaces. False when an equal value stood there already.
  bool set(U8 key, const Value& value) {
    if (isMember(key)) {
      Value& standing = rep_->values()[key];
      if (standing == value) {
        return false;
      }
      [[maybe_unused]] const Value old = std::exchange(standing, value);
      return true;
    }
    // Copied first: `value` may stand in this very map, which moves.
    Value added(value);
    if (rep_ == nullptr || key >= rep_->capacity) {
      grow(key);
    }
    new (rep_->values() + key) Value(std::move(added));
    rep_->add(key);
    return true;
  }

  /// Removes and yields the old value, or the default when `key` is absent; `removed` tells which.
  Value take(U8 key, bool& removed) {
    removed = isMember(key);
    if (!removed) {
      return Value();
    }
    Value* at = rep_->values() + key;
    Value old = std::move(*at);
    at->~Value();
    rep_->drop(key);
    return old;
  }

  /// Gives the members the keys 0, 1, 2 and on, in the order of a walk. No value is copied.
  void renumber() {
    if (rep_ == nullptr || rep_->count == 0) {
      return;
    }
    Rep* packed = Rep::make(capacityFor(static_cast<U8>(rep_->count - 1)));
    U8 next = 0;
    for (U32 step = 0; step < rep_->capacity; ++step) {
      const U8 key = rep_->keyOfStep(step);
      if (rep_->has(key)) {
        relocate(packed->values() + next, rep_->values() + key);
        packed->add(next);
        ++next;
      }
    }
    Rep::end(std::exchange(rep_, packed));
  }

  void clear() {
    Rep* rep = std::exchange(rep_, nullptr);
    if (rep == nullptr) {
      return;
    }
    for (U32 key = 0; key < rep->capacity; ++key) {
      if (rep->has(static_cast<U8>(key))) {
        rep->values()[key].~Value();
      }
    }
    Rep::end(rep);
  }

  Iterator iterator() const { return Iterator(this); }

  RawIterator begin() const { return RawIterator(rep_, 0); }

  RawIterator end() const { return RawIterator(rep_, rep_ == nullptr ? 0 : rep_->capacity); }

  /// Asks the memory for the first lines.
  void prefetchAll() const { prefetchTwoLines(rep_); }

  friend bool operator==(const HashMap& a, const HashMap& b) {
    if (a.count() != b.count()) {
      return false;
    }
    for (const Member& member : a) {
      const Value* other = b.find(member.key);
      if (other == nullptr || !(*other == member.value)) {
        return false;
      }
    }
    return true;
  }

 private:
  struct Rep {
    U16 count;
    // A power of two, 4 to 256.
    U16 capacity;
    U8 logCapacity;

    static constexpr std::size_t kHeader = 8;

    U64* present() { return reinterpret_cast<U64*>(reinterpret_cast<std::byte*>(this) + kHeader); }

    Value* values() { return reinterpret_cast<Value*>(present() + words(capacity)); }

    bool has(U8 key) { return key < capacity && (present()[key / 64] >> key % 64 & 1) != 0; }

    void add(U8 key) {
      present()[key / 64] |= U64{1} << key % 64;
      ++count;
    }

    void drop(U8 key) {
      present()[key / 64] &= ~(U64{1} << key % 64);
      --count;
    }

    U8 keyOfStep(U32 step) const { return static_cast<U8>(bitReverse(step) >> (32 - logCapacity)); }

    static std::size_t words(U32 capacity) { return (capacity + 63) / 64; }

    static std::size_t bytes(U32 capacity) {
      return kHeader + words(capacity) * sizeof(U64) + capacity * sizeof(Value);
    }

    static Rep* make(U32 capacity) {
      Rep* rep = new (Pool::take(bytes(capacity)))
          Rep{0, static_cast<U16>(capacity), static_cast<U8>(__builtin_ctz(capacity))};
      std::memset(rep->present(), 0, words(capacity) * sizeof(U64));
      return rep;
    }

    static void end(Rep* rep) { Pool::giveBack(rep, bytes(rep->capacity)); }
  };

  static_assert(sizeof(Rep) <= Rep::kHeader && alignof(Value) <= alignof(U64));

  static U32 capacityFor(U8 key) {
    U32 capacity = 4;
    while (capacity <= key) {
      capacity *= 2;
    }
    return capacity;
  }

  static void relocate(Value* to, Value* from) {
    if constexpr (isRelocatable<Value>) {
      std::memcpy(static_cast<void*>(to), static_cast<void*>(from), sizeof(Value));
    } else {
      new (to) Value(std::move(*from));
      from->~Value();
    }
  }

  void grow(U8 key) {
    Rep* bigger = Rep::make(capacityFor(key));
    if (rep_ != nullptr) {
      for (U32 i = 0; i < rep_->capacity; ++i) {
        if (rep_->has(static_cast<U8>(i))) {
          relocate(bigger->values() + i, rep_->values() + i);
          bigger->add(static_cast<U8>(i));
        }
      }
      Rep::end(rep_);
    }
    rep_ = bigger;
  }

  Rep* rep_ = nullptr;
};

/// Walks the members in order and tolerates any change of the map meanwhile.
template <class Value>
class HashMap<U8, Value>::Iterator {
 public:
  Iterator() = default;

  explicit Iterator(const HashMap* map) : map_(map) { settle(0); }

  explicit operator bool() const { return on_; }

  const U8& key() const { return key_; }

  /// The current value of the member, or its last one when it has been removed.
  Value value() const {
    const Value* standing = map_->find(key_);
    return standing == nullptr ? value_ : *standing;
  }

  Value ptr() const { return value(); }

  Value operator->() const requires isPtr<Value> { return value(); }

  bool isMemberOf(U8 key) const { return map_->isMember(key); }

  Iterator& operator++() {
    settle(U32{Detail::bitReverse8(key_)} + 1);
    return *this;
  }

 private:
  /// Stops at the first member whose reversed key is at least `reversed`.
  void settle(U32 reversed) {
    on_ = false;
    for (; reversed < 256 && map_->count() != 0; ++reversed) {
      const U8 key = Detail::bitReverse8(static_cast<U8>(reversed));
      if (const Value* standing = map_->find(key)) {
        on_ = true;
        key_ = key;
        value_ = *standing;
        return;
      }
    }
  }

  const HashMap* map_ = nullptr;
  U8 key_ = 0;
  bool on_ = false;
  Value value_{};
};

template <class Value>
class HashMap<U8, Value>::RawIterator {
 public:
  RawIterator(Rep* rep, U32 step) : rep_(rep), step_(step) { skip(); }

  Member operator*() const {
    const U8 key = rep_->keyOfStep(step_);
    return {key, rep_->values()[key]};
  }

  RawIterator& operator++() {
    ++step_;
    skip();
    return *this;
  }

  friend bool operator==(const RawIterator& a, const RawIterator& b) { return a.step_ == b.step_; }

 private:
  void skip() {
    while (rep_ != nullptr && step_ < rep_->capacity && !rep_->has(rep_->keyOfStep(step_))) {
      ++step_;
    }
  }

  Rep* rep_;
  U32 step_;
};

}  // namespace Vellor
