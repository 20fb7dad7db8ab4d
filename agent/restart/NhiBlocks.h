#pragma once

#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "framework/Vellor/Types.h"
#include "framework/Xdk/Xdk.h"

namespace Quarle::Agent {

/// Where the NHI blocks of one family lie, what they hold, and which row should read which.
///
/// A block is what a row reads: the entries from its base on, as many as its last used slot needs.
/// The library knows blocks by their content, and rows of one content share one block; so after
/// settle() each content has one block, and no two blocks have an entry in common.
///
/// Order of calls: blockOf() for each row, as often as its slots change; userIs() once for the
/// block that it ends with; settle(); then homeOf().
class NhiBlocks {
 public:
  using Id = U32;

  struct Pair {
    U32 base = 0;
    U32 size = 0;

    bool operator==(const Pair&) const = default;
  };

  struct Shape {
    U32 tiles = 0;
    U32 entriesPerTile = 0;
    U32 pairsPerEntry = 0;
  };

  struct Place {
    U32 tile = 0;
    U32 offset = 0;

    bool operator==(const Place&) const = default;
  };

  /// Fills `entry` from an NHI row.
  using ReadEntry = std::function<void(Place, xpLpmNhiEntry&)>;

  /// REQUIRES: none of the shape's numbers is 0; there are no more than 10 pairs.
  NhiBlocks(const Shape& shape, ReadEntry read);

  /// The block that a row with these slots in use reads at `place`, read from the chip when it is
  /// asked for first. Its entries count as read from now on.
  ///
  /// REQUIRES: some slot is in use, of the first 27; the block lies in its tile.
  Id blockOf(Place place, U32 slots);

  /// Slots of the block whose pair leads nowhere, by `isNowhere`.
  U32 slotsWhere(Id block, const std::function<bool(const Pair&)>& isNowhere) const;

  void userIs(Id block) { ++blocks_[block].users; }

  /// Chooses a block for each content that has users. A block without holes that has its entries
  /// and its content to itself stays. Of the others the largest are given a place first, since a
  /// run of free entries for them is the hardest to find, and then those with most users. A content
  /// left over gets a block of entries that no row reads, at `isNew`, if there is a run of them.
  void settle();

  /// The block that the users of `block` should read; nothing when there was no room for one.
  std::optional<Id> homeOf(Id block) const;

  Place placeOf(Id block) const;

  /// Whether settle() put it into free entries.
  bool isNew(Id block) const { return blocks_[block].isNew; }

  /// The same, once: the caller writes it now.
  bool takeUnwritten(Id block) { return std::exchange(blocks_[block].isUnwritten, false); }

  /// Whether the pairs behind the last used slot, up to the end of the last entry, are null: as the
  /// library writes them.
  bool endsInNullPairs(Id block) const { return blocks_[block].endsInNullPairs; }

  /// The block's entries as they should be.
  std::vector<xpLpmNhiEntry> recordsOf(Id block) const;

 private:
  static constexpr Id kNone = ~Id{0};

  struct Block {
    U32 base = 0;
    U32 slots = 0;
    U32 entries = 0;
    U32 users = 0;
    // In `pairs_`, those of used slots alone.
    U32 firstPair = 0;
    U32 pairs = 0;
    U64 hash = 0;
    bool endsInNullPairs = true;
    bool isNew = false;
    bool isUnwritten = false;
    // Shares entries with another block that has users.
    bool overlaps = false;
    // The next one at the same base.
    Id nextAtBase = kNone;
    Id home = kNone;
  };

  std::span<const Pair> contentOf(const Block& block) const {
    return {pairs_.data() + block.firstPair, block.pairs};
  }

  bool hasHoles(const Block& block) const { return (block.slots & (block.slots + 1)) != 0; }

  Id add(U32 base, U32 slots);
  void read(Block& block);
  void findOverlaps();
  std::vector<Id> byContent() const;
  bool isSettledAlone(std::span<const Id> sameContent) const;
  bool isUntaken(const Block& block) const;
  void take(const Block& block);
  std::optional<U32> freeRun(U32 entries);
  void giveNewHome(std::span<const Id> sameContent);

  const Shape shape_;
  const ReadEntry readEntry_;
  std::vector<Block> blocks_;
  std::vector<Pair> pairs_;
  // By base, a tile's entries behind those of the tile before.
  std::vector<Id> firstAtBase_;
  // Entries that some row reads now, and those of the blocks chosen so far.
  std::vector<bool> isRead_;
  std::vector<bool> chosen_;
  // Where the search for free entries goes on.
  U32 searchFrom_ = 0;
};

}  // namespace Quarle::Agent
