#pragma once

#include <concepts>
#include <cstring>
#include <type_traits>
#include <utility>

#include "framework/Vellor/Hash.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Whether an object may be moved to another place by copying its bytes and forgetting the old
/// place.
template <class T>
inline constexpr bool isRelocatable = std::is_trivially_copyable_v<T>;
template <class T>
inline constexpr bool isRelocatable<Ptr<T>> = true;

/// A key type whose hash tells the key: its values are numbers of at most 32 bits, or it can be
/// made from its hash by `Key::fromHash`. A member of its maps keeps the hash in place of the key.
template <class Key>
concept HashIsKey = (std::is_integral_v<Key> && sizeof(Key) <= 4) || requires(U32 hash) {
  { Key::fromHash(hash) } -> std::same_as<Key>;
};

namespace Detail {

/// A member of a map from Key to Value. A member of a pointer-keyed map is vacant when its key is
/// null; any other carries a flag. All bytes zero is vacant either way.
template <class Key, class Value>
struct MapMember {
  Key key;
  bool used;
  Value value;

  static constexpr bool kRelocatable = isRelocatable<Key> && isRelocatable<Value>;
  // Hashes of numbers are no more even than the numbers: half full, a dense range of them spreads
  // evenly, fuller it would heap up in parts of the array.
  static constexpr U32 k32ndsFull = 16;

  MapMember(const Key& k, Value v) : key(k), used(true), value(std::move(v)) {}

  bool vacant() const { return !used; }

  void vacate() { used = false; }

  U32 hash() const { return placementHash(key); }

  const Key& memberKey() const { return key; }

  static bool keyCanBeStored(const Key&) { return true; }
};

template <class T, class Value>
struct MapMember<Ptr<T>, Value> {
  Ptr<T> key;
  Value value;

  static constexpr bool kRelocatable = isRelocatable<Value>;
  static constexpr U32 k32ndsFull = 29;

  MapMember(const Ptr<T>& k, Value v) : key(k), value(std::move(v)) {}

  bool vacant() const { return key == nullptr; }

  void vacate() { std::memset(static_cast<void*>(&key), 0, sizeof key); }

  U32 hash() const { return placementHash(key); }

  const Ptr<T>& memberKey() const { return key; }

  static bool keyCanBeStored(const Ptr<T>& k) { return k != nullptr; }
};

template <HashIsKey Key, class Value>
struct MapMember<Key, Value> {
  Value value;
  U32 hash_;
  bool used;

  static constexpr bool kRelocatable = isRelocatable<Value>;
  static constexpr U32 k32ndsFull = 16;

  MapMember(const Key& k, Value v) : value(std::move(v)), hash_(placementHash(k)), used(true) {}

  bool vacant() const { return !used; }

  void vacate() { used = false; }

  U32 hash() const { return hash_; }

  Key memberKey() const {
    if constexpr (std::is_integral_v<Key>) {
      return static_cast<Key>(bitReverse(hash_));
    } else {
      return Key::fromHash(bitReverse(hash_));
    }
  }

  static bool keyCanBeStored(const Key&) { return true; }
};

/// A member of a map of owned children: the child knows its key. The hash is kept, so that neither
/// a probe past the member nor growth touches the child.
template <class Key, class Child>
struct ChildMember {
  Ptr<Child> value;
  U32 hash_;

  static constexpr bool kRelocatable = true;
  static constexpr U32 k32ndsFull = 29;

  explicit ChildMember(Ptr<Child> child)
      : value(std::move(child)), hash_(placementHash(value->fwkKey())) {}

  bool vacant() const { return value == nullptr; }

  void vacate() { std::memset(static_cast<void*>(&value), 0, sizeof value); }

  U32 hash() const { return hash_; }

  const Key& memberKey() const { return value->fwkKey(); }

  static bool keyCanBeStored(const Key&) { return true; }
};

}  // namespace Detail

}  // namespace Vellor
