// trace: the switches of the library's trace statements, whose lines go to the standard error
// stream.

#include <algorithm>
#include <map>

#include "cli/OptionWords.h"
#include "cli/shell/ShellError.h"
#include "cli/shell/Verbs.h"
#include "cli/shell/Words.h"
#include "framework/Vellor/Trace.h"

namespace Quarle::Cli {

namespace {

using Vellor::TraceHandle;

constexpr U32 kAll = (1U << TraceHandle::kLevels) - 1;

/// The levels that are on, a bit each, by unit. The library knows them and does not tell.
std::map<std::string, U32>& switches() {
  static std::map<std::string, U32> theSwitches;
  return theSwitches;
}

[[noreturn]] void refuseLevels(const std::string& text) {
  throw ShellError("levels " + Agent::inQuotes(text) +
                   ", expected all, off, or numbers from 0 to 9 such as 3,6-9");
}

U32 levelOf(const std::string& whole, std::string_view text) {
  const std::optional<U32> level = parseNumber<U32>(text);
  if (!level || *level >= TraceHandle::kLevels) {
    refuseLevels(whole);
  }
  return *level;
}

U32 levelsOf(const std::string& text) {
  if (text == "all") {
    return kAll;
  }
  if (text == "off") {
    return 0;
  }
  U32 levels = 0;
  std::string_view rest = text;
  while (true) {
    const std::size_t comma = rest.find(',');
    const std::string_view part = rest.substr(0, comma);
    const std::size_t dash = part.find('-');
    const U32 first = levelOf(text, part.substr(0, dash));
    const U32 last = dash == std::string_view::npos ? first : levelOf(text, part.substr(dash + 1));
    for (U32 level = first; level <= last; ++level) {
      levels |= 1U << level;
    }
    if (comma == std::string_view::npos) {
      return levels;
    }
    rest.remove_prefix(comma + 1);
  }
}

std::string levelsText(U32 levels) {
  std::string text;
  for (U32 level = 0; level < TraceHandle::kLevels; ++level) {
    if ((levels >> level & 1U) != 0) {
      text += (text.empty() ? "" : ",") + std::to_string(level);
    }
  }
  return text.empty() ? "off" : text;
}

}  // namespace

std::vector<std::string> traceUnits() {
  return {"TarnletConfigurator", "Tarnlet", "TarnletSm", "TarnletNextHop"};
}

Verdict trace(Session&, const Command& command, Output& output) {
  const std::vector<std::string>& words = command.words;
  const std::vector<std::string> units = traceUnits();
  if (words.size() == 1 && words[0] == "show") {
    for (const std::string& unit : units) {
      const std::string levels = levelsText(switches()[unit]);
      if (output.json()) {
        output.object({{"unit", unit}, {"levels", levels}});
      } else {
        output.line(std::string(unit).append(" ").append(levels));
      }
    }
    return Verdict::done;
  }
  if (words.size() != 3 || words[0] != "set") {
    throw ShellError("expected trace show, or trace set UNIT LEVELS");
  }
  if (std::find(units.begin(), units.end(), words[1]) == units.end()) {
    throw ShellError("there is no unit " + Agent::inQuotes(words[1]) +
                     ", expected TarnletConfigurator, Tarnlet, TarnletSm or TarnletNextHop" +
                     nearestText(words[1], units));
  }
  const U32 levels = levelsOf(words[2]);
  switches()[words[1]] = levels;
  for (U32 level = 0; level < TraceHandle::kLevels; ++level) {
    TraceHandle::levelIs(words[1], level, (levels >> level & 1U) != 0);
  }
  TraceHandle::masterIs(words[1], levels != 0);
  if (output.json()) {
    output.object({{"unit", words[1]}, {"levels", levelsText(levels)}});
  }
  return Verdict::done;
}

}  // namespace Quarle::Cli
