// audit: the library's own checks of one route, or of everything. A check that fails ends its
// process, so that they run in children.

#include "agent/audit/ForkedCall.h"
#include "agent/audit/WholeAudit.h"
#include "cli/Text.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"
#include "framework/Vellor/GenericIf.h"

#include <cstdio>

namespace Quarle::Cli {

namespace {

Verdict auditAll(const Session& session, const Command& command, Output& output) {
  const Agent::AuditReport report =
      Agent::auditAll(session.client(), session.access(),
                      {.limit = command.all ? ~U64{0} : Agent::AuditOptions().limit});
  for (const Agent::AuditFault& fault : report.faults) {
    if (output.json()) {
      output.object({{"what", fault.what}, {"where", fault.where}, {"reason", fault.reason}});
    } else {
      output.line(Agent::toText(fault));
    }
  }
  const Agent::AuditCounts& counts = report.counts;
  if (output.json()) {
    output.object({{"passed", report.passed()},
                   {"faults", report.faultCount},
                   {"complete", report.complete},
                   {"routes", counts.routes},
                   {"routes_verified", counts.routesVerified},
                   {"sub_tries", counts.subTries},
                   {"nhi_blocks", counts.nhiBlocks},
                   {"groups", counts.groups},
                   {"prefix_rows", counts.prefixRows},
                   {"nhi_entries", counts.nhiEntries},
                   {"next_hop_rows", counts.nextHopRows}});
  } else {
    output.line(grouped(counts.routes) + " routes, " + grouped(counts.subTries) + " sub-tries, " +
                grouped(counts.nhiBlocks) + " NHI blocks, " + grouped(counts.groups) + " groups; " +
                grouped(counts.prefixRows) + " prefix rows, " + grouped(counts.nhiEntries) +
                " NHI entries and " + grouped(counts.nextHopRows) +
                " next-hop rows of the chip read: " +
                (report.passed() ? "all is right" : grouped(report.faultCount) + " faults"));
    if (!report.complete) {
      output.line("only " + grouped(counts.routesVerified) +
                  " routes went through the library's audit, each with --all");
    }
  }
  return report.passed() ? Verdict::done : Verdict::faulty;
}

}  // namespace

Verdict audit(Session& session, const Command& command, Output& output) {
  if (command.words.size() == 1 && command.words[0] == "all") {
    return auditAll(session, command, output);
  }
  if (command.words.empty()) {
    throw ShellError("0 words, expected PREFIX [vrf N] or all");
  }
  if (command.words.size() == 1 && command.words[0].find('/') == std::string::npos) {
    const std::vector<std::string> names = {"all"};
    throw ShellError(Agent::inQuotes(command.words[0]) +
                     ", expected a prefix such as 192.0.2.0/24 or 2001:db8::/32, or all" +
                     nearestText(command.words[0], names));
  }
  const Agent::RouteKey key = routeOf(command.words);
  const Tarnlet::LpmPrefix::Ptr prefix = session.find(key);
  if (prefix == nullptr) {
    throw ShellError(Agent::toText(key) + " is not in the configuration, expected a route that is");
  }
  output.flush();
  const Agent::ForkedCall forked = Agent::callForked([&] {
    Vellor::genericIf(session.engine(key.prefix.family))->call("verifyLpmRoute", {prefix});
  });
  // Its trace goes where the trace of all else goes.
  std::fputs(forked.told.c_str(), stderr);
  const std::string reason = forked.reason();
  if (output.json()) {
    output.object({{"route", Agent::toText(key)}, {"passed", forked.returned()}, {"text", reason}});
  } else {
    output.line(Agent::toText(key) + ": " + (forked.returned() ? "all checks hold" : reason));
  }
  return forked.returned() ? Verdict::done : Verdict::faulty;
}

}  // namespace Quarle::Cli
