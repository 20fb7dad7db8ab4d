#include "cli/shell/Shell.h"

#include <algorithm>
#include <array>
#include <exception>

#include "cli/Text.h"
#include "cli/shell/Completion.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Words.h"
#include "framework/Vellor/Exception.h"

namespace Quarle::Cli {

namespace {

using Run = Verdict (*)(Session&, const Command&, Output&);

struct Verb {
  VerbHelp help;
  // Null for what the shell does by itself.
  Run run;
  bool isOneShot = true;
};

constexpr std::array kVerbs = {
    Verb{{"show", "TOPIC",
          "summary, tables, tiles, nexthops, commands, refused, route PREFIX [vrf N], resource"},
         &show},
    Verb{{"lookup", "ADDRESS [vrf N]", "Where a packet goes: chip, library and reference"},
         &lookup},
    Verb{{"why", "PREFIX [vrf N]", "Why a route is not placed, and what would help"}, &why},
    Verb{{"get", "[PATH]", "An attribute, an object's attributes, a collection's members"}, &get},
    Verb{{"set", "PATH VALUE", "Changes an attribute or a member; nothing undoes it"}, &set},
    Verb{{"del", "PATH", "Takes a member out; nothing undoes it"}, &del},
    Verb{{"call", "PATH OPERATION [ARGUMENT...]", "Calls an operation; nothing undoes it"}, &call},
    Verb{{"audit", "PREFIX [vrf N] | all", "Checks a route, or everything"}, &audit},
    Verb{{"trace", "show | set UNIT LEVELS",
          "The library's trace: levels are all, off or numbers such as 3,6-9"},
         &trace,
         /*isOneShot=*/false},
    Verb{{"help", "", "This list"}, nullptr, /*isOneShot=*/false},
    Verb{{"quit", "", "Ends the shell"}, nullptr, /*isOneShot=*/false},
};

std::vector<std::string> verbNames() {
  std::vector<std::string> names;
  names.reserve(kVerbs.size());
  for (const Verb& verb : kVerbs) {
    names.emplace_back(verb.help.name);
  }
  return names;
}

const Verb& verbOf(const std::string& name) {
  const auto verb = std::find_if(kVerbs.begin(), kVerbs.end(),
                                 [&](const Verb& known) { return name == known.help.name; });
  if (verb == kVerbs.end()) {
    throw ShellError("there is no command " + Agent::inQuotes(name) + ", expected one that help" +
                     " lists" + nearestText(name, verbNames()));
  }
  return *verb;
}

}  // namespace

std::vector<VerbHelp> oneShotVerbs() {
  std::vector<VerbHelp> verbs;
  for (const Verb& verb : kVerbs) {
    if (verb.isOneShot) {
      verbs.push_back(verb.help);
    }
  }
  return verbs;
}

int Shell::run(const std::string& line, const std::string& where) {
  std::vector<std::string> words;
  std::string verb;
  try {
    words = wordsOf(line);
    if (words.empty()) {
      return 0;
    }
    verbOf(words[0]);
    verb = words[0] + ": ";
    const Verdict verdict = carryOut(words);
    out_.flush();
    return static_cast<int>(verdict);
  } catch (const Vellor::Exception& misuse) {
    err_ << where << verb << misuse.message() << ", expected another value or attribute\n";
  } catch (const std::exception& error) {
    err_ << where << verb << error.what() << '\n';
  }
  out_.flush();
  err_.flush();
  return static_cast<int>(Verdict::wrong);
}

Verdict Shell::carryOut(const std::vector<std::string>& words) {
  Command command{.verb = words[0], .words = {}};
  bool json = json_;
  for (std::size_t i = 1; i < words.size(); ++i) {
    if (words[i] == "--json") {
      json = true;
    } else if (words[i] == "--all") {
      command.all = true;
    } else if (words[i].starts_with("--")) {
      throw ShellError("there is no option " + words[i] + ", expected --json or --all");
    } else {
      command.words.push_back(words[i]);
    }
  }
  Output output(out_, json);
  const Verb& verb = verbOf(command.verb);
  if (verb.run != nullptr) {
    return verb.run(session_, command, output);
  }
  if (!command.words.empty()) {
    throw ShellError(Agent::inQuotes(command.words[0]) + ", expected nothing behind it");
  }
  if (command.verb == "quit") {
    ended_ = true;
  } else {
    help(output);
  }
  return Verdict::done;
}

void Shell::help(Output& output) const {
  for (const Verb& verb : kVerbs) {
    const std::string form =
        std::string(verb.help.name) + (*verb.help.arguments == 0 ? "" : " ") + verb.help.arguments;
    if (output.json()) {
      output.object({{"command", verb.help.name},
                     {"arguments", verb.help.arguments},
                     {"help", verb.help.help}});
    } else {
      output.line(format("%-36s %s", form.c_str(), verb.help.help));
    }
  }
  if (!output.json()) {
    output.line("");
    output.line("--json gives one JSON object a line, --all cuts no list short. A PATH is such as");
    output.line("  ipv4.engine.prefixTable[3].subTrie[17].branch");
    output.line("  ipv6.config.request[vrf 3 2001:db8::/32]");
    output.line("and begins with one of those that get lists.");
  }
}

std::vector<std::string> Shell::completions(const std::string& line) const {
  return completionsOf(session_, verbNames(), line);
}

}  // namespace Quarle::Cli
