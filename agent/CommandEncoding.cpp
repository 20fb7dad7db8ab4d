#include "agent/CommandEncoding.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::SubTrieBranch;

constexpr U32 kKeySize48 = 0;
constexpr U32 kKeySize144 = 2;
// The chip's code for one leaf field per slot, which the library calls `modeSparse` and numbers 0.
constexpr U32 kSparseMode = 1;

void checkCount(const char* what, U32 count, U32 limit) {
  if (count > limit) {
    throw std::length_error("a command with " + std::to_string(count) + " " + what +
                            ", expected at most " + std::to_string(limit));
  }
}

/// Key bits `first` to `first + count - 1`, right aligned.
///
/// REQUIRES: `count` <= 64, `first + count` <= 144.
U64 keyBits(const SubTrieBranch& key, U32 first, U32 count) {
  if (count == 0) {
    return 0;
  }
  const U32 offset = first % 64;
  U64 value = key.u64(first / 64) << offset;
  if (offset + count > 64) {
    value |= key.u64(first / 64 + 1) >> (64 - offset);
  }
  return value >> (64 - count);
}

/// The branch as one integer, its last bit at bit 0 of the first byte. Bits of the key behind the
/// branch are undefined and never looked at.
void encodeBranch(const SubTrieBranch& branch, U32 branchLen, xpLpmPrefixEntry& entry) {
  entry.branchLen = branchLen;
  U32 left = branchLen;
  for (U32 i = 0; left != 0; ++i) {
    const U32 count = std::min(left, 8U);
    left -= count;
    entry.branch[i] = static_cast<U8>(keyBits(branch, left, count));
  }
}

/// The bits of the prefix behind the branch, under a stop bit that tells how many they are.
void encodeLeaf(const LpmPrefix& prefix, U32 slot, xpLpmPrefixEntry& entry) {
  const U8 len = prefix.len();
  const SubTrieBranch key = prefix.branch(len);
  const U32 count = len - entry.branchLen;
  if (count < 64) {
    entry.leafVal[slot] = U64{1} << count | keyBits(key, entry.branchLen, count);
    return;
  }
  entry.leafVal[slot] = keyBits(key, len - 64, 64);
  entry.leafValHigh[slot] = U64{1} << (count - 64) | keyBits(key, entry.branchLen, count - 64);
}

}  // namespace

void encode(const Tarnlet::PrefixCommand& command,
            Tarnlet::KeyType keyType,
            xpLpmPrefixEntry& entry) {
  entry = xpLpmPrefixEntry();
  const auto& slots = command.prefixList().prefixCollection();
  checkCount("slots", slots.count(), xpLpmPrefixEntry::kLeaves);
  bool used = false;
  for (U32 slot = 0; slot < slots.count(); ++slot) {
    const LpmPrefix* prefix = slots.nth(slot).get();
    if (prefix == nullptr) {
      continue;
    }
    if (!used) {
      used = true;
      encodeBranch(command.branch(), command.branchLen(), entry);
    }
    encodeLeaf(*prefix, slot, entry);
  }
  if (!used) {
    return;
  }
  entry.keySize = keyType == Tarnlet::keyShort48b ? kKeySize48 : kKeySize144;
  entry.mode = kSparseMode;
  entry.stride = command.stride();
  entry.nhiTile = command.nhiBaseIdx().tile().value();
  entry.nhiOffset = command.nhiBaseIdx().offset();
}

void encode(const Tarnlet::NhiCommand& command, xpLpmNhiEntry& entry) {
  const auto& blocks = command.nextHopBlockList().nextHopBlockCollection();
  checkCount("pairs", blocks.count(), xpLpmNhiEntry::kPairs);
  for (U32 pair = 0; pair < xpLpmNhiEntry::kPairs; ++pair) {
    const Tarnlet::NextHopBlock block =
        pair < blocks.count() ? blocks.nth(pair) : Tarnlet::NextHopBlock();
    entry.base[pair] = block.base().value();
    entry.size[pair] = block.size().value();
  }
}

}  // namespace Quarle::Agent
