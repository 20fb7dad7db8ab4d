#include "agent/ExpectedRoutes.h"

#include <utility>

namespace Quarle::Agent {

namespace {

// Longer routes that are stepped over in search of an address of a shorter one.
constexpr unsigned kMaxSteps = 64;

/// The address behind `last`; nothing behind the very last one.
std::optional<AddressBits> behind(AddressBits last, unsigned width) {
  AddressBits next = last;
  if (width == 32) {
    next.high = (next.high >> 32) + 1;
    return next.high >> 32 != 0 ? std::nullopt
                                : std::optional<AddressBits>({.high = next.high << 32, .low = 0});
  }
  next.low += 1;
  next.high += next.low == 0 ? 1 : 0;
  return next.low == 0 && next.high == 0 ? std::nullopt : std::optional<AddressBits>(next);
}

}  // namespace

ExpectedRoutes::NextHopsId ExpectedRoutes::idOf(std::span<const U64> nextHops) {
  const auto [place, isNew] = idByList_.try_emplace(
      std::vector<U64>(nextHops.begin(), nextHops.end()), static_cast<NextHopsId>(lists_.size()));
  if (isNew) {
    lists_.push_back(&place->first);
  }
  return place->second;
}

ExpectedRoutes::Pending* ExpectedRoutes::find(const RouteKey& key) {
  const std::optional<Value> present = tries_[key.vrf].find(key.prefix);
  return present && (*present & kPending) != 0 ? &pending_[*present & ~kPending] : nullptr;
}

ExpectedRoutes::Pending& ExpectedRoutes::make(const RouteKey& key) {
  if (freePending_.empty()) {
    freePending_.push_back(static_cast<Value>(pending_.size()));
    pending_.emplace_back();
  }
  const Value place = freePending_.back();
  freePending_.pop_back();
  ReferenceTrie& trie = tries_[key.vrf];
  pending_[place] = {.now = trie.find(key.prefix), .change = {}, .isWished = false, .wish = {}};
  trie.insert(key.prefix, kPending | place);
  return pending_[place];
}

void ExpectedRoutes::wishIs(const RouteKey& key, std::optional<NextHopsId> wish) {
  Pending* pending = find(key);
  if (pending == nullptr) {
    if (!wish && !tries_[key.vrf].find(key.prefix)) {
      return;
    }
    pending = &make(key);
  }
  pending->isWished = true;
  pending->wish = wish;
}

void ExpectedRoutes::wishHolds(const RouteKey& key) {
  Pending* pending = find(key);
  if (pending != nullptr && pending->isWished) {
    // It has left the group that changes.
    *pending = {.now = pending->wish, .change = {}, .isWished = false, .wish = {}};
    settle(key);
  }
}

void ExpectedRoutes::wishIsDropped(const RouteKey& key) {
  if (Pending* pending = find(key)) {
    pending->isWished = false;
    settle(key);
  }
}

void ExpectedRoutes::changeIs(const RouteKey& key, NextHopsId nextHops) {
  Pending* pending = find(key);
  (pending == nullptr ? make(key) : *pending).change = nextHops;
}

void ExpectedRoutes::changeHolds(const RouteKey& key) {
  Pending* pending = find(key);
  if (pending != nullptr && pending->change) {
    pending->now = std::exchange(pending->change, {});
    settle(key);
  }
}

void ExpectedRoutes::changeIsDropped(const RouteKey& key) {
  if (Pending* pending = find(key)) {
    pending->change.reset();
    settle(key);
  }
}

/// Gives back the place of a route that nothing is under way for.
void ExpectedRoutes::settle(const RouteKey& key) {
  const Pending* pending = find(key);
  if (pending->isWished || pending->change) {
    return;
  }
  freePending_.push_back(static_cast<Value>(pending - pending_.data()));
  if (pending->now) {
    tries_[key.vrf].insert(key.prefix, *pending->now);
  } else {
    tries_[key.vrf].erase(key.prefix);
  }
}

const ExpectedRoutes::Answers& ExpectedRoutes::answersAt(const VrfAddress& address) const {
  answers_.matches.clear();
  answers_.changes.clear();
  answers_.none = true;
  const auto trie = tries_.find(address.vrf);
  if (trie == tries_.end()) {
    return answers_;
  }
  const std::optional<ReferenceTrie::Match> longest = trie->second.longestMatch(address.address);
  if (longest && (longest->value & kPending) == 0) {
    answers_.matches.push_back(*longest);
    answers_.none = false;
    return answers_;
  }
  for (const ReferenceTrie::Match& match : trie->second.covering(address.address)) {
    if ((match.value & kPending) == 0) {
      answers_.matches.push_back(match);
      answers_.none = false;
      return answers_;
    }
    const Pending& pending = pending_[match.value & ~kPending];
    const std::optional<NextHopsId> wish = pending.isWished ? pending.wish : std::nullopt;
    for (const std::optional<NextHopsId>& list : {pending.now, pending.change, wish}) {
      if (list) {
        answers_.matches.push_back({.length = match.length, .value = *list});
      }
    }
    if (pending.now && pending.change) {
      answers_.changes.push_back(
          {.length = match.length, .before = *pending.now, .after = *pending.change});
    }
    const bool isWishedAway = pending.isWished && !pending.wish;
    if (pending.now && !isWishedAway) {
      answers_.none = false;
      return answers_;
    }
  }
  return answers_;
}

std::optional<IpAddress> ExpectedRoutes::ownAddress(const RouteKey& key) const {
  const auto trie = tries_.find(key.vrf);
  if (trie == tries_.end()) {
    return std::nullopt;
  }
  const auto owns = [&](const IpAddress& address) {
    const std::optional<ReferenceTrie::Match> longest = trie->second.longestMatch(address);
    return longest && longest->length == key.prefix.length;
  };
  const IpAddress last = key.prefix.lastAddress();
  IpAddress address = key.prefix.firstAddress();
  if (owns(address)) {
    return address;
  }
  if (owns(last)) {
    return last;
  }
  const unsigned width = addressBits(key.prefix.family);
  for (unsigned step = 0; step < kMaxSteps; ++step) {
    unsigned covered = 0;
    for (const ReferenceTrie::Match& match : trie->second.covering(address)) {
      if (match.length <= key.prefix.length) {
        break;
      }
      covered = match.length;
    }
    if (covered == 0) {
      return owns(address) ? std::optional<IpAddress>(address) : std::nullopt;
    }
    const AddressBits end =
        AddressBits::of(address.bytes).masked(covered).filled(covered).masked(width);
    const std::optional<AddressBits> next = behind(end, width);
    if (!next || *next > AddressBits::of(last.bytes)) {
      return std::nullopt;
    }
    address.bytes = next->bytes();
  }
  return std::nullopt;
}

}  // namespace Quarle::Agent
