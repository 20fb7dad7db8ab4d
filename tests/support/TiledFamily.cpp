#include "tests/support/TiledFamily.h"

#include <set>
#include <utility>

#include "tests/support/CommandText.h"
#include "tests/support/EngineAudit.h"

namespace Quarle::Tarnlet::Testing {

TiledFamily::TiledFamily(const ChipShape& shape,
                         Tiles tiles,
                         const Agent::HeadroomOptions& headroom)
    : shape_(shape),
      headroom_(headroom),
      config_(makeConfig(shape)),
      status_(statusFactory("status")),
      sm_(lpmSmFactory("sm", config_, status_, nullptr)),
      hardware_(shape) {
  for (const auto& tile : sm_->nhiAllocatorCollection()) {
    allocators_[tile.memberKey().value()] = tile.value;
  }
  if (tiles == Tiles::oneInView) {
    windowAnew();
  }
}

void TiledFamily::windowAnew() {
  room_.reset();
  window_.reset();
  window_.emplace(sm_);
  room_.emplace(*window_, headroom_);
}

LpmPrefix::Ptr TiledFamily::prefixOf(const Key& key) {
  const U32 vrf = static_cast<U32>(key.bytes[0] << 8 | key.bytes[1]);
  const U8 length = static_cast<U8>(key.len - Key::kVrf);
  if (shape_.longKey) {
    Corsel::Ip6Prefix::Bytes address{};
    std::copy(key.bytes.begin() + 2, key.bytes.end(), address.begin());
    return dynamic_cast<ConfigV6&>(*config_).lpmPrefixIs({vrf, Corsel::Ip6Prefix(address, length)});
  }
  U32 address = 0;
  for (U32 i = 2; i < 6; ++i) {
    address = address << 8 | key.bytes[i];
  }
  return dynamic_cast<ConfigV4&>(*config_).lpmPrefixIs({vrf, Corsel::Prefix(address, length)});
}

void TiledFamily::narrow() {
  if (window_) {
    window_->narrow();
  }
}

bool TiledFamily::installed(const LpmPrefix::Ptr& prefix) const {
  return sm_->prefixToSubTrieCollection().isMember(prefix);
}

std::string TiledFamily::route(const Key& key, NextHopBlock block) {
  const LpmPrefix::Ptr prefix = prefixOf(key);
  const bool update = installed(prefix);
  narrow();
  if (room_ && !(update ? room_->forUpdate(prefix) : room_->forNewRoute())) {
    return "headroom";
  }
  config_->requestIs(prefix, block);
  carryOut();
  if (status_->prefixToNextHopBlock(prefix) == block) {
    routes_[key] = block;
    return update ? "updated" : "placed";
  }
  narrow();
  if (update) {
    config_->requestIs(prefix, routes_.at(key));
  } else {
    config_->requestDel(prefix);
  }
  carryOut();
  return "refused";
}

std::string TiledFamily::withdraw(const Key& key) {
  const LpmPrefix::Ptr prefix = prefixOf(key);
  if (!installed(prefix)) {
    return "absent";
  }
  narrow();
  if (room_ && !room_->forDelete(prefix)) {
    return "headroom";
  }
  config_->requestDel(prefix);
  carryOut();
  routes_.erase(key);
  return "withdrawn";
}

void TiledFamily::carryOut() {
  while (const CommandBase::Ptr command = status_->pendingCmdDeq()) {
    const std::string fault = hardware_.apply(*command);
    commandFaults_ += fault.empty() ? "" : fault + "\n";
  }
}

std::string TiledFamily::lookup(const std::string& address) const {
  const Hardware::Answer answer = hardware_.lookup(key(address));
  if (answer.ambiguous) {
    return answer.text();
  }
  return answer.block == NextHopBlock() ? "none" : std::to_string(answer.block.base().value());
}

std::string TiledFamily::block(const std::string& prefix) {
  const SubTrie::Ptr row = sm_->prefixToSubTrie(prefixOf(key(prefix)));
  if (row == nullptr) {
    return "-";
  }
  std::string place = "no block";
  if (const auto* member = sm_->nhiBaseIdxToBlkCollection().find(row->nhiBaseIdx())) {
    for (const auto& [tile, allocator] : allocators_) {
      // The block itself comes back from its own tile alone, and unchanged.
      const Brumel::BFA::Blk& blk = *member->value;
      if (allocator->realloc(blk.offset(), blk.blkSz()).get() == &blk) {
        place = std::to_string(tile) + ":" + std::to_string(blk.offset());
      }
    }
  }
  return textOf(row->nhiBaseIdx()) + " in " + place;
}

std::string TiledFamily::faults() { return commandFaults_ + blockFaults() + rowFaults(); }

std::string TiledFamily::blockFaults() {
  std::string faults;
  std::map<std::pair<U8, U32>, U32> extents;
  U64 used = 0;
  for (const auto& member : sm_->nhiBaseIdxToBlkCollection()) {
    const NhiTableIdx name = member.memberKey();
    const Brumel::BFA::Blk& blk = *member.value;
    used += blk.blkSz();
    const auto allocator = allocators_.find(name.tile().value());
    if (allocator == allocators_.end() || blk.offset() != name.offset() ||
        allocator->second->realloc(blk.offset(), blk.blkSz()).get() != &blk) {
      faults += "block " + textOf(name) + " lies elsewhere\n";
    }
    extents[{name.tile().value(), name.offset()}] = blk.blkSz();
  }
  // As the chip has them: by name.
  const std::pair<const std::pair<U8, U32>, U32>* before = nullptr;
  for (const auto& extent : extents) {
    if (before != nullptr && before->first.first == extent.first.first &&
        before->first.second + before->second > extent.first.second) {
      faults += "blocks overlap in tile " + std::to_string(extent.first.first) + " at " +
                std::to_string(extent.first.second) + "\n";
    }
    before = &extent;
  }
  std::set<NhiTableIdx> bases;
  for (const auto& info : sm_->sharedNhiCollection()) {
    if (!bases.insert(info.value->nhiBaseIdx()).second) {
      faults += "two contents at " + textOf(info.value->nhiBaseIdx()) + "\n";
    }
  }
  if (sm_->nhiBaseIdxToBlks() != sm_->sharedNhis()) {
    faults += std::to_string(sm_->nhiBaseIdxToBlks()) + " blocks for " +
              std::to_string(sm_->sharedNhis()) + " contents\n";
  }
  U64 free = 0;
  U64 capacity = 0;
  for (const auto& [tile, allocator] : allocators_) {
    free += allocator->freeEntries();
    capacity += allocator->entriesCapacity();
  }
  if (used + free != capacity) {
    faults += std::to_string(used) + " entries used, " + std::to_string(free) + " free of " +
              std::to_string(capacity) + "\n";
  }
  if (window_ && (window_->freeEntries() != free || window_->capacity() != capacity)) {
    faults += "the window counts " + std::to_string(window_->freeEntries()) + " free of " +
              std::to_string(window_->capacity()) + ", expected " + std::to_string(free) + " of " +
              std::to_string(capacity) + "\n";
  }
  return faults;
}

std::string TiledFamily::rowFaults() const {
  std::string faults;
  std::size_t shown = 0;
  for (const auto& [place, row] : hardware_.rows()) {
    for (U32 slot = 0; slot < row.leaves.size(); ++slot) {
      if (!row.leaves[slot]) {
        continue;
      }
      ++shown;
      const Key prefix = row.prefix(slot);
      const auto route = routes_.find(prefix);
      const NextHopBlock seen = hardware_.pairOf(row, slot);
      if (route == routes_.end() || route->second != seen) {
        faults += textOf(prefix) + " leads to " + textOf(seen) + ", expected " +
                  (route == routes_.end() ? "no such route" : textOf(route->second)) + "\n";
      }
    }
  }
  if (shown != routes_.size()) {
    faults += std::to_string(shown) + " routes in the chip, expected " +
              std::to_string(routes_.size()) + "\n";
  }
  return faults;
}

std::string TiledFamily::thoroughFaults() {
  if (window_) {
    window_->widen();
  }
  Routes routes;
  for (const auto& [prefix, block] : routes_) {
    routes.add(prefix, block);
  }
  return faults() + compare(routes, hardware_) + audit(*sm_, hardware_, routes);
}

U32 TiledFamily::fill() const {
  U64 free = 0;
  U64 capacity = 0;
  for (const auto& [tile, allocator] : allocators_) {
    free += allocator->freeEntries();
    capacity += allocator->entriesCapacity();
  }
  return static_cast<U32>(100 * (capacity - free) / capacity);
}

}  // namespace Quarle::Tarnlet::Testing
