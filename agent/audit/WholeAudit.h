#pragma once

#include <optional>

#include "agent/Client.h"
#include "agent/audit/AuditReport.h"
#include "agent/audit/AuditedFamily.h"

namespace Quarle::Agent {

/// Audits a client and its chip as a whole: both families and the next-hop groups. Nothing ends the
/// process and nothing is written; what is wrong is in the report.
///
///   each route       the library's own audit, `LpmSm::verifyLpmRoute`, in forked children, so that
///                    its words are told and the next route follows
///   each row         sub-trie, bitmap, slots, hash and length; the maps of routes, requests and
///                    what stands in the chip; the chip's row as the software would write it; no
///                    other row of the chip holds anything
///   each NHI block   the number of its users and their set, counted from the sub-tries; its size;
///                    no two overlap, none leaves its tile, each tile's free entries; the chip's
///                    entries as the software would write them
///   each group       the chip's next-hop rows are its list and all others are clear; routes lead to
///                    groups alone
///
/// One fault may show in more than one check, and each is told. Costs a few seconds for a full
/// table and some bytes for each sub-trie and NHI entry; see `verifyRoutes` for the children.
///
/// Raises std::system_error when no child can be made.
AuditReport auditAll(const Client& client,
                     const ChipAccess& chip,
                     const AuditOptions& options = {});

/// The same of one family alone, without a client as well: where routes lead is not looked at.
AuditReport auditFamily(const AuditedFamily& family, const AuditOptions& options = {});

/// The library's own audit of one route; nothing when it passes. A route that does not stand in the
/// configuration fails.
///
/// REQUIRES: `route` is of the family.
std::optional<AuditFault> auditRoute(const FamilyClient& family, const RouteKey& route);

}  // namespace Quarle::Agent
