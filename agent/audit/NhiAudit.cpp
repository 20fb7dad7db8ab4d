#include "agent/audit/NhiAudit.h"

#include <algorithm>

#include "agent/CommandEncoding.h"
#include "agent/WriteFaults.h"

namespace Quarle::Agent {

namespace {

using Tarnlet::NextHopBlockList;
using Tarnlet::NhiInfo;
using Tarnlet::NhiTableIdx;
using Tarnlet::SubTrie;
using Tarnlet::SubTrieSet;

constexpr U32 kDevice = 0;

std::string pairText(U32 base, U32 size) {
  return std::to_string(base) + "+" + std::to_string(size);
}

/// The first pair in which two rows differ: "pair 3 is 7+1, expected 9+1"; empty when none does.
std::string difference(const xpLpmNhiEntry& seen, const xpLpmNhiEntry& expected, U32 pairs) {
  for (U32 i = 0; i < pairs; ++i) {
    if (seen.base[i] != expected.base[i] || seen.size[i] != expected.size[i]) {
      return "pair " + std::to_string(i) + " is " + pairText(seen.base[i], seen.size[i]) +
             ", expected " + pairText(expected.base[i], expected.size[i]);
    }
  }
  return {};
}

}  // namespace

NhiAudit::NhiAudit(const AuditedFamily& family, FaultLog& log)
    : family_(family), engine_(family.engine), log_(log) {
  U32 places = 0;
  for (const auto& tile : engine_.nhiAllocatorCollection()) {
    const U32 entries = tile.value == nullptr ? 0 : tile.value->entriesCapacity();
    tiles_[tile.memberKey().value()] = {.first = places, .entries = entries};
    places += entries;
  }
  usersOfBase_.resize(places);
  usersOfInfo_.resize(places);
  named_.resize(places);
  taken_.resize(places);
}

U32 NhiAudit::placeOf(const NhiTableIdx& base) const {
  const Tile& tile = tiles_[base.tile().value()];
  return base.offset() < tile.entries ? tile.first + base.offset() : kNowhere;
}

void NhiAudit::userIs(const SubTrie::Ptr& subTrie, const NhiInfo* info) {
  const U32 base = placeOf(subTrie->nhiBaseIdx());
  if (base != kNowhere) {
    const auto* set = engine_.nhiBaseIdxToSubTrieCollection().find(subTrie->nhiBaseIdx());
    if (set == nullptr || set->value == nullptr ||
        !set->value->subTrieCollection().isMember(subTrie)) {
      log_.add("the set of its NHI block lacks the sub-trie",
               family_.nhiText(subTrie->nhiBaseIdx()),
               "sub-trie " + std::string(subTrie->str().str()));
    } else {
      ++usersOfBase_[base];
    }
  }
  const U32 named = info == nullptr ? kNowhere : placeOf(info->nhiBaseIdx());
  if (named != kNowhere) {
    ++usersOfInfo_[named];
  }
}

void NhiAudit::run() {
  for (const auto& info : engine_.sharedNhiCollection()) {
    auditInfo(*info.value);
  }
  for (const auto& set : engine_.nhiBaseIdxToSubTrieCollection()) {
    auditSet(set.memberKey(), set.value.get());
  }
  for (const auto& block : engine_.nhiBaseIdxToBlkCollection()) {
    auditBlock(block.memberKey(), block.value.get());
  }
  for (const auto& tile : engine_.nhiAllocatorCollection()) {
    auditTile(tile.memberKey().value(), tile.value.get());
  }
}

void NhiAudit::auditInfo(const NhiInfo& info) {
  const NhiTableIdx base = info.nhiBaseIdx();
  const auto where = [&] { return family_.nhiText(base); };
  const U32 place = placeOf(base);
  if (place == kNowhere) {
    log_.add("an NHI record lies in no tile", where(), info.str().str());
    return;
  }
  if (named_[place]) {
    log_.add("two NHI records name one block", where(), info.str().str());
    return;
  }
  named_[place] = true;
  if (info.subTrieCount() != usersOfInfo_[place] || info.subTrieCount() == 0) {
    log_.add("subTrieCount", where(), seenInsteadOf(info.subTrieCount(), usersOfInfo_[place]));
  }
  const auto* block = engine_.nhiBaseIdxToBlkCollection().find(base);
  if (block == nullptr || block->value == nullptr) {
    log_.add("an NHI record has no block", where(), info.str().str());
    return;
  }
  const U32 expected =
      engine_.nhiBlockSize(static_cast<U8>(info.nhiInfoKey().slotToNextHopBlocks()));
  if (block->value->blkSz() != expected) {
    log_.add("an NHI block of another size", where(),
             seenInsteadOf(block->value->blkSz(), expected));
  }
  if (family_.manager != nullptr) {
    auditEntries(info);
  }
}

/// Spells the content as the engine does and compares entry by entry. Pairs that the SDK's record
/// has room for and the chip does not are left out.
void NhiAudit::auditEntries(const NhiInfo& info) {
  const NhiTableIdx base = info.nhiBaseIdx();
  const U32 pairs = engine_.config()->nhiPairPerEntry();
  const auto& content = info.nhiInfoKey().slotToNextHopBlockCollection();
  const auto* pair = content.begin();
  for (U32 i = 0; pair != content.end(); ++i) {
    NextHopBlockList list;
    for (U32 inEntry = 0; inEntry < pairs && pair != content.end(); ++inEntry, ++pair) {
      list.nextHopBlockEnq(pair->value);
    }
    const NhiTableIdx place(base.tile(), static_cast<U16>(base.offset() + i));
    xpLpmNhiEntry expected;
    encode(*Tarnlet::nhiCommandFactory(place, std::move(list)), expected);
    xpLpmNhiEntry seen;
    const XP_STATUS status =
        family_.manager->readNhiEntry(kDevice, place.tile().value(), place.offset(), &seen, 0);
    ++log_.counts().nhiEntries;
    if (!isWritten(status)) {
      log_.add("the chip's NHI entry cannot be read", family_.nhiText(place),
               "the read answered " + std::to_string(status));
      continue;
    }
    std::string reason = difference(seen, expected, std::min<U32>(pairs, xpLpmNhiEntry::kPairs));
    if (!reason.empty()) {
      log_.add("the chip's NHI entry differs", family_.nhiText(place), std::move(reason));
    }
  }
}

void NhiAudit::auditSet(const NhiTableIdx& base, const SubTrieSet* set) {
  const U32 place = placeOf(base);
  const U32 members = set == nullptr ? 0 : set->subTries();
  const U32 users = place == kNowhere ? 0 : usersOfBase_[place];
  if (members == 0) {
    log_.add("an empty set of sub-tries", family_.nhiText(base));
  } else if (members != users) {
    log_.add("a set of sub-tries of another size", family_.nhiText(base),
             seenInsteadOf(members, users));
  }
  if (place == kNowhere || !named_[place]) {
    log_.add("a set of sub-tries without an NHI record", family_.nhiText(base));
  }
}

void NhiAudit::auditBlock(const NhiTableIdx& base, const Brumel::BFA::Blk* block) {
  const auto where = [&] { return family_.nhiText(base); };
  ++log_.counts().nhiBlocks;
  if (block == nullptr) {
    log_.add("no block under its name", where());
    return;
  }
  Tile& tile = tiles_[base.tile().value()];
  const U32 end = block->offset() + block->blkSz();
  if (end > tile.entries) {
    log_.add("a block reaches out of its tile", where(),
             "its end is " + seenInsteadOf(end, tile.entries) + " or less");
    return;
  }
  if (block->offset() != base.offset()) {
    log_.add("a block under another name than its place", where(),
             "it begins at entry " + std::to_string(block->offset()));
  }
  const U32 place = placeOf(base);
  if (place == kNowhere || !named_[place]) {
    log_.add("a block without an NHI record", where());
  }
  tile.used += block->blkSz();
  for (U32 entry = block->offset(); entry < end; ++entry) {
    if (taken_[tile.first + entry]) {
      log_.add("blocks overlap", where(),
               "entry " + std::to_string(entry) + " belongs to another block as well");
      break;
    }
  }
  for (U32 entry = block->offset(); entry < end; ++entry) {
    taken_[tile.first + entry] = true;
  }
}

void NhiAudit::auditTile(U32 index, const Brumel::BestFitAllocator* allocator) {
  ++log_.counts().nhiTiles;
  const std::string where = family_.familyText() + "NHI tile " + std::to_string(index);
  if (allocator == nullptr) {
    log_.add("a tile without an allocator", where);
    return;
  }
  const U32 expected = tiles_[index].entries - std::min(tiles_[index].used, tiles_[index].entries);
  if (allocator->freeEntries() != expected) {
    log_.add("free entries", where, seenInsteadOf(allocator->freeEntries(), expected));
  }
}

}  // namespace Quarle::Agent
