#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "framework/Vellor/Invariant.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Array of counted pointers by index; what is not there reads as null.
template <class Value>
class DynArray {
 public:
  class Iterator;

  static constexpr U64 kGrowthLimit = 2003004;

  U32 count() const { return static_cast<U32>(members_.size()); }

  Value value(U64 index) const { return index < members_.size() ? members_[index] : Value(); }

  /// The member by reference. REQUIRES: index < count().
  const Value& at(U64 index) const { return members_[index]; }

  /// Grows to hold `index`. False when an equal value stood there already. A growth by 2003004 or
  /// more is fatal.
  bool set(U64 index, Value value) {
    if (index >= members_.size()) {
      const U64 newEntries = index + 1 - members_.size();
      VELLOR_ASSERT(newEntries < kGrowthLimit, "newEntries < 2003004");
      members_.resize(index + 1);
      members_[index] = std::move(value);
      return true;
    }
    if (members_[index] == value) {
      return false;
    }
    [[maybe_unused]] const Value old = std::exchange(members_[index], std::move(value));
    return true;
  }

  /// Empties the place at `index`; the last place goes with it.
  Value take(U64 index, bool& removed) {
    removed = index < members_.size();
    if (!removed) {
      return Value();
    }
    Value old = std::exchange(members_[index], Value());
    if (index + 1 == members_.size()) {
      members_.pop_back();
    }
    return old;
  }

  void clear() { members_.clear(); }

  Iterator iterator() const { return Iterator(this); }

 private:
  std::vector<Value> members_;
};

/// Walks the places by index, vacant ones too, and tolerates any change of the array meanwhile.
template <class Value>
class DynArray<Value>::Iterator {
 public:
  Iterator() = default;

  explicit Iterator(const DynArray* array) : array_(array) {}

  explicit operator bool() const { return array_ != nullptr && index_ < array_->count(); }

  U32 key() const { return index_; }

  Value value() const { return array_->value(index_); }

  Value ptr() const { return value(); }

  Value operator->() const { return value(); }

  Iterator& operator++() {
    ++index_;
    return *this;
  }

 private:
  const DynArray* array_ = nullptr;
  U32 index_ = 0;
};

}  // namespace Vellor
