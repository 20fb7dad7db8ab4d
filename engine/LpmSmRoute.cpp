#include "engine/LpmSm.h"
#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// The three operations on a route. They report to nobody: what they did stands in the status and in
// the queue. insertPrefix() may leave a moved sub-trie behind when it fails in the end; everything
// else of a refusal leaves no mark.

namespace Quarle::Tarnlet {

namespace {

constexpr U32 kTraceLevel = 3;

const PrefixTable::Ptr& sortedTable(const ConfigBase& config,
                                    U32 i,
                                    const LpmPrefix::Ptr& lpmPrefix) {
  const auto& tables = config.prefixTableSortedByTreadCollection();
  VELLOR_INVARIANT(i < tables.count() && tables.at(i), "prefixTable", " lpmPrefix ",
                   lpmPrefix->stringValue(), " i ", i);
  return tables.at(i);
}

}  // namespace

void LpmSm::insertPrefix(const LpmPrefix::Ptr& lpmPrefix) {
  const U8 len = lpmPrefix->len();
  const U8 leastTread = config_->leastTreadForPrefixLen(len);
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
               " prefix " << lpmPrefix->stringValue() << " least tread " << unsigned{leastTread});
  RouteReturnCode ret = RouteReturnCode::fail;
  bool prefixEqTreadFound = false;
  bool prefixTableFound = false;

  U32 i = 0;
  while (i < prefixTables()) {
    const Tarnlet::PrefixTable::Ptr& table = sortedTable(*config_, i, lpmPrefix);
    const U8 tread = table->tableConfig()->tread();
    if (tread < leastTread) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   " skip - tread lesser than least tread " << table->str());
      ++i;
    } else if (tread > len) {
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   " skip - tread larger than prefix len " << table->str());
      ++i;
    } else if (tread == len) {
      // A last resort: its one row serves no other length.
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                   " skip - tread is equal to prefix len " << table->str());
      prefixEqTreadFound = true;
      prefixTableFound = true;
      ++i;
    } else {
      ret = insertPrefixInternal(lpmPrefix, table);
      prefixTableFound = true;
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " ret " << ret);
      if (ret == RouteReturnCode::pass) {
        break;
      }
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " failing for table " << table->str());
      // A retry follows a row that was made free, so it cannot collide there again.
      if (ret != RouteReturnCode::retry) {
        ++i;
      }
    }
  }
  VELLOR_INVARIANT(prefixTableFound, "prefixTableFound", " lpmPrefix ", lpmPrefix->stringValue());

  if (prefixEqTreadFound && ret != RouteReturnCode::pass) {
    i = 0;
    while (i < prefixTables()) {
      const Tarnlet::PrefixTable::Ptr& table = sortedTable(*config_, i, lpmPrefix);
      if (table->tableConfig()->tread() == len) {
        ret = insertPrefixInternal(lpmPrefix, table);
        if (ret == RouteReturnCode::pass) {
          break;
        }
      }
      VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " failing for table " << table->str());
      VELLOR_ASSERT(ret != RouteReturnCode::pass, "ret != RouteReturnCode::pass_");
      if (ret != RouteReturnCode::retry) {
        ++i;
      }
    }
  }

  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " ret " << ret);
  if (ret == RouteReturnCode::pass) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel,
                 " insert - ret " << ret << " prefix " << lpmPrefix->stringValue());
    status_->prefixToNextHopBlockIs(lpmPrefix, config_->request(lpmPrefix));
    return;
  }
  VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " insert - fail " << lpmPrefix->stringValue());
  if (tarnletSmTrace.on(9)) {
    dumpPrefixTables();
  }
}

void LpmSm::updatePrefix(const LpmPrefix::Ptr& lpmPrefix) {
  const SubTrie::Ptr subTrie = prefixToSubTrie(lpmPrefix);
  VELLOR_INVARIANT(subTrie, "subTrie", " lpmPrefix ", lpmPrefix->stringValue());
  subTrie->prefetchParts();
  if (!updateNhiInfoForSubTrie(subTrie)) {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " update failed " << lpmPrefix->stringValue());
    return;
  }
  // The key now is the live content, so the commands are built from it.
  enqueueSubTrieCmds(subTrie, subTrie->nhiInfoKey());
  status_->prefixToNextHopBlockIs(lpmPrefix, config_->request(lpmPrefix));
}

void LpmSm::deletePrefix(const LpmPrefix::Ptr& lpmPrefix) {
  const SubTrie::Ptr subTrie = prefixToSubTrie(lpmPrefix);
  VELLOR_INVARIANT(subTrie, "subTrie", " lpmPrefix ", lpmPrefix->stringValue());
  subTrie->prefetchParts();
  subTrie->prefetchPrefixes();
  subTrie->removePrefix(lpmPrefix);
  prefixToSubTrieDel(lpmPrefix);
  const bool prefixesLeft = subTrie->prefixs() != 0;
  if (prefixesLeft) {
    subTrie->compactPrefixes();
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " subtrie is compacted " << subTrie->str());
    VELLOR_INVARIANT(updateNhiInfoForSubTrie(subTrie), "updateNhiInfoForSubTrie( subTrie )",
                     " subtrie ", subTrie->str(), " lpmPrefix ", lpmPrefix->stringValue());
    enqueueSubTrieCmds(subTrie, subTrie->nhiInfoKey());
  } else {
    VELLOR_TRACE(tarnletSmTrace, kTraceLevel, " subtrie is empty, delete it " << subTrie->str());
    releaseNhiInfo(subTrie);
    subTrie->table()->subTrieDel(subTrie->index());
    generateSubTrieWriteCmds(subTrie, /*generatePrefixCmds=*/true, /*generateNhiCmds=*/false);
  }
  status_->prefixToNextHopBlockDel(lpmPrefix);
}

}  // namespace Quarle::Tarnlet
