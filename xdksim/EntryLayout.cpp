#include "xdksim/EntryLayout.h"

#include <algorithm>

namespace XdkSim {

void setBranch(xpLpmPrefixEntry& entry, const LpmKey& key, U32 branchLen) {
  entry.branchLen = branchLen;
  U32 left = branchLen;
  for (U32 i = 0; i < xpLpmPrefixEntry::kBranchBytes; ++i) {
    const U32 count = std::min(left, 8U);
    left -= count;
    entry.branch[i] = static_cast<U8>(key.bits(left, count));
  }
}

LpmKey branchOf(const xpLpmPrefixEntry& entry) {
  LpmKey key;
  U32 left = std::min(U32{entry.branchLen}, LpmKey::kBits);
  for (U32 i = 0; left != 0; ++i) {
    const U32 count = std::min(left, 8U);
    left -= count;
    key.bitsIs(left, count, entry.branch[i]);
  }
  return key;
}

Leaf leafOf(const LpmKey& key, U32 length, U32 branchLen) {
  const U32 count = length - branchLen;
  if (count < 64) {
    return {.low = U64{1} << count | key.bits(branchLen, count), .high = 0};
  }
  return {.low = key.bits(length - 64, 64),
          .high = U64{1} << (count - 64) | key.bits(branchLen, count - 64)};
}

void setLeaf(xpLpmPrefixEntry& entry, U32 slot, const LpmKey& key, U32 length) {
  const Leaf leaf = leafOf(key, length, entry.branchLen);
  entry.leafVal[slot] = leaf.low;
  entry.leafValHigh[slot] = leaf.high;
}

}  // namespace XdkSim
