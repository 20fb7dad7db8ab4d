#pragma once

#include <array>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/Client.h"
#include "agent/LookupCheck.h"
#include "agent/source/RouteText.h"
#include "xdksim/SimLpmMgr.h"

#include <gtest/gtest.h>

namespace Quarle::Agent::Testing {

/// Sets an environment variable for as long as it lives.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) {
    setenv(name, value.c_str(), 1);
  }

  ~Environment() { unsetenv(name_); }

  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
};

/// A profile with these tables in both families (treads are key bits), one NHI tile and this many
/// next-hop rows.
inline XdkSim::ChipProfile tinyProfile(std::vector<XdkSim::PrefixTableProfile> ipv4,
                                       U32 nextHopRows = 64) {
  XdkSim::ChipProfile profile;
  profile.name = "tiny";
  profile.ipv4.tables = std::move(ipv4);
  profile.ipv4.nhi.tilesIs(1);
  profile.ipv6.tables = {{.tread = 16, .rows = 4, .sramWidth = 256, .hashPolySelect = 0},
                         {.tread = 60, .rows = 64, .sramWidth = 256, .hashPolySelect = 0}};
  profile.ipv6.nhi.tilesIs(1);
  profile.nextHopRows = nextHopRows;
  return profile;
}

/// For chips of `tinyProfile` whose IPv4 tables have treads of 16 alone: they take no longer
/// prefix. Without headroom, which a handful of NHI entries cannot afford.
inline ClientOptions tinyOptions() {
  return {.maxLengthV4 = 19, .headroom = {.share = 0, .minLargestBlocks = 0}};
}

inline std::string toText(const Answer& answer) {
  return Agent::toText(answer.outcome) +
         (answer.refused() ? std::string(" ") + Agent::toText(answer.reason) : "");
}

inline RouteKey keyOf(const std::string& text, U32 vrf = 0) {
  const Parsed<RoutePrefix> prefix = parsePrefix(text);
  EXPECT_TRUE(prefix.ok()) << prefix.fault;
  return {.vrf = vrf, .prefix = prefix.value};
}

/// Where a chip sends an address: "10.0.0.0/8 to 7 8", or "none".
inline std::string lookupIn(const XdkSim::Chip& chip, const std::string& address, U16 vrf = 0) {
  const Parsed<IpAddress> parsed = parseAddress(address);
  EXPECT_TRUE(parsed.ok()) << parsed.fault;
  const XdkSim::Explanation seen =
      chip.explain(chipFamily(parsed.value.family), vrf, parsed.value.bytes.data());
  if (!seen.result.matched) {
    return "none";
  }
  std::string text =
      XdkSim::prefixText(seen.family, seen.key, seen.result.matchLen) + std::string(" to");
  for (const XdkSim::NextHopExplanation& nextHop : seen.nextHops) {
    text += nextHop.entry.valid == 0 ? " nowhere" : " " + std::to_string(nextHop.entry.nextHopId);
  }
  return text;
}

/// A client over a simulated chip, spoken to in texts. It remembers every answered route by itself,
/// so that the chip can be held against what was asked and answered.
class ChipClient {
 public:
  explicit ChipClient(XdkSim::ChipProfile profile, const ClientOptions& options = {})
      : chip(std::move(profile)),
        manager4_(chip, XdkSim::Family::ipv4),
        manager6_(chip, XdkSim::Family::ipv6),
        client({.systemStatus = systemStatusOf(chip), .ipv4 = &manager4_, .ipv6 = &manager6_},
               options) {
    client.answerHandlerIs([this](const RouteEvent& event) { note(event); });
  }

  /// A route to these next hops: what the client answered.
  std::string route(const std::string& prefix, const std::vector<U64>& nextHops, U32 vrf = 0) {
    const RouteKey key = keyOf(prefix, vrf);
    return toText(client.family(key.prefix.family).routeIs(key, nextHops));
  }

  /// A route to a group.
  std::string routeTo(const std::string& prefix, SwId group) {
    const RouteKey key = keyOf(prefix);
    return toText(client.family(key.prefix.family).routeIs(key, group));
  }

  std::string withdraw(const std::string& prefix, U32 vrf = 0) {
    const RouteKey key = keyOf(prefix, vrf);
    return toText(client.family(key.prefix.family).routeDel(key));
  }

  std::string changeGroup(SwId group, const std::vector<U64>& nextHops) {
    return toText(client.groupNextHopsAre(group, nextHops));
  }

  /// The answers that were told since the last call, a line each: "retry 10.0.0.0/8 placed".
  std::string events() { return std::exchange(events_, {}); }

  /// Where the chip sends an address: "10.0.0.0/8 to 7 8", or "none".
  std::string lookup(const std::string& address, U16 vrf = 0) const {
    return lookupIn(chip, address, vrf);
  }

  /// The routes that the answers told tell to be on the chip.
  const std::map<RouteKey, SwId>& routes() const { return routes_; }

  /// Looks up the first and last address of every answered route, and of `others`; one line for
  /// each that does not lead to the next hops of the longest answered prefix. Of VRF 0 alone.
  std::string wrongLookups(const std::vector<RoutePrefix>& others = {}) const {
    std::vector<RoutePrefix> prefixes = others;
    for (const auto& [key, group] : routes_) {
      prefixes.push_back(key.prefix);
    }
    std::string wrong;
    for (const RoutePrefix& prefix : prefixes) {
      for (const IpAddress& address : {prefix.firstAddress(), prefix.lastAddress()}) {
        const std::string expected = expectedAt(address);
        const std::string seen = lookup(Agent::toText(address));
        if (seen != expected) {
          wrong += Agent::toText(address) + ": " + seen + ", expected " + expected + "\n";
        }
      }
    }
    return wrong;
  }

  /// Withdraws everything; what is then left behind, a line for each, in chip, client and library.
  std::string leftOvers() {
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      FamilyClient& routes = client.family(family);
      // The wishes first, lest they come in.
      std::vector<RouteKey> all;
      routes.refused().forEach([&all](const RefusedWish& wish) { all.push_back(wish.key); });
      for (const auto& [key, group] : routes_) {
        if (key.prefix.family == family) {
          all.push_back(key);
        }
      }
      for (const RouteKey& key : all) {
        routes.routeDel(key);
      }
    }
    std::string left;
    const auto expectNone = [&left](const std::string& what, U64 count) {
      left += count == 0 ? "" : what + ": " + std::to_string(count) + "\n";
    };
    for (const Family family : {Family::ipv4, Family::ipv6}) {
      FamilyClient& routes = client.family(family);
      const FamilyStatistics statistics = routes.statistics();
      const std::string name = familyName(family) + std::string(" ");
      expectNone(name + "routes", routes.routes());
      expectNone(name + "refused", routes.refused().size());
      expectNone(name + "rows in the chip", chip.rowsUsed(chipFamily(family)));
      expectNone(name + "rows in the library", statistics.rowsUsed);
      expectNone(name + "NHI blocks", statistics.nhiBlocks);
      expectNone(name + "NHI entries", statistics.nhiEntriesUsed);
      expectNone(name + "requests", routes.engine().config()->requests());
      expectNone(name + "commands in the queue", routes.engine().status()->pendingCmds());
    }
    expectNone("groups", client.groups().statistics().groups);
    expectNone("next-hop rows", client.groups().statistics().rowsUsed);
    for (U32 row = 0; row < chip.profile().nextHopRows; ++row) {
      xpNextHopEntry entry;
      EXPECT_EQ(chip.readNextHopRow(row, entry), XP_NO_ERR);
      expectNone("next-hop row " + std::to_string(row), entry.valid);
    }
    return left;
  }

  XdkSim::Chip chip;

 private:
  XdkSim::SimLpmMgr manager4_;
  XdkSim::SimLpmMgr manager6_;

 public:
  Client client;

 private:
  void note(const RouteEvent& event) {
    constexpr std::array kCauses = {"request", "retry", "groupMove", "resync"};
    events_ += kCauses[static_cast<std::size_t>(event.cause)] + std::string(" ") +
               Agent::toText(event.key) + " " + toText(event.answer) + "\n";
    switch (event.answer.outcome) {
      case Outcome::placed:
      case Outcome::updated:
      case Outcome::unchanged:
        routes_[event.key] = event.group;
        return;
      case Outcome::withdrawn:
      case Outcome::absent:
        routes_.erase(event.key);
        return;
      case Outcome::refused:
        return;
    }
  }

  std::string expectedAt(const IpAddress& address) const {
    const AddressBits bits = AddressBits::of(address.bytes);
    const std::pair<const RouteKey, SwId>* best = nullptr;
    for (const auto& route : routes_) {
      const RoutePrefix& prefix = route.first.prefix;
      if (route.first.vrf == 0 && prefix.family == address.family &&
          bits.masked(prefix.length) == prefix.bits() &&
          (best == nullptr || prefix.length > best->first.prefix.length)) {
        best = &route;
      }
    }
    if (best == nullptr) {
      return "none";
    }
    std::string text = Agent::toText(best->first.prefix) + " to";
    for (const U64 nextHop : client.groups().nextHops(best->second)) {
      text += " " + std::to_string(nextHop);
    }
    return text;
  }

  // The answers alone tell it, retried ones too.
  std::map<RouteKey, SwId> routes_;
  std::string events_;
};

}  // namespace Quarle::Agent::Testing
