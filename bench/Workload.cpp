#include "bench/Workload.h"

#include <algorithm>
#include <charconv>
#include <random>
#include <stdexcept>
#include <string_view>

#include "agent/source/RibFile.h"
#include "agent/source/RouteOrder.h"
#include "agent/source/RouteText.h"

#include <CLI/CLI.hpp>

namespace Quarle::Bench {

namespace {

using Agent::Family;

constexpr std::uint64_t kSyntheticSeed = 1;
constexpr std::uint64_t kOrderSeed = 42;

U32 fnv1a(std::string_view text) {
  U32 hash = 2166136261U;
  for (const char c : text) {
    hash = (hash ^ static_cast<U8>(c)) * 16777619U;
  }
  return hash;
}

std::optional<std::uint32_t> parseCount(std::string_view text) {
  std::uint32_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return count;
}

Agent::SyntheticSize parseSynthetic(const std::string& text) {
  const std::size_t comma = text.find(',');
  if (comma != std::string::npos) {
    const auto ipv4 = parseCount(std::string_view(text).substr(0, comma));
    const auto ipv6 = parseCount(std::string_view(text).substr(comma + 1));
    if (ipv4 && ipv6 && *ipv4 <= Agent::SyntheticSize::kMaxRoutes &&
        *ipv6 <= Agent::SyntheticSize::kMaxRoutes) {
      return {.ipv4 = *ipv4, .ipv6 = *ipv6};
    }
  }
  throw CLI::ValidationError("--synthetic", "\"" + text + "\", expected N4,N6, each from 0 to " +
                                                std::to_string(Agent::SyntheticSize::kMaxRoutes));
}

Agent::RouteTable readTable(const WorkloadOptions& options) {
  if (options.synthetic) {
    return Agent::makeSyntheticTable(*options.synthetic, kSyntheticSeed);
  }
  if (options.rib.empty()) {
    throw std::invalid_argument("no routes given, expected --rib FILE or --synthetic N4,N6");
  }
  return Agent::loadRibFile(options.rib, {.strict = true}).table;
}

std::vector<WorkRoute> inOrder(std::vector<Agent::RouteEntry>& routes, Order order) {
  Agent::sortRoutes(routes);
  std::vector<WorkRoute> work;
  work.reserve(routes.size());
  for (const Agent::RouteEntry& route : routes) {
    const U32 hash = fnv1a(Agent::toText(route.prefix));
    work.push_back(
        {.prefix = route.prefix, .nextHop = static_cast<U8>(hash % WorkRoute::kNextHops)});
  }
  if (order == Order::shuffled) {
    std::mt19937_64 random(kOrderSeed);
    std::shuffle(work.begin(), work.end(), random);
  }
  return work;
}

}  // namespace

const char* toText(Order order) { return order == Order::sorted ? "sorted" : "shuffled"; }

void addWorkloadOptions(CLI::App& app, WorkloadOptions& options) {
  CLI::Option* rib = app.add_option("--rib", options.rib,
                                    "Routes of a text file, one prefix a line, plain or compressed")
                         ->type_name("FILE");
  app.add_option_function<std::string>(
         "--synthetic",
         [&options](const std::string& text) { options.synthetic = parseSynthetic(text); },
         "A made-up table of N4 IPv4 and N6 IPv6 routes, shaped like the Internet's")
      ->type_name("N4,N6")
      ->excludes(rib);
  app.add_option_function<std::string>(
         "--order",
         [&options](const std::string& text) {
           options.order = text == "sorted" ? Order::sorted : Order::shuffled;
         },
         "Order of the requests: by address and length, or random (default: shuffled)")
      ->check(CLI::IsMember({"sorted", "shuffled"}));
  app.add_option_function<std::string>(
         "--family",
         [&options](const std::string& text) {
           options.families = {text == "ipv4" ? Family::ipv4 : Family::ipv6};
         },
         "One family alone (default: both, one after the other)")
      ->check(CLI::IsMember({"ipv4", "ipv6"}));
  app.add_option("--repeat", options.repeat, "Runs, each in a process of its own")
      ->type_name("N")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
}

Workload::Workload(const WorkloadOptions& options) {
  Agent::RouteTable table = readTable(options);
  ipv4_ = inOrder(table.ipv4, options.order);
  ipv6_ = inOrder(table.ipv6, options.order);
}

}  // namespace Quarle::Bench
