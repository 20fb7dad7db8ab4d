#pragma once

#include <charconv>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

namespace Quarle::Cli {

/// Ends the reading of the command line with one line: the option, what was given, what was
/// expected.
[[noreturn]] inline void refuse(const std::string& option,
                                std::string_view text,
                                const std::string& expected) {
  throw CLI::ValidationError(option, "\"" + std::string(text) + "\", expected " + expected);
}

/// The number that the whole text spells.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

/// One of the few words that an option takes.
template <typename Value>
struct Word {
  const char* text;
  Value value;
};

template <typename Value>
CLI::Option* addChoice(CLI::App& app,
                       const std::string& name,
                       std::vector<Word<Value>> words,
                       const std::function<void(Value)>& take,
                       const std::string& help) {
  std::string form;
  for (const Word<Value>& word : words) {
    form += (form.empty() ? "" : "|") + std::string(word.text);
  }
  const auto parse = [name, words, take, form](const std::string& text) {
    for (const Word<Value>& word : words) {
      if (text == word.text) {
        take(word.value);
        return;
      }
    }
    refuse(name, text, form);
  };
  return app.add_option_function<std::string>(name, parse, help)->type_name(form);
}

}  // namespace Quarle::Cli
