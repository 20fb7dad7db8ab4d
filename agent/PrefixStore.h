#pragma once

#include "agent/RouteKey.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// The prefix objects of one family, which the library knows routes by: one object for each key, in
/// `lpmPrefix` of the family's configuration. This is the one place that tells the two families'
/// keys apart.
class PrefixStore {
 public:
  explicit PrefixStore(Tarnlet::ConfigV4::Ptr config) : configV4_(std::move(config)) {}

  explicit PrefixStore(Tarnlet::ConfigV6::Ptr config) : configV6_(std::move(config)) {}

  struct Interned {
    Tarnlet::LpmPrefix::Ptr prefix;
    bool made = false;
  };

  /// The object of `key`, made when there is none.
  ///
  /// REQUIRES: `key` is of this family.
  Interned intern(const RouteKey& key);

  /// The object of `key`, or null.
  Tarnlet::LpmPrefix::Ptr find(const RouteKey& key) const;

  /// Asks the memory for the place where the object of `key` is written down.
  void prefetchPlace(const RouteKey& key) const;

  /// Most likely the object of `key`, which is not read for it, or null. Not to be held.
  const Tarnlet::LpmPrefix* likely(const RouteKey& key) const;

  /// An object of `key` that the configuration does not know.
  Tarnlet::LpmPrefix::Ptr loose(const RouteKey& key) const;

  /// Lets the object of `key` go; its memory returns when nobody else holds it.
  void forget(const RouteKey& key);

  Family family() const { return configV4_ != nullptr ? Family::ipv4 : Family::ipv6; }

  U32 size() const {
    return configV4_ != nullptr ? configV4_->lpmPrefixs() : configV6_->lpmPrefixs();
  }

 private:
  Tarnlet::ConfigV4::Ptr configV4_;
  Tarnlet::ConfigV6::Ptr configV6_;
};

/// The key of an IPv4 route, or of an IPv6 route, as the library spells it.
Dunlix::VrfAndPrefix vrfAndPrefixOf(const RouteKey& key);
Dunlix::VrfAndIp6Prefix vrfAndIp6PrefixOf(const RouteKey& key);

/// The key of a prefix object.
RouteKey routeKeyOf(Family family, const Tarnlet::LpmPrefix& prefix);

}  // namespace Quarle::Agent
