#include "agent/ReferenceTrie.h"

#include <cstdlib>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "agent/source/Random.h"
#include "agent/source/RouteText.h"
#include "agent/source/SyntheticTable.h"

namespace Quarle::Agent {
namespace {

RoutePrefix prefix(const char* text) { return parsePrefix(text).value; }

IpAddress address(const char* text) { return parseAddress(text).value; }

std::string text(const std::optional<ReferenceTrie::Match>& match) {
  return match ? "/" + std::to_string(match->length) + "=" + std::to_string(match->value) : "none";
}

std::string text(const std::vector<ReferenceTrie::Match>& matches) {
  std::string result;
  for (const ReferenceTrie::Match& match : matches) {
    result += (result.empty() ? "" : " ") + text(std::optional(match));
  }
  return result;
}

TEST(ReferenceTrie, theLongestCoveringPrefixWins) {
  ReferenceTrie trie;
  EXPECT_TRUE(trie.insert(prefix("10.0.0.0/8"), 1));
  EXPECT_TRUE(trie.insert(prefix("10.1.0.0/16"), 2));
  EXPECT_TRUE(trie.insert(prefix("10.1.1.0/24"), 3));
  EXPECT_TRUE(trie.insert(prefix("10.1.1.1/32"), 4));
  EXPECT_EQ(text(trie.longestMatch(address("10.1.1.1"))), "/32=4");
  EXPECT_EQ(text(trie.longestMatch(address("10.1.1.2"))), "/24=3");
  EXPECT_EQ(text(trie.longestMatch(address("10.1.2.0"))), "/16=2");
  EXPECT_EQ(text(trie.longestMatch(address("10.255.255.255"))), "/8=1");
  EXPECT_EQ(text(trie.longestMatch(address("11.0.0.0"))), "none");
  EXPECT_EQ(text(trie.covering(address("10.1.1.1"))), "/32=4 /24=3 /16=2 /8=1");
}

TEST(ReferenceTrie, theDefaultRouteMatchesWhatNothingElseDoes) {
  ReferenceTrie trie;
  EXPECT_EQ(text(trie.longestMatch(address("0.0.0.0"))), "none");
  trie.insert(prefix("0.0.0.0/0"), 1);
  trie.insert(prefix("::/0"), 2);
  trie.insert(prefix("ffff::/16"), 3);
  EXPECT_EQ(text(trie.longestMatch(address("255.255.255.255"))), "/0=1");
  EXPECT_EQ(text(trie.longestMatch(address("::1"))), "/0=2");
  EXPECT_EQ(text(trie.covering(address("ffff::1"))), "/16=3 /0=2");
}

TEST(ReferenceTrie, familiesDoNotMix) {
  ReferenceTrie trie;
  trie.insert(prefix("0.0.0.0/8"), 1);
  EXPECT_EQ(text(trie.longestMatch(address("::1"))), "none");
  EXPECT_FALSE(trie.find(prefix("::/8")).has_value());
  EXPECT_FALSE(trie.erase(prefix("::/8")));
  EXPECT_EQ(trie.size(Family::ipv4), 1u);
  EXPECT_EQ(trie.size(Family::ipv6), 0u);
}

TEST(ReferenceTrie, anIpv6HostRouteIsMatchedToItsLastBit) {
  ReferenceTrie trie;
  trie.insert(prefix("2001:db8::1/128"), 1);
  trie.insert(prefix("2001:db8::/127"), 2);
  trie.insert(prefix("2001:db8::/65"), 3);
  trie.insert(prefix("2001:db8::/64"), 4);
  EXPECT_EQ(text(trie.covering(address("2001:db8::1"))), "/128=1 /127=2 /65=3 /64=4");
  EXPECT_EQ(text(trie.covering(address("2001:db8::"))), "/127=2 /65=3 /64=4");
  EXPECT_EQ(text(trie.covering(address("2001:db8::8000:0:0:0"))), "/64=4");
}

TEST(ReferenceTrie, insertReplacesAndEraseUncovers) {
  ReferenceTrie trie;
  trie.insert(prefix("10.0.0.0/8"), 1);
  trie.insert(prefix("10.0.0.0/24"), 2);
  EXPECT_FALSE(trie.insert(prefix("10.0.0.0/24"), 3));
  EXPECT_EQ(trie.find(prefix("10.0.0.0/24")), 3u);
  EXPECT_EQ(trie.size(Family::ipv4), 2u);
  EXPECT_TRUE(trie.erase(prefix("10.0.0.0/24")));
  EXPECT_FALSE(trie.erase(prefix("10.0.0.0/24")));
  EXPECT_FALSE(trie.find(prefix("10.0.0.0/24")).has_value());
  EXPECT_EQ(text(trie.longestMatch(address("10.0.0.1"))), "/8=1");
  EXPECT_EQ(trie.size(Family::ipv4), 1u);
}

struct Step {
  enum class Kind { insert, erase } kind;
  RoutePrefix prefix;
  std::uint32_t value;
};

std::string text(const std::vector<Step>& steps) {
  std::string result;
  for (const Step& step : steps) {
    result += step.kind == Step::Kind::insert
                  ? "insert " + toText(step.prefix) + " " + std::to_string(step.value) + "\n"
                  : "erase " + toText(step.prefix) + "\n";
  }
  return result;
}

bool covers(const RoutePrefix& prefix, const IpAddress& address) {
  return prefix.family == address.family &&
         AddressBits::of(address.bytes).masked(prefix.length) == prefix.bits();
}

/// Every covering prefix of a plain list, the longest first.
std::vector<ReferenceTrie::Match> searched(const std::map<RoutePrefix, std::uint32_t>& list,
                                           const IpAddress& address) {
  std::map<std::uint8_t, std::uint32_t> byLength;
  for (const auto& [prefix, value] : list) {
    if (covers(prefix, address)) {
      byLength[prefix.length] = value;
    }
  }
  std::vector<ReferenceTrie::Match> matches;
  for (auto it = byLength.rbegin(); it != byLength.rend(); ++it) {
    matches.push_back({.length = it->first, .value = it->second});
  }
  return matches;
}

std::string compared(const ReferenceTrie& trie,
                     const std::map<RoutePrefix, std::uint32_t>& list,
                     const IpAddress& address) {
  const std::vector<ReferenceTrie::Match> wanted = searched(list, address);
  const std::vector<ReferenceTrie::Match> found = trie.covering(address);
  const std::optional<ReferenceTrie::Match> longest = trie.longestMatch(address);
  const bool same = longest == (wanted.empty() ? std::nullopt : std::optional(wanted.front()));
  return found == wanted && same ? ""
                                 : toText(address) + ": covering " + text(found) + ", longest " +
                                       text(longest) + ", wanted " + text(wanted);
}

/// What differs from a plain list after `steps`; empty when nothing does.
std::string difference(const std::vector<Step>& steps) {
  ReferenceTrie trie;
  std::map<RoutePrefix, std::uint32_t> list;
  for (const Step& step : steps) {
    const bool known = list.contains(step.prefix);
    if (step.kind == Step::Kind::insert) {
      list[step.prefix] = step.value;
      if (trie.insert(step.prefix, step.value) == known) {
        return "insert " + toText(step.prefix) + " was told as " + (known ? "new" : "known");
      }
    } else {
      list.erase(step.prefix);
      if (trie.erase(step.prefix) != known) {
        return "erase " + toText(step.prefix) + " was told as " + (known ? "unknown" : "known");
      }
    }
  }
  for (const Step& step : steps) {
    for (const IpAddress& address : {step.prefix.firstAddress(), step.prefix.lastAddress()}) {
      const std::string fault = compared(trie, list, address);
      if (!fault.empty()) {
        return fault;
      }
    }
    const auto wanted = list.find(step.prefix);
    if (trie.find(step.prefix) !=
        (wanted == list.end() ? std::nullopt : std::optional(wanted->second))) {
      return "find " + toText(step.prefix);
    }
  }
  return trie.size(Family::ipv4) + trie.size(Family::ipv6) == list.size() ? "" : "size";
}

/// Leaves out whatever step `steps` differ without.
std::vector<Step> shrunk(std::vector<Step> steps) {
  for (std::size_t i = steps.size(); i > 0; --i) {
    std::vector<Step> fewer = steps;
    fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i - 1));
    if (!difference(fewer).empty()) {
      steps = std::move(fewer);
    }
  }
  return steps;
}

/// A prefix among few enough that steps meet, and of every length.
RoutePrefix drawnPrefix(Random& random) {
  const Family family = random.chance(500) ? Family::ipv4 : Family::ipv6;
  AddressBits bits;
  for (unsigned i = 0; i < 3; ++i) {
    bits = bits.withBit(random.below(addressBits(family)));
  }
  return RoutePrefix::of(family, bits, random.below(addressBits(family) + 1));
}

TEST(ReferenceTrie, agreesWithAPlainListOverRandomSteps) {
  const char* given = std::getenv("VELLOR_TEST_SEED");
  const std::uint64_t first = given ? std::strtoull(given, nullptr, 10) : 1;
  const std::uint64_t rounds = given ? 1 : 200;
  for (std::uint64_t seed = first; seed < first + rounds; ++seed) {
    Random random(seed);
    std::vector<Step> steps;
    const std::uint32_t count = 1 + random.below(300);
    const std::uint32_t erasing = random.below(700);
    for (std::uint32_t i = 0; i < count; ++i) {
      const bool again = !steps.empty() && random.chance(500);
      const RoutePrefix prefix =
          again ? steps[random.below(static_cast<std::uint32_t>(steps.size()))].prefix
                : drawnPrefix(random);
      const bool erase = random.chance(erasing);
      steps.push_back(
          {.kind = erase ? Step::Kind::erase : Step::Kind::insert, .prefix = prefix, .value = i});
    }
    if (!difference(steps).empty()) {
      const std::vector<Step> fewest = shrunk(steps);
      FAIL() << "VELLOR_TEST_SEED=" << seed << "\n" << text(fewest) << difference(fewest);
    }
  }
}

TEST(ReferenceTrie, aSyntheticTableIsFoundWholeAndErasedWhole) {
  const RouteTable table = makeSyntheticTable({.ipv4 = 20'000, .ipv6 = 20'000}, 1);
  for (const Family family : {Family::ipv4, Family::ipv6}) {
    const std::vector<RouteEntry>& routes = table.routes(family);
    ReferenceTrie trie;
    for (std::uint32_t i = 0; i < routes.size(); ++i) {
      ASSERT_TRUE(trie.insert(routes[i].prefix, i)) << toText(routes[i].prefix);
    }
    for (std::uint32_t i = 0; i < routes.size(); i += 2) {
      ASSERT_TRUE(trie.erase(routes[i].prefix)) << toText(routes[i].prefix);
    }
    for (std::uint32_t i = 0; i < routes.size(); ++i) {
      const std::optional<std::uint32_t> wanted = i % 2 ? std::optional(i) : std::nullopt;
      ASSERT_EQ(trie.find(routes[i].prefix), wanted) << toText(routes[i].prefix);
    }
    for (std::uint32_t i = 1; i < routes.size(); i += 2) {
      ASSERT_TRUE(trie.erase(routes[i].prefix)) << toText(routes[i].prefix);
    }
    EXPECT_EQ(trie.size(family), 0u);
    EXPECT_EQ(text(trie.longestMatch(routes[0].prefix.firstAddress())), "none");
  }
}

}  // namespace
}  // namespace Quarle::Agent
