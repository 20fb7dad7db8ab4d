#include "xdksim/NhiRow.h"

#include <array>
#include <cstring>

namespace XdkSim {

XP_STATUS NhiLayout::checkPair(U32 index, const NhiPair& pair, std::string& error) const {
  const std::string name = "pair " + std::to_string(index);
  if (index >= pairs_) {
    // Records are longer than rows; what lies behind the row's pairs must be unused.
    if (pair.null() || (pair.base == 0 && pair.size == 0)) {
      return XP_NO_ERR;
    }
    error = name + " is in use, expected no more than " + std::to_string(pairs_) + " pairs";
    return XP_ERR_FIELD_TOO_WIDE;
  }
  if (pair.null()) {
    return XP_NO_ERR;
  }
  if (pair.base > lowBits(baseWidth_)) {
    error = name + " has base " + std::to_string(pair.base) + ", expected at most " +
            std::to_string(lowBits(baseWidth_));
    return XP_ERR_FIELD_TOO_WIDE;
  }
  if (pair.size > lowBits(sizeWidth())) {
    error = name + " has size " + std::to_string(pair.size) + ", expected at most " +
            std::to_string(lowBits(sizeWidth()));
    return XP_ERR_FIELD_TOO_WIDE;
  }
  if (pair.base == lowBits(baseWidth_) && pair.size == lowBits(sizeWidth())) {
    error = name + " has base " + std::to_string(pair.base) + " and size " +
            std::to_string(pair.size) +
            ", expected anything but all bits set, which is no next hop";
    return XP_ERR_FIELD_TOO_WIDE;
  }
  return XP_NO_ERR;
}

XP_STATUS NhiLayout::pack(const xpLpmNhiEntry& entry, U64* words, std::string& error) const {
  std::array<U64, kRowWords> packed{};
  for (U32 i = 0; i < xpLpmNhiEntry::kPairs; ++i) {
    const NhiPair pair{.base = entry.base[i], .size = entry.size[i]};
    if (checkPair(i, pair, error) != XP_NO_ERR) {
      return XP_ERR_FIELD_TOO_WIDE;
    }
    if (i < pairs_) {
      const U64 bits = pair.null() ? lowBits(pairWidth_) : U64{pair.size} << baseWidth_ | pair.base;
      rowBitsIs(packed.data(), i * pairWidth_, pairWidth_, bits);
    }
  }
  std::memcpy(words, packed.data(), sizeof packed);
  return XP_NO_ERR;
}

xpLpmNhiEntry NhiLayout::unpack(const U64* words) const {
  xpLpmNhiEntry entry;
  for (U32 i = 0; i < pairs_; ++i) {
    const NhiPair here = pair(words, i);
    entry.base[i] = here.base;
    entry.size[i] = here.size;
  }
  return entry;
}

}  // namespace XdkSim
