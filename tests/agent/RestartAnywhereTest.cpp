// A client that dies between any two of its writes, and the one that comes after it.

#include <algorithm>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/agent/LastingChip.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::LastingChip;
using Testing::tinyOptions;
using Testing::tinyProfile;

/// A client's life in two halves: before the writes between which it may die, and with them. Told
/// in routes: each prefix with where it leads before, and where it should lead in the end.
struct Life {
  std::function<void(LastingChip&)> before;
  std::function<void(LastingChip&)> during;
  // By prefix; absent: no route.
  std::map<std::string, std::vector<U64>> wanted;
  // Those of them that nobody touches on the way.
  std::vector<std::string> untouched;
  // Whether groups have no room beside their old rows.
  bool isTight = false;
};

std::string expectedAt(const std::string& prefix, const std::vector<U64>& nextHops) {
  std::string text = prefix + " to";
  for (const U64 nextHop : nextHops) {
    text += " " + std::to_string(nextHop);
  }
  return text;
}

std::string addressOf(const std::string& prefix) { return prefix.substr(0, prefix.find('/')); }

class RestartAnywhere : public ::testing::Test {
 protected:
  /// Has the client die at every place in turn, with and without the list of groups, and brings the
  /// routes back where they should be. Untouched routes answer right after each single write, or
  /// with an uneven share of their own next hops where a group has slid half-way.
  void expectEveryRestartToBeRight(const Life& life, bool mayBeUneven = false) {
    U64 writes = 0;
    {
      LastingChip chip(profile, options);
      chip.start();
      life.before(chip);
      const U64 before = chip.writes();
      life.during(chip);
      writes = chip.writes() - before;
    }
    ASSERT_GT(writes, 2U);
    for (U64 place = 0; place <= writes; ++place) {
      for (const auto death :
           {LastingChip::Death::behindTheWrite, LastingChip::Death::beforeTheNext}) {
        for (const bool hasList : {true, false}) {
          SCOPED_TRACE("dies behind write " + std::to_string(place) + " of " +
                       std::to_string(writes) +
                       (death == LastingChip::Death::behindTheWrite ? ", at once" : ", late") +
                       (hasList ? "" : ", without its list"));
          ASSERT_NO_FATAL_FAILURE(expectRestartToBeRight(life, place, death, hasList, mayBeUneven));
        }
      }
    }
  }

  void expectRestartToBeRight(
      const Life& life, U64 place, LastingChip::Death death, bool hasList, bool mayBeUneven) {
    LastingChip chip(profile, options);
    chip.start();
    life.before(chip);
    std::string wrong;
    chip.watch = [&] {
      for (const std::string& prefix : life.untouched) {
        const std::string seen = chip.lookup(addressOf(prefix));
        if (seen != expectedAt(prefix, life.wanted.at(prefix)) &&
            !(mayBeUneven && isUneven(seen, prefix, life.wanted.at(prefix)))) {
          wrong += seen + " in " + chip.nextHopRows() + "\n";
        }
      }
    };
    chip.diesAfter(place, death);
    life.during(chip);
    if (!hasList) {
      chip.loseList();
    }
    chip.restart();
    ASSERT_EQ(wrong, "") << "up to the restart's end";
    ASSERT_EQ(chip.client->restartReport().faults, std::vector<std::string>());
    if (hasList) {
      ASSERT_EQ(chip.client->restartReport().groupListFault, "");
      ASSERT_EQ(chip.client->groups().statistics().strangers, 0U) << chip.nextHopRows();
    }
    chip.client->resyncBegin();
    for (const auto& [prefix, nextHops] : life.wanted) {
      const std::string answer = chip.route(prefix, nextHops);
      if (!life.isTight || hasList) {
        ASSERT_EQ(answer.find("refused"), std::string::npos) << prefix << " " << answer;
      }
    }
    ASSERT_EQ(chip.client->resyncEnd(), 0U);
    ASSERT_EQ(wrong, "") << "up to the resynchronisation's end";
    if (life.isTight && !hasList) {
      // Some routes wait for rows where they are, which is not wrong.
      return;
    }
    U64 rows = 0;
    std::map<std::vector<U64>, bool> lists;
    for (const auto& [prefix, nextHops] : life.wanted) {
      ASSERT_EQ(chip.lookup(addressOf(prefix)), expectedAt(prefix, nextHops));
      rows += lists.emplace(nextHops, true).second ? nextHops.size() : 0;
    }
    ASSERT_EQ(
        chip.client->family(Family::ipv4).routes() + chip.client->family(Family::ipv6).routes(),
        life.wanted.size());
    const std::string text = chip.nextHopRows();
    ASSERT_EQ(chip.client->groups().statistics().groups, lists.size()) << text;
    ASSERT_EQ(chip.client->groups().statistics().rowsUsed, rows) << text;
    ASSERT_EQ(chip.client->groups().statistics().strangers, 0U);
    const auto empty = static_cast<U64>(std::count(text.begin(), text.end(), '.'));
    ASSERT_EQ(profile.nextHopRows - empty, rows) << text;
  }

  /// Whether the route answers with nothing but its own next hops.
  static bool isUneven(std::string seen, const std::string& prefix, const std::vector<U64>& own) {
    const std::string start = prefix + " to ";
    if (!seen.starts_with(start)) {
      return false;
    }
    std::istringstream stream(seen.substr(start.size()));
    for (std::string hop; stream >> hop;) {
      if (hop == "nowhere" || std::find(own.begin(), own.end(), std::stoull(hop)) == own.end()) {
        return false;
      }
    }
    return true;
  }

  XdkSim::ChipProfile profile = tinyProfile({{.tread = 16, .rows = 1}}, /*nextHopRows=*/32);
  ClientOptions options = tinyOptions();
};

TEST_F(RestartAnywhere, whileRoutesComeAndGo) {
  expectEveryRestartToBeRight({.before =
                                   [](LastingChip& chip) {
                                     chip.route("10.1.0.0/16", {1});
                                     chip.route("10.2.0.0/16", {2, 2});
                                     chip.route("2001:db8::/32", {2, 2});
                                   },
                               .during =
                                   [](LastingChip& chip) {
                                     chip.route("10.3.0.0/16", {3, 3, 3});
                                     chip.route("2001:db9::/32", {3, 3, 3});
                                     chip.withdraw("10.2.0.0/16");
                                     chip.route("10.4.0.0/16", {1});
                                     chip.withdraw("2001:db8::/32");
                                     chip.route("10.5.0.0/16", {5});
                                   },
                               .wanted = {{"10.1.0.0/16", {1}},
                                          {"10.3.0.0/16", {3, 3, 3}},
                                          {"2001:db9::/32", {3, 3, 3}},
                                          {"10.4.0.0/16", {1}},
                                          {"10.5.0.0/16", {5}}},
                               .untouched = {"10.1.0.0/16"}});
}

TEST_F(RestartAnywhere, whileAGroupIsRewrittenWhereItIs) {
  expectEveryRestartToBeRight(
      {.before =
           [](LastingChip& chip) {
             chip.route("10.1.0.0/16", {1});
             chip.route("10.2.0.0/16", {2, 3, 4});
           },
       .during =
           [](LastingChip& chip) {
             const SwId group = chip.client->groupIs(std::vector<U64>{2, 3, 4});
             chip.client->groupNextHopsAre(group, std::vector<U64>{7, 8, 9});
             chip.client->groupDel(group);
           },
       .wanted = {{"10.1.0.0/16", {1}}, {"10.2.0.0/16", {7, 8, 9}}},
       .untouched = {"10.1.0.0/16"}});
}

TEST_F(RestartAnywhere, whileAGroupGrows) {
  expectEveryRestartToBeRight(
      {.before =
           [](LastingChip& chip) {
             chip.route("10.1.0.0/16", {1});
             chip.route("10.2.0.0/16", {2, 3});
             chip.route("10.3.0.0/16", {2, 3});
             chip.route("2001:db8::/32", {2, 3});
           },
       .during =
           [](LastingChip& chip) {
             const SwId group = chip.client->groupIs(std::vector<U64>{2, 3});
             chip.client->groupNextHopsAre(group, std::vector<U64>{2, 3, 4});
             chip.client->groupDel(group);
           },
       .wanted = {{"10.1.0.0/16", {1}},
                  {"10.2.0.0/16", {2, 3, 4}},
                  {"10.3.0.0/16", {2, 3, 4}},
                  {"2001:db8::/32", {2, 3, 4}}},
       .untouched = {"10.1.0.0/16"}});
}

TEST_F(RestartAnywhere, whileTheTableIsCompacted) {
  profile.nextHopRows = 24;
  const std::vector<U64> four = {41, 42, 43, 44};
  const std::vector<U64> three = {31, 32, 33};
  expectEveryRestartToBeRight(
      {.before =
           [&](LastingChip& chip) {
             chip.route("10.1.0.0/16", {1, 2});
             chip.route("10.2.0.0/16", four);  // slides by less than its size
             chip.route("2001:db8::/32", four);
             chip.route("10.3.0.0/16", {5});
             chip.route("10.4.0.0/16", {6, 6});
             chip.route("10.5.0.0/16", three);
             chip.withdraw("10.1.0.0/16");
             chip.withdraw("10.4.0.0/16");  // . . 4 4 4 4 5 . . 3 3 3
           },
       .during =
           [](LastingChip& chip) {
             EXPECT_EQ(chip.route("10.6.0.0/16", std::vector<U64>(13, 7)), "placed");
             EXPECT_EQ(chip.client->groups().statistics().shuffles, 3U);
           },
       .wanted = {{"10.2.0.0/16", four},
                  {"2001:db8::/32", four},
                  {"10.3.0.0/16", {5}},
                  {"10.5.0.0/16", three}},
       .untouched = {"10.2.0.0/16", "2001:db8::/32", "10.3.0.0/16", "10.5.0.0/16"},
       .isTight = true},
      /*mayBeUneven=*/true);
}

TEST_F(RestartAnywhere, andAgainWhileTheNextOneStarts) {
  const std::vector<U64> four = {41, 42, 43, 44};
  profile.nextHopRows = 24;
  for (U64 first = 0; first < 30; ++first) {
    for (U64 second = 0; second < 12; ++second) {
      SCOPED_TRACE("behind write " + std::to_string(first) + ", then behind write " +
                   std::to_string(second));
      LastingChip chip(profile, options);
      chip.start();
      chip.route("10.1.0.0/16", {1, 2});
      chip.route("10.2.0.0/16", four);
      chip.route("2001:db8::/32", four);
      chip.route("10.3.0.0/16", {5});
      chip.withdraw("10.1.0.0/16");
      chip.diesAfter(first, LastingChip::Death::beforeTheNext);
      chip.route("10.6.0.0/16", std::vector<U64>(18, 7));
      chip.restart();
      chip.diesAfter(second, LastingChip::Death::behindTheWrite);
      chip.client->resyncBegin();
      chip.route("10.2.0.0/16", {4});
      chip.client->resyncEnd();
      chip.restart();
      ASSERT_EQ(chip.client->groups().statistics().strangers, 0U);
      chip.client->resyncBegin();
      chip.route("10.2.0.0/16", four);
      chip.route("2001:db8::/32", {8});
      chip.client->resyncEnd();
      ASSERT_EQ(chip.lookup("10.2.0.0"), expectedAt("10.2.0.0/16", four));
      ASSERT_EQ(chip.lookup("2001:db8::"), "2001:db8::/32 to 8");
      ASSERT_EQ(chip.lookup("10.3.0.0"), "none");
      ASSERT_EQ(chip.client->groups().statistics().rowsUsed, 5U) << chip.nextHopRows();
    }
  }
}

}  // namespace
}  // namespace Quarle::Agent
