#pragma once

#include <bit>

#include "framework/Xdk/XpExport.h"
#include "framework/Xdk/XpLpmEntry.h"
#include "xdksim/LpmKey.h"

/// How keys are spelled in an `xpLpmPrefixEntry`: the branch as a right-aligned integer, and each
/// leaf as the bits behind the branch under a stop bit.
namespace XdkSim {

/// The code of the one leaf layout that the chip looks up: one field per slot.
inline constexpr U32 kSparseModeCode = 1;

/// The key size code for keys of `keyWidth` bits.
constexpr U32 keySizeCode(U32 keyWidth) { return keyWidth == 48 ? 0 : 2; }

/// Makes the first `branchLen` bits of `key` the branch of `entry`.
///
/// REQUIRES: `branchLen` <= 144.
XDK_API void setBranch(xpLpmPrefixEntry& entry, const LpmKey& key, U32 branchLen);

/// The branch of `entry`, left aligned, zeros behind. Of a corrupt branch longer than a key only
/// the last 144 bits are taken.
XDK_API LpmKey branchOf(const xpLpmPrefixEntry& entry);

/// The content of one leaf field; both words zero is an empty slot.
struct Leaf {
  U64 low = 0;
  U64 high = 0;

  bool empty() const { return low == 0 && high == 0; }

  /// Key bits that the leaf adds behind the branch: the position of the stop bit.
  ///
  /// REQUIRES: the leaf is not empty.
  U32 length() const {
    return static_cast<U32>(high != 0 ? std::bit_width(high) + 63 : std::bit_width(low) - 1);
  }
};

/// The leaf for the prefix of `length` bits of `key` behind a branch of `branchLen` bits.
///
/// REQUIRES: `branchLen` <= `length` <= `branchLen` + 127, `length` <= 144.
XDK_API Leaf leafOf(const LpmKey& key, U32 length, U32 branchLen);

/// Puts the prefix of `length` bits of `key` into slot `slot` of `entry`.
///
/// REQUIRES: the branch of `entry` is set and begins `key`; `slot` < 36; as `leafOf`.
XDK_API void setLeaf(xpLpmPrefixEntry& entry, U32 slot, const LpmKey& key, U32 length);

}  // namespace XdkSim
