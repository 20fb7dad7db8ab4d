#include "model/ConfigBase.h"

#include "framework/Gimbrel/Gimbrel.h"
#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

namespace Quarle::Tarnlet {

namespace {

// Bits of a row open to branch and leaves at the most, and so the slots of the largest sub-trie.
constexpr U32 kMaxEntrySize = 216;

}  // namespace

void ConfigBase::populateLeastTreadForPrefixLenSettings(bool) {
  // The text names another method; clients know it by these words.
  throw Vellor::NoImplementationException("hashFunc must be implemented in the derived class");
}

U8 ConfigBase::keyLength() const {
  if (keyType_ == keyShort48b) {
    return 48;
  }
  VELLOR_ASSERT(keyType_ == keyLong144b, "keyType() == keyLong144b_");
  return 144;
}

U8 ConfigBase::nhiBlockEcmpWidth() const {
  U8 nhiPairSize = 0;
  switch (nhiPairPerEntry_) {
    case 6:
      nhiPairSize = 21;
      break;
    case 7:
      nhiPairSize = 18;
      break;
    case 8:
      nhiPairSize = 16;
      break;
    case 10:
      nhiPairSize = 12;
      break;
    default:
      VELLOR_ASSERT(false, "false && \"Unknown NHI pair per entry\"");
  }
  VELLOR_ASSERT(nhiPairSize >= nhiBlockBaseWidth_, "nhiPairSize >= nhiBlockBaseWidth()");
  return static_cast<U8>(nhiPairSize - nhiBlockBaseWidth_);
}

U8 ConfigBase::nhiMaxBlockSize() const {
  return static_cast<U8>((kMaxEntrySize + nhiPairPerEntry_ - 1) / nhiPairPerEntry_);
}

int ConfigBase::fanoutPrefixLen(int prefixLen) const {
  const U8 leastTread = leastTreadForPrefixLen(static_cast<U8>(prefixLen));
  const U32 tables = prefixTableSortedByTreads();
  for (U32 i = 0; i < tables; ++i) {
    const PrefixTable::Ptr& prefixTable = prefixTableSortedByTread_.at(i);
    VELLOR_ASSERT(prefixTable, "prefixTable");
    const U8 tread = prefixTable->tableConfig()->tread();
    if (tread >= leastTread && tread <= prefixLen) {
      const int fanoutLen =
          i == 0 ? prefixLen : prefixTableSortedByTread_.at(i - 1)->tableConfig()->tread();
      VELLOR_GIMBREL_TRACE(tarnletTrace, 3, " prefixLen ", prefixLen, " fanoutLen ", fanoutLen);
      return fanoutLen;
    }
  }
  Vellor::assertionFailed("prefixTableFound", __FILE__, __LINE__, __func__);
}

void ConfigBase::leastTreadsAre(std::initializer_list<LeastTreadStep> steps) {
  leastTreadForPrefixLenDelAll();
  for (U32 len = 0; len <= keyLength(); ++len) {
    U8 leastTread = 0;
    for (const LeastTreadStep& step : steps) {
      if (len >= step.fromLength) {
        leastTread = step.leastTread;
      }
    }
    leastTreadForPrefixLenIs(static_cast<U8>(len), leastTread);
  }
}

ConfigV4::ConfigV4(Vellor::Name name) : ConfigBase(std::move(name)) {
  ConfigBase::addressFamilyIs(Corsel::AddressFamily::ipv4);
}

void ConfigV4::populateLeastTreadForPrefixLenSettings(bool lpmTreadUserCfgd) {
  if (lpmTreadUserCfgd) {
    leastTreadsAre({});
  } else {
    leastTreadsAre({{36, 30}, {38, 35}});
  }
}

void ConfigV4::addressFamilyIs(Corsel::AddressFamily) {
  throw Vellor::ImmutableAttrMutationException("Quarle::Tarnlet::ConfigV4::addressFamily");
}

ConfigV6::ConfigV6(Vellor::Name name) : ConfigBase(std::move(name)) {
  ConfigBase::addressFamilyIs(Corsel::AddressFamily::ipv6);
}

void ConfigV6::populateLeastTreadForPrefixLenSettings(bool lpmTreadUserCfgd) {
  if (lpmTreadUserCfgd) {
    leastTreadsAre({});
  } else {
    leastTreadsAre({{60, 60}});
  }
}

void ConfigV6::addressFamilyIs(Corsel::AddressFamily) {
  throw Vellor::ImmutableAttrMutationException("Quarle::Tarnlet::ConfigV6::addressFamily");
}

ConfigV4::Ptr configV4Factory(const Vellor::Name& name) { return new ConfigV4(name); }

ConfigV6::Ptr configV6Factory(const Vellor::Name& name) { return new ConfigV6(name); }

}  // namespace Quarle::Tarnlet
