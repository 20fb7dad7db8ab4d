#include "agent/audit/GroupAudit.h"

namespace Quarle::Agent {

namespace {

constexpr U32 kDevice = 0;

std::string rowText(U32 row) { return "next-hop row " + std::to_string(row); }

std::string entryText(const xpNextHopEntry& entry) {
  return entry.valid == 0
             ? std::string("clear")
             : "way " + std::to_string(entry.way) + " to " + std::to_string(entry.nextHopId);
}

bool same(const xpNextHopEntry& a, const xpNextHopEntry& b) {
  return a.valid == b.valid && (a.valid == 0 || (a.way == b.way && a.nextHopId == b.nextHopId));
}

}  // namespace

GroupAudit::GroupAudit(const NextHopGroups& groups, xpIpRouteLpmMgr* manager, FaultLog& log)
    : groups_(groups),
      manager_(manager),
      log_(log),
      rows_(groups.statistics().rowCapacity),
      strangers_(groups.statistics().strangers),
      taken_(rows_) {}

bool GroupAudit::isGroup(const Tarnlet::NextHopBlock& block) const {
  if (firstRow(block) >= rows_) {
    return false;
  }
  const SwId group = groups_.groupAt(block);
  return group != SwId() && groups_.block(group) == block;
}

void GroupAudit::run(const AuditOptions& options) {
  const auto& blocks = groups_.engineForDiagnosis()->status()->swIdToNextHopBlockCollection();
  for (const auto& block : blocks) {
    auditGroup(block.value);
  }
  const U64 standing = groups_.statistics().rowsUsed;
  if (standing != used_) {
    log_.add("next-hop rows in use", "next-hop table", seenInsteadOf(standing, used_));
  }
  for (U32 row = 0; manager_ != nullptr && strangers_ == 0 && row < rows_; ++row) {
    if (!taken_[row]) {
      auditRow(row, xpNextHopEntry(), rowText(row));
    }
  }
  if (options.progress) {
    options.progress({.step = "groups", .done = blocks.count(), .total = blocks.count()});
  }
}

void GroupAudit::auditGroup(const Tarnlet::NextHopBlock& block) {
  const bool known = isGroup(block);
  const SwId id = known ? groups_.groupAt(block) : SwId();
  const std::string where =
      known ? "group " + std::to_string(id.value()) : rowText(firstRow(block));
  claim(block, where);
  if (!known) {
    if (strangers_ == 0) {
      log_.add("next-hop rows of no group", where, "block " + std::string(block.str().str()));
    }
    return;
  }
  if (groups_.kind(id) == GroupKind::stranger) {
    return;
  }
  ++log_.counts().groups;
  const auto nextHops = groups_.nextHops(id);
  if (nextHops.size() != block.size().value()) {
    log_.add("a group of another number of rows", where,
             seenInsteadOf(block.size().value(), nextHops.size()));
    return;
  }
  for (U32 way = 0; manager_ != nullptr && way < nextHops.size(); ++way) {
    auditRow(firstRow(block) + way, {.valid = 1, .way = way, .nextHopId = nextHops[way]}, where);
  }
}

void GroupAudit::auditRow(U32 row, const xpNextHopEntry& expected, const std::string& where) {
  xpNextHopEntry seen;
  const XP_STATUS status = manager_->readNextHopEntry(kDevice, row, &seen);
  ++log_.counts().nextHopRows;
  if (!isWritten(status)) {
    log_.add("the chip's next-hop row cannot be read", rowText(row),
             "the read answered " + std::to_string(status));
    return;
  }
  if (!same(seen, expected)) {
    log_.add("the chip's next-hop row differs", where,
             "row " + std::to_string(row) + " is " + entryText(seen) + ", expected " +
                 entryText(expected));
  }
}

void GroupAudit::claim(const Tarnlet::NextHopBlock& block, const std::string& where) {
  if (endRow(block) > rows_) {
    log_.add("next-hop rows behind the table", where,
             "its end is " + seenInsteadOf(endRow(block), rows_) + " or less");
    return;
  }
  used_ += block.size().value();
  bool shared = false;
  for (U32 row = firstRow(block); row < endRow(block); ++row) {
    shared = shared || taken_[row];
    taken_[row] = true;
  }
  if (shared) {
    log_.add("two groups share next-hop rows", where, "block " + std::string(block.str().str()));
  }
}

}  // namespace Quarle::Agent
