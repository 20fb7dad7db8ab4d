#pragma once

#include <map>
#include <optional>
#include <unordered_set>
#include <vector>

#include "framework/Xdk/Xdk.h"
#include "xdksim/ChipProfile.h"

namespace Quarle::Agent {

/// A row of a prefix table.
struct RowPlace {
  U32 table = 0;
  U32 row = 0;

  auto operator<=>(const RowPlace&) const = default;
};

/// The NHI entries that a prefix row reads.
struct NhiRun {
  U32 tile = 0;
  U32 offset = 0;
  U32 entries = 0;

  bool operator==(const NhiRun&) const = default;

  bool holds(U32 itsTile, U32 entry) const {
    return tile == itsTile && entry >= offset && entry < offset + entries;
  }
};

/// Who reads what in one family's memories, backwards: from an NHI entry to the prefix rows that
/// read it, from a next-hop row to the NHI pairs that name it. Kept from the writes alone.
class NhiUsers {
 public:
  // Slots of the largest row, one pair to an entry.
  static constexpr U32 kMaxRun = xpLpmPrefixEntry::kLeaves;

  /// A pair that names a run of next-hop rows.
  struct Pair {
    U32 tile;
    U32 entry;
    U32 index;
  };

  explicit NhiUsers(const XdkSim::FamilyProfile& profile);

  /// The row reads these entries from now on, or none.
  void rowIs(const RowPlace& place, const std::optional<NhiRun>& run);

  /// What the row reads; nothing for an empty row.
  std::optional<NhiRun> runOf(const RowPlace& place) const;

  /// The rows that read the entry.
  std::vector<RowPlace> readers(U32 tile, U32 entry) const;

  /// The entry holds `now` instead of `before`.
  void entryIs(U32 tile, U32 entry, const xpLpmNhiEntry& before, const xpLpmNhiEntry& now);

  /// The pairs whose runs hold the next-hop row.
  std::vector<Pair> naming(U32 nextHopRow) const;

  U32 pairsPerEntry() const { return pairs_; }

 private:
  static constexpr U32 kNone = ~U32{0};
  // The longest run of next-hop rows.
  static constexpr U32 kMaxWays = 1024;

  /// A row in the ring of those that read the same block.
  struct Node {
    U32 previous = kNone;
    U32 next = kNone;
    U32 block = kNone;
    U32 entries = 0;
  };

  /// Where a pair stands, as one number.
  using PairId = U64;

  U32 idOf(const RowPlace& place) const { return firstRow_[place.table] + place.row; }

  RowPlace placeOf(U32 id) const;

  void unlink(U32 id);

  U32 pairs_;
  U32 entriesPerTile_;
  std::vector<U32> firstRow_;
  std::vector<Node> rows_;
  // By block: the first row that reads it.
  std::vector<U32> firstReader_;
  // By first next-hop row, then by size.
  std::map<std::pair<U32, U32>, std::unordered_set<PairId>> pairsByRun_;
};

}  // namespace Quarle::Agent
