#include "agent/Refusal.h"

#include <algorithm>

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::LpmSm;
using Tarnlet::PrefixTableConfig;
using Tarnlet::SubTrie;

/// What one table had against the prefix, the weightiest last.
enum class Obstacle : U8 { otherBranch, rowFull, nhiCapacityExceeded, nhiTableFull };

/// Whether the engine may put a prefix of `len` key bits into the table.
bool mayTake(const PrefixTableConfig& table, U8 leastTread, U32 len) {
  return table.tread() >= leastTread && table.tread() <= len;
}

bool nhiHasRoom(const LpmSm& sm, U32 slots) {
  const U32 pairs = sm.config()->nhiPairPerEntry();
  const U32 entries = (slots + pairs - 1) / pairs;
  const auto& allocators = sm.nhiAllocatorCollection();
  return std::any_of(allocators.begin(), allocators.end(),
                     [entries](const auto& tile) { return tile.value->freeEntries() >= entries; });
}

bool sameBranch(const SubTrie& subTrie, const LpmPrefix& prefix, U8 tread) {
  for (const auto& slot : subTrie.prefixCollection()) {
    if (slot.value != nullptr) {
      return slot.value->branch(tread) == prefix.branch(tread);
    }
  }
  return false;
}

Obstacle obstacleIn(const LpmSm& sm,
                    const Tarnlet::PrefixTable& table,
                    const LpmPrefix::Ptr& prefix) {
  const PrefixTableConfig& config = *table.tableConfig();
  const SubTrie::Ptr subTrie = table.subTrie(config.hashFunc(prefix));
  if (subTrie == nullptr) {
    return nhiHasRoom(sm, 1) ? Obstacle::rowFull : Obstacle::nhiTableFull;
  }
  if (!sameBranch(*subTrie, *prefix, config.tread())) {
    return Obstacle::otherBranch;
  }
  const U32 slots = U32{subTrie->maxPrefixSlot()} + 1;
  if (!nhiHasRoom(sm, slots)) {
    return Obstacle::nhiTableFull;
  }
  const bool oneEntryOnly = !sm.config()->supportMultiNhiEntriesPerSubTrie();
  return oneEntryOnly && slots > sm.config()->nhiPairPerEntry() ? Obstacle::nhiCapacityExceeded
                                                                : Obstacle::rowFull;
}

RefusalReason reasonOf(Obstacle obstacle) {
  switch (obstacle) {
    case Obstacle::otherBranch:
      return RefusalReason::noRow;
    case Obstacle::rowFull:
      return RefusalReason::rowFull;
    case Obstacle::nhiCapacityExceeded:
      return RefusalReason::nhiCapacityExceeded;
    case Obstacle::nhiTableFull:
      return RefusalReason::nhiTableFull;
  }
  return RefusalReason::invalid;
}

}  // namespace

const char* toText(RefusalReason reason) {
  switch (reason) {
    case RefusalReason::noRow:
      return "noRow";
    case RefusalReason::rowFull:
      return "rowFull";
    case RefusalReason::nhiTableFull:
      return "nhiTableFull";
    case RefusalReason::nhiCapacityExceeded:
      return "nhiCapacityExceeded";
    case RefusalReason::nextHopTableFull:
      return "nextHopTableFull";
    case RefusalReason::headroom:
      return "headroom";
    case RefusalReason::invalid:
      return "invalid";
  }
  return "unknown";
}

RefusalReason reasonOfRefusal(const LpmSm& sm, const LpmPrefix::Ptr& prefix) {
  const U8 len = prefix->len();
  const U8 leastTread = sm.config()->leastTreadForPrefixLen(len);
  Obstacle worst = Obstacle::otherBranch;
  for (const auto& table : sm.prefixTableCollection()) {
    if (mayTake(*table.value->tableConfig(), leastTread, len)) {
      worst = std::max(worst, obstacleIn(sm, *table.value, prefix));
    }
  }
  return reasonOf(worst);
}

}  // namespace Quarle::Agent
