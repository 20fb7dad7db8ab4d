#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cli/shell/Session.h"
#include "cli/shell/Verbs.h"

namespace Quarle::Cli {

/// Carries out commands, a line each, on one session. A line that cannot be carried out gets one
/// line that says what was expected, and the next one follows.
class Shell {
 public:
  /// All three outlive the shell. With `json` every answer is JSON, else only where a line says
  /// --json.
  Shell(Session& session, std::ostream& out, std::ostream& err, bool json)
      : session_(session), out_(out), err_(err), json_(json) {}

  /// The exit code that the line would end a process with: of `Verdict`, and 1 for a line that
  /// cannot be carried out. `where` begins its error text.
  int run(const std::string& line, const std::string& where = "");

  /// Whether a line has said that it was the last one.
  bool ended() const { return ended_; }

  /// What may stand in place of the last word of `line`, whole words, in rising order.
  std::vector<std::string> completions(const std::string& line) const;

 private:
  Verdict carryOut(const std::vector<std::string>& words);
  void help(Output& output) const;

  Session& session_;
  std::ostream& out_;
  std::ostream& err_;
  const bool json_;
  bool ended_ = false;
};

/// One verb as help has it.
struct VerbHelp {
  const char* name;
  const char* arguments;
  const char* help;
};

/// Verbs that make sense one at a time on the command line, too; all but those of the shell itself.
std::vector<VerbHelp> oneShotVerbs();

}  // namespace Quarle::Cli
