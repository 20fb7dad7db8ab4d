#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/Vellor/MapMember.h"
#include "framework/Vellor/Pool.h"
#include "framework/Vellor/Prefetch.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// Hash collection in the order of the 32-bit placement hash; members of equal hash in order of
/// insertion.
///
/// One array, sorted by hash: a member stands at or behind its home, the place that the top
/// `logSize` bits of its hash name, with no vacant place between, and behind the last home a few
/// places take what runs over. So a walk is a walk over the array and its order never depends on
/// the size; a lookup touches one or two neighbouring lines, a miss ends at the first larger hash,
/// and growth streams from array to array. Up to 32 members stand dense in an array of their own
/// size (`logSize` 0). Empty, a map is one null pointer.
///
/// Where the hash tells the key, a bit for each place tells beside the array whether it is taken: a
/// search for an absent key mostly ends there, in the cache, and not in the array, which is not.
/// And keys below the number of homes have a home each: then the array is a plain one by index, and
/// there is no reason to grow however full it is.
///
/// Invariant 1: hashes never fall along the array.
/// Invariant 2: between a member's home and its place no place is vacant.
/// Invariant 3: members of equal hash stand in the order of their insertion.
/// Invariant 4: where there are such bits, they are set exactly for the places that are not vacant.
///
/// An Iterator survives any change of the map: it holds its current member's key and value and
/// finds the successor anew by the hash when the member is no longer where it was. Raw ranges
/// (`begin()`) do not; nothing may change under them.
template <class Key, class Value, class Member>
class HashTable {
 public:
  class Iterator;
  class RawIterator;

  HashTable() = default;

  HashTable(const HashTable& other) {
    for (const Member& member : other) {
      insertNew(member.hash(), Member(member));
    }
  }

  HashTable(HashTable&& other) noexcept : rep_(std::exchange(other.rep_, nullptr)) {}

  HashTable& operator=(HashTable other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }

  ~HashTable() { clear(); }

  U32 count() const { return rep_ == nullptr ? 0 : rep_->count; }

  bool isMember(const Key& key) const {
    if constexpr (kHasBits) {
      if (rep_ != nullptr && rep_->logSize != 0) {
        const U32 hash = placementHash(key);
        if (rep_->oneHomeEach(rep_->allHashes | hash)) {
          return rep_->isTaken(rep_->home(hash));
        }
      }
    }
    return find(key) != nullptr;
  }

  /// The member at `key`, or null. It stays in place until the next change of the map.
  const Member* find(const Key& key) const {
    return rep_ == nullptr ? nullptr : findAt(key, placementHash(key));
  }

  Member* find(const Key& key) { return const_cast<Member*>(std::as_const(*this).find(key)); }

  /// Asks the memory for the place where `key` would stand; worth it when other work comes before a
  /// find().
  void prefetch(const Key& key) const {
    if (rep_ != nullptr) {
      Vellor::prefetch(rep_->members() + rep_->home(placementHash(key)));
    }
  }

  /// The first member of the key's hash, or null: mostly that of the key, whose object is not read
  /// for it. To ask the memory for the object ahead of a find().
  const Member* likely(const Key& key) const {
    if (rep_ == nullptr) {
      return nullptr;
    }
    const U32 hash = placementHash(key);
    const Member* at = firstNotBelow(hash);
    return at != nullptr && at->hash() == hash ? at : nullptr;
  }

  /// The stored value, or the default of its type.
  Value value(const Key& key) const {
    const Member* member = find(key);
    return member == nullptr ? Value() : Value(member->value);
  }

  /// Adds a member whose key is absent. REQUIRES: `hash` is the placement hash of the member's key,
  /// which is absent.
  void insertNew(U32 hash, Member&& member) {
    makeRoom(hash);
    U32 place = placeFor(hash);
    U32 end = place;
    while (end < rep_->limit && !rep_->members()[end].vacant()) {
      ++end;
    }
    if (end == rep_->limit) {
      rebuild(rep_->logSize, rep_->limit + rep_->limit / 8 + 4);
      place = placeFor(hash);
      end = place;
      while (!rep_->members()[end].vacant()) {
        ++end;
      }
    }
    Member* at = rep_->members();
    if constexpr (Member::kRelocatable) {
      std::memmove(static_cast<void*>(at + place + 1), static_cast<void*>(at + place),
                   (end - place) * sizeof(Member));
    } else {
      for (U32 i = end; i > place; --i) {
        relocate(at + i, at + i - 1);
      }
    }
    new (at + place) Member(std::move(member));
    rep_->taken(end);
    rep_->allHashes |= hash;
    ++rep_->count;
  }

  /// Removes the member at `key` and hands it to `taken` first; false when there is none.
  template <class Taken>
  bool remove(const Key& key, Taken&& taken) {
    Member* member = find(key);
    if (member == nullptr) {
      return false;
    }
    // Out of the array before anything that ends with it runs: a destructor may look into this very
    // map.
    alignas(Member) std::byte held[sizeof(Member)];
    auto* removed = reinterpret_cast<Member*>(held);
    relocate(removed, member);
    closeGap(static_cast<U32>(member - rep_->members()));
    --rep_->count;
    taken(*removed);
    removed->~Member();
    return true;
  }

  void clear() {
    Rep* rep = std::exchange(rep_, nullptr);
    if (rep == nullptr) {
      return;
    }
    Member* at = rep->members();
    for (U32 i = 0; i < rep->limit; ++i) {
      if (!at[i].vacant()) {
        at[i].~Member();
      }
    }
    Rep::end(rep);
  }

  Iterator iterator() const { return Iterator(this); }

  /// The first member, and the one behind a member that stands here; null at the end. For walks
  /// that start anywhere.
  const Member* first() const { return rep_ == nullptr ? nullptr : firstFrom(rep_->members()); }

  const Member* next(const Member* member) const { return firstFrom(member + 1); }

  RawIterator begin() const {
    return RawIterator(rep_ == nullptr ? nullptr : rep_->members(),
                       rep_ == nullptr ? nullptr : rep_->pastLast());
  }

  RawIterator end() const {
    const Member* past = rep_ == nullptr ? nullptr : rep_->pastLast();
    return RawIterator(past, past);
  }

 private:
  static constexpr U32 kDense = 32;
  static constexpr bool kHasBits = HashIsKey<Key>;

  struct Rep {
    U32 count;
    U32 limit;
    // Every bit that the hash of some member has, or had since the last rebuild.
    U32 allHashes;
    U8 logSize;

    static constexpr std::size_t kHeader = alignof(Member) > 16 ? alignof(Member) : 16;

    Member* members() {
      return reinterpret_cast<Member*>(reinterpret_cast<std::byte*>(this) + kHeader);
    }

    const Member* pastLast() { return members() + limit; }

    U32 home(U32 hash) const { return static_cast<U32>(static_cast<U64>(hash) << logSize >> 32); }

    /// Whether every key that these hashes could be has a home of its own.
    bool oneHomeEach(U32 hashes) const {
      return kHasBits && static_cast<U32>(U64{hashes} << logSize) == 0;
    }

    U64* bits() {
      return reinterpret_cast<U64*>(reinterpret_cast<std::byte*>(this) + bitsAt(limit));
    }

    bool isTaken(U32 place) { return (bits()[place / 64] >> place % 64 & 1) != 0; }

    void taken(U32 place) {
      if constexpr (kHasBits) {
        if (logSize != 0) {
          bits()[place / 64] |= U64{1} << place % 64;
        }
      }
    }

    void left(U32 place) {
      if constexpr (kHasBits) {
        if (logSize != 0) {
          bits()[place / 64] &= ~(U64{1} << place % 64);
        }
      }
    }

    static std::size_t bitsAt(U32 limit) {
      return (kHeader + limit * sizeof(Member) + alignof(U64) - 1) & ~(alignof(U64) - 1);
    }

    static std::size_t bytes(U8 logSize, U32 limit) {
      return kHasBits && logSize != 0 ? bitsAt(limit) + (limit / 64 + 1) * sizeof(U64)
                                      : kHeader + limit * sizeof(Member);
    }

    /// All places vacant, which is all bytes zero.
    static Rep* make(U8 logSize, U32 limit) {
      const std::size_t size = bytes(logSize, limit);
      void* block = nullptr;
      if (size <= Pool::kMaxPooled) {
        block = Pool::take(size);
        std::memset(block, 0, size);
      } else {
        // calloc leaves untouched pages of a large array to the kernel.
        block = std::calloc(1, size);
        if (block == nullptr) {
          throw std::bad_alloc();
        }
      }
      return new (block) Rep{0, limit, 0, logSize};
    }

    static void end(Rep* rep) {
      const std::size_t size = bytes(rep->logSize, rep->limit);
      if (size <= Pool::kMaxPooled) {
        Pool::giveBack(rep, size);
      } else {
        std::free(rep);
      }
    }
  };

  const Member* firstFrom(const Member* member) const {
    while (member != rep_->pastLast() && member->vacant()) {
      ++member;
    }
    return member == rep_->pastLast() ? nullptr : member;
  }

  static void relocate(Member* to, Member* from) {
    if constexpr (Member::kRelocatable) {
      std::memcpy(static_cast<void*>(to), static_cast<void*>(from), sizeof(Member));
    } else {
      new (to) Member(std::move(*from));
      from->~Member();
    }
    from->vacate();
  }

  /// A place at or before the first member of this hash or a larger one, near it: the home, or a
  /// guess by proportion in a dense array.
  U32 searchFrom(U32 hash) const {
    if (rep_->logSize != 0) {
      return rep_->home(hash);
    }
    U32 place = static_cast<U32>(static_cast<U64>(hash) * rep_->count >> 32);
    const Member* at = rep_->members();
    while (place > 0 && at[place - 1].hash() >= hash) {
      --place;
    }
    return place;
  }

  /// The first member of this hash or a larger one, or null when a vacant place comes before it.
  const Member* firstNotBelow(U32 hash) const {
    const U32 from = searchFrom(hash);
    if constexpr (kHasBits) {
      if (rep_->logSize != 0 && !rep_->isTaken(from)) {
        return nullptr;
      }
    }
    const Member* past = rep_->pastLast();
    for (const Member* at = rep_->members() + from; at != past && !at->vacant(); ++at) {
      if (at->hash() >= hash) {
        return at;
      }
    }
    return nullptr;
  }

  const Member* findAt(const Key& key, U32 hash) const {
    const Member* at = firstNotBelow(hash);
    if (at == nullptr) {
      return nullptr;
    }
    for (const Member* past = rep_->pastLast(); at != past && !at->vacant() && at->hash() == hash;
         ++at) {
      if (HashIsKey<Key> || at->memberKey() == key) {
        return at;
      }
    }
    return nullptr;
  }

  /// Where a new member of this hash belongs: behind its equals, before the first larger or at a
  /// vacant place.
  U32 placeFor(U32 hash) const {
    U32 place = searchFrom(hash);
    const Member* at = rep_->members();
    while (place < rep_->limit && !at[place].vacant() && at[place].hash() <= hash) {
      ++place;
    }
    return place;
  }

  void closeGap(U32 gap) {
    Member* at = rep_->members();
    U32 next = gap + 1;
    while (next < rep_->limit && !at[next].vacant() &&
           (rep_->logSize == 0 || rep_->home(at[next].hash()) != next)) {
      ++next;
    }
    if constexpr (Member::kRelocatable) {
      std::memmove(static_cast<void*>(at + gap), static_cast<void*>(at + gap + 1),
                   (next - gap - 1) * sizeof(Member));
      if (next - 1 != gap) {
        std::memset(static_cast<void*>(at + next - 1), 0, sizeof(Member));
      }
    } else {
      for (U32 i = gap; i + 1 < next; ++i) {
        relocate(at + i, at + i + 1);
      }
    }
    rep_->left(next - 1);
  }

  /// For one member more, of this hash.
  void makeRoom(U32 hash) {
    if (rep_ == nullptr) {
      rep_ = Rep::make(0, 1);
      return;
    }
    if (rep_->logSize == 0) {
      if (rep_->count < rep_->limit) {
        return;
      }
      if (rep_->count < kDense) {
        rebuild(0, rep_->limit * 2);
      } else {
        rebuild(6, 0);
      }
      return;
    }
    const U32 homes = U32{1} << rep_->logSize;
    if (rep_->count >= homes / 32 * Member::k32ndsFull &&
        !rep_->oneHomeEach(rep_->allHashes | hash)) {
      rebuild(static_cast<U8>(rep_->logSize + 1), 0);
    }
  }

  /// Streams all members into an array of other size. `atLeast` is a lower bound for its places.
  void rebuild(U8 logSize, U32 atLeast) {
    Rep* old = rep_;
    const auto homeOf = [logSize](U32 hash) {
      return static_cast<U32>(static_cast<U64>(hash) << logSize >> 32);
    };
    Member* from = old->members();
    U32 next = 0;
    for (U32 i = 0; i < old->limit; ++i) {
      if (!from[i].vacant()) {
        const U32 home = homeOf(from[i].hash());
        next = (home > next ? home : next) + 1;
      }
    }
    const U32 homes = logSize == 0 ? 0 : U32{1} << logSize;
    U32 limit = homes == 0 ? next : homes + (homes < 512 ? homes / 8 : 64);
    limit = limit < next + 1 ? next + 1 : limit;
    limit = limit < atLeast ? atLeast : limit;
    if (logSize == 0) {
      limit = atLeast;
    }
    rep_ = Rep::make(logSize, limit);
    Member* to = rep_->members();
    next = 0;
    for (U32 i = 0; i < old->limit; ++i) {
      if (!from[i].vacant()) {
        const U32 home = homeOf(from[i].hash());
        const U32 place = home > next ? home : next;
        rep_->allHashes |= from[i].hash();
        relocate(to + place, from + i);
        rep_->taken(place);
        next = place + 1;
      }
    }
    rep_->count = old->count;
    Rep::end(old);
  }

  Rep* rep_ = nullptr;
};

}  // namespace Vellor

#include "framework/Vellor/HashTableWalk.h"
