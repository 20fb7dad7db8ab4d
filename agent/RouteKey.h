#pragma once

#include <compare>
#include <cstddef>
#include <string>

#include "agent/source/RouteEntry.h"
#include "agent/source/RouteText.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Agent {

/// What names a route: a VRF and a prefix. VRF numbers above 65535 can be spelled so that they can
/// be refused.
struct RouteKey {
  U32 vrf = 0;
  RoutePrefix prefix;

  auto operator<=>(const RouteKey&) const = default;
};

/// "10.0.0.0/8", with "vrf 7 " in front for a VRF other than 0.
inline std::string toText(const RouteKey& key) {
  return (key.vrf == 0 ? std::string() : "vrf " + std::to_string(key.vrf) + " ") +
         toText(key.prefix);
}

/// Whether there can be such a route: the VRF number has at most 16 bits, the prefix is not longer
/// than an address and has no bit behind its length.
inline bool isSound(const RouteKey& key) {
  constexpr U32 kMaxVrf = 65535;
  const RoutePrefix& prefix = key.prefix;
  return key.vrf <= kMaxVrf && prefix.length <= addressBits(prefix.family) &&
         prefix.bits().masked(prefix.length) == prefix.bits();
}

struct RouteKeyHash {
  std::size_t operator()(const RouteKey& key) const { return hashOf(key.prefix, key.vrf); }
};

}  // namespace Quarle::Agent
