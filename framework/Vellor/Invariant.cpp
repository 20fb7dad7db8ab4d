#include "framework/Vellor/Invariant.h"

#include <cstdio>
#include <cstdlib>

namespace Vellor {

void assertionFailed(const char* text, const char* file, U32 line, const char* function) {
  std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, text);
  std::fflush(stderr);
  std::abort();
}

void invariantFailed(const char* expression,
                     const std::string& context,
                     const char* file,
                     U32 line,
                     const char* function) {
  const std::string text = "Failed(" + std::string(expression) + ") " + context;
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
  const std::string negated = "! \"" + std::string(expression) + "\"";
  assertionFailed(negated.c_str(), file, line, function);
}

}  // namespace Vellor
