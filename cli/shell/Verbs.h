#pragma once

#include <string>
#include <vector>

#include "cli/shell/Output.h"
#include "cli/shell/Session.h"

namespace Quarle::Cli {

/// One command: a verb's own words, without the options.
struct Command {
  std::string verb;
  std::vector<std::string> words;
  // --all: no list is cut short.
  bool all = false;
};

/// How a command ended, as an exit code. One that cannot be carried out raises `ShellError`.
enum class Verdict : int {
  done = 0,
  // Chip, library and reference disagree about a look-up.
  wrong = 1,
  // An audit found a fault.
  faulty = 2,
};

// Each carries out one command.

// ShowVerb.cpp
Verdict show(Session& session, const Command& command, Output& output);
std::vector<std::string> showTopics();

// LookupVerb.cpp
Verdict lookup(Session& session, const Command& command, Output& output);

// WhyVerb.cpp
Verdict why(Session& session, const Command& command, Output& output);

// ObjectVerbs.cpp
Verdict get(Session& session, const Command& command, Output& output);
Verdict set(Session& session, const Command& command, Output& output);
Verdict del(Session& session, const Command& command, Output& output);
Verdict call(Session& session, const Command& command, Output& output);

// AuditVerb.cpp
Verdict audit(Session& session, const Command& command, Output& output);

// TraceVerb.cpp
Verdict trace(Session& session, const Command& command, Output& output);
std::vector<std::string> traceUnits();

}  // namespace Quarle::Cli
