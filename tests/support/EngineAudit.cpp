#include "tests/support/EngineAudit.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "tests/support/CommandText.h"

namespace Quarle::Tarnlet::Testing {

namespace {

class Audit {
 public:
  Audit(const LpmSm& sm, const Hardware& hardware, const Routes& routes)
      : sm_(sm),
        config_(*sm.config()),
        status_(*sm.status()),
        hardware_(hardware),
        routes_(routes) {}

  std::string run() {
    for (auto table = sm_.prefixTableIterator(); table; ++table) {
      expect(table.ptr()->tableId() == table.key(), "a table under another id", "");
      for (auto row = table.ptr()->subTrieIterator(); row; ++row) {
        auditSubTrie(*table.ptr(), row.key(), row.ptr());
      }
    }
    auditPrefixes();
    auditSharing();
    auditTiles();
    return complaints_;
  }

 private:
  void expect(bool holds, const std::string& what, const std::string& where) {
    if (!holds) {
      complaints_ += what + (where.empty() ? "" : ": " + where) + "\n";
    }
  }

  bool mayHave(const Key& prefix, const NextHopBlock& block) const {
    const auto route = routes_.all().find(prefix);
    return route != routes_.all().end() &&
           std::find(route->second.begin(), route->second.end(), block) != route->second.end();
  }

  U32 blockSize(U32 slots) const {
    return (slots + config_.nhiPairPerEntry() - 1) / config_.nhiPairPerEntry();
  }

  void auditSubTrie(const PrefixTable& table, PrefixTableIdx row, const SubTrie::Ptr& subTrie) {
    const std::string where = "t" + std::to_string(table.tableId().value()) + "[" +
                              std::to_string(row.value()) + "] " + subTrie->str().str();
    expect(subTrie->table() == &table && subTrie->index() == row, "sub-trie out of place", where);
    expect(row.value() < table.tableConfig()->depth(), "row behind the table", where);
    const U32 slots = subTrie->prefixs();
    expect(slots != 0, "empty sub-trie in a row", where);
    expect(subTrie->maxPrefixSlot() == slots, "slots not dense", where);
    expect(subTrie->prefixToSlots() == slots, "prefixToSlot of another size", where);
    expect(subTrie->mode() == modeSparse, "mode", where);
    const U8 branchLen = subTrie->branchLen();
    expect(branchLen >= table.tableConfig()->tread() || branchLen == 0, "branch below the tread",
           where);
    const U32 room = static_cast<U32>(table.tableConfig()->entrySize()) - branchLen;
    expect(slots * subTrie->stride() <= room, "wider than the entry", where);
    auditBitmap(*subTrie, room, where);

    const Hardware::Row* chipRow = nullptr;
    const auto found = hardware_.rows().find({table.tableId().value(), row.value()});
    if (found != hardware_.rows().end()) {
      chipRow = &found->second;
    }
    expect(chipRow != nullptr && chipRow->leaves.size() == slots &&
               chipRow->branch == keyOf(subTrie->branch(), branchLen, hardware_.shape().longKey) &&
               chipRow->stride == subTrie->stride() && chipRow->nhiBase == subTrie->nhiBaseIdx(),
           "the chip's row differs", where);
    const NhiInfoKey& key = subTrie->nhiInfoKey();
    expect(key.slotToNextHopBlocks() == slots, "NHI key of another size", where);
    for (U32 slot = 0; slot < slots; ++slot) {
      const LpmPrefix::Ptr prefix = subTrie->prefix(static_cast<U8>(slot));
      const std::string there = where + " slot " + std::to_string(slot);
      expect(prefix != nullptr, "empty slot", there);
      if (prefix == nullptr) {
        continue;
      }
      auditPrefixInSlot(*subTrie, prefix, slot, there);
      expect(table.tableConfig()->hashFunc(prefix) == row.value(), "hashes to another row", there);
      expect(mayHave(keyOf(*prefix), key.slotToNextHopBlock(static_cast<U8>(slot))),
             "NHI key has another block", there);
      if (chipRow != nullptr && slot < chipRow->leaves.size()) {
        expect(chipRow->leaves[slot] && chipRow->prefix(slot) == keyOf(*prefix),
               "the chip's leaf differs", there);
        expect(mayHave(keyOf(*prefix), hardware_.pairOf(*chipRow, slot)), "the chip's pair differs",
               there);
      }
    }
    const Brumel::BFA::Blk::Ptr blk = sm_.nhiBaseIdxToBlk(subTrie->nhiBaseIdx());
    expect(blk != nullptr && blk->blkSz() == blockSize(slots), "NHI block of another size", where);
    expect(subTrie->nhiBlkSize() >= blockSize(slots), "nhiBlkSize too small", where);
    const NhiInfo::Ptr info = sm_.sharedNhi(key);
    expect(info != nullptr && info->nhiBaseIdx() == subTrie->nhiBaseIdx(), "NhiInfo elsewhere",
           where);
    if (info != nullptr) {
      ++users_[info.get()];
    }
    usersOfBase_[subTrie->nhiBaseIdx()].insert(subTrie.get());
    prefixes_ += slots;
    ++subTries_;
  }

  void auditBitmap(const SubTrie& subTrie, U32 room, const std::string& where) {
    const Brumel::Bitmap::Ptr& bitmap = subTrie.prefixBitmap();
    expect(bitmap != nullptr && bitmap->size() == room / subTrie.stride(), "bitmap size", where);
    for (U32 bit = 0; bitmap != nullptr && bit < bitmap->size(); ++bit) {
      expect(bitmap->isBitSet(bit) == (subTrie.prefix(static_cast<U8>(bit)) != nullptr),
             "bitmap bit " + std::to_string(bit), where);
    }
  }

  void auditPrefixInSlot(const SubTrie& subTrie,
                         const LpmPrefix::Ptr& prefix,
                         U32 slot,
                         const std::string& there) {
    expect(
        subTrie.prefixToSlotCollection().isMember(prefix) && subTrie.prefixToSlot(prefix) == slot,
        "prefixToSlot is no inverse", there);
    const Key key = keyOf(*prefix);
    expect(key.len >= subTrie.branchLen() && key.len < subTrie.branchLen() + subTrie.stride(),
           "length outside branch and stride", there);
    expect(key.beginsWith(keyOf(subTrie.branch(), std::min(subTrie.branchLen(), key.len),
                                hardware_.shape().longKey)),
           "does not begin with the branch", there);
    expect(sm_.prefixToSubTrie(prefix) == &subTrie, "prefixToSubTrie names another", there);
  }

  void auditPrefixes() {
    expect(sm_.prefixToSubTries() == prefixes_, "prefixToSubTrie of another size", "");
    expect(status_.prefixToNextHopBlocks() == prefixes_, "status of another size", "");
    expect(hardware_.rows().size() == subTries_, "rows in the chip that no sub-trie has",
           hardware_.text());
    for (const auto& route : status_.prefixToNextHopBlockCollection()) {
      expect(sm_.prefixToSubTrieCollection().isMember(route.key), "route without a sub-trie",
             route.key->stringValue().str());
    }
  }

  void auditSharing() {
    for (auto info = sm_.sharedNhiIterator(); info; ++info) {
      const std::string where = info.ptr()->str().str();
      expect(info.ptr()->nhiInfoKey() == info.key(), "NhiInfo under another key", where);
      expect(info.ptr()->nhiBaseIdx() != NhiTableIdx(), "NhiInfo without a base", where);
      expect(
          info.ptr()->subTrieCount() != 0 && info.ptr()->subTrieCount() == users_[info.ptr().get()],
          "subTrieCount", where);
      const SubTrieSet::Ptr set = sm_.nhiBaseIdxToSubTrie(info.ptr()->nhiBaseIdx());
      std::set<const SubTrie*> members;
      if (set != nullptr) {
        for (const auto& member : set->subTrieCollection()) {
          members.insert(member.key.get());
        }
      }
      expect(members == usersOfBase_[info.ptr()->nhiBaseIdx()], "set of sub-tries", where);
    }
    expect(sm_.nhiBaseIdxToSubTries() == sm_.sharedNhis(), "sets without NhiInfo", "");
    expect(sm_.nhiBaseIdxToBlks() == sm_.sharedNhis(), "blocks without NhiInfo", "");
  }

  void auditTiles() {
    U32 capacity = 0;
    U32 freeEntries = 0;
    for (auto tile = sm_.nhiAllocatorIterator(); tile; ++tile) {
      capacity += tile.ptr()->entriesCapacity();
      freeEntries += tile.ptr()->freeEntries();
    }
    U32 used = 0;
    std::map<U32, U32> endByOffset;
    for (auto blk = sm_.nhiBaseIdxToBlkIterator(); blk; ++blk) {
      const std::string where = blk.key().str().str();
      used += blk.ptr()->blkSz();
      expect(blk.ptr()->offset() == blk.key().offset(), "block under another base", where);
      if (sm_.nhiAllocators() == 1) {
        const U32 end = blk.ptr()->offset() + blk.ptr()->blkSz();
        const auto next = endByOffset.lower_bound(blk.ptr()->offset());
        expect((next == endByOffset.end() || next->first >= end) &&
                   (next == endByOffset.begin() || std::prev(next)->second <= blk.ptr()->offset()),
               "blocks overlap", where);
        endByOffset[blk.ptr()->offset()] = end;
      }
    }
    expect(used + freeEntries == capacity, "entries lost",
           std::to_string(used) + " used, " + std::to_string(freeEntries) + " free of " +
               std::to_string(capacity));
  }

  const LpmSm& sm_;
  const ConfigBase& config_;
  const Status& status_;
  const Hardware& hardware_;
  const Routes& routes_;
  std::string complaints_;
  std::map<const NhiInfo*, U32> users_;
  std::map<NhiTableIdx, std::set<const SubTrie*>> usersOfBase_;
  U32 prefixes_ = 0;
  U32 subTries_ = 0;
};

}  // namespace

std::string audit(const LpmSm& sm, const Hardware& hardware, const Routes& routes) {
  return Audit(sm, hardware, routes).run();
}

}  // namespace Quarle::Tarnlet::Testing
