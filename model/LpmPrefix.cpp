#include "model/LpmPrefix.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "framework/Gimbrel/Gimbrel.h"
#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

namespace Quarle::Tarnlet {

namespace {

constexpr U8 kIp4Bits = 32;
constexpr U8 kIp6Bits = 128;

/// The top `bits` of a word kept, which may be none or all.
constexpr U64 topBits(U64 word, U32 bits) {
  return bits == 0 ? 0 : bits >= 64 ? word : word & ~U64{0} << (64 - bits);
}

U64 bigEndianWord(const U8* bytes) {
  U64 word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
}

template <class PrefixType>
Vellor::String8 textOf(const Dunlix::VrfAnd<PrefixType>& key) {
  return Vellor::format("vrf %d prefix %s", static_cast<int>(key.vrf().value()),
                        key.prefix().stringValue().charPtr());
}

}  // namespace

U8 LpmPrefix::len() const {
  throw Vellor::NoImplementationException("method must be implemeted in the derived class");
}

SubTrieBranch LpmPrefix::branch(U8) const {
  throw Vellor::NoImplementationException("method must be implemented in the derived class");
}

Vellor::String8 LpmPrefix::stringValue() const {
  throw Vellor::NoImplementationException("method must be implemented in the derived class");
}

U8 LpmPrefixV4::len() const { return static_cast<U8>(vrfAndPrefix_.prefix().len() + kVrfBits); }

SubTrieBranch LpmPrefixV4::branch(U8 branchLen) const {
  VELLOR_ASSERT(branchLen <= kVrfBits + kIp4Bits, "branchLen <= vrfBits + 32");
  // Only the low 16 bits of the VRF identifier are part of the key.
  const U64 vrf = vrfAndPrefix_.vrf().value() & 0xffffU;
  const U64 key = topBits(vrf << 48 | U64{vrfAndPrefix_.prefix().address()} << 16, branchLen);
  return SubTrieBranch(static_cast<U32>(key >> 32), static_cast<U32>(key), 0, 0, 0);
}

Vellor::String8 LpmPrefixV4::stringValue() const { return textOf(vrfAndPrefix_); }

void LpmPrefixV4::createFanoutPrefixV4(U32 targetTread) {
  VELLOR_ASSERT(targetTread > len(), "targetTread > len()");
  // Lengths behind 255 bits are as invalid as 255 is.
  const U8 newLen = static_cast<U8>(std::min(targetTread - kVrfBits, U32{255}));
  const U32 shift = kVrfBits + kIp4Bits - targetTread;
  // Shift counts are taken modulo 32, which the fan-out of a default route to host routes shows: it
  // yields one entry.
  const U32 count = U32{1} << ((targetTread - len()) & 31U);
  const U32 base = vrfAndPrefix_.prefix().address();
  VELLOR_GIMBREL_TRACE(tarnletTrace, 3, " fanout of ", stringValue(), " targetTread ", targetTread,
                       " count ", count);
  for (U32 i = 0; i < count; ++i) {
    const Corsel::Prefix prefix(base | i << (shift & 31U), newLen);
    if (!prefix.validAsPrefix()) {
      Vellor::throwRangeException("Prefix::validAsPrefix != true not allowed");
    }
    VELLOR_GIMBREL_TRACE(tarnletTrace, 3, "  -- #", i, " vrf ", vrfAndPrefix_.vrf(), " prefix ",
                         prefix);
    prefixFanoutListIs(Dunlix::VrfAndPrefix(vrfAndPrefix_.vrf(), prefix), true);
  }
}

U8 LpmPrefixV6::len() const { return static_cast<U8>(vrfAndPrefix_.prefix().len() + kVrfBits); }

SubTrieBranch LpmPrefixV6::branch(U8 branchLen) const {
  VELLOR_ASSERT(branchLen <= kVrfBits + kIp6Bits, "branchLen <= vrfBits + 128");
  const U64 vrf = vrfAndPrefix_.vrf().value() & 0xffffU;
  const U8* bytes = vrfAndPrefix_.prefix().bytes().data();
  const U64 high = bigEndianWord(bytes);
  const U64 low = bigEndianWord(bytes + 8);
  const U32 len = branchLen;
  const U64 first = topBits(vrf << 48 | high >> 16, len);
  const U64 second = topBits(high << 48 | low >> 16, len > 64 ? len - 64 : 0);
  const U64 third = topBits(low << 48, len > 128 ? len - 128 : 0);
  return SubTrieBranch(static_cast<U32>(first >> 32), static_cast<U32>(first),
                       static_cast<U32>(second >> 32), static_cast<U32>(second),
                       static_cast<U16>(third >> 48));
}

Vellor::String8 LpmPrefixV6::stringValue() const { return textOf(vrfAndPrefix_); }

LpmPrefixV4::Ptr lpmPrefixV4Factory(const Dunlix::VrfAndPrefix& vrfAndPrefix) {
  return new LpmPrefixV4(vrfAndPrefix);
}

LpmPrefixV6::Ptr lpmPrefixV6Factory(const Dunlix::VrfAndIp6Prefix& vrfAndPrefix) {
  return new LpmPrefixV6(vrfAndPrefix);
}

LpmPrefixList::LpmPrefixList(Vellor::StrepIterator& iterator, const Vellor::StrepIterator& end) {
  Vellor::queueHasNoTextForm(iterator, end);
}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     LpmPrefixList* list) {
  *list = LpmPrefixList(iterator, end);
}

Vellor::String8 valueToStrep(const LpmPrefixList&) { return "None"; }

std::ostream& operator<<(std::ostream& stream, const LpmPrefixList& list) {
  return stream << valueToStrep(list);
}

}  // namespace Quarle::Tarnlet
