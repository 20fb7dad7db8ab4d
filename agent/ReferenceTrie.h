#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "agent/source/RouteEntry.h"

namespace Quarle::Agent {

template <typename Bits>
class PrefixHashTable;

/// The longest-prefix-match table that every other is judged by: the prefixes of one VRF, both
/// families, with a number each. It shares nothing with the library and is meant to be seen to be
/// right: a trie whose nodes lie in one hash table per family under (address, length), searched
/// from the longest length to the shortest.
///
/// Written by whoever requests routes, read by whoever verifies lookups.
class ReferenceTrie {
 public:
  using Value = std::uint32_t;

  struct Match {
    std::uint8_t length = 0;
    Value value = 0;

    bool operator==(const Match&) const = default;
  };

  ReferenceTrie();
  ~ReferenceTrie();
  ReferenceTrie(ReferenceTrie&&) noexcept;
  ReferenceTrie& operator=(ReferenceTrie&&) noexcept;

  /// Gives `prefix` the number `value`; true when the prefix is new.
  bool insert(const RoutePrefix& prefix, Value value);

  /// Takes `prefix` out; false when it was not there.
  bool erase(const RoutePrefix& prefix);

  /// The number of exactly `prefix`.
  [[nodiscard]] std::optional<Value> find(const RoutePrefix& prefix) const;

  /// The longest prefix that covers `address`.
  [[nodiscard]] std::optional<Match> longestMatch(const IpAddress& address) const;

  /// All prefixes that cover `address`, the longest first.
  [[nodiscard]] std::vector<Match> covering(const IpAddress& address) const;

  std::size_t size(Family family) const;

 private:
  std::unique_ptr<PrefixHashTable<std::uint32_t>> ipv4_;
  std::unique_ptr<PrefixHashTable<AddressBits>> ipv6_;
};

}  // namespace Quarle::Agent
