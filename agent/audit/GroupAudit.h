#pragma once

#include <vector>

#include "agent/NextHopGroups.h"
#include "agent/audit/AuditReport.h"
#include "agent/audit/FaultLog.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// Audits the next-hop table: the rows of each group are its list, no two groups share one, all
/// others are clear, and routes lead to groups alone.
///
/// What a restart has found and no list tells, the strangers, is taken as it is; while there are
/// some, rows of nobody may still await their end.
class GroupAudit {
 public:
  /// Through `manager`, or without a chip when it is null. All outlive the audit.
  GroupAudit(const NextHopGroups& groups, xpIpRouteLpmMgr* manager, FaultLog& log);

  /// Whether the block, to which a route leads, is the block of a group.
  bool isGroup(const Tarnlet::NextHopBlock& block) const;

  void run(const AuditOptions& options);

 private:
  void auditGroup(const Tarnlet::NextHopBlock& block);
  void auditRow(U32 row, const xpNextHopEntry& expected, const std::string& where);
  void claim(const Tarnlet::NextHopBlock& block, const std::string& where);

  const NextHopGroups& groups_;
  xpIpRouteLpmMgr* manager_;
  FaultLog& log_;
  U64 rows_;
  U64 strangers_;
  U64 used_ = 0;
  std::vector<bool> taken_;
};

}  // namespace Quarle::Agent
