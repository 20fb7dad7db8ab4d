#include <algorithm>
#include <utility>

#include "tests/property/NaiveEngine.h"
#include "tests/support/CommandText.h"

namespace Quarle::Tarnlet::Testing {

// --- NHI blocks

U8 NaiveEngine::blockSize(U32 slots) const {
  return static_cast<U8>((slots + shape_.pairsPerEntry - 1) / shape_.pairsPerEntry);
}

NaiveEngine::Content NaiveEngine::contentOf(const SubTrie& subTrie) const {
  Content content;
  for (U8 slot = 0; slot < subTrie.maxSlot; ++slot) {
    const auto member = subTrie.prefixes.find(slot);
    content.push_back(member == subTrie.prefixes.end() ? NextHopBlock() : wanted(member->second));
  }
  return content;
}

bool NaiveEngine::updateNhi(SubTrie& subTrie) {
  const Content content = contentOf(subTrie);
  if (content == subTrie.content) {
    return true;
  }
  std::optional<U32> base;
  for (const auto& [offset, block] : tile_) {
    if (block.content == content) {
      base = offset;
    }
  }
  if (!base) {
    base = allocate(subTrie.maxSlot);
    if (!base) {
      return false;
    }
    tile_[*base].content = content;
  }
  release(subTrie);
  tile_[*base].users.insert(&subTrie);
  subTrie.base = base;
  subTrie.content = content;
  return true;
}

void NaiveEngine::release(SubTrie& subTrie) {
  if (subTrie.content.empty()) {
    return;
  }
  Block& block = tile_.at(*subTrie.base);
  block.users.erase(&subTrie);
  if (block.users.empty()) {
    tile_.erase(*subTrie.base);
  }
}

U32 NaiveEngine::freeEntries() const {
  U32 used = 0;
  for (const auto& [offset, block] : tile_) {
    used += block.size;
  }
  return shape_.entriesPerTile - used;
}

/// The lowest of the smallest holes that are large enough.
std::optional<U32> NaiveEngine::bestFit(U32 size) const {
  std::optional<U32> best;
  U32 bestSize = 0;
  U32 from = 0;
  const auto hole = [&](U32 end) {
    if (end - from >= size && (!best || end - from < bestSize)) {
      best = from;
      bestSize = end - from;
    }
  };
  for (const auto& [offset, block] : tile_) {
    hole(offset);
    from = offset + block.size;
  }
  hole(shape_.entriesPerTile);
  return best;
}

std::optional<U32> NaiveEngine::allocate(U32 slots) {
  const U32 size = blockSize(slots);
  if (freeEntries() < size) {
    return std::nullopt;
  }
  if (!bestFit(size)) {
    compactTile();
  }
  const U32 offset = *bestFit(size);
  tile_[offset].size = size;
  return offset;
}

void NaiveEngine::compactTile() {
  std::map<U32, Block> before = std::exchange(tile_, {});
  U32 to = 0;
  for (auto& [offset, block] : before) {
    const U32 newOffset = to;
    to += block.size;
    if (newOffset != offset) {
      ++moves_;
      freeOrder_ = freeOrder_ || block.users.size() > 1;
      // The sub-trie that is being changed first, the others in any order.
      std::vector<SubTrie*> users(block.users.begin(), block.users.end());
      std::stable_partition(users.begin(), users.end(), [this](const SubTrie* user) {
        return contentOf(*user) != user->content;
      });
      for (SubTrie* user : users) {
        user->base = newOffset;
        writeNhi(*user);
        writePrefix(*user);
      }
    }
    tile_[newOffset] = std::move(block);
  }
}

// --- commands

void NaiveEngine::writeNhi(const SubTrie& subTrie) {
  const Content content = contentOf(subTrie);
  for (U32 slot = 0; slot < content.size(); ++slot) {
    if (slot % shape_.pairsPerEntry == 0) {
      commands_ += (slot == 0 ? "" : "\n") + std::string("nhi 0:") +
                   std::to_string(*subTrie.base + slot / shape_.pairsPerEntry) + " =";
    }
    commands_ += " " + textOf(content[slot]);
  }
  commands_ += "\n";
}

void NaiveEngine::writePrefix(const SubTrie& subTrie) {
  std::string list;
  for (U8 slot = 0; slot < subTrie.maxSlot; ++slot) {
    const auto member = subTrie.prefixes.find(slot);
    list += (slot == 0 ? "" : ", ") +
            (member == subTrie.prefixes.end() ? std::string("-") : textOf(member->second));
  }
  writeRow(subTrie.prefixes.empty() ? "clear" : "prefix", subTrie.table->shape.id, subTrie.row,
           subTrie, list);
}

void NaiveEngine::writeClear(U8 table, U32 row, const SubTrie& subTrie) {
  std::string list;
  for (U8 slot = 0; slot < subTrie.maxSlot; ++slot) {
    list += slot == 0 ? "-" : ", -";
  }
  writeRow("clear", table, row, subTrie, list);
}

void NaiveEngine::writeRow(
    const std::string& what, U8 table, U32 row, const SubTrie& subTrie, const std::string& list) {
  Key branch{.longKey = shape_.longKey, .len = 144, .bytes = subTrie.branch};
  commands_ += what + " t" + std::to_string(table) + "[" + std::to_string(row) +
               "] branch=" + textOf(branch.cut(subTrie.branchLen)) +
               " stride=" + std::to_string(subTrie.stride) + " [" + list +
               "] nhi=" + (subTrie.base ? "0:" + std::to_string(*subTrie.base) : "none") + "\n";
}

std::string NaiveEngine::takeCommands() { return std::exchange(commands_, {}); }

bool NaiveEngine::takeFreeOrder() { return std::exchange(freeOrder_, false); }

}  // namespace Quarle::Tarnlet::Testing
