// One open-addressing hash table per family. To try all 129 lengths for each address would be slow,
// so the table notes which lengths occur: lengths are parted into levels, and each level keeps,
// under a hash of as many first bits as its shortest length has, the set of lengths seen there. The
// notes may only ever say too much (two places can share a note, and an erased length stays noted),
// so a search that follows them misses nothing and at worst looks in vain.

#include "agent/ReferenceTrie.h"

#include <array>
#include <bit>
#include <utility>

namespace Quarle::Agent {

namespace {

/// A set of lengths of one level, counted from its shortest and walked from its longest.
class LengthSet {
 public:
  void add(unsigned step) { words_[step / 64] |= std::uint64_t{1} << (step % 64); }

  /// Calls `visit(step)` from the largest until it returns true; true when it did.
  template <typename Visit>
  bool visitFromLargest(Visit visit) const {
    for (unsigned word = kWords; word > 0; --word) {
      std::uint64_t rest = words_[word - 1];
      while (rest != 0) {
        const unsigned bit = 63 - static_cast<unsigned>(std::countl_zero(rest));
        rest ^= std::uint64_t{1} << bit;
        if (visit((word - 1) * 64 + bit)) {
          return true;
        }
      }
    }
    return false;
  }

 private:
  // The longest level, IPv6 from /32 on, has 97 lengths.
  static constexpr unsigned kWords = 2;

  std::array<std::uint64_t, kWords> words_{};
};

/// What differs between the families, so that an IPv4 slot takes 12 bytes and not 24. `kLevels` are
/// the shortest lengths of the levels, chosen so that each holds few different lengths in one
/// place.
template <typename Bits>
struct KeyTraits;

template <>
struct KeyTraits<std::uint32_t> {
  static constexpr std::array<unsigned, 3> kLevels = {20, 12, 0};

  static std::uint32_t of(AddressBits bits) { return static_cast<std::uint32_t>(bits.high >> 32); }

  static std::uint32_t masked(std::uint32_t bits, unsigned length) {
    return length == 0 ? 0 : bits & (~std::uint32_t{0} << (32 - length));
  }

  static std::uint64_t hash(std::uint32_t bits, unsigned length) {
    return mixed(std::uint64_t{bits} << 8 | length);
  }
};

template <>
struct KeyTraits<AddressBits> {
  static constexpr std::array<unsigned, 3> kLevels = {32, 20, 0};

  static AddressBits of(AddressBits bits) { return bits; }

  static AddressBits masked(AddressBits bits, unsigned length) { return bits.masked(length); }

  static std::uint64_t hash(AddressBits bits, unsigned length) {
    return mixed(mixed(bits.high + length) + bits.low);
  }
};

}  // namespace

/// The prefixes of one family.
///
/// Invariants:
///  1. At most five of eight slots are taken, so a search always ends at a free one.
///  2. From the slot that a prefix hashes to up to the slot it lies in, no slot is free.
///  3. The note under a prefix's first bits on the level of its length holds that length.
template <typename Bits>
class PrefixHashTable {
 public:
  using Value = ReferenceTrie::Value;
  using Match = ReferenceTrie::Match;
  using Traits = KeyTraits<Bits>;

  PrefixHashTable() { slotCountIs(kFirstSlots); }

  std::size_t size() const { return size_; }

  bool insert(Bits bits, unsigned length, Value value) {
    if ((size_ + 1) * 8 > slots_.size() * 5) {
      grow();
    }
    note(bits, length);
    Slot& slot = slots_[placeOf(bits, length)];
    const bool isNew = slot.length == kFree;
    slot = {.bits = bits, .value = value, .length = static_cast<std::uint8_t>(length)};
    size_ += isNew;
    return isNew;
  }

  bool erase(Bits bits, unsigned length) {
    std::size_t hole = placeOf(bits, length);
    if (slots_[hole].length == kFree) {
      return false;
    }
    // A slot behind the hole moves into it unless its own search begins behind the hole.
    for (std::size_t next = after(hole); slots_[next].length != kFree; next = after(next)) {
      const std::size_t home = homeOf(slots_[next].bits, slots_[next].length);
      if (distance(home, next) >= distance(hole, next)) {
        slots_[hole] = slots_[next];
        hole = next;
      }
    }
    slots_[hole].length = kFree;
    --size_;
    return true;
  }

  const Value* find(Bits bits, unsigned length) const {
    const Slot& slot = slots_[placeOf(bits, length)];
    return slot.length == kFree ? nullptr : &slot.value;
  }

  /// Calls `visit(match)` for each prefix that covers `bits`, the longest first, until it returns
  /// true.
  template <typename Visit>
  void visitCovering(Bits bits, Visit visit) const {
    for (std::size_t level = 0; level < kLevels; ++level) {
      const auto tryStep = [&](unsigned step) {
        const unsigned length = Traits::kLevels[level] + step;
        const Value* value = find(Traits::masked(bits, length), length);
        return value != nullptr &&
               visit(Match{.length = static_cast<std::uint8_t>(length), .value = *value});
      };
      if (notes_[level][noteOf(bits, level)].visitFromLargest(tryStep)) {
        return;
      }
    }
  }

 private:
  static constexpr std::uint8_t kFree = 0xff;
  static constexpr std::size_t kFirstSlots = 64;
  static constexpr std::size_t kSlotsPerNote = 8;
  static constexpr std::size_t kLevels = Traits::kLevels.size();

  struct Slot {
    Bits bits{};
    Value value = 0;
    std::uint8_t length = kFree;
  };

  std::size_t after(std::size_t place) const { return (place + 1) & (slots_.size() - 1); }

  /// Steps from slot `from` on to slot `to`.
  std::size_t distance(std::size_t from, std::size_t to) const {
    return (to - from) & (slots_.size() - 1);
  }

  std::size_t homeOf(Bits bits, unsigned length) const {
    return Traits::hash(bits, length) & (slots_.size() - 1);
  }

  /// The slot that holds the prefix, else the free one where it would go.
  std::size_t placeOf(Bits bits, unsigned length) const {
    std::size_t place = homeOf(bits, length);
    while (slots_[place].length != kFree &&
           (slots_[place].length != length || slots_[place].bits != bits)) {
      place = after(place);
    }
    return place;
  }

  std::size_t noteOf(Bits bits, std::size_t level) const {
    const unsigned length = Traits::kLevels[level];
    return Traits::hash(Traits::masked(bits, length), length) & (notes_[level].size() - 1);
  }

  void note(Bits bits, unsigned length) {
    std::size_t level = 0;
    while (length < Traits::kLevels[level]) {
      ++level;
    }
    notes_[level][noteOf(bits, level)].add(length - Traits::kLevels[level]);
  }

  /// Makes all slots and notes anew, empty.
  void slotCountIs(std::size_t count) {
    slots_.assign(count, {});
    for (std::vector<LengthSet>& notes : notes_) {
      notes.assign(count / kSlotsPerNote, {});
    }
  }

  void grow() {
    const std::vector<Slot> old = std::exchange(slots_, {});
    slotCountIs(old.size() * 2);
    for (const Slot& slot : old) {
      if (slot.length != kFree) {
        slots_[placeOf(slot.bits, slot.length)] = slot;
        note(slot.bits, slot.length);
      }
    }
  }

  std::vector<Slot> slots_;
  std::size_t size_ = 0;
  std::array<std::vector<LengthSet>, kLevels> notes_;
};

namespace {

/// Calls `use(table, bits)` with the family's table and `address` as its key.
template <typename Ipv4, typename Ipv6, typename Use>
auto inFamily(
    Family family, const std::array<std::uint8_t, 16>& address, Ipv4& ipv4, Ipv6& ipv6, Use use) {
  const AddressBits bits = AddressBits::of(address);
  return family == Family::ipv4 ? use(ipv4, KeyTraits<std::uint32_t>::of(bits))
                                : use(ipv6, KeyTraits<AddressBits>::of(bits));
}

}  // namespace

ReferenceTrie::ReferenceTrie()
    : ipv4_(std::make_unique<PrefixHashTable<std::uint32_t>>()),
      ipv6_(std::make_unique<PrefixHashTable<AddressBits>>()) {}

ReferenceTrie::~ReferenceTrie() = default;
ReferenceTrie::ReferenceTrie(ReferenceTrie&&) noexcept = default;
ReferenceTrie& ReferenceTrie::operator=(ReferenceTrie&&) noexcept = default;

bool ReferenceTrie::insert(const RoutePrefix& prefix, Value value) {
  return inFamily(prefix.family, prefix.address, *ipv4_, *ipv6_,
                  [&](auto& table, auto bits) { return table.insert(bits, prefix.length, value); });
}

bool ReferenceTrie::erase(const RoutePrefix& prefix) {
  return inFamily(prefix.family, prefix.address, *ipv4_, *ipv6_,
                  [&](auto& table, auto bits) { return table.erase(bits, prefix.length); });
}

std::optional<ReferenceTrie::Value> ReferenceTrie::find(const RoutePrefix& prefix) const {
  return inFamily(prefix.family, prefix.address, *ipv4_, *ipv6_, [&](auto& table, auto bits) {
    const Value* value = table.find(bits, prefix.length);
    return value ? std::optional<Value>(*value) : std::nullopt;
  });
}

std::optional<ReferenceTrie::Match> ReferenceTrie::longestMatch(const IpAddress& address) const {
  std::optional<Match> longest;
  inFamily(address.family, address.bytes, *ipv4_, *ipv6_, [&](auto& table, auto bits) {
    table.visitCovering(bits, [&](const Match& match) {
      longest = match;
      return true;
    });
  });
  return longest;
}

std::vector<ReferenceTrie::Match> ReferenceTrie::covering(const IpAddress& address) const {
  std::vector<Match> all;
  inFamily(address.family, address.bytes, *ipv4_, *ipv6_, [&](auto& table, auto bits) {
    table.visitCovering(bits, [&](const Match& match) {
      all.push_back(match);
      return false;
    });
  });
  return all;
}

std::size_t ReferenceTrie::size(Family family) const {
  return family == Family::ipv4 ? ipv4_->size() : ipv6_->size();
}

}  // namespace Quarle::Agent
