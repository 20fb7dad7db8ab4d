#include "agent/NhiRoom.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::LpmSm;
using Tarnlet::SubTrie;

// What the number of blocks may claim of a small memory at the most: one part in eight.
constexpr U64 kPartForBlocks = 8;

U64 headroom(const TileWindow& window, const HeadroomOptions& options) {
  if (!(options.share >= 0.0 && options.share < 1.0)) {
    throw std::invalid_argument("NHI headroom: a share of " + std::to_string(options.share) +
                                ", expected at least 0 and less than 1");
  }
  const U64 capacity = window.capacity();
  const auto share = static_cast<U64>(std::ceil(options.share * static_cast<double>(capacity)));
  const U64 blocks = U64{options.minLargestBlocks} * window.largestBlock();
  return std::max(share, std::min(blocks, capacity / kPartForBlocks));
}

/// The sub-trie that holds the prefix; null when it is not installed.
const SubTrie* holderOf(const LpmSm& sm, const LpmPrefix::Ptr& prefix) {
  const auto* member = sm.prefixToSubTrieCollection().find(prefix);
  return member == nullptr ? nullptr : member->value.get();
}

}  // namespace

NhiRoom::NhiRoom(const TileWindow& window, const HeadroomOptions& options)
    : window_(window),
      pairsPerEntry_(window.engine().config()->nhiPairPerEntry()),
      entriesForRoutes_(headroom(window, options)) {}

bool NhiRoom::forGroupMove() const {
  constexpr U64 kBlocks = 3;
  const U64 block = window_.largestBlock();
  // Wherever they lie: each tile may have all but one entry of a block to spare.
  const U64 entries = window_.tiles().size() * (block - 1) + 1 + (kBlocks - 1) * block;
  return freeIsAtLeast(std::max(entries, entriesForRoutes_));
}

bool NhiRoom::forUpdate(const LpmPrefix::Ptr& prefix) const {
  const bool plenty = freeIsAtLeast(entriesForUpdates());
  if (plenty && forAnyBlock()) {
    return true;
  }
  const LpmSm& sm = window_.engine();
  const SubTrie* holder = holderOf(sm, prefix);
  if (holder == nullptr) {
    return plenty;
  }
  const auto* info = sm.sharedNhiCollection().find(holder->nhiInfoKey());
  const bool alone = info != nullptr && info->value->subTrieCount() == 1;
  return (plenty || alone) && forBlock(holder->maxPrefixSlot());
}

bool NhiRoom::forDelete(const LpmPrefix::Ptr& prefix) const {
  if (forAnyBlock()) {
    return true;
  }
  const SubTrie* holder = holderOf(window_.engine(), prefix);
  return holder == nullptr || forBlock(holder->prefixs() - 1);
}

bool NhiRoom::forBlock(U32 slots) const {
  const U32 entries = (slots + pairsPerEntry_ - 1) / pairsPerEntry_;
  return window_.freeEntriesShown() >= entries;
}

bool NhiRoom::freeIsAtLeast(U64 entries) const {
  // Each request since has taken no more than one largest block, and so has the one that was under
  // way at the count.
  const U64 taken = (window_.requests() - countedAt_ + 1) * window_.largestBlock();
  if (counted_ >= entries + taken) {
    return true;
  }
  counted_ = window_.freeEntries();
  countedAt_ = window_.requests();
  return counted_ >= entries;
}

bool NhiRoom::forAnyBlock() const { return window_.freeEntriesShown() >= window_.largestBlock(); }

}  // namespace Quarle::Agent
