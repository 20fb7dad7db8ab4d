#include "agent/restart/RowJudge.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using XdkSim::LpmKey;

constexpr U32 kKeySize48 = 0;
constexpr U32 kKeySize144 = 2;
// The chip's code for one leaf field per slot.
constexpr U32 kSparseMode = 1;

/// Slots that are in use up to the last one of `slots`.
U32 usedOf(U32 slots) { return static_cast<U32>(std::bit_width(slots)); }

bool hasBitsAboveBranch(const xpLpmPrefixEntry& entry) {
  for (U32 i = 0; i < xpLpmPrefixEntry::kBranchBytes; ++i) {
    const U32 inByte = std::min(U32{entry.branchLen} - std::min(U32{entry.branchLen}, i * 8), 8U);
    if (entry.branch[i] >> inByte != 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

const RowJudge::Verdict& RowJudge::judge(const Tarnlet::PrefixTableConfig& table,
                                         U32 row,
                                         const xpLpmPrefixEntry& entry) {
  verdict_.prefixes.clear();
  verdict_.slots = 0;
  verdict_.repeated = 0;
  verdict_.hiddenLeaves = false;
  verdict_.strayBits = false;
  const U32 entrySize = table.entrySize();
  verdict_.fault = headerFault(entry, entrySize);
  if (verdict_.fault) {
    return verdict_;
  }
  const U32 slots = std::min(kMaxSlots, (entrySize - entry.branchLen) / entry.stride);
  verdict_.fault = readLeaves(entry, slots);
  // Prefixes in front of a leaf that is none are judged before it.
  if (verdict_.slots != 0) {
    if (const auto misplaced = placeFault(table, row, entry.branchLen)) {
      verdict_.fault = misplaced;
    }
  }
  if (!verdict_.fault && verdict_.slots != 0) {
    verdict_.fault = blockFault(entry);
  }
  if (!verdict_.fault) {
    noteRepeated(entry);
    verdict_.strayBits = hasBitsAboveBranch(entry);
    for (U32 slot = slots; slot < xpLpmPrefixEntry::kLeaves; ++slot) {
      verdict_.hiddenLeaves = verdict_.hiddenLeaves || !leafOf(entry, slot).empty();
    }
  }
  return verdict_;
}

std::optional<RowFault> RowJudge::headerFault(const xpLpmPrefixEntry& entry, U32 entrySize) const {
  const bool isShort = config_.keyType() == Tarnlet::keyShort48b;
  if (entry.keySize != (isShort ? kKeySize48 : kKeySize144)) {
    return RowFault::wrongKeySize;
  }
  if (entry.mode != kSparseMode) {
    return RowFault::wrongMode;
  }
  if (U64{entry.branchLen} + entry.stride > entrySize) {
    return RowFault::tooLarge;
  }
  if (entry.stride == 0) {
    return RowFault::strideZero;
  }
  // A wide row has room for a branch that no key has.
  if (entry.branchLen > LpmKey::kBits) {
    return RowFault::badLength;
  }
  return std::nullopt;
}

/// Fills in the prefixes and their slots.
std::optional<RowFault> RowJudge::readLeaves(const xpLpmPrefixEntry& entry, U32 slots) {
  const LpmKey branch = branchKeyOf(entry);
  for (U32 slot = 0; slot < slots; ++slot) {
    const Leaf leaf = leafOf(entry, slot);
    if (leaf.empty()) {
      continue;
    }
    if (leaf.bits() >= entry.stride) {
      return RowFault::wideLeaf;
    }
    const U32 length = entry.branchLen + leaf.bits();
    if (length < Tarnlet::kVrfBits || length > config_.keyLength()) {
      return RowFault::badLength;
    }
    verdict_.prefixes.push_back(prefixOf(branch, entry.branchLen, leaf));
    verdict_.slots |= 1U << slot;
  }
  return std::nullopt;
}

/// Whether the prefixes belong into this row. All of them share the branch; where that covers the
/// hashed bits, one speaks for all.
std::optional<RowFault> RowJudge::placeFault(const Tarnlet::PrefixTableConfig& table,
                                             U32 row,
                                             U32 branchLen) const {
  const U32 tread = table.tread();
  const std::size_t count = branchLen >= tread ? 1 : verdict_.prefixes.size();
  for (std::size_t i = 0; i < count; ++i) {
    if (table.hashFunc(objectOf(verdict_.prefixes[i])) != row) {
      return RowFault::wrongHash;
    }
  }
  if (branchLen >= tread) {
    return std::nullopt;
  }
  // The chip hashes the bits of the address: of a shorter prefix it would serve a part, and a row
  // with two such fronts cannot move.
  const LpmKey front = verdict_.prefixes.front().key.prefix(tread);
  for (const RowPrefix& prefix : verdict_.prefixes) {
    if (prefix.length < tread || prefix.key.prefix(tread) != front) {
      return RowFault::treadNotCovered;
    }
  }
  return std::nullopt;
}

std::optional<RowFault> RowJudge::blockFault(const xpLpmPrefixEntry& entry) const {
  if (entry.nhiTile >= config_.nhiAvailableTiles()) {
    return RowFault::noTile;
  }
  const U32 pairs = config_.nhiPairPerEntry();
  const U64 entries = (usedOf(verdict_.slots) + pairs - 1) / pairs;
  const U32 limit = config_.nhiEntriesPerTile();
  if (entry.nhiOffset >= limit || entries + entry.nhiOffset > limit) {
    return RowFault::blockOutOfBound;
  }
  return std::nullopt;
}

void RowJudge::noteRepeated(const xpLpmPrefixEntry& entry) {
  for (U32 left = verdict_.slots; left != 0; left &= left - 1) {
    const U32 slot = static_cast<U32>(std::countr_zero(left));
    const Leaf leaf = leafOf(entry, slot);
    for (U32 later = left & (left - 1); later != 0; later &= later - 1) {
      const U32 other = static_cast<U32>(std::countr_zero(later));
      if (leafOf(entry, other) == leaf) {
        verdict_.repeated |= 1U << other;
      }
    }
  }
}

LpmPrefix::Ptr RowJudge::objectOf(const RowPrefix& prefix) const {
  const RouteKey key = routeKeyOf(family_, prefix.key, prefix.length);
  const auto& bytes = key.prefix.address;
  if (family_ == Family::ipv4) {
    const U32 address = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | bytes[3];
    return Tarnlet::lpmPrefixV4Factory({key.vrf, Corsel::Prefix(address, key.prefix.length)});
  }
  return Tarnlet::lpmPrefixV6Factory({key.vrf, Corsel::Ip6Prefix(bytes, key.prefix.length)});
}

xpLpmPrefixEntry closedUp(const xpLpmPrefixEntry& entry, U32 slots, U32 tile, U32 offset) {
  xpLpmPrefixEntry result;
  result.keySize = entry.keySize;
  result.mode = entry.mode;
  result.branchLen = entry.branchLen;
  result.stride = entry.stride;
  result.nhiTile = tile;
  result.nhiOffset = offset;
  const LpmKey branch = branchKeyOf(entry);
  U32 left = entry.branchLen;
  for (U32 i = 0; left != 0; ++i) {
    const U32 count = std::min(left, 8U);
    left -= count;
    result.branch[i] = static_cast<U8>(branch.bits(left, count));
  }
  U32 to = 0;
  for (U32 from = slots; from != 0; from &= from - 1, ++to) {
    const Leaf leaf = leafOf(entry, static_cast<U32>(std::countr_zero(from)));
    result.leafVal[to] = leaf.low;
    result.leafValHigh[to] = leaf.high;
  }
  return result;
}

}  // namespace Quarle::Agent
