#include "cli/LoadOptions.h"

#include <charconv>
#include <functional>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

namespace Quarle::Cli {

namespace {

constexpr std::uint32_t kMaxGroups = 1'000'000;

[[noreturn]] void refuse(const std::string& option,
                         std::string_view text,
                         const std::string& expected) {
  throw CLI::ValidationError(option, "\"" + std::string(text) + "\", expected " + expected);
}

template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

/// An option that takes one of a few words.
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

Agent::SyntheticSize parseSynthetic(const std::string& name, const std::string& text) {
  const std::size_t comma = text.find(',');
  if (comma != std::string::npos) {
    const auto ipv4 = parseNumber<std::uint32_t>(std::string_view(text).substr(0, comma));
    const auto ipv6 = parseNumber<std::uint32_t>(std::string_view(text).substr(comma + 1));
    if (ipv4 && ipv6 && *ipv4 <= Agent::SyntheticSize::kMaxRoutes &&
        *ipv6 <= Agent::SyntheticSize::kMaxRoutes) {
      return {.ipv4 = *ipv4, .ipv6 = *ipv6};
    }
  }
  refuse(name, text, "N4,N6, each from 0 to " + std::to_string(Agent::SyntheticSize::kMaxRoutes));
}

void addSources(CLI::App& app, LoadOptions& options) {
  CLI::Option* rib =
      app.add_option("--rib", options.rib,
                     "Load the routes of a text file: a line is \"prefix[ nexthop...]\", # begins "
                     "a comment; gzip, bzip2, xz and zstd are told by content")
          ->type_name("FILE");
  app.add_option_function<std::string>(
         "--synthetic",
         [&options](const std::string& text) {
           options.synthetic = parseSynthetic("--synthetic", text);
         },
         "Load a made-up table of N4 IPv4 and N6 IPv6 routes, shaped like the Internet's")
      ->type_name("N4,N6")
      ->excludes(rib);
  app.add_flag("--strict", options.strict, "Stop at a bad line of the file instead of counting it");
  app.add_option_function<std::string>(
         "--nexthops",
         [&options](const std::string& text) {
           const auto groups = parseNumber<std::uint32_t>(text);
           if (!groups || *groups == 0 || *groups > kMaxGroups) {
             refuse("--nexthops", text, "a number from 1 to " + std::to_string(kMaxGroups));
           }
           options.nextHopGroups = groups;
         },
         "K made-up next-hop groups of 1 to 8 ways for all routes (default: the file's own next "
         "hops, and 64 made-up groups for routes without any)")
      ->type_name("K");
}

void addManner(CLI::App& app, LoadOptions& options) {
  app.add_option("--chip", options.chip, "Chip profile: a name or the path of a JSON file")
      ->type_name("PROFILE")
      ->capture_default_str();
  addChoice<Order>(
      app, "--order", {{"sorted", Order::sorted}, {"shuffled", Order::shuffled}},
      [&options](Order order) { options.order = order; },
      "Order of the requests: by address and length, or random (default: sorted)");
  app.add_option_function<std::string>(
         "--seed",
         [&options](const std::string& text) {
           const auto seed = parseNumber<std::uint64_t>(text);
           if (!seed) {
             refuse("--seed", text, "a number from 0 to 18446744073709551615");
           }
           options.seed = *seed;
         },
         "Seed of everything random (default: 1)")
      ->type_name("S");
  addChoice<bool>(
      app, "--shuffling", {{"on", true}, {"off", false}},
      [&options](bool on) { options.shuffling = on; },
      "Whether a colliding row may move to another table (default: on)");
  app.add_flag("--churn", options.churn,
               "After the load withdraw a random half, announce it again, then change every "
               "route's next hops; each phase is verified and reported");
  app.add_option_function<std::string>(
         "--changes",
         [&options](const std::string& text) {
           const auto changes = parseNumber<std::uint32_t>(text);
           if (!changes) {
             refuse("--changes", text, "a number from 0 to 4294967295");
           }
           options.changes = *changes;
         },
         "After the load make N random changes: withdraw, announce, change next hops, new groups")
      ->type_name("N");
  app.add_flag("--every-command", options.everyCommand,
               "After every single write look up in the chip all that it may have touched");
  app.add_flag("--no-chip", options.noChip,
               "Drop the commands instead of writing them: the library alone, for measuring");
  addChoice<Verify>(
      app, "--verify", {{"all", Verify::all}, {"sample", Verify::sample}, {"none", Verify::none}},
      [&options](Verify verify) { options.verify = verify; },
      "Look up the first and last address of every route in the chip, of one route in 64, or "
      "none, and compare with a plain trie (default: all; none with --no-chip)");
  app.add_flag("--json", options.json, "Print one JSON object instead of the summary");
}

}  // namespace

const char* toText(Order order) { return order == Order::sorted ? "sorted" : "shuffled"; }

const char* toText(Verify verify) {
  switch (verify) {
    case Verify::none:
      return "none";
    case Verify::sample:
      return "sample";
    case Verify::all:
      return "all";
  }
  return "unknown";
}

void LoadOptions::check() const {
  if (rib.empty() && !synthetic) {
    throw UsageError("load: no routes given, expected --rib FILE or --synthetic N4,N6");
  }
  if (noChip && verifyMode() != Verify::none) {
    throw UsageError("--verify " + std::string(toText(verifyMode())) +
                     ": nothing is written with --no-chip, expected none");
  }
  if (noChip && everyCommand) {
    throw UsageError("--every-command: nothing is written with --no-chip, expected one of the two");
  }
  if (strict && rib.empty()) {
    throw UsageError("--strict: there are no lines to be strict about, expected --rib FILE");
  }
}

void addLoadOptions(CLI::App& app, LoadOptions& options) {
  addSources(app, options);
  addManner(app, options);
  app.footer(
      "bytes_per_route is the growth of the process's heap from before the first request to after\n"
      "the last command of a family, divided by its routes. It counts all that the library and "
      "the\n"
      "client keep for them, not the list of routes as read nor the simulated chip's memory.\n"
      "seconds.load runs from the first request to the empty command queue.\n"
      "\n"
      "Exit codes: 0 done, refused routes included; 1 a look-up was wrong, the chip refused a\n"
      "write, or --strict met a bad line; 2 the command line, a file or a profile cannot be used.");
}

}  // namespace Quarle::Cli
