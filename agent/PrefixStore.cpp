#include "agent/PrefixStore.h"

namespace Quarle::Agent {

Dunlix::VrfAndPrefix vrfAndPrefixOf(const RouteKey& key) {
  const auto& bytes = key.prefix.address;
  const U32 address = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8 | bytes[3];
  return {key.vrf, Corsel::Prefix(address, key.prefix.length)};
}

Dunlix::VrfAndIp6Prefix vrfAndIp6PrefixOf(const RouteKey& key) {
  return {key.vrf, Corsel::Ip6Prefix(key.prefix.address, key.prefix.length)};
}

namespace {

/// The map tells a new object from an old one by its count alone.
template <class Config, class Key>
PrefixStore::Interned internIn(Config& config, const Key& key) {
  const U32 before = config.lpmPrefixs();
  Tarnlet::LpmPrefix::Ptr prefix = config.lpmPrefixIs(key);
  return {.prefix = std::move(prefix), .made = config.lpmPrefixs() != before};
}

}  // namespace

PrefixStore::Interned PrefixStore::intern(const RouteKey& key) {
  return configV4_ != nullptr ? internIn(*configV4_, vrfAndPrefixOf(key))
                              : internIn(*configV6_, vrfAndIp6PrefixOf(key));
}

Tarnlet::LpmPrefix::Ptr PrefixStore::find(const RouteKey& key) const {
  if (configV4_ != nullptr) {
    return configV4_->lpmPrefix(vrfAndPrefixOf(key));
  }
  return configV6_->lpmPrefix(vrfAndIp6PrefixOf(key));
}

void PrefixStore::prefetchPlace(const RouteKey& key) const {
  if (configV4_ != nullptr) {
    configV4_->lpmPrefixCollection().prefetch(vrfAndPrefixOf(key));
  } else {
    configV6_->lpmPrefixCollection().prefetch(vrfAndIp6PrefixOf(key));
  }
}

const Tarnlet::LpmPrefix* PrefixStore::likely(const RouteKey& key) const {
  if (configV4_ != nullptr) {
    const auto* member = configV4_->lpmPrefixCollection().likely(vrfAndPrefixOf(key));
    return member == nullptr ? nullptr : member->value.get();
  }
  const auto* member = configV6_->lpmPrefixCollection().likely(vrfAndIp6PrefixOf(key));
  return member == nullptr ? nullptr : member->value.get();
}

Tarnlet::LpmPrefix::Ptr PrefixStore::loose(const RouteKey& key) const {
  if (configV4_ != nullptr) {
    return Tarnlet::lpmPrefixV4Factory(vrfAndPrefixOf(key));
  }
  return Tarnlet::lpmPrefixV6Factory(vrfAndIp6PrefixOf(key));
}

void PrefixStore::forget(const RouteKey& key) {
  if (configV4_ != nullptr) {
    configV4_->lpmPrefixDel(vrfAndPrefixOf(key));
  } else {
    configV6_->lpmPrefixDel(vrfAndIp6PrefixOf(key));
  }
}

RouteKey routeKeyOf(Family family, const Tarnlet::LpmPrefix& prefix) {
  if (family == Family::ipv4) {
    const auto& key = static_cast<const Tarnlet::LpmPrefixV4&>(prefix).vrfAndPrefix();
    const U32 address = key.prefix().address();
    RouteKey result{.vrf = key.vrf().value(),
                    .prefix = {.family = family, .address = {}, .length = key.prefix().len()}};
    for (U32 i = 0; i < 4; ++i) {
      result.prefix.address[i] = static_cast<U8>(address >> (24 - 8 * i));
    }
    return result;
  }
  const auto& key = static_cast<const Tarnlet::LpmPrefixV6&>(prefix).vrfAndPrefix();
  return {
      .vrf = key.vrf().value(),
      .prefix = {.family = family, .address = key.prefix().bytes(), .length = key.prefix().len()}};
}

}  // namespace Quarle::Agent
