#pragma once

#include <compare>
#include <ostream>

#include "framework/Corsel/Ip6Prefix.h"
#include "framework/Corsel/Prefix.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Hash.h"
#include "framework/Vellor/Types.h"

namespace Dunlix {

/// A VRF number. All 32 bits are held, hashed, compared and printed; only the low 16 enter a key.
class VELLOR_API VrfId {
 public:
  constexpr VrfId() = default;

  constexpr VrfId(U32 value) : value_(value) {}

  using Value = U32;

  constexpr U32 value() const { return value_; }

  constexpr U32 hash() const { return value_; }

  friend constexpr bool operator==(VrfId, VrfId) = default;
  friend constexpr auto operator<=>(VrfId, VrfId) = default;

  friend std::ostream& operator<<(std::ostream& stream, VrfId vrf) { return stream << vrf.value_; }

 private:
  U32 value_ = 0;
};

/// A VRF and a prefix of one address family.
template <class PrefixType>
class VrfAnd {
 public:
  constexpr VrfAnd() = default;

  constexpr VrfAnd(VrfId vrf, const PrefixType& prefix) : vrf_(vrf), prefix_(prefix) {}

  constexpr VrfId vrf() const { return vrf_; }

  constexpr const PrefixType& prefix() const { return prefix_; }

  constexpr void vrfIs(VrfId vrf) { vrf_ = vrf; }

  constexpr void prefixIs(const PrefixType& prefix) { prefix_ = prefix; }

  /// The one-at-a-time hash over the VRF and the prefix's hash, least significant bytes first.
  U32 hash() const {
    Vellor::OneAtATimeHash hash;
    hash.addU32(vrf_.value());
    hash.addU32(prefix_.hash());
    return hash.finish();
  }

  friend bool operator==(const VrfAnd&, const VrfAnd&) = default;
  friend auto operator<=>(const VrfAnd&, const VrfAnd&) = default;

  friend std::ostream& operator<<(std::ostream& stream, const VrfAnd& key) {
    return stream << "vrf " << key.vrf_ << " prefix " << key.prefix_;
  }

 private:
  VrfId vrf_;
  PrefixType prefix_;
};

using VrfAndPrefix = VrfAnd<Corsel::Prefix>;
using VrfAndIp6Prefix = VrfAnd<Corsel::Ip6Prefix>;

// Textual forms: a VRF is its number, a VRF and prefix the structured form with `vrf` and `prefix`.
VELLOR_API Vellor::String8 valueToStrep(VrfId vrf);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                VrfId* vrf);
VELLOR_API Vellor::String8 valueToStrep(const VrfAndPrefix& key);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                VrfAndPrefix* key);
VELLOR_API Vellor::String8 valueToStrep(const VrfAndIp6Prefix& key);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                VrfAndIp6Prefix* key);

VELLOR_API const Vellor::FwkType& vellorValueType(const VrfId*);
VELLOR_API const Vellor::FwkType& vellorValueType(const VrfAndPrefix*);
VELLOR_API const Vellor::FwkType& vellorValueType(const VrfAndIp6Prefix*);

}  // namespace Dunlix
