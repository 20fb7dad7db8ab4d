#include "engine/RestartHelperBase.h"

#include <cstdio>
#include <vector>

#include "engine/LpmSm.h"
#include "engine/PrefixEntryDecoding.h"
#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Invariant.h"
#include "framework/Xdk/Xdk.h"
#include "model/TraceUnits.h"

// The walk that takes over what the hardware holds, row by row. A row is decoded and judged as a
// whole before anything of it is entered; behind the line "adopt" nothing may refuse. It writes
// `request` while the machine is not yet initialized, so that no request is served on the way: the
// sweep at the end of start-up finds each of them installed and writes its sub-trie once more.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 5;
constexpr U32 kRowTraceLevel = 8;
constexpr U32 kDevice = 0;

/// Whether an access went through: with the other two codes the chip has mended what was wrong.
constexpr bool isDone(XP_STATUS status) {
  return status == XP_NO_ERR || status == XP_ERR_BUS_RETRIED || status == XP_ERR_MEMORY_CORRECTED;
}

/// `call` is how the line on the standard error stream spells the operation, `line` the call's.
[[noreturn]] void sdkFailed(const char* call, XP_STATUS status, U32 line) {
  std::fprintf(stderr, "%s:%u %s API ERROR %d\n", tarnletSmTrace.facility(), line, call, status);
  Vellor::assertionFailed("!(true)", __FILE__, line, __func__);
}

class RestartWalk {
 public:
  RestartWalk(RestartHelperBase* helper, bool removeStale)
      : helper_(helper),
        config_(*helper->lpmConfig()),
        status_(*helper->lpmStatus()),
        lpmSm_(*helper->lpmSm()),
        removeStale_(removeStale),
        mode_(config_.restartMode()) {}

  void run();

 private:
  void walkRow(const PrefixTableConfig::Ptr& tableConfig,
               const PrefixTable::Ptr& table,
               U32 offset);
  bool readRow(PrefixTableId tableId, U32 offset, xpLpmPrefixEntry& entry);
  void dropRow(PrefixTableId tableId, U32 offset, xpLpmPrefixEntry& entry);
  void adopt(const PrefixTable::Ptr& table,
             U32 offset,
             const xpLpmPrefixEntry& entry,
             const SubTrieBranch& branch);
  SubTrie::Ptr makeSubTrie(const PrefixTable::Ptr& table,
                           U32 offset,
                           const xpLpmPrefixEntry& entry,
                           const SubTrieBranch& branch,
                           const NhiTableIdx& nhiBaseIdx);
  NhiInfoKey recoverRoutes(const SubTrie& subTrie, const NhiTableIdx& nhiBaseIdx);
  void registerSubTrie(const SubTrie::Ptr& subTrie,
                       const NhiInfoKey& key,
                       const NhiTableIdx& nhiBaseIdx,
                       const Brumel::BFA::Blk::Ptr& blk);

  xpIpRouteLpmMgr& xdkLpmMgr() const {
    VELLOR_ASSERT(helper_->xdkLpmMgr(), "xdkLpmMgr()");
    return *helper_->xdkLpmMgr();
  }

  const RestartHelperBase::Ptr helper_;
  ConfigBase& config_;
  Status& status_;
  LpmSm& lpmSm_;
  const bool removeStale_;
  const RestartMode mode_;
  // Of the row that the walk stands on, by slot; kept from row to row for its memory.
  std::vector<LpmPrefix::Ptr> prefixes_;
};

void RestartWalk::run() {
  for (auto tableConfig = config_.prefixTableConfigIterator(); tableConfig; ++tableConfig) {
    const PrefixTable::Ptr table = lpmSm_.prefixTableIs(tableConfig.key(), tableConfig.ptr());
    for (U32 offset = 0; offset < tableConfig.ptr()->depth(); ++offset) {
      walkRow(tableConfig.ptr(), table, offset);
    }
  }
}

void RestartWalk::walkRow(const PrefixTableConfig::Ptr& tableConfig,
                          const PrefixTable::Ptr& table,
                          U32 offset) {
  const PrefixTableId tableId = tableConfig->tableId();
  xpLpmPrefixEntry entry;
  if (!readRow(tableId, offset, entry)) {
    return;
  }
  prefixes_.clear();
  SubTrieBranch branch;
  if (!parsePrefixTableEntry(helper_->lpmConfig(), helper_, tableConfig, entry, offset, branch,
                             prefixes_)) {
    dropRow(tableId, offset, entry);
    return;
  }
  if (prefixes_.empty()) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " no prefix is allocated");
    return;
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " valid prefix entry at offset " << offset << " in table " << tableId);
  adopt(table, offset, entry, branch);
}

/// Whether there is a row to judge.
bool RestartWalk::readRow(PrefixTableId tableId, U32 offset, xpLpmPrefixEntry& entry) {
  VELLOR_TRACE(tarnletSmTrace, kRowTraceLevel,
               " reading prefix table entry " << offset << " in table " << tableId);
  const XP_STATUS ret = xdkLpmMgr().readPrefixEntry(kDevice, tableId.value(), offset, &entry, 0);
  if (ret == XP_ERR_NOTHING_TO_READ) {
    return false;
  }
  VELLOR_ASSERT(ret == XP_NO_ERR, "ret == XP_NO_ERR");
  // A stride alone makes a row: the default route's sub-trie has no branch.
  if (entry.branchLen == 0 && entry.stride == 0) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " empty prefix entry");
    return false;
  }
  return true;
}

/// A row that was refused: the software never knew it.
void RestartWalk::dropRow(PrefixTableId tableId, U32 offset, xpLpmPrefixEntry& entry) {
  VELLOR_ASSERT(mode_ != modeRestartTest, "Recovering prefix entry failed");
  if (!removeStale_) {
    return;
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " clear prefix entry");
  entry = xpLpmPrefixEntry();
  const XP_STATUS status = xdkLpmMgr().writePrefixEntry(kDevice, tableId.value(), offset, &entry);
  if (!isDone(status)) {
    sdkFailed("((xdkLpmMgr()->writePrefixEntry( 0, tableId.value(), offset, &xpPrefixEntry )))",
              status, __LINE__);
  }
}

// --- adopt: nothing below may refuse

/// Enters the row whose prefixes stand in `prefixes_`.
void RestartWalk::adopt(const PrefixTable::Ptr& table,
                        U32 offset,
                        const xpLpmPrefixEntry& entry,
                        const SubTrieBranch& branch) {
  const NhiTableIdx nhiBaseIdx(static_cast<U8>(entry.nhiTile), static_cast<U16>(entry.nhiOffset));
  const SubTrie::Ptr subTrie = makeSubTrie(table, offset, entry, branch, nhiBaseIdx);
  // The very place that the hardware shows. A sub-trie of a shared block finds the block standing.
  const Brumel::BFA::Blk::Ptr blk =
      lpmSm_.nhiAllocator(nhiBaseIdx.tile())->realloc(nhiBaseIdx.offset(), subTrie->nhiBlkSize());
  const NhiInfoKey key = recoverRoutes(*subTrie, nhiBaseIdx);
  registerSubTrie(subTrie, key, nhiBaseIdx, blk);
}

SubTrie::Ptr RestartWalk::makeSubTrie(const PrefixTable::Ptr& table,
                                      U32 offset,
                                      const xpLpmPrefixEntry& entry,
                                      const SubTrieBranch& branch,
                                      const NhiTableIdx& nhiBaseIdx) {
  // A list has no more members than a row has slots, and none behind the last used one: what was
  // empty there before the restart is not recoverable.
  const U8 slots = static_cast<U8>(prefixes_.size());
  SubTrie::Ptr subTrie = subTrieFactory(offset, branch, static_cast<U8>(entry.branchLen),
                                        static_cast<U8>(entry.stride), modeSparse, table);
  table->subTrieIs(offset, subTrie);
  subTrie->nhiBaseIdxIs(nhiBaseIdx);
  subTrie->nhiBlkSizeIs(lpmSm_.nhiBlockSize(slots));
  subTrie->maxPrefixSlotIs(slots);
  subTrie->allocatePrefixBitmap();
  for (U8 slot = 0; slot < slots; ++slot) {
    if (prefixes_[slot]) {
      subTrie->prefixIs(slot, prefixes_[slot]);
      subTrie->prefixToSlotIs(prefixes_[slot], slot);
      subTrie->prefixBitmap()->setBit(slot);
    }
  }
  VELLOR_INVARIANT(subTrie->fit(subTrie->branchLen(), subTrie->stride(),
                                static_cast<U8>(subTrie->prefixs()), subTrie->mode()),
                   "subTrie->fit( subTrie->branchLen(), subTrie->stride(), subTrie->prefixs(), "
                   "subTrie->mode() )",
                   " subtrie ", subTrie->str());
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " created subTrie " << subTrie->str());
  return subTrie;
}

/// Reads the sub-trie's NHI block into the routes. The result is the block's content; unlike a key
/// that the engine generates it has no members for empty slots.
NhiInfoKey RestartWalk::recoverRoutes(const SubTrie& subTrie, const NhiTableIdx& nhiBaseIdx) {
  NhiInfoKey key;
  key.slotToNextHopBlockReserve(subTrie.prefixs());
  const U32 rows = subTrie.nhiBlkSize();
  U32 slot = 0;
  for (U32 i = 0; i < rows && slot < subTrie.maxPrefixSlot(); ++i) {
    xpLpmNhiEntry entry;
    const XP_STATUS status = xdkLpmMgr().readNhiEntry(kDevice, nhiBaseIdx.tile().value(),
                                                      nhiBaseIdx.offset() + i, &entry, 0);
    if (!isDone(status)) {
      sdkFailed(
          "((xdkLpmMgr()->readNhiEntry( 0, nhiBaseIdx.tile().value(), nhiBaseIdx.offset() + i, "
          "&xpNhiEntry, 0 )))",
          status, __LINE__);
    }
    for (U32 pair = 0; pair < config_.nhiPairPerEntry() && slot < subTrie.maxPrefixSlot();
         ++pair, ++slot) {
      const LpmPrefix::Ptr prefix = subTrie.prefix(static_cast<U8>(slot));
      if (!prefix) {
        continue;
      }
      VELLOR_ASSERT(pair < xpLpmNhiEntry::kPairs, "pair < xpLpmNhiEntry::kPairs");
      const NextHopBlock block(U32{entry.base[pair]}, static_cast<U16>(entry.size[pair]));
      config_.requestIs(prefix, block);
      status_.prefixToNextHopBlockIs(prefix, block);
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   " recovered prefix " << prefix->stringValue() << " nexthop block " << block
                                        << " slot " << slot);
      key.slotToNextHopBlockIs(static_cast<U8>(slot), block);
    }
  }
  return key;
}

void RestartWalk::registerSubTrie(const SubTrie::Ptr& subTrie,
                                  const NhiInfoKey& key,
                                  const NhiTableIdx& nhiBaseIdx,
                                  const Brumel::BFA::Blk::Ptr& blk) {
  if (mode_ != modeRestartCli) {
    const NhiInfo::Ptr nhiInfo = lpmSm_.allocateNhiInfo(subTrie, key, nhiBaseIdx);
    VELLOR_INVARIANT(nhiInfo, "nhiInfo", " subTrie ", subTrie->str());
  } else {
    subTrie->nhiInfoKeyIs(key);
  }
  if (blk) {
    lpmSm_.nhiBaseIdxToBlkIs(nhiBaseIdx, blk);
  }
  for (const LpmPrefix::Ptr& prefix : prefixes_) {
    if (prefix) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   " prefix " << prefix->stringValue() << " subtrie " << subTrie->str());
      lpmSm_.prefixToSubTrieIs(prefix, subTrie);
    }
  }
}

}  // namespace

RestartHelperBase::RestartHelperBase(ConfigBase::Ptr lpmConfig, Status::Ptr lpmStatus)
    : lpmConfig_(std::move(lpmConfig)), lpmStatus_(std::move(lpmStatus)) {}

LpmPrefix::Ptr RestartHelperBase::createPrefix(const SubTrieBranch&, U8, U64, U64, U8) {
  throw Vellor::NoImplementationException(
      Vellor::format("%s must be implemented in the derived class", "createPrefix"));
}

void RestartHelperBase::deletePrefix(const LpmPrefix::Ptr&) {
  throw Vellor::NoImplementationException(
      Vellor::format("%s must be implemented in the derived class", "deletePrefix"));
}

void RestartHelperBase::doRestart(bool removeStale, LpmSmRawPtr lpmSm) {
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               "RestartHelperBase::"
                   << "doRestart");
  lpmSmIs(lpmSm);
  RestartWalk(this, removeStale).run();
}

void RestartHelperBase::lpmSmIs(LpmSmRawPtr lpmSm) { lpmSm_ = lpmSm; }

void RestartHelperBase::xdkLpmMgrIs(XdkLpmMgrRawPtr xdkLpmMgr) { xdkLpmMgr_ = xdkLpmMgr; }

}  // namespace Quarle::Tarnlet
