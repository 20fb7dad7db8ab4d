#include "agent/audit/WholeAudit.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "agent/audit/GroupAudit.h"
#include "agent/audit/NhiAudit.h"
#include "agent/audit/RouteAudit.h"
#include "agent/audit/RowAudit.h"

// The walk over rows comes first: it finds out which sub-tries there are. The audit of routes goes
// by sub-trie, in the order of their addresses: a child copies every page of sub-tries that it
// looks at, and in this order each page is copied once, in whatever order the routes came.

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;

// Routes that are listed at once: more than a child gets through, and yet no list as large as a map
// of all.
constexpr std::size_t kRoutesPerPortion = 262144;

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
  std::vector<const Tarnlet::SubTrie*> subTries;
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
  std::sort(subTries.begin(), subTries.end(), std::less<>());
  RoutePortions routes(family, log, report, options);
  for (const Tarnlet::SubTrie* subTrie : subTries) {
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
  const Tarnlet::ConfigBase::Ptr& config = engine.config();
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
