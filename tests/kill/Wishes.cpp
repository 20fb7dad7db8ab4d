#include "tests/kill/Wishes.h"

#include <algorithm>
#include <map>

#include "agent/ChipContexts.h"
#include "agent/source/Random.h"
#include "agent/source/RouteText.h"

namespace Quarle::Agent::Testing {

namespace {

constexpr U32 kMostWays = 4;
constexpr U32 kNextHops = 12;

bool covers(const RouteKey& key, U16 vrf, const IpAddress& address) {
  return key.vrf == vrf && key.prefix.family == address.family &&
         AddressBits::of(address.bytes).masked(key.prefix.length) == key.prefix.bits();
}

std::string textOf(const std::vector<U64>& nextHops) {
  std::string text;
  for (const U64 nextHop : nextHops) {
    text += " " + std::to_string(nextHop);
  }
  return text;
}

}  // namespace

Wishes::Wishes(std::vector<RouteKey> keys) : keys_(std::move(keys)) {
  std::sort(keys_.begin(), keys_.end());
  states_.assign(keys_.size(), {kNone});
  std::map<std::pair<U16, IpAddress>, bool> known;
  for (const RouteKey& key : keys_) {
    for (const IpAddress& address : {key.prefix.firstAddress(), key.prefix.lastAddress()}) {
      const U16 vrf = static_cast<U16>(key.vrf);
      if (!known.emplace(std::pair(vrf, address), true).second) {
        continue;
      }
      Address& added = addresses_.emplace_back();
      added.vrf = vrf;
      added.address = address;
      for (U32 route = 0; route < keys_.size(); ++route) {
        if (covers(keys_[route], vrf, address)) {
          added.covering.push_back(route);
        }
      }
      std::sort(added.covering.begin(), added.covering.end(),
                [this](U32 a, U32 b) { return keys_[a].prefix.length > keys_[b].prefix.length; });
    }
  }
}

U32 Wishes::numberOf(const RouteKey& key) const {
  return static_cast<U32>(std::lower_bound(keys_.begin(), keys_.end(), key) - keys_.begin());
}

std::vector<U64> Wishes::nextHopsOf(U32 list) {
  std::vector<U64> nextHops(1 + mixed(list) % kMostWays);
  for (U64 way = 0; way < nextHops.size(); ++way) {
    nextHops[way] = 1 + mixed(mixed(list) + way) % kNextHops;
  }
  return nextHops;
}

void Wishes::begin(U32 route, U32 list) {
  std::vector<U32>& lists = states_[route];
  std::erase(lists, list);
  lists.push_back(list);
}

void Wishes::end(U32 route, U32 list) { states_[route] = {list}; }

bool Wishes::isSettled() const {
  return std::all_of(states_.begin(), states_.end(),
                     [](const std::vector<U32>& lists) { return lists.size() == 1; });
}

std::string Wishes::Seen::text() const {
  return matched ? "/" + std::to_string(length) + " to" + textOf(nextHops) : "none";
}

Wishes::Seen Wishes::lookUp(const XdkSim::Chip& chip, const Address& address) {
  const XdkSim::LookupResult result =
      chip.lookup(chipFamily(address.address.family), address.vrf, address.address.bytes.data());
  Seen seen{.matched = result.matched, .length = 0, .nextHops = {}};
  if (!result.matched) {
    return seen;
  }
  seen.length = result.matchLen - XdkSim::LpmKey::kVrfBits;
  for (U32 row = result.base; row < result.base + result.size; ++row) {
    xpNextHopEntry entry;
    const bool isThere = chip.readNextHopRow(row, entry) == XP_NO_ERR && entry.valid == 1;
    seen.nextHops.push_back(isThere ? entry.nextHopId : 0);
  }
  return seen;
}

bool Wishes::mayLeadTo(U32 route, const std::vector<U64>& nextHops) const {
  std::vector<std::vector<U64>> lists;
  for (const U32 list : states_[route]) {
    std::vector<U64> candidate = list == kNone ? std::vector<U64>() : nextHopsOf(list);
    if (candidate.size() == nextHops.size()) {
      lists.push_back(std::move(candidate));
    }
  }
  for (std::size_t way = 0; way < nextHops.size(); ++way) {
    const bool isKnown = std::any_of(lists.begin(), lists.end(), [&](const std::vector<U64>& list) {
      return list[way] == nextHops[way];
    });
    if (!isKnown) {
      return false;
    }
  }
  return !nextHops.empty();
}

bool Wishes::isRight(const Address& address,
                     const Seen& seen,
                     const RoutePredicate& isRefused) const {
  for (const U32 route : address.covering) {
    const bool isExcused = isRefused && isRefused(route);
    if (seen.matched && seen.length == keys_[route].prefix.length) {
      return isExcused || mayLeadTo(route, seen.nextHops);
    }
    const std::vector<U32>& lists = states_[route];
    if (!isExcused && std::find(lists.begin(), lists.end(), kNone) == lists.end()) {
      return false;
    }
  }
  return !seen.matched;
}

std::string Wishes::faults(const XdkSim::Chip& chip, const RoutePredicate& isRefused) const {
  std::string faults;
  for (const Address& address : addresses_) {
    const Seen seen = lookUp(chip, address);
    if (isRight(address, seen, isRefused)) {
      continue;
    }
    faults += "vrf " + std::to_string(address.vrf) + " " + toText(address.address) + ": " +
              seen.text() + ", expected one of";
    for (const U32 route : address.covering) {
      for (const U32 list : states_[route]) {
        faults += " " + toText(keys_[route].prefix) +
                  (list == kNone ? " none" : " to" + textOf(nextHopsOf(list))) + ";";
      }
    }
    faults += "\n";
  }
  return faults;
}

}  // namespace Quarle::Agent::Testing
