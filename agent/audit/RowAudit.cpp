#include "agent/audit/RowAudit.h"

#include <algorithm>
#include <cstring>

#include "agent/CommandEncoding.h"
#include "agent/WriteFaults.h"
#include "framework/Vellor/Prefetch.h"

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::PrefixTable;
using Tarnlet::PrefixTableConfig;
using Tarnlet::PrefixTableIdx;
using Tarnlet::SubTrie;
using Tarnlet::SubTrieBranch;

constexpr U32 kDevice = 0;

bool isClear(const xpLpmPrefixEntry& entry) {
  static const xpLpmPrefixEntry kClear;
  return std::memcmp(&entry, &kClear, sizeof entry) == 0;
}

/// The first `bits` bits, zeros behind.
SubTrieBranch firstBits(SubTrieBranch branch, U32 bits) {
  for (U32 word = 0; word < 3; ++word) {
    const U32 kept = std::min(bits - std::min(bits, word * 64), U32{64});
    branch.u64Is(word, kept == 0 ? 0 : branch.u64(word) >> (64 - kept) << (64 - kept));
  }
  return branch;
}

/// What is wrong with a route's sub-trie as a place for it; null when nothing is.
const char* faultOfPlace(const LpmPrefix::Ptr& prefix, const SubTrie* trie) {
  const auto* slot = trie == nullptr ? nullptr : trie->prefixToSlotCollection().find(prefix);
  const LpmPrefix::Ptr* there =
      slot == nullptr ? nullptr : trie->prefixCollection().find(slot->value);
  if (there == nullptr || *there != prefix) {
    return "prefixToSubTrie names a sub-trie without the prefix";
  }
  const auto* row =
      trie->table() == nullptr ? nullptr : trie->table()->subTrieCollection().find(trie->index());
  return row == nullptr || row->value != trie ? "a route whose sub-trie stands in no row" : nullptr;
}

/// Whether a row's record has bits for the prefix's leaf.
bool canBeSpelled(const SubTrie& trie, const LpmPrefix& prefix) {
  constexpr int kLeafBits = 127;
  return prefix.len() >= trie.branchLen() && prefix.len() - trie.branchLen() <= kLeafBits;
}

/// The first field in which two rows differ; empty when none does.
std::string difference(const xpLpmPrefixEntry& seen, const xpLpmPrefixEntry& expected) {
  const std::pair<const char*, U32 xpLpmPrefixEntry::*> fields[] = {
      {"keySize ", &xpLpmPrefixEntry::keySize},     {"mode ", &xpLpmPrefixEntry::mode},
      {"branchLen ", &xpLpmPrefixEntry::branchLen}, {"stride ", &xpLpmPrefixEntry::stride},
      {"nhiTile ", &xpLpmPrefixEntry::nhiTile},     {"nhiOffset ", &xpLpmPrefixEntry::nhiOffset}};
  if (std::memcmp(&seen, &expected, sizeof seen) == 0) {
    return {};
  }
  if (isClear(seen)) {
    return "it is clear";
  }
  for (const auto& [name, field] : fields) {
    const U32 value = seen.*field;
    const U32 wanted = expected.*field;
    if (value != wanted) {
      return name + seenInsteadOf(value, wanted);
    }
  }
  for (U32 slot = 0; slot < xpLpmPrefixEntry::kLeaves; ++slot) {
    const U64 low = seen.leafVal[slot];
    const U64 wanted = expected.leafVal[slot];
    if (low != wanted) {
      return "leaf " + std::to_string(slot) + " " + seenInsteadOf(low, wanted);
    }
    const U64 high = seen.leafValHigh[slot];
    const U64 wantedHigh = expected.leafValHigh[slot];
    if (high != wantedHigh) {
      return "high part of leaf " + std::to_string(slot) + " " + seenInsteadOf(high, wantedHigh);
    }
  }
  return "other bits of the branch";
}

}  // namespace

RowAudit::RowAudit(const AuditedFamily& family,
                   const GroupAudit* groups,
                   NhiAudit& nhi,
                   FaultLog& log)
    : family_(family),
      engine_(family.engine),
      config_(family.engine.config()),
      status_(family.engine.status()),
      groups_(groups),
      nhi_(nhi),
      log_(log) {
  U64 subTries = 0;
  for (const auto& table : engine_.prefixTableCollection()) {
    subTries += table.value->subTries();
  }
  subTries_.reserve(subTries);
}

void RowAudit::run(const AuditOptions& options) {
  for (const auto& table : engine_.prefixTableCollection()) {
    auditTable(*table.value, options);
  }
  auditMaps();
}

// ---- rows ----

void RowAudit::auditTable(const PrefixTable& table, const AuditOptions& options) {
  const U32 id = table.tableId().value();
  const std::size_t before = subTries_.size();
  U32 row = 0;
  where_ = [this, id, &row] { return family_.rowText(id, row); };
  const PrefixTableConfig::Ptr& shape = table.tableConfig();
  if (shape == nullptr || shape != config_->prefixTableConfig(table.tableId())) {
    log_.add("a table of another configuration",
             family_.familyText() + "table " + std::to_string(id));
    if (shape == nullptr) {
      return;
    }
  }
  constexpr U32 kRowsPerReport = 65536;
  for (; row < shape->depth(); ++row) {
    lookAhead(table, row);
    const auto* member = table.subTrieCollection().find(row);
    if (member == nullptr || member->value == nullptr) {
      auditFreeRow(id, row);
    } else {
      auditSubTrie(table, row, member->value);
    }
    if (options.progress && (row + 1) % kRowsPerReport == 0) {
      options.progress({.family = family_.family,
                        .step = "rows",
                        .done = subTries_.size(),
                        .total = subTries_.capacity()});
    }
  }
  if (subTries_.size() - before == table.subTries()) {
    return;
  }
  for (const auto& member : table.subTrieCollection()) {
    row = member.memberKey().value();
    if (member.value == nullptr) {
      complain("a row on record without a sub-trie");
    } else if (row >= shape->depth()) {
      complain("a sub-trie behind the table",
               "row " + seenInsteadOf(row, shape->depth() - 1) + " or less");
      auditSubTrie(table, row, member.value);
    }
  }
}

/// Asks the memory for what the rows behind `row` are compared with: sub-trie, parts, and prefixes,
/// each once the one before has come.
void RowAudit::lookAhead(const PrefixTable& table, U32 row) const {
  constexpr U32 kNear = 4;
  const auto at = [&](U32 ahead) -> const SubTrie* {
    const auto* member = table.subTrieCollection().find(row + ahead);
    return member == nullptr ? nullptr : member->value.get();
  };
  Vellor::prefetch(at(3 * kNear));
  if (const SubTrie* trie = at(2 * kNear)) {
    trie->prefetchParts();
  }
  if (const SubTrie* trie = at(kNear)) {
    trie->prefetchPrefixes();
  }
}

void RowAudit::auditFreeRow(U32 table, U32 row) {
  xpLpmPrefixEntry seen;
  if (family_.manager == nullptr || !readRow(table, row, seen) || isClear(seen)) {
    return;
  }
  complain("a row of the chip that no sub-trie has",
           "branchLen " + std::to_string(seen.branchLen + 0U) + ", stride " +
               std::to_string(seen.stride + 0U) + ", NHI " + std::to_string(seen.nhiTile + 0U) +
               "," + std::to_string(seen.nhiOffset + 0U));
}

void RowAudit::auditSubTrie(const PrefixTable& table, U32 row, const SubTrie::Ptr& trie) {
  ++log_.counts().subTries;
  if (trie->table() != &table || trie->index() != PrefixTableIdx(row)) {
    complain(
        "a sub-trie that names another place",
        (trie->table() == nullptr ? std::string("no table")
                                  : "table " + std::to_string(trie->table()->tableId().value())) +
            " row " + std::to_string(trie->index().value()));
  }
  branch_ = firstBits(trie->branch(), trie->branchLen());
  auditLayout(table, *trie);
  auditSlots(table, *trie);
  auditContent(trie);
  subTries_.push_back(trie.get());
  if (family_.manager != nullptr) {
    auditChipRow(table, row, *trie);
  }
}

void RowAudit::auditLayout(const PrefixTable& table, const SubTrie& trie) {
  const PrefixTableConfig& shape = *table.tableConfig();
  const U32 slots = trie.prefixs();
  if (slots == 0) {
    complain("a sub-trie without a prefix");
  }
  if (trie.maxPrefixSlot() != slots) {
    complain("maxPrefixSlot", seenInsteadOf(trie.maxPrefixSlot(), slots));
  }
  if (trie.prefixToSlots() != slots) {
    complain("prefixToSlot of another size", seenInsteadOf(trie.prefixToSlots(), slots));
  }
  if (trie.mode() != Tarnlet::modeSparse) {
    complain("mode",
             "it is " + std::to_string(static_cast<U32>(trie.mode())) + ", expected modeSparse");
  }
  const U32 branchLen = trie.branchLen();
  if (branchLen != 0 && branchLen < shape.tread()) {
    complain("a branch below the tread", seenInsteadOf(branchLen, U32{shape.tread()}) + " or more");
  }
  const U32 entrySize = shape.entrySize();
  if (branchLen > entrySize || slots * trie.stride() > entrySize - branchLen) {
    complain("a sub-trie wider than its row",
             std::to_string(slots) + " slots of " + std::to_string(trie.stride()) +
                 " bits behind a branch of " + std::to_string(branchLen) + ", expected " +
                 std::to_string(entrySize) + " bits or less");
    return;
  }
  auditBitmap(trie, entrySize - branchLen);
}

void RowAudit::auditBitmap(const SubTrie& trie, U32 room) {
  const Brumel::Bitmap* bitmap = trie.prefixBitmap().get();
  if (trie.stride() == 0) {
    complain("stride", "it is 0, expected 1 or more");
    return;
  }
  if (bitmap == nullptr) {
    complain("a sub-trie without prefixBitmap");
    return;
  }
  const U32 expected = room / trie.stride();
  if (bitmap->size() != expected) {
    complain("prefixBitmap of another size", seenInsteadOf(bitmap->size(), expected));
  }
  for (U32 bit = 0; bit < bitmap->size(); ++bit) {
    if (bitmap->isBitSet(bit) != trie.prefixCollection().isMember(static_cast<U8>(bit))) {
      complain("prefixBitmap", "bit " + std::to_string(bit) + " is " +
                                   (bitmap->isBitSet(bit) ? "set" : "clear") + ", expected " +
                                   (bitmap->isBitSet(bit) ? "clear" : "set"));
    }
  }
}

// ---- prefixes ----

void RowAudit::auditSlots(const PrefixTable& table, const SubTrie& trie) {
  const PrefixTableConfig& shape = *table.tableConfig();
  // Below a branch that covers the hashed bits all prefixes hash alike.
  bool hashed = false;
  for (const auto& member : trie.prefixCollection()) {
    const LpmPrefix::Ptr& prefix = member.value;
    if (prefix == nullptr) {
      complain("a slot without a prefix", "slot " + std::to_string(member.key));
      continue;
    }
    auditPrefix(trie, member.key, prefix);
    auditWish(trie, member.key, prefix);
    if (!hashed) {
      const U32 row = shape.hashFunc(prefix);
      if (row != trie.index().value()) {
        complain("a prefix that hashes to another row",
                 family_.routeText(*prefix) + ": " + seenInsteadOf(row, trie.index().value()));
      }
      hashed = trie.branchLen() >= shape.tread();
    }
  }
}

void RowAudit::auditPrefix(const SubTrie& trie, U8 slot, const LpmPrefix::Ptr& prefix) {
  const auto reason = [&] {
    return family_.routeText(*prefix) + " in slot " + std::to_string(slot);
  };
  const auto* back = trie.prefixToSlotCollection().find(prefix);
  if (back == nullptr || back->value != slot) {
    complain("prefixToSlot",
             reason() + (back == nullptr ? std::string(" is absent there")
                                         : " stands there in slot " + std::to_string(back->value)));
  }
  const U32 len = prefix->len();
  const U32 branchLen = trie.branchLen();
  if (len < branchLen || len >= branchLen + trie.stride()) {
    complain("a prefix that branch and stride cannot spell",
             reason() + ", " + std::to_string(len) + " bits, expected " +
                 std::to_string(branchLen) + " to " +
                 std::to_string(static_cast<int>(branchLen + trie.stride()) - 1));
  } else if (!(prefix->branch(static_cast<U8>(branchLen)) == branch_)) {
    complain("a prefix that does not begin with the branch", reason());
  }
  const auto* standing = engine_.prefixToSubTrieCollection().find(prefix);
  if (standing != nullptr && standing->value == &trie) {
    ++placed_;
  } else {
    complain("prefixToSubTrie",
             reason() + (standing == nullptr ? " is absent there" : " has another sub-trie there"));
  }
}

/// What is asked for, what is told to be in the chip and what the row's NHI content has.
void RowAudit::auditWish(const SubTrie& trie, U8 slot, const LpmPrefix::Ptr& prefix) {
  const auto where = [&] { return family_.routeText(*prefix); };
  const auto* route = status_->prefixToNextHopBlockCollection().find(prefix);
  const auto* request = config_->requestCollection().find(prefix);
  inStatus_ += route != nullptr ? 1 : 0;
  requested_ += request != nullptr ? 1 : 0;
  const auto* content = trie.nhiInfoKey().slotToNextHopBlockCollection().find(slot);
  if (route == nullptr) {
    log_.add("prefixToNextHopBlock lacks a placed route", where());
    return;
  }
  if (request == nullptr) {
    log_.add("request lacks a placed route", where());
  } else if (!(request->value == route->value)) {
    log_.add("request and prefixToNextHopBlock differ", where(),
             "block " + std::string(route->value.str().str()) + ", requested " +
                 request->value.str().str());
  }
  if (content == nullptr || !(content->value == route->value)) {
    log_.add("the NHI content and prefixToNextHopBlock differ", where(),
             "block " + std::string(route->value.str().str()) + ", in the content " +
                 (content == nullptr ? "none" : content->value.str().str()));
  }
  if (groups_ != nullptr && !groups_->isGroup(route->value)) {
    log_.add("a route to next-hop rows of no group", where(),
             "block " + std::string(route->value.str().str()));
  }
}

void RowAudit::auditContent(const SubTrie::Ptr& trie) {
  const Tarnlet::NhiInfoKey& key = trie->nhiInfoKey();
  if (key.slotToNextHopBlocks() != trie->prefixs()) {
    complain("an NHI content of another size",
             seenInsteadOf(key.slotToNextHopBlocks(), trie->prefixs()));
  }
  const auto* member = engine_.sharedNhiCollection().find(key);
  const Tarnlet::NhiInfo* info = member == nullptr ? nullptr : member->value.get();
  if (info == nullptr) {
    complain("an NHI content without a record", key.str().str());
  } else if (info->nhiBaseIdx() != trie->nhiBaseIdx()) {
    complain("an NHI base that is not its content's", std::string(trie->nhiBaseIdx().str().str()) +
                                                          ", expected " +
                                                          info->nhiBaseIdx().str().str());
  }
  const U32 needed = engine_.nhiBlockSize(static_cast<U8>(trie->prefixs()));
  if (trie->nhiBlkSize() < needed) {
    complain("nhiBlkSize", seenInsteadOf(trie->nhiBlkSize(), needed) + " or more");
  }
  nhi_.userIs(trie, info);
}

// ---- the chip ----

bool RowAudit::readRow(U32 table, U32 row, xpLpmPrefixEntry& entry) {
  const XP_STATUS status = family_.manager->readPrefixEntry(kDevice, table, row, &entry, 0);
  ++log_.counts().prefixRows;
  if (isWritten(status)) {
    return true;
  }
  complain("the chip's row cannot be read", "the read answered " + std::to_string(status));
  return false;
}

void RowAudit::auditChipRow(const PrefixTable& table, U32 row, const SubTrie& trie) {
  xpLpmPrefixEntry seen;
  if (!readRow(table.tableId().value(), row, seen)) {
    return;
  }
  // What no record can spell is left out; the layout's own checks tell of it.
  Tarnlet::LpmPrefixList list;
  list.prefixReserve(trie.maxPrefixSlot());
  for (U32 slot = 0; slot < trie.maxPrefixSlot(); ++slot) {
    const LpmPrefix::Ptr* prefix = trie.prefixCollection().find(static_cast<U8>(slot));
    const bool isSpelled = prefix != nullptr && *prefix != nullptr && canBeSpelled(trie, **prefix);
    if (slot < xpLpmPrefixEntry::kLeaves) {
      list.prefixEnq(isSpelled ? *prefix : LpmPrefix::Ptr());
    }
  }
  xpLpmPrefixEntry expected;
  encode(*Tarnlet::prefixCommandFactory(table.tableId(), row, trie.branch(), trie.branchLen(),
                                        trie.stride(), trie.mode(), std::move(list),
                                        trie.nhiBaseIdx()),
         config_->keyType(), expected);
  std::string reason = difference(seen, expected);
  if (!reason.empty()) {
    complain("the chip's row differs", std::move(reason));
  }
}

// ---- the maps as a whole ----

void RowAudit::auditMaps() {
  log_.counts().routes += engine_.prefixToSubTries();
  if (engine_.prefixToSubTries() != placed_) {
    for (const auto& member : engine_.prefixToSubTrieCollection()) {
      const char* fault = faultOfPlace(member.key, member.value.get());
      if (fault != nullptr) {
        log_.add(fault, family_.routeText(*member.key));
        strays_.push_back(&member.key);
      }
    }
  }
  if (status_->prefixToNextHopBlocks() != inStatus_) {
    for (const auto& member : status_->prefixToNextHopBlockCollection()) {
      if (!engine_.prefixToSubTrieCollection().isMember(member.key)) {
        log_.add("prefixToNextHopBlock has a route that is not placed",
                 family_.routeText(*member.key));
        strays_.push_back(&member.key);
      }
    }
  }
  if (!family_.refusedStayRequested && config_->requests() != requested_) {
    for (const auto& member : config_->requestCollection()) {
      if (!engine_.prefixToSubTrieCollection().isMember(member.key)) {
        log_.add("request has a route that is not placed", family_.routeText(*member.key));
      }
    }
  }
  if (status_->pendingCmds() != 0) {
    log_.add("commands that have not reached the chip", family_.familyText() + "command queue",
             seenInsteadOf(status_->pendingCmds(), 0));
  }
}

}  // namespace Quarle::Agent
