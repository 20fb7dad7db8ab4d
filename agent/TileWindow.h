#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "engine/TarnletSm.h"
#include "framework/Brumel/BestFitAllocator.h"
#include "framework/Vellor/Types.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// The largest NHI block, in entries, that a row of the family's tables can need, from the widths,
/// treads and strides of the configuration. At least 1.
///
/// REQUIRES: `nhiPairPerEntry` is not 0.
U32 largestNhiBlock(const Tarnlet::ConfigBase& config);

/// Shows the engine one NHI tile at a time.
///
/// The engine names a block after the tile where its walk over `nhiAllocator` begins, and carves it
/// from the last tile that can serve. With several tiles in that collection the two agree only as
/// long as every tile can serve and nobody else turns the rotation, which is one for the whole
/// process: a full tile, the other family's requests, a compaction or a restart make it hand out a
/// name twice. With one tile, name and place are the same tile's.
///
/// So the window takes all tiles but one out of the collection before each request. Blocks know
/// their tile by themselves and go back to it wherever it is held; only allocating, compacting and
/// the restart walk look at the collection. One request allocates at most one block.
///
/// Written by the owner of the engine: narrow() before every write to `request`, widen() before
/// anyone looks at the collection. A request that reaches the engine while the window is wide, the
/// ones that its constructor serves too, is outside of all this.
///
/// 1. Between narrow() and widen() exactly one tile is in the collection, else all are.
/// 2. While the window lives, each tile's blocks are named after it.
class TileWindow {
 public:
  struct Tile {
    Tarnlet::NhiTileIdx index;
    Brumel::BestFitAllocator::Ptr allocator;
  };

  /// Takes over the tiles that are in the collection now, and starts wide.
  explicit TileWindow(Tarnlet::LpmSm::Ptr sm);

  /// Puts all tiles back.
  ~TileWindow();

  TileWindow(const TileWindow&) = delete;
  TileWindow& operator=(const TileWindow&) = delete;

  /// Leaves one tile in the collection for the request that comes next, a withdrawal too. The tile
  /// of the last request stays while it can serve the largest block without a compaction, which is
  /// one look into its free runs. Else comes the one with most free entries that can; when none
  /// can, the one with most free entries, so that a block is refused only if no tile has room.
  void narrow() {
    ++requests_;
    if (shown_ == nullptr || !shown_->canAlloc(largestBlock_)) {
      choose();
    }
  }

  /// Puts all tiles into the collection, for summaries and whoever walks it.
  void widen();

  /// All tiles by rising index, whichever are in the collection.
  const std::vector<Tile>& tiles() const { return tiles_; }

  /// Over all tiles, counted anew: one addition a tile.
  U64 freeEntries() const;

  U64 capacity() const { return capacity_; }

  /// Free entries of the tile that is shown.
  ///
  /// REQUIRES: narrow() came after the last widen(), and there is a tile.
  U32 freeEntriesShown() const { return shown_->freeEntries(); }

  /// The largest block that a request can need, in entries, as far as a tile may hand it out.
  U32 largestBlock() const { return largestBlock_; }

  /// Calls of narrow() so far: an upper bound of the blocks taken.
  U64 requests() const { return requests_; }

  const Tarnlet::LpmSm& engine() const { return *sm_; }

 private:
  /// The slow part of narrow().
  void choose();
  /// Whether the tile has a run for the largest block.
  bool canServe(const Tile& tile) const;
  /// The tile of highest rank is the one to be shown.
  std::pair<bool, U32> rank(const Tile& tile) const;
  void show(std::size_t position);

  Tarnlet::LpmSm::Ptr sm_;
  std::vector<Tile> tiles_;
  U64 capacity_ = 0;
  U32 largestBlock_;
  U64 requests_ = 0;
  // Of the tile last shown, in `tiles_`.
  std::size_t position_ = 0;
  // Null while the window is wide.
  const Brumel::BestFitAllocator* shown_ = nullptr;
};

}  // namespace Quarle::Agent
