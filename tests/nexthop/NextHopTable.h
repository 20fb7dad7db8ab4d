#pragma once

#include <map>
#include <set>
#include <string>

#include "nexthop/TarnletNextHopSm.h"

#include <gtest/gtest.h>

namespace Quarle::TarnletNextHop::Testing {

/// A next-hop table under its machine, its groups and moves as text.
///
/// Groups read "group@base+size" in order of their bases, moves "group:old+size>new+size".
class NextHopTable {
 public:
  explicit NextHopTable(U32 rows) : NextHopTable(rows, configFactory("nhConfig")) {}

  NextHopTable(U32 rows, Config::Ptr requests) : config(std::move(requests)), capacity_(rows) {
    config->tableSizeIs(rows);
  }

  /// Builds the machine, in place of any earlier one.
  NextHopTable& start() {
    sm = nullptr;
    sm = lpmNextHopSmFactory("nextHopSm", config, status);
    return *this;
  }

  NextHopTable& want(U64 group, U16 ways) {
    config->requestIs(group, ways);
    return *this;
  }

  NextHopTable& withdraw(U64 group) {
    config->requestDel(group);
    return *this;
  }

  std::string groups() const {
    std::map<U32, std::string> byBase;
    for (auto group = status->swIdToNextHopBlockIterator(); group; ++group) {
      byBase[group.value().base().value()] =
          std::to_string(group.key().value()) + "@" + text(group.value());
    }
    std::string out;
    for (const auto& [base, group] : byBase) {
      out += (out.empty() ? "" : " ") + group;
    }
    return out;
  }

  /// The queued moves, oldest first. Empties the queue.
  std::string moves() {
    std::string out;
    while (const ShuffleCmd::Ptr cmd = status->shuffleCmdDeq()) {
      out += (out.empty() ? "" : " ") + std::to_string(cmd->swId().value()) + ":" +
             text(cmd->prevNextHopBlock()) + ">" + text(cmd->nextHopBlock());
    }
    return out;
  }

  U32 freeRows() const { return sm->allocator()->freeEntries(); }

  /// What must hold between requests.
  void audit() const {
    ASSERT_EQ(sm->swIdToBlocks(), status->swIdToNextHopBlocks()) << groups();
    std::set<U32> taken;
    for (auto group = status->swIdToNextHopBlockIterator(); group; ++group) {
      SCOPED_TRACE("group " + std::to_string(group.key().value()) + " of " + groups());
      const Brumel::BFA::Blk::Ptr blk = sm->swIdToBlock(group.key());
      ASSERT_NE(blk, nullptr);
      ASSERT_EQ(group.value().base(), blk->offset());
      ASSERT_EQ(sm->baseIdxToSwId(blk->offset()), group.key());
      for (U32 row = blk->offset(); row < blk->offset() + blk->blkSz(); ++row) {
        ASSERT_LT(row, capacity_);
        ASSERT_TRUE(taken.insert(row).second) << "row " << row << " has two owners";
      }
    }
    ASSERT_EQ(freeRows() + taken.size(), capacity_) << groups();
  }

  /// Whether every group is told with as many rows as it has. A refused resize whose request stands
  /// breaks it at the next compaction.
  bool sizesAgree() const {
    for (auto group = status->swIdToNextHopBlockIterator(); group; ++group) {
      if (group.value().size().value() != sm->swIdToBlock(group.key())->blkSz()) {
        return false;
      }
    }
    return true;
  }

  static std::string text(const NextHopBlock& block) {
    return std::to_string(block.base().value()) + "+" + std::to_string(block.size().value());
  }

  Config::Ptr config;
  Status::Ptr status = statusFactory("nhStatus");
  LpmNextHopSm::Ptr sm;

 private:
  U32 capacity_;
};

}  // namespace Quarle::TarnletNextHop::Testing
