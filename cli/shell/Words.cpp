#include "cli/shell/Words.h"

#include "cli/OptionWords.h"
#include "cli/shell/ShellError.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <optional>

namespace Quarle::Cli {

namespace {

constexpr U32 kMaxVrf = 65535;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

/// Follows quotes and brackets along a line.
class Nesting {
 public:
  void take(char c) {
    if (quote_ != 0) {
      if (isEscaped_) {
        isEscaped_ = false;
      } else if (c == '\\') {
        isEscaped_ = true;
      } else if (c == quote_) {
        quote_ = 0;
      }
    } else if (c == '\'' || c == '"') {
      quote_ = c;
    } else if (c == '[' || c == '(' || c == '{') {
      open_ += c;
    } else if (!open_.empty() && c == closingOf(open_.back())) {
      open_.pop_back();
    }
  }

  bool isInside() const { return quote_ != 0 || !open_.empty(); }

  /// What has to come for the innermost to end.
  char missing() const { return quote_ != 0 ? quote_ : closingOf(open_.back()); }

 private:
  static char closingOf(char open) { return open == '[' ? ']' : open == '(' ? ')' : '}'; }

  char quote_ = 0;
  bool isEscaped_ = false;
  std::string open_;
};

std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(a[i])) ==
                        std::tolower(static_cast<unsigned char>(b[j]));
      const std::size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, diagonal + 1, replaced});
    }
  }
  return row.back();
}

U32 vrfOf(const std::string& text) {
  const std::optional<U32> vrf = parseNumber<U32>(text);
  if (!vrf || *vrf > kMaxVrf) {
    throw ShellError("vrf " + Agent::inQuotes(text) + ", expected a number from 0 to 65535");
  }
  return *vrf;
}

/// The word that is neither "vrf" nor its number, which goes to `vrf`.
const std::string& splitVrf(std::span<const std::string> words, const char* what, U32& vrf) {
  if (words.size() == 3 && words[1] == "vrf") {
    vrf = vrfOf(words[2]);
    return words[0];
  }
  if (words.size() == 3 && words[0] == "vrf") {
    vrf = vrfOf(words[1]);
    return words[2];
  }
  if (words.size() != 1) {
    throw ShellError(std::to_string(words.size()) + " words, expected " + what + " [vrf N]");
  }
  return words[0];
}

}  // namespace

std::vector<std::string> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  Nesting nesting;
  std::string word;
  for (const char c : line) {
    if (isBlank(c) && !nesting.isInside()) {
      if (!word.empty()) {
        words.push_back(std::move(word));
        word.clear();
      }
      continue;
    }
    if (c == '#' && word.empty()) {
      return words;
    }
    nesting.take(c);
    word += c;
  }
  if (nesting.isInside()) {
    throw ShellError(Agent::inQuotes(word) + " is not finished, expected " +
                     std::string(1, nesting.missing()));
  }
  if (!word.empty()) {
    words.push_back(std::move(word));
  }
  return words;
}

std::size_t lastWordOf(std::string_view line) {
  Nesting nesting;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (isBlank(line[i]) && !nesting.isInside()) {
      begin = i + 1;
    }
    nesting.take(line[i]);
  }
  return begin;
}

std::string nearestText(std::string_view word, std::span<const std::string> names) {
  const std::string* best = nullptr;
  std::size_t least = word.size() / 2 + 2;
  for (const std::string& name : names) {
    const std::size_t distance = editDistance(word, name);
    if (distance < least) {
      least = distance;
      best = &name;
    }
  }
  return best == nullptr ? "" : ", nearest \"" + *best + "\"";
}

std::string withExpected(const std::string& misuse, const std::string& expected) {
  return misuse.find("expected") == std::string::npos ? misuse + ", expected " + expected : misuse;
}

Agent::RouteKey routeOf(std::span<const std::string> words) {
  Agent::RouteKey key;
  const std::string& text = splitVrf(words, "PREFIX", key.vrf);
  const Agent::Parsed<Agent::RoutePrefix> prefix = Agent::parsePrefix(text);
  if (!prefix.ok()) {
    throw ShellError(prefix.fault);
  }
  key.prefix = prefix.value;
  return key;
}

AddressKey addressOf(std::span<const std::string> words) {
  AddressKey key;
  const std::string& text = splitVrf(words, "ADDRESS", key.vrf);
  const Agent::Parsed<Agent::IpAddress> address = Agent::parseAddress(text);
  if (!address.ok()) {
    throw ShellError(address.fault);
  }
  key.address = address.value;
  return key;
}

}  // namespace Quarle::Cli
