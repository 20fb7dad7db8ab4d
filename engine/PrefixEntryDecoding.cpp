#include "engine/PrefixEntryDecoding.h"

#include <algorithm>
#include <bit>

#include "engine/LpmSm.h"
#include "engine/RestartHelperBase.h"
#include "framework/Vellor/Invariant.h"
#include "framework/Xdk/Xdk.h"
#include "model/TraceUnits.h"

// A prefix table row back to what it was written from. Nothing of the row is believed: header,
// branch, leaves and NHI block are checked in this order, and what a refused row had created is
// given back. No sub-trie and no request exists yet, so a refusal leaves nothing behind.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 5;
constexpr U32 kWordBits = 64;
constexpr U32 kKeySize48 = 0;
constexpr U32 kKeySize144 = 2;
// The chip's code for one leaf field per slot, not the engine's number of `modeSparse`.
constexpr U32 kSparseMode = 1;
// The reader's own limit; a record has room for more.
constexpr U32 kMaxSlots = 27;

/// What is wrong with the fields in front of the branch; null when nothing is.
const char* headerFault(const xpLpmPrefixEntry& entry, KeyType keyType, U32 entrySize) {
  if (entry.keySize != (keyType == keyShort48b ? kKeySize48 : kKeySize144)) {
    return "wrong keySize";
  }
  if (entry.mode != kSparseMode) {
    return "wrong mode";
  }
  // The fields are as wide as their sum: a damaged row must not wrap into a sound one.
  if (U64{entry.branchLen} + entry.stride > entrySize) {
    return "branch length + stride too large";
  }
  if (entry.stride == 0) {
    return "stride is zero";
  }
  return nullptr;
}

/// From the right-aligned integer of the row, least significant byte first, to the left-aligned
/// key.
void decodeBranch(const xpLpmPrefixEntry& entry, SubTrieBranch& branch) {
  const U32 bytes = (entry.branchLen + 7) / 8;
  const U32 bitsInTop = entry.branchLen % 8 == 0 ? 8 : entry.branchLen % 8;
  for (U32 i = 0; i < bytes; ++i) {
    const U32 from = bytes - 1 - i;
    const U32 pair = U32{entry.branch[from]} << 8 | (from == 0 ? 0U : entry.branch[from - 1]);
    branch.u8Is(i, static_cast<U8>(pair >> bitsInTop));
  }
}

/// The steps that may refuse, as the reason why; null for a sound row. It has the name of the whole
/// since that is the function that its trace lines tell.
const char* parsePrefixTableEntry(const ConfigBase& config,
                                  RestartHelperBase& helper,
                                  const PrefixTableConfig& tableConfig,
                                  const xpLpmPrefixEntry& entry,
                                  U32 offset,
                                  SubTrieBranch& branch,
                                  std::vector<LpmPrefix::Ptr>& prefixes) {
  const U32 entrySize = tableConfig.entrySize();
  if (const char* fault = headerFault(entry, config.keyType(), entrySize)) {
    return fault;
  }
  decodeBranch(entry, branch);
  const U8 branchLen = static_cast<U8>(entry.branchLen);
  const U8 stride = static_cast<U8>(entry.stride);
  const U8 slotsInEntry = static_cast<U8>((entrySize - branchLen) / stride);
  const U32 numSlots = std::min<U32>(kMaxSlots, slotsInEntry);
  U32 used = 0;
  for (U32 slot = 0; slot < numSlots; ++slot) {
    const U64 leafVal = entry.leafVal[slot];
    const U64 leafValHigh = entry.leafValHigh[slot];
    if (leafVal == 0 && leafValHigh == 0) {
      prefixes.emplace_back();
      continue;
    }
    const LpmPrefix::Ptr prefix =
        helper.createPrefix(branch, branchLen, leafVal, leafValHigh, stride);
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " found prefix " << prefix->stringValue());
    if (config.request(prefix) != NextHopBlock()) {
      // Not appended: it is the object of another row, which must not lose it.
      return "duplicate prefixes";
    }
    prefixes.push_back(prefix);
    if (tableConfig.hashFunc(prefix) != offset) {
      return "prefix hash does not match with offset";
    }
    used = slot + 1;
  }
  prefixes.resize(used);
  if (used == 0) {
    return nullptr;
  }

  const U32 tile = entry.nhiTile;
  const U32 nhiOffset = entry.nhiOffset;
  if (tile >= config.nhiAvailableTiles()) {
    return "NHI tile doesn't exist";
  }
  const U32 pairs = config.nhiPairPerEntry();
  const U32 blkSize = used / pairs + (used % pairs != 0 ? 1 : 0);
  const U32 limit = config.nhiEntriesPerTile();
  if (nhiOffset >= limit || blkSize + nhiOffset > limit) {
    VELLOR_TRACE(
        tarnletSmTrace, kTraceLevel,
        " nhiBlkSize " << blkSize << " nhiOffset " << nhiOffset << " nhiEntriesPerTile " << limit);
    return "NHI block out of bound";
  }
  VELLOR_ASSERT(helper.lpmSm()->nhiAllocator(static_cast<U8>(tile)), "nhiAllocator");
  return nullptr;
}

}  // namespace

bool parsePrefixTableEntry(const ConfigBase::Ptr& config,
                           const Vellor::Ptr<RestartHelperBase>& helper,
                           const PrefixTableConfig::Ptr& tableConfig,
                           const xpLpmPrefixEntry& entry,
                           U32 offset,
                           SubTrieBranch& branch,
                           std::vector<LpmPrefix::Ptr>& prefixes) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               "parsePrefixTableEntry"
                   << " offset " << offset << " branch 0: " << branch.word0() << " 1: "
                   << branch.word1() << " 2: " << branch.word2() << " 3: " << branch.word3()
                   << " 4: " << branch.word4() << " tableId " << tableConfig->tableId());
  VELLOR_ASSERT(prefixes.empty(), "prefixes.size() == 0");
  const char* reason =
      parsePrefixTableEntry(*config, *helper, *tableConfig, entry, offset, branch, prefixes);
  const bool valid = reason == nullptr;
  if (valid && prefixes.empty()) {
    return true;
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " valid " << valid << " reason " << (valid ? "" : reason));
  if (!valid) {
    for (const LpmPrefix::Ptr& prefix : prefixes) {
      if (prefix) {
        helper->deletePrefix(prefix);
      }
    }
  }
  return valid;
}

U8 combineBranchAndLeaf(SubTrieBranch& branch, U8 branchLen, U64& leafVal, U64& leafValHigh) {
  VELLOR_ASSERT(leafVal || leafValHigh, "leafVal || leafValHigh");
  // The stop bit stands above the leaf's bits and tells how many they are.
  const bool wide = leafValHigh != 0;
  U64& top = wide ? leafValHigh : leafVal;
  const U32 bitsInTop = static_cast<U32>(std::bit_width(top)) - 1;
  top ^= U64{1} << bitsInTop;
  const U32 bits = wide ? kWordBits + bitsInTop : bitsInTop;

  // `top` now holds the leaf's first bits, which go where the branch ends.
  const U32 word = branchLen / kWordBits;
  const U32 room = kWordBits - branchLen % kWordBits;
  if (room >= bitsInTop) {
    const U32 shift = room - bitsInTop;
    if (shift == kWordBits) {
      // No first bits and a whole word of room: one word up. The low word stays, and its copy ends
      // behind the key.
      leafValHigh = leafVal;
    } else if (shift != 0) {
      leafValHigh = leafValHigh << shift | leafVal >> (kWordBits - shift);
      leafVal <<= shift;
    }
    branch.u64Is(word, branch.u64(word) | top);
    if (wide) {
      branch.u64Is(word + 1, leafVal);
    }
  } else {
    const U32 shift = bitsInTop - room;
    const U64 spill = leafVal << (kWordBits - shift);
    leafVal = leafVal >> shift | leafValHigh << (kWordBits - shift);
    leafValHigh >>= shift;
    branch.u64Is(word, branch.u64(word) | top);
    if (wide) {
      branch.u64Is(word + 1, leafVal);
      branch.u64Is(word + 2, spill);
    } else {
      branch.u64Is(word + 1, spill);
    }
  }
  return static_cast<U8>(branchLen + bits);
}

}  // namespace Quarle::Tarnlet
