#pragma once

#include <utility>

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/HashTable.h"
#include "framework/Vellor/MapMember.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Map of values or counted pointers.
template <class Key, class Value>
class HashMap : public HashTable<Key, Value, Detail::MapMember<Key, Value>> {
  using Member = Detail::MapMember<Key, Value>;

 public:
  /// Creates or replaces. False when an equal value stood there already.
  bool set(const Key& key, const Value& value) {
    Member* member = this->find(key);
    if (member == nullptr) {
      if (!Member::keyCanBeStored(key)) {
        throwRangeException("null key not allowed");
      }
      this->insertNew(placementHash(key), Member(key, value));
      return true;
    }
    if (member->value == value) {
      return false;
    }
    [[maybe_unused]] const Value old = std::exchange(member->value, value);
    return true;
  }

  /// Removes and yields the old value, or the default when `key` is absent; `removed` tells which.
  Value take(const Key& key, bool& removed) {
    Value old{};
    removed = this->remove(key, [&old](Member& member) { old = std::move(member.value); });
    return old;
  }

  friend bool operator==(const HashMap& a, const HashMap& b) {
    if (a.count() != b.count()) {
      return false;
    }
    for (const Member& member : a) {
      const Member* other = b.find(member.memberKey());
      if (other == nullptr || !(other->value == member.value)) {
        return false;
      }
    }
    return true;
  }
};

/// The map of `U8` keys is a class of its own, in SlotMap.h.
template <class Value>
class HashMap<U8, Value>;

/// Map of owned children; a child tells its key by `fwkKey()`.
template <class Key, class Child>
class ChildMap : public HashTable<Key, Ptr<Child>, Detail::ChildMember<Key, Child>> {
  using Member = Detail::ChildMember<Key, Child>;

 public:
  /// Puts `child` under its own key, in place of what stands there.
  void put(Ptr<Child> child) {
    Member* member = this->find(child->fwkKey());
    if (member != nullptr) {
      Ptr<Child> old = std::exchange(member->value, std::move(child));
      return;
    }
    Member added(std::move(child));
    this->insertNew(added.hash(), std::move(added));
  }

  /// The child at `key`; builds it by `make()` when absent. `made` tells which.
  template <class Make>
  Ptr<Child> getOrMake(const Key& key, bool& made, Make&& make) {
    if (Member* member = this->find(key)) {
      made = false;
      return member->value;
    }
    made = true;
    Ptr<Child> child = make();
    Member added(child);
    this->insertNew(added.hash(), std::move(added));
    return child;
  }

  Ptr<Child> take(const Key& key, bool& removed) {
    Ptr<Child> old;
    removed = this->remove(key, [&old](Member& member) { old = std::move(member.value); });
    return old;
  }
};

}  // namespace Vellor
