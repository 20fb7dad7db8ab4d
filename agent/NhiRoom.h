#pragma once

#include "agent/TileWindow.h"
#include "framework/Vellor/Types.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// How much of a family's NHI memory is kept back from new routes.
struct HeadroomOptions {
  // Of all entries, at least 0 and below 1.
  double share = 0.02;
  // Never fewer entries than this many of the largest blocks take, as far as that is no more than
  // an eighth of the memory: a tiny chip takes routes too. Both 0: nothing is kept back.
  U32 minLargestBlocks = 64;
};

/// Whether there is NHI room for a request, told before the engine is asked.
///
/// The engine never rewrites a block where it stands. A change of a row therefore takes a new block
/// first, and frees the old one only when no other row shares it. So withdrawals and updates need
/// room, and can use it up: a hundred rows that share a block and are changed one by one end with a
/// hundred blocks. A withdrawal that finds none ends the process. Hence three levels:
///
///   new routes      stop while fewer than `entriesForRoutes` are free
///   updates         stop at half of that, unless the row has its block to itself: it gives back as
///                   much as it takes
///   withdrawals     go on while a tile can serve the one block that they need
///
/// Entries are counted over all tiles, while a block comes from one. With t tiles and blocks of up
/// to b entries, t * (b - 1) + 1 free entries are enough for one more block wherever they lie,
/// since a tile with enough free entries is compacted when they lie in pieces. An update leaves
/// more than that, with the default options on a chip of up to 31 tiles whose memory is no tiny
/// one; so every withdrawal finds its block until withdrawals alone have used up the difference.
/// One that does not has to wait until others have made room: those that empty a row need no block
/// at all.
///
/// The questions cost a few operations. The free entries are counted anew only when the blocks that
/// may have been taken since the last count could make a difference.
class NhiRoom {
 public:
  /// The window outlives the object. Raises `std::invalid_argument` for a share outside its range.
  explicit NhiRoom(const TileWindow& window, const HeadroomOptions& options = {});

  /// Whether a new route leaves enough for updates and withdrawals.
  bool forNewRoute() const { return freeIsAtLeast(entriesForRoutes_); }

  /// Whether all routes of a group can follow it to other rows of the next-hop table, row by row of
  /// the prefix tables. While one row changes, its old block, which other rows may share, the block
  /// of the rows that are done and two steps of its own may stand side by side: three more than
  /// before, whatever the options. When all have followed, as many stand as before.
  bool forGroupMove() const;

  /// Whether the installed prefix may be given other next hops.
  ///
  /// REQUIRES: the window is narrow for this request.
  bool forUpdate(const Tarnlet::LpmPrefix::Ptr& prefix) const;

  /// Whether the prefix can be withdrawn: without room the engine would end the process. True for a
  /// prefix that is not installed.
  ///
  /// REQUIRES: the window is narrow for this request.
  bool forDelete(const Tarnlet::LpmPrefix::Ptr& prefix) const;

  /// Whether the next request can have a block for this many slots.
  ///
  /// REQUIRES: the window is narrow for this request.
  bool forBlock(U32 slots) const;

  /// New routes stop below this many free entries; updates below half of it.
  U64 entriesForRoutes() const { return entriesForRoutes_; }

  U64 entriesForUpdates() const { return entriesForRoutes_ / 2; }

 private:
  /// Whether at least this many entries are free over all tiles.
  bool freeIsAtLeast(U64 entries) const;
  /// Whether the tile shown has room for any block.
  bool forAnyBlock() const;

  const TileWindow& window_;
  const U32 pairsPerEntry_;
  U64 entriesForRoutes_;
  // The free entries when they were last counted, and the window's requests by then.
  mutable U64 counted_ = 0;
  mutable U64 countedAt_ = 0;
};

}  // namespace Quarle::Agent
