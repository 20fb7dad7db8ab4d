#include "agent/audit/WholeAudit.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "agent/audit/GroupAudit.h"
#include "agent/audit/NhiAudit.h"
#include "agent/audit/RouteAudit.h"
#include "agent/audit/RowAudit.h"

// The walk over rows comes first: it finds out which sub-tries there are. The audit of routes goes
// by NHI content, in the order of the records' addresses: those who share one stand together, and
// what belongs to a content was mostly made with it and lies near by.

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;

// Routes that are listed at once: a list of all would be as large as a map of them.
constexpr std::size_t kRoutesPerPortion = 65536;

/// Audits the routes of one family in portions.
class RoutePortions {
 public:
  RoutePortions(const AuditedFamily& family,
                FaultLog& log,
                AuditReport& report,
                const AuditOptions& options)
      : family_(family), log_(log), report_(report), options_(options) {}

  void add(const LpmPrefix::Ptr& prefix) {
    if (prefix == nullptr) {
      return;
    }
    portion_.push_back(&prefix);
    if (portion_.size() == kRoutesPerPortion) {
      flush();
    }
  }

  void flush() {
    if (log_.isFull()) {
      report_.complete = report_.complete && portion_.empty();
      portion_.clear();
      return;
    }
    const std::size_t done = verifyRoutes(
        family_.engine, portion_, [this](std::size_t position, const RouteVerdict& verdict) {
          log_.add(verdict.condition, family_.routeText(**portion_[position]), verdict.context);
          return !log_.isFull();
        });
    report_.complete = report_.complete && done == portion_.size();
    report_.counts.routesVerified += done;
    verified_ += done;
    portion_.clear();
    if (options_.progress) {
      options_.progress({.family = family_.family,
                         .step = "routes",
                         .done = verified_,
                         .total = family_.engine.prefixToSubTries()});
    }
  }

 private:
  const AuditedFamily& family_;
  FaultLog& log_;
  AuditReport& report_;
  const AuditOptions& options_;
  std::vector<const LpmPrefix::Ptr*> portion_;
  U64 verified_ = 0;
};

void auditOneFamily(const AuditedFamily& family,
                    const GroupAudit* groups,
                    const AuditOptions& options,
                    FaultLog& log,
                    AuditReport& report) {
  std::vector<RowAudit::Standing> subTries;
  std::vector<const LpmPrefix::Ptr*> strays;
  {
    NhiAudit nhi(family, log);
    RowAudit rows(family, groups, nhi, log);
    rows.run(options);
    nhi.run();
    if (options.progress) {
      const U64 blocks = family.engine.nhiBaseIdxToBlks();
      options.progress(
          {.family = family.family, .step = "blocks", .done = blocks, .total = blocks});
    }
    subTries = rows.takeSubTries();
    strays = rows.takeStrays();
  }
  std::sort(subTries.begin(), subTries.end(),
            [](const RowAudit::Standing& a, const RowAudit::Standing& b) {
              return std::pair(a.info, a.subTrie) < std::pair(b.info, b.subTrie);
            });
  RoutePortions routes(family, log, report, options);
  for (const auto& [info, subTrie] : subTries) {
    for (const auto& slot : subTrie->prefixCollection()) {
      routes.add(slot.value);
    }
  }
  for (const LpmPrefix::Ptr* stray : strays) {
    routes.add(*stray);
  }
  routes.flush();
}

}  // namespace

AuditReport auditAll(const Client& client, const ChipAccess& chip, const AuditOptions& options) {
  AuditReport report;
  FaultLog log(report, options.limit);
  GroupAudit groups(client.groups(), chip.ipv4, log);
  for (const Family which : {Family::ipv4, Family::ipv6}) {
    const AuditedFamily family{.family = which,
                               .engine = client.family(which).engine(),
                               .manager = which == Family::ipv4 ? chip.ipv4 : chip.ipv6};
    auditOneFamily(family, &groups, options, log, report);
  }
  groups.run(options);
  return report;
}

AuditReport auditFamily(const AuditedFamily& family, const AuditOptions& options) {
  AuditReport report;
  FaultLog log(report, options.limit);
  auditOneFamily(family, nullptr, options, log, report);
  return report;
}

std::optional<AuditFault> auditRoute(const FamilyClient& family, const RouteKey& route) {
  const Tarnlet::LpmSm& engine = family.engine();
  const Tarnlet::ConfigBase::Ptr config = engine.config();
  const auto ipv4 = Vellor::dynamicPtrCast<Tarnlet::ConfigV4>(config);
  const auto ipv6 = Vellor::dynamicPtrCast<Tarnlet::ConfigV6>(config);
  const PrefixStore prefixes = ipv4 != nullptr ? PrefixStore(ipv4) : PrefixStore(ipv6);
  const std::string where = std::string(familyName(prefixes.family())) + " " + toText(route);
  const LpmPrefix::Ptr prefix = prefixes.find(route);
  const std::optional<RouteVerdict> verdict = verifyRoute(engine, prefix);
  if (!verdict) {
    return std::nullopt;
  }
  return AuditFault{.what = verdict->condition, .where = where, .reason = verdict->context};
}

}  // namespace Quarle::Agent
