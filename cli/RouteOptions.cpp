#include "cli/RouteOptions.h"

#include <string_view>

#include "cli/OptionWords.h"

namespace Quarle::Cli {

namespace {

constexpr std::uint32_t kMaxGroups = 1'000'000;

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

}  // namespace

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

void RouteOptions::checkRoutes() const {
  if (strict && rib.empty()) {
    throw UsageError("--strict: there are no lines to be strict about, expected --rib FILE");
  }
}

void addRouteOptions(CLI::App& app, RouteOptions& options) {
  CLI::Option* rib =
      app.add_option("--rib", options.rib,
                     "The routes of a text file: a line is \"prefix[ nexthop...]\", # begins a "
                     "comment; gzip, bzip2, xz and zstd are told by content")
          ->type_name("FILE");
  app.add_option_function<std::string>(
         "--synthetic",
         [&options](const std::string& text) {
           options.synthetic = parseSynthetic("--synthetic", text);
         },
         "A made-up table of N4 IPv4 and N6 IPv6 routes, shaped like the Internet's")
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
}

void addVerify(CLI::App& app, std::optional<Verify>& verify, const std::string& defaults) {
  addChoice<Verify>(
      app, "--verify", {{"all", Verify::all}, {"sample", Verify::sample}, {"none", Verify::none}},
      [&verify](Verify chosen) { verify = chosen; },
      "Look up the first and last address of every route in the chip, of one route in 64, or "
      "none, and compare with a plain trie (default: " +
          defaults + ")");
}

}  // namespace Quarle::Cli
