#include "agent/TileWindow.h"

#include <algorithm>
#include <utility>

// Which tile is shown does not matter to the engine, only that it is one. A tile is kept for as
// long as possible: the others' blocks keep going back to them meanwhile, so that a tile which
// comes next has had time to gather room in larger pieces.

namespace Quarle::Agent {

namespace {

using Tarnlet::ConfigBase;
using Tarnlet::LpmSm;
using Tarnlet::PrefixTableConfig;

/// Slots of the largest sub-trie with leaves of `stride` bits in a row of the table.
U32 largestSubTrie(const PrefixTableConfig& table, U32 stride) {
  // A stride that is longer than every prefix of the sub-trie makes it give up its branch.
  const U32 branchLen = stride > table.tread() ? 0 : table.tread();
  const U32 entrySize = table.entrySize();
  const U32 leaves = entrySize > branchLen ? (entrySize - branchLen) / stride : 0;
  // There are no more prefixes than that below one branch.
  return stride < 8 ? std::min(leaves, (U32{1} << stride) - 1) : leaves;
}

/// The smallest of the tiles' limits on a block; they have one and the same.
U32 allowedBlock(const std::vector<TileWindow::Tile>& tiles, U32 wanted) {
  for (const TileWindow::Tile& tile : tiles) {
    wanted = std::min(wanted, tile.allocator->maxBlkSz());
  }
  return wanted;
}

}  // namespace

U32 largestNhiBlock(const ConfigBase& config) {
  if (!config.supportMultiNhiEntriesPerSubTrie()) {
    return 1;
  }
  U32 slots = 1;
  for (const auto& table : config.prefixTableConfigCollection()) {
    for (const auto& stride : config.availableStrideCollection()) {
      if (stride.key != 0) {
        slots = std::max(slots, largestSubTrie(*table.value, stride.key));
      }
    }
  }
  const U32 pairs = config.nhiPairPerEntry();
  return (slots + pairs - 1) / pairs;
}

TileWindow::TileWindow(LpmSm::Ptr sm) : sm_(std::move(sm)) {
  for (const auto& tile : sm_->nhiAllocatorCollection()) {
    tiles_.push_back({.index = tile.memberKey(), .allocator = tile.value});
    capacity_ += tile.value->entriesCapacity();
  }
  std::sort(tiles_.begin(), tiles_.end(),
            [](const Tile& a, const Tile& b) { return a.index.value() < b.index.value(); });
  largestBlock_ = allowedBlock(tiles_, largestNhiBlock(*sm_->config()));
}

TileWindow::~TileWindow() { widen(); }

void TileWindow::choose() {
  if (tiles_.empty()) {
    return;
  }
  // Someone has looked meanwhile: that shall make no difference.
  if (shown_ == nullptr && canServe(tiles_[position_])) {
    show(position_);
    return;
  }
  // From the present tile on, so that among equals it stays.
  std::size_t best = position_;
  for (std::size_t i = 1; i < tiles_.size(); ++i) {
    const std::size_t other = (position_ + i) % tiles_.size();
    if (rank(tiles_[other]) > rank(tiles_[best])) {
      best = other;
    }
  }
  show(best);
}

bool TileWindow::canServe(const Tile& tile) const {
  return tile.allocator->canAlloc(largestBlock_);
}

std::pair<bool, U32> TileWindow::rank(const Tile& tile) const {
  return {canServe(tile), tile.allocator->freeEntries()};
}

void TileWindow::show(std::size_t position) {
  const Tile& tile = tiles_[position];
  if (shown_ == tile.allocator.get()) {
    return;
  }
  if (shown_ == nullptr) {
    sm_->nhiAllocatorDelAll();
  } else {
    sm_->nhiAllocatorDel(tiles_[position_].index);
  }
  sm_->nhiAllocatorIs(tile.index, tile.allocator);
  position_ = position;
  shown_ = tile.allocator.get();
}

void TileWindow::widen() {
  if (shown_ == nullptr) {
    return;
  }
  for (const Tile& tile : tiles_) {
    sm_->nhiAllocatorIs(tile.index, tile.allocator);
  }
  shown_ = nullptr;
}

U64 TileWindow::freeEntries() const {
  U64 sum = 0;
  for (const Tile& tile : tiles_) {
    sum += tile.allocator->freeEntries();
  }
  return sum;
}

}  // namespace Quarle::Agent
