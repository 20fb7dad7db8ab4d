#include "cli/Text.h"

#include <cstdarg>
#include <cstdio>

namespace Quarle::Cli {

std::string format(const char* form, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, form);
  std::vsnprintf(text, sizeof text, form, arguments);
  va_end(arguments);
  return text;
}

std::string grouped(std::uint64_t number) {
  const std::string digits = std::to_string(number);
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) {
      text += ',';
    }
    text += digits[i];
  }
  return text;
}

std::string share(std::uint64_t part, std::uint64_t whole) {
  const double percent =
      whole == 0 ? 0 : 100.0 * static_cast<double>(part) / static_cast<double>(whole);
  return format("%s of %s, %.1f %%", grouped(part).c_str(), grouped(whole).c_str(), percent);
}

const char* sentence(Agent::RefusalReason reason) {
  switch (reason) {
    case Agent::RefusalReason::noRow:
      return "no row free";
    case Agent::RefusalReason::rowFull:
      return "row full";
    case Agent::RefusalReason::nhiTableFull:
      return "NHI tiles full";
    case Agent::RefusalReason::nhiCapacityExceeded:
      return "NHI entry full";
    case Agent::RefusalReason::nextHopTableFull:
      return "no next-hop rows";
    case Agent::RefusalReason::headroom:
      return "NHI kept back";
    case Agent::RefusalReason::invalid:
      return "cannot be served";
  }
  return "unknown";
}

}  // namespace Quarle::Cli
