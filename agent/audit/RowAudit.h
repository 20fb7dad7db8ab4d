#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "agent/audit/AuditedFamily.h"
#include "agent/audit/FaultLog.h"
#include "agent/audit/GroupAudit.h"
#include "agent/audit/NhiAudit.h"

namespace Quarle::Agent {

/// Audits the rows of one family's prefix tables: each sub-trie in itself, its prefixes against the
/// maps that know them, its row in the chip, and that no other row of the chip holds anything.
///
/// Each map of routes is counted from the sub-tries' slots: a slot counts for a map that says of
/// its prefix what the slot says, so equal numbers mean equal maps, and only unequal ones are
/// searched for the difference. That costs nothing but one look-up a route and map.
class RowAudit {
 public:
  /// `groups` may be null: nothing is known then of where routes may lead. All outlive the audit.
  RowAudit(const AuditedFamily& family, const GroupAudit* groups, NhiAudit& nhi, FaultLog& log);

  void run(const AuditOptions& options);

  /// All sub-tries that stand in a row; once.
  std::vector<const Tarnlet::SubTrie*> takeSubTries() { return std::move(subTries_); }

  /// Routes that no sub-trie of a row holds, wherever they stand on record; once. None when all is
  /// well.
  std::vector<const Tarnlet::LpmPrefix::Ptr*> takeStrays() { return std::move(strays_); }

 private:
  void auditTable(const Tarnlet::PrefixTable& table, const AuditOptions& options);
  void lookAhead(const Tarnlet::PrefixTable& table, U32 row) const;
  void auditFreeRow(U32 table, U32 row);
  void auditSubTrie(const Tarnlet::PrefixTable& table, U32 row, const Tarnlet::SubTrie::Ptr& trie);
  void auditLayout(const Tarnlet::PrefixTable& table, const Tarnlet::SubTrie& trie);
  void auditBitmap(const Tarnlet::SubTrie& trie, U32 room);
  void auditSlots(const Tarnlet::PrefixTable& table, const Tarnlet::SubTrie& trie);
  void auditPrefix(const Tarnlet::SubTrie& trie, U8 slot, const Tarnlet::LpmPrefix::Ptr& prefix);
  void auditWish(const Tarnlet::SubTrie& trie, U8 slot, const Tarnlet::LpmPrefix::Ptr& prefix);
  void auditContent(const Tarnlet::SubTrie::Ptr& trie);
  void auditChipRow(const Tarnlet::PrefixTable& table, U32 row, const Tarnlet::SubTrie& trie);
  bool readRow(U32 table, U32 row, xpLpmPrefixEntry& entry);
  void auditMaps();

  void complain(std::string what, std::string reason = {}) {
    log_.add(std::move(what), where_(), std::move(reason));
  }

  const AuditedFamily& family_;
  const Tarnlet::LpmSm& engine_;
  const Tarnlet::ConfigBase::Ptr config_;
  const Tarnlet::Status::Ptr status_;
  const GroupAudit* groups_;
  NhiAudit& nhi_;
  FaultLog& log_;
  std::vector<const Tarnlet::SubTrie*> subTries_;
  std::vector<const Tarnlet::LpmPrefix::Ptr*> strays_;
  // Names the row that is looked at.
  std::function<std::string()> where_;
  // Of the row that is looked at, its bits behind the branch cleared.
  Tarnlet::SubTrieBranch branch_;
  // Slots that each map confirms.
  U64 placed_ = 0;
  U64 inStatus_ = 0;
  U64 requested_ = 0;
};

}  // namespace Quarle::Agent
