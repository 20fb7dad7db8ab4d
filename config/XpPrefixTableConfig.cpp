#include "config/XpPrefixTableConfig.h"

#include <bit>
#include <concepts>
#include <cstring>

#include "framework/Vellor/Invariant.h"
#include "model/SubTrieBranch.h"

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kHashedBytes = 18;
constexpr U32 kHashedBits = kHashedBytes * 8;

/// Stores the word with its last byte first.
template <std::unsigned_integral Word>
void storeReversed(Word word, U8* to) {
  if constexpr (std::endian::native == std::endian::big) {
    for (U32 i = 0; i < sizeof word; ++i) {
      to[i] = static_cast<U8>(word >> (i * 8));
    }
  } else {
    std::memcpy(to, &word, sizeof word);
  }
}

}  // namespace

XpPrefixTableConfig::~XpPrefixTableConfig() { doCleanup(); }

void XpPrefixTableConfig::xdkHashFunctionIs(xpHashFunction* xdkHashFunction) {
  if (xdkHashFunction != xdkHashFunction_.get()) {
    xdkHashFunction_.reset(xdkHashFunction);
  }
}

U32 XpPrefixTableConfig::hashFunc(const LpmPrefix::Ptr& lpmPrefix) const {
  VELLOR_ASSERT(xdkHashFunction_, "xdkHashFunction()");
  const SubTrieBranch branch = lpmPrefix->branch(tread());
  // The key's last byte comes first. All 144 bits go in, of the short keys too.
  U8 reversed[kHashedBytes];
  storeReversed(branch.word4(), reversed);
  storeReversed(branch.u64(1), reversed + 2);
  storeReversed(branch.u64(0), reversed + 10);
  XpBitVector bits(kHashedBits, reversed, kHashedBits);
  return xdkHashFunction_->hash(bits);
}

void XpPrefixTableConfig::doCleanup() { xdkHashFunction_.reset(); }

XpPrefixTableConfig::Ptr xpPrefixTableConfigFactory(PrefixTableId tableId,
                                                    PrefixTableType tableType,
                                                    U32 depth,
                                                    U8 tread) {
  return new XpPrefixTableConfig(tableId, tableType, depth, tread);
}

}  // namespace Quarle::Tarnlet
