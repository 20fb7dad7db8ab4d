#include "agent/restart/NhiBlocks.h"

#include <algorithm>
#include <bit>

#include "agent/source/Random.h"

namespace Quarle::Agent {

namespace {

constexpr U32 kNullBase = 0xffffffff;
constexpr U32 kNullSize = 0xffff;
constexpr NhiBlocks::Pair kNullPair{.base = kNullBase, .size = kNullSize};

NhiBlocks::Pair pairOf(const xpLpmNhiEntry& entry, U32 index) {
  // As the walk takes it over.
  return {.base = entry.base[index], .size = static_cast<U16>(entry.size[index])};
}

}  // namespace

NhiBlocks::NhiBlocks(const Shape& shape, ReadEntry read)
    : shape_(shape), readEntry_(std::move(read)) {
  const std::size_t entries = std::size_t{shape.tiles} * shape.entriesPerTile;
  firstAtBase_.assign(entries, kNone);
  isRead_.assign(entries, false);
  chosen_.assign(entries, false);
}

NhiBlocks::Id NhiBlocks::blockOf(Place place, U32 slots) {
  const U32 base = place.tile * shape_.entriesPerTile + place.offset;
  for (Id id = firstAtBase_[base]; id != kNone; id = blocks_[id].nextAtBase) {
    if (blocks_[id].slots == slots) {
      return id;
    }
  }
  const Id id = add(base, slots);
  Block& block = blocks_[id];
  block.nextAtBase = std::exchange(firstAtBase_[base], id);
  read(block);
  std::fill_n(isRead_.begin() + base, block.entries, true);
  return id;
}

NhiBlocks::Id NhiBlocks::add(U32 base, U32 slots) {
  Block block;
  block.base = base;
  block.slots = slots;
  const U32 used = static_cast<U32>(std::bit_width(slots));
  block.entries = (used + shape_.pairsPerEntry - 1) / shape_.pairsPerEntry;
  blocks_.push_back(block);
  return static_cast<Id>(blocks_.size() - 1);
}

void NhiBlocks::read(Block& block) {
  block.firstPair = static_cast<U32>(pairs_.size());
  const Place place{.tile = block.base / shape_.entriesPerTile,
                    .offset = block.base % shape_.entriesPerTile};
  U32 slot = 0;
  for (U32 i = 0; i < block.entries; ++i) {
    xpLpmNhiEntry entry;
    readEntry_({.tile = place.tile, .offset = place.offset + i}, entry);
    for (U32 index = 0; index < shape_.pairsPerEntry; ++index, ++slot) {
      const Pair pair = pairOf(entry, index);
      if (slot < 32 && (block.slots >> slot & 1) != 0) {
        pairs_.push_back(pair);
        block.hash = mixed(mixed(block.hash + pair.base + 1) + pair.size);
      } else if (pair != kNullPair) {
        block.endsInNullPairs = false;
      }
    }
  }
  block.pairs = static_cast<U32>(pairs_.size()) - block.firstPair;
}

U32 NhiBlocks::slotsWhere(Id id, const std::function<bool(const Pair&)>& isNowhere) const {
  const Block& block = blocks_[id];
  U32 found = 0;
  U32 left = block.slots;
  for (const Pair& pair : contentOf(block)) {
    if (isNowhere(pair)) {
      found |= left & -left;
    }
    left &= left - 1;
  }
  return found;
}

void NhiBlocks::settle() {
  findOverlaps();
  const std::vector<Id> ids = byContent();
  std::vector<std::span<const Id>> contents;
  for (std::size_t first = 0, last = 0; first < ids.size(); first = last) {
    const Block& block = blocks_[ids[first]];
    for (last = first; last < ids.size() && blocks_[ids[last]].hash == block.hash &&
                       std::ranges::equal(contentOf(blocks_[ids[last]]), contentOf(block));) {
      ++last;
    }
    contents.push_back(std::span(ids).subspan(first, last - first));
  }

  std::vector<std::span<const Id>> unsettled;
  std::vector<std::pair<Id, std::size_t>> candidates;
  for (const std::span<const Id>& sameContent : contents) {
    if (isSettledAlone(sameContent)) {
      Block& block = blocks_[sameContent.front()];
      block.home = sameContent.front();
      take(block);
      continue;
    }
    for (const Id id : sameContent) {
      if (!hasHoles(blocks_[id])) {
        candidates.emplace_back(id, unsettled.size());
      }
    }
    unsettled.push_back(sameContent);
  }

  std::sort(candidates.begin(), candidates.end(), [this](const auto& a, const auto& b) {
    const Block& blockA = blocks_[a.first];
    const Block& blockB = blocks_[b.first];
    if (blockA.entries != blockB.entries) {
      return blockA.entries > blockB.entries;
    }
    if (blockA.users != blockB.users) {
      return blockA.users > blockB.users;
    }
    return blockA.base != blockB.base ? blockA.base < blockB.base : blockA.pairs > blockB.pairs;
  });
  for (const auto& [id, content] : candidates) {
    const std::span<const Id> sameContent = unsettled[content];
    if (blocks_[sameContent.front()].home == kNone && isUntaken(blocks_[id])) {
      take(blocks_[id]);
      for (const Id user : sameContent) {
        blocks_[user].home = id;
      }
    }
  }

  std::stable_sort(unsettled.begin(), unsettled.end(), [this](const auto& a, const auto& b) {
    return blocks_[a.front()].pairs > blocks_[b.front()].pairs;
  });
  for (const std::span<const Id>& sameContent : unsettled) {
    if (blocks_[sameContent.front()].home == kNone) {
      giveNewHome(sameContent);
    }
  }
}

void NhiBlocks::findOverlaps() {
  std::vector<Id> owner(isRead_.size(), kNone);
  for (Id id = 0; id < blocks_.size(); ++id) {
    Block& block = blocks_[id];
    if (block.users == 0) {
      continue;
    }
    for (U32 entry = block.base; entry < block.base + block.entries; ++entry) {
      if (owner[entry] == kNone) {
        owner[entry] = id;
      } else {
        block.overlaps = true;
        blocks_[owner[entry]].overlaps = true;
      }
    }
  }
}

/// Blocks with users, those of one content side by side.
std::vector<NhiBlocks::Id> NhiBlocks::byContent() const {
  std::vector<Id> ids;
  for (Id id = 0; id < blocks_.size(); ++id) {
    if (blocks_[id].users != 0) {
      ids.push_back(id);
    }
  }
  const auto key = [](const Pair& pair) { return U64{pair.base} << 32 | pair.size; };
  std::sort(ids.begin(), ids.end(), [this, key](Id a, Id b) {
    if (blocks_[a].hash != blocks_[b].hash) {
      return blocks_[a].hash < blocks_[b].hash;
    }
    return std::ranges::lexicographical_compare(contentOf(blocks_[a]), contentOf(blocks_[b]), {},
                                                key, key);
  });
  return ids;
}

bool NhiBlocks::isSettledAlone(std::span<const Id> sameContent) const {
  const Block& block = blocks_[sameContent.front()];
  return sameContent.size() == 1 && !block.overlaps && !hasHoles(block);
}

bool NhiBlocks::isUntaken(const Block& block) const {
  const auto first = chosen_.begin() + block.base;
  return std::find(first, first + block.entries, true) == first + block.entries;
}

void NhiBlocks::take(const Block& block) {
  std::fill_n(chosen_.begin() + block.base, block.entries, true);
}

void NhiBlocks::giveNewHome(std::span<const Id> sameContent) {
  const U32 pairs = blocks_[sameContent.front()].pairs;
  const U32 entries = (pairs + shape_.pairsPerEntry - 1) / shape_.pairsPerEntry;
  const std::optional<U32> base = freeRun(entries);
  if (!base) {
    return;
  }
  const Id id = add(*base, (U32{1} << pairs) - 1);
  Block& block = blocks_[id];
  block.firstPair = blocks_[sameContent.front()].firstPair;
  block.pairs = pairs;
  block.isNew = true;
  block.isUnwritten = true;
  block.home = id;
  std::fill_n(isRead_.begin() + block.base, block.entries, true);
  for (const Id user : sameContent) {
    blocks_[user].home = id;
  }
}

/// A run of entries within one tile that no row reads, the first one behind the last found.
std::optional<U32> NhiBlocks::freeRun(U32 entries) {
  const U32 all = static_cast<U32>(isRead_.size());
  U32 length = 0;
  for (U32 step = 0; step < all + entries; ++step) {
    const U32 entry = (searchFrom_ + step) % all;
    if (entry % shape_.entriesPerTile == 0) {
      length = 0;
    }
    length = isRead_[entry] ? 0 : length + 1;
    if (length == entries) {
      searchFrom_ = (entry + 1) % all;
      return entry + 1 - entries;
    }
  }
  return std::nullopt;
}

std::optional<NhiBlocks::Id> NhiBlocks::homeOf(Id block) const {
  const Id home = blocks_[block].home;
  return home == kNone ? std::nullopt : std::optional(home);
}

NhiBlocks::Place NhiBlocks::placeOf(Id block) const {
  return {.tile = blocks_[block].base / shape_.entriesPerTile,
          .offset = blocks_[block].base % shape_.entriesPerTile};
}

std::vector<xpLpmNhiEntry> NhiBlocks::recordsOf(Id id) const {
  const Block& block = blocks_[id];
  std::vector<xpLpmNhiEntry> records(block.entries);
  for (xpLpmNhiEntry& record : records) {
    for (U32 index = 0; index < xpLpmNhiEntry::kPairs; ++index) {
      record.base[index] = kNullBase;
      record.size[index] = kNullSize;
    }
  }
  U32 slot = 0;
  for (const Pair& pair : contentOf(block)) {
    xpLpmNhiEntry& record = records[slot / shape_.pairsPerEntry];
    record.base[slot % shape_.pairsPerEntry] = pair.base;
    record.size[slot % shape_.pairsPerEntry] = pair.size;
    ++slot;
  }
  return records;
}

}  // namespace Quarle::Agent
