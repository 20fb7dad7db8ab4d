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

void ExpectedRoutes::wishIs(const RouteKey& key, std::optional<NextHopsId> wish) {
  ReferenceTrie& trie = tries_[key.vrf];
  const std::optional<Value> present = trie.find(key.prefix);
  if (present && (*present & kPending) != 0) {
    pending_[*present & ~kPending].wish = wish;
    return;
  }
  if (!present && !wish) {
    return;
  }
  if (freePending_.empty()) {
    freePending_.push_back(static_cast<Value>(pending_.size()));
    pending_.emplace_back();
  }
  const Value place = freePending_.back();
  freePending_.pop_back();
  pending_[place] = {.now = present, .wish = wish};
  trie.insert(key.prefix, kPending | place);
}

void ExpectedRoutes::wishHolds(const RouteKey& key) { settle(key, /*asWished=*/true); }

void ExpectedRoutes::wishIsDropped(const RouteKey& key) { settle(key, /*asWished=*/false); }

void ExpectedRoutes::settle(const RouteKey& key, bool asWished) {
  ReferenceTrie& trie = tries_[key.vrf];
  const std::optional<Value> present = trie.find(key.prefix);
  if (!present || (*present & kPending) == 0) {
    return;
  }
  const Value place = *present & ~kPending;
  const std::optional<NextHopsId> settled = asWished ? pending_[place].wish : pending_[place].now;
  freePending_.push_back(place);
  if (settled) {
    trie.insert(key.prefix, *settled);
  } else {
    trie.erase(key.prefix);
  }
}

const ExpectedRoutes::Answers& ExpectedRoutes::answersAt(const VrfAddress& address) const {
  answers_.matches.clear();
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
    for (const std::optional<NextHopsId>& list : {pending.now, pending.wish}) {
      if (list) {
        answers_.matches.push_back({.length = match.length, .value = *list});
      }
    }
    if (pending.now && pending.wish) {
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
