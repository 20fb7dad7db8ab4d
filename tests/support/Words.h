#pragma once

#include <initializer_list>
#include <string>

#include <gmock/gmock.h>

namespace Quarle::Tarnlet::Testing {

/// Whether `words` stand in `text` in this order.
inline ::testing::AssertionResult says(const std::string& text,
                                       std::initializer_list<const char*> words) {
  std::size_t at = 0;
  for (const std::string word : words) {
    const std::size_t found = text.find(word, at);
    if (found == std::string::npos) {
      return ::testing::AssertionFailure()
             << "\"" << word << "\" is missing behind \"" << text.substr(0, at) << "\" in \""
             << text.substr(at) << "\"";
    }
    at = found + word.size();
  }
  return ::testing::AssertionSuccess();
}

/// What a plain fatal check leaves on the standard error stream.
inline auto assertion(const std::string& text) {
  return ::testing::AllOf(::testing::HasSubstr(": Assertion `" + text + "' failed.\n"),
                          ::testing::Not(::testing::HasSubstr("Failed(")));
}

/// What a fatal check with labelled values leaves there: the values end where the place of the
/// assertion begins.
inline auto failure(const std::string& expression, const std::string& context) {
  return ::testing::AllOf(
      ::testing::HasSubstr("Failed(" + expression + ") " + context + "engine/LpmSm"),
      ::testing::HasSubstr(": Assertion `! \"" + expression + "\"' failed.\n"));
}

}  // namespace Quarle::Tarnlet::Testing
