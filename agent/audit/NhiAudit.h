#pragma once

#include <array>
#include <vector>

#include "agent/audit/AuditedFamily.h"
#include "agent/audit/FaultLog.h"

namespace Quarle::Agent {

/// Audits who shares which NHI block, where the blocks lie in their tiles, and what the chip's NHI
/// entries hold.
///
/// Order of calls: userIs() for each sub-trie, by whoever walks them; run(). All counting is in
/// arrays by place, a few bytes for each NHI entry of the chip.
class NhiAudit {
 public:
  NhiAudit(const AuditedFamily& family, FaultLog& log);

  /// The sub-trie reads the block at its base, and `info` is the record of its content, if there is
  /// one.
  void userIs(const Tarnlet::SubTrie::Ptr& subTrie, const Tarnlet::NhiInfo* info);

  /// Compares all that stands on record with what userIs() has told.
  void run();

 private:
  static constexpr U32 kTiles = 256;
  static constexpr U32 kNowhere = ~U32{0};

  /// What is known of one tile.
  struct Tile {
    // In the arrays by place.
    U32 first = 0;
    U32 entries = 0;
    U32 used = 0;
  };

  U32 placeOf(const Tarnlet::NhiTableIdx& base) const;

  void auditInfo(const Tarnlet::NhiInfo& info);
  void auditEntries(const Tarnlet::NhiInfo& info);
  void auditSet(const Tarnlet::NhiTableIdx& base, const Tarnlet::SubTrieSet* set);
  void auditBlock(const Tarnlet::NhiTableIdx& base, const Brumel::BFA::Blk* block);
  void auditTile(U32 index, const Brumel::BestFitAllocator* allocator);

  const AuditedFamily& family_;
  const Tarnlet::LpmSm& engine_;
  FaultLog& log_;
  std::array<Tile, kTiles> tiles_{};
  // By place: sub-tries that have their base there and stand in its set; those whose content's
  // record names it.
  std::vector<U32> usersOfBase_;
  std::vector<U32> usersOfInfo_;
  // By place: whether a record names it, and whether the entry belongs to a block.
  std::vector<bool> named_;
  std::vector<bool> taken_;
};

}  // namespace Quarle::Agent
