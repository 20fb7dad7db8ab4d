#pragma once

#include <string>

#include "framework/Xdk/XpExport.h"
#include "framework/Xdk/XpLpmEntry.h"
#include "framework/Xdk/XpStatus.h"
#include "xdksim/ChipProfile.h"
#include "xdksim/RowBits.h"

namespace XdkSim {

/// One next-hop block as an NHI row holds it: a run of next-hop rows, or nothing.
struct NhiPair {
  static constexpr U32 kNullBase = 0xffffffff;
  static constexpr U32 kNullSize = 0xffff;

  U32 base = kNullBase;
  U32 size = kNullSize;

  bool operator==(const NhiPair&) const = default;

  bool null() const { return base == kNullBase && size == kNullSize; }
};

/// How pairs are packed into an NHI row of 128 bits: pair i at bit i times the pair width, the base
/// in its low bits, the size above.
///
/// All bits of a pair set is the chip's "no next hop"; it is handed over as the null pair, and no
/// other value may use it.
class XDK_API NhiLayout {
 public:
  static constexpr U32 kRowBits = 128;
  static constexpr U32 kRowWords = kRowBits / 64;

  /// REQUIRES: `profile` passed its checks.
  explicit NhiLayout(const NhiProfile& profile)
      : pairs_(profile.pairsPerEntry),
        pairWidth_(profile.pairWidth()),
        baseWidth_(profile.blockBaseWidth) {}

  U32 pairs() const { return pairs_; }

  U32 sizeWidth() const { return pairWidth_ - baseWidth_; }

  /// Pair `index` of the row at `words`.
  ///
  /// REQUIRES: `index` < `pairs()`.
  NhiPair pair(const U64* words, U32 index) const {
    const U64 packed = rowBits(words, index * pairWidth_, pairWidth_);
    if (packed == lowBits(pairWidth_)) {
      return {};
    }
    return {.base = static_cast<U32>(packed & lowBits(baseWidth_)),
            .size = static_cast<U32>(packed >> baseWidth_)};
  }

  /// Packs `entry` into the row at `words`. When a pair does not fit the row is left as it is,
  /// `error` is set to what and what was expected, and `XP_ERR_FIELD_TOO_WIDE` returned.
  XP_STATUS pack(const xpLpmNhiEntry& entry, U64* words, std::string& error) const;

  xpLpmNhiEntry unpack(const U64* words) const;

 private:
  XP_STATUS checkPair(U32 index, const NhiPair& pair, std::string& error) const;

  U32 pairs_;
  U32 pairWidth_;
  U32 baseWidth_;
};

}  // namespace XdkSim
