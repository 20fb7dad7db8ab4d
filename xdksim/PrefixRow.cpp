#include "xdksim/PrefixRow.h"

#include <array>
#include <cstring>

namespace XdkSim {

namespace {

/// The branch bytes of a record as words, least significant first.
using BranchWords = std::array<U64, 4>;

XP_STATUS tooWide(std::string& error, const std::string& what, const std::string& expected) {
  error = what + ", expected " + expected;
  return XP_ERR_FIELD_TOO_WIDE;
}

XP_STATUS checkField(const char* name, U32 value, RowField field, std::string& error) {
  const U64 highest = lowBits(field.count);
  return value <= highest ? XP_NO_ERR
                          : tooWide(error, name + (" " + std::to_string(value)),
                                    "at most " + std::to_string(highest));
}

XP_STATUS checkHeader(const xpLpmPrefixEntry& entry, std::string& error) {
  struct Check {
    const char* name;
    U32 value;
    RowField field;
  };

  const Check checks[] = {
      {"key size code", entry.keySize, kKeySizeField},
      {"mode code", entry.mode, kModeField},
      {"branch length", entry.branchLen, kBranchLenField},
      {"stride", entry.stride, kStrideField},
      {"NHI tile", entry.nhiTile, kNhiTileField},
      {"NHI offset", entry.nhiOffset, kNhiOffsetField},
  };
  for (const Check& check : checks) {
    if (checkField(check.name, check.value, check.field, error) != XP_NO_ERR) {
      return XP_ERR_FIELD_TOO_WIDE;
    }
  }
  // A leaf is handed over in two words, so no chip offers more.
  constexpr U32 kWidestLeaf = 128;
  return entry.stride <= kWidestLeaf ? XP_NO_ERR
                                     : tooWide(error, "stride " + std::to_string(entry.stride),
                                               "at most " + std::to_string(kWidestLeaf));
}

BranchWords branchWords(const xpLpmPrefixEntry& entry) {
  BranchWords words{};
  std::memcpy(words.data(), entry.branch, sizeof entry.branch);
  return words;
}

XP_STATUS checkBranch(const xpLpmPrefixEntry& entry, U32 width, std::string& error) {
  const U32 usable = width - kHeaderBits;
  if (entry.branchLen + entry.stride > usable) {
    return tooWide(
        error,
        "branch length " + std::to_string(entry.branchLen) + " + stride " +
            std::to_string(entry.stride),
        "at most " + std::to_string(usable) + " bits in a row of " + std::to_string(width));
  }
  const BranchWords words = branchWords(entry);
  for (U32 i = 0; i < words.size(); ++i) {
    const U32 count = entry.branchLen > i * 64 ? entry.branchLen - i * 64 : 0;
    if ((words[i] & ~lowBits(count)) != 0) {
      return tooWide(error, "branch has bits above bit " + std::to_string(entry.branchLen),
                     "no more than its length");
    }
  }
  return XP_NO_ERR;
}

XP_STATUS checkLeaves(const xpLpmPrefixEntry& entry, U32 slots, std::string& error) {
  for (U32 slot = 0; slot < xpLpmPrefixEntry::kLeaves; ++slot) {
    const Leaf leaf{.low = entry.leafVal[slot], .high = entry.leafValHigh[slot]};
    if (leaf.empty()) {
      continue;
    }
    if (slot >= slots) {
      return tooWide(error, "leaf in slot " + std::to_string(slot),
                     std::to_string(slots) + " slots with branch length " +
                         std::to_string(entry.branchLen) + " and stride " +
                         std::to_string(entry.stride));
    }
    if (leaf.length() >= entry.stride) {
      return tooWide(
          error,
          "leaf of " + std::to_string(leaf.length() + 1) + " bits in slot " + std::to_string(slot),
          "at most the stride of " + std::to_string(entry.stride));
    }
  }
  return XP_NO_ERR;
}

void putField(U64* words, RowField field, U32 value) {
  rowBitsIs(words, field.first, field.count, value);
}

}  // namespace

XP_STATUS packPrefixRow(const xpLpmPrefixEntry& entry, U32 width, U64* words, std::string& error) {
  if (checkHeader(entry, error) != XP_NO_ERR || checkBranch(entry, width, error) != XP_NO_ERR) {
    return XP_ERR_FIELD_TOO_WIDE;
  }
  std::array<U64, 4> packed{};
  putField(packed.data(), kKeySizeField, entry.keySize);
  putField(packed.data(), kModeField, entry.mode);
  putField(packed.data(), kBranchLenField, entry.branchLen);
  putField(packed.data(), kStrideField, entry.stride);
  putField(packed.data(), kNhiTileField, entry.nhiTile);
  putField(packed.data(), kNhiOffsetField, entry.nhiOffset);
  const U32 slots = PrefixRow(packed.data(), width).slots();
  if (checkLeaves(entry, slots, error) != XP_NO_ERR) {
    return XP_ERR_FIELD_TOO_WIDE;
  }

  // Everything fits from here on.
  const BranchWords branch = branchWords(entry);
  for (U32 done = 0; done < entry.branchLen; done += 64) {
    const U32 count = std::min(entry.branchLen - done, 64U);
    rowBitsIs(packed.data(), kHeaderBits + done, count, branch[done / 64]);
  }
  // A copy: the record may stand at an odd address, and `min` takes references.
  const U32 stride = entry.stride;
  const U32 lowWidth = std::min(stride, 64U);
  for (U32 slot = 0; slot < slots; ++slot) {
    const U32 first = kHeaderBits + entry.branchLen + slot * stride;
    rowBitsIs(packed.data(), first, lowWidth, entry.leafVal[slot]);
    rowBitsIs(packed.data(), first + lowWidth, stride - lowWidth, entry.leafValHigh[slot]);
  }
  std::memcpy(words, packed.data(), width / 8);
  return XP_NO_ERR;
}

xpLpmPrefixEntry unpackPrefixRow(const PrefixRow& row) {
  xpLpmPrefixEntry entry;
  entry.keySize = row.keySize();
  entry.mode = row.mode();
  entry.branchLen = row.branchLen();
  entry.stride = row.stride();
  entry.nhiTile = row.nhiTile();
  entry.nhiOffset = row.nhiOffset();
  // A damaged length may claim more bits than the row has.
  const U32 branchLen = std::min(row.branchLen(), row.usable());
  BranchWords branch{};
  for (U32 done = 0; done < branchLen; done += 64) {
    branch[done / 64] = row.branchBits(done, std::min(branchLen - done, 64U));
  }
  std::memcpy(entry.branch, branch.data(), sizeof entry.branch);
  const U32 slots = row.slots();
  for (U32 slot = 0; slot < slots; ++slot) {
    const Leaf leaf = row.leaf(slot);
    entry.leafVal[slot] = leaf.low;
    entry.leafValHigh[slot] = leaf.high;
  }
  return entry;
}

}  // namespace XdkSim
