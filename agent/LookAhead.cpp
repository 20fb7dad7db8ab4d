#include "agent/LookAhead.h"

#include <algorithm>

#include "agent/FamilyClient.h"
#include "framework/Vellor/Prefetch.h"

namespace Quarle::Agent {

using Tarnlet::LpmPrefix;
using Tarnlet::SubTrie;

// Far enough for the memory to answer, near enough that the first cache still has it.
constexpr LookAhead::Stages LookAhead::kStages = {{
    {&LookAhead::place, 27},
    {&LookAhead::prefixOrRow, 21},
    {&LookAhead::subTrie, 16},
    {&LookAhead::parts, 12},
    {&LookAhead::prefixesAndPlaceOfBlock, 8},
    {&LookAhead::block, 5},
    {&LookAhead::placesInBlock, 2},
}};

void LookAhead::beforeChange(std::size_t change) {
  for (std::size_t stage = 0; stage < kStages.size(); ++stage) {
    const std::size_t past = std::min(change + kStages[stage].distance + 1, changes_.size());
    for (; next_[stage] < past; ++next_[stage]) {
      (this->*kStages[stage].step)(next_[stage], ring_[next_[stage] % kRing]);
    }
  }
}

bool LookAhead::isWorthIt(std::size_t change) const {
  // Of the address: what the rows of most routes share.
  constexpr unsigned kNear4 = 19;
  constexpr unsigned kNear6 = 32;
  const RouteKey& key = changes_[change].key;
  if (change != 0) {
    const RouteKey& before = changes_[change - 1].key;
    const unsigned near = key.prefix.family == Family::ipv4 ? kNear4 : kNear6;
    if (before.vrf == key.vrf &&
        ((before.prefix.bits().high ^ key.prefix.bits().high) >> (64 - near)) == 0) {
      return false;
    }
  }
  return isSound(key);
}

void LookAhead::place(std::size_t change, Coming& coming) {
  coming = {.isPassedOver = !isWorthIt(change), .prefix = nullptr, .table = nullptr, .row = {}};
  if (!coming.isPassedOver) {
    prefixes_.prefetchPlace(changes_[change].key);
  }
}

void LookAhead::prefixOrRow(std::size_t change, Coming& coming) {
  if (coming.isPassedOver) {
    return;
  }
  const RouteChange& next = changes_[change];
  if (const LpmPrefix* prefix = prefixes_.likely(next.key)) {
    Vellor::prefetchObject(prefix);
  } else if (next.group != SwId()) {
    firstRow(prefixes_.loose(next.key), coming);
    if (coming.table != nullptr) {
      coming.table->subTrieCollection().prefetch(coming.row);
    }
  }
}

void LookAhead::firstRow(const LpmPrefix::Ptr& prefix, Coming& coming) const {
  const U8 len = prefix->len();
  const U8 leastTread = config_.leastTreadForPrefixLen(len);
  const auto& tables = config_.prefixTableSortedByTreadCollection();
  for (U32 i = 0; i < tables.count(); ++i) {
    const Tarnlet::PrefixTableConfig& table = *tables.at(i)->tableConfig();
    if (table.tread() >= leastTread && table.tread() < len) {
      coming.table = tables.at(i).get();
      coming.row = Tarnlet::PrefixTableIdx(table.hashFunc(prefix));
      return;
    }
  }
}

/// From here on the objects of an installed route are at hand, and held.
void LookAhead::subTrie(std::size_t change, Coming& coming) {
  if (!coming.isPassedOver && coming.table == nullptr) {
    coming.prefix = prefixes_.find(changes_[change].key);
  }
  if (const SubTrie::Ptr* subTrie = subTrieOf(coming)) {
    Vellor::prefetchObject(subTrie->get());
  }
}

const SubTrie::Ptr* LookAhead::subTrieOf(const Coming& coming) const {
  // Asked anew in each step: what the last one saw may have gone since.
  if (coming.prefix != nullptr) {
    const auto* member = sm_.prefixToSubTrieCollection().find(coming.prefix);
    return member == nullptr ? nullptr : &member->value;
  }
  if (coming.table != nullptr) {
    const auto* member = coming.table->subTrieCollection().find(coming.row);
    return member == nullptr ? nullptr : &member->value;
  }
  return nullptr;
}

void LookAhead::parts(std::size_t /*change*/, Coming& coming) {
  if (const SubTrie::Ptr* subTrie = subTrieOf(coming)) {
    (*subTrie)->prefetchParts();
    sm_.nhiBaseIdxToSubTrieCollection().prefetch((*subTrie)->nhiBaseIdx());
    sm_.nhiBaseIdxToBlkCollection().prefetch((*subTrie)->nhiBaseIdx());
  }
}

void LookAhead::prefixesAndPlaceOfBlock(std::size_t /*change*/, Coming& coming) {
  if (const SubTrie::Ptr* subTrie = subTrieOf(coming)) {
    (*subTrie)->prefetchPrefixes();
    sm_.sharedNhiCollection().prefetch((*subTrie)->nhiInfoKey());
  }
}

void LookAhead::block(std::size_t /*change*/, Coming& coming) {
  if (const SubTrie::Ptr* subTrie = subTrieOf(coming)) {
    if (const auto* info = sm_.sharedNhiCollection().likely((*subTrie)->nhiInfoKey())) {
      Vellor::prefetchObject(info->value.get());
    }
    if (const auto* users = sm_.nhiBaseIdxToSubTrieCollection().find((*subTrie)->nhiBaseIdx())) {
      Vellor::prefetchObject(users->value.get());
    }
    if (const auto* blk = sm_.nhiBaseIdxToBlkCollection().find((*subTrie)->nhiBaseIdx())) {
      Vellor::prefetchObject(blk->value.get());
    }
  }
}

void LookAhead::placesInBlock(std::size_t /*change*/, Coming& coming) {
  if (const SubTrie::Ptr* subTrie = subTrieOf(coming)) {
    if (const auto* users = sm_.nhiBaseIdxToSubTrieCollection().find((*subTrie)->nhiBaseIdx())) {
      users->value->subTrieCollection().prefetch(*subTrie);
    }
    if (const auto* blk = sm_.nhiBaseIdxToBlkCollection().find((*subTrie)->nhiBaseIdx())) {
      blk->value->prefetchPlace();
    }
  }
}

}  // namespace Quarle::Agent
