#include "xdksim/FaultyLpmMgr.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/xdksim/PrintRowPlace.h"
#include "tests/xdksim/SmallProfile.h"
#include "xdksim/SimLpmMgr.h"

namespace XdkSim {
namespace {

constexpr XP_STATUS kUnheardOf = 12345;
constexpr RowPlace kPrefixRow{
    .kind = RowKind::prefix, .family = Family::ipv4, .table = 1, .row = 3};
constexpr RowPlace kNhiRow{.kind = RowKind::nhi, .family = Family::ipv4, .table = 1, .row = 9};
constexpr RowPlace kNextHopRow{
    .kind = RowKind::nextHop, .family = Family::ipv4, .table = 0, .row = 5};

/// A record whose row has `number` in all of its words.
xpLpmPrefixEntry prefixEntry(U64 number) {
  xpLpmPrefixEntry entry;
  entry.mode = 1;
  entry.branchLen = 24;
  entry.stride = 64;
  entry.branch[0] = static_cast<U8>(number);
  for (U32 slot = 0; slot < 3; ++slot) {
    entry.leafVal[slot] = number;
  }
  return entry;
}

xpLpmNhiEntry nhiEntry(U32 number) {
  xpLpmNhiEntry entry;
  for (U32 pair = 0; pair < 6; ++pair) {
    entry.base[pair] = number;
  }
  return entry;
}

class FaultyManager : public testing::Test {
 protected:
  /// Writes `number` to a row of each kind; the answers.
  std::vector<XP_STATUS> writeAll(U32 number) {
    xpLpmPrefixEntry prefix = prefixEntry(number);
    xpLpmNhiEntry nhi = nhiEntry(number);
    xpNextHopEntry nextHop{.valid = 1, .way = number, .nextHopId = number};
    return {manager_.writePrefixEntry(0, 1, 3, &prefix), manager_.writeNhiEntry(0, 1, 9, &nhi),
            manager_.writeNextHopEntry(0, 5, &nextHop)};
  }

  /// Reads a row of each kind; the answers.
  std::vector<XP_STATUS> readAll() {
    return {manager_.readPrefixEntry(0, 1, 3, &prefix_, 0),
            manager_.readNhiEntry(0, 1, 9, &nhi_, 0), manager_.readNextHopEntry(0, 5, &nextHop_)};
  }

  /// The numbers that stand in the three rows, read behind the manager.
  std::vector<U64> numbers() const {
    xpLpmPrefixEntry prefix;
    xpLpmNhiEntry nhi;
    xpNextHopEntry nextHop;
    EXPECT_EQ(chip_.readPrefixRow(Family::ipv4, 1, 3, prefix), XP_NO_ERR);
    EXPECT_EQ(chip_.readNhiRow(Family::ipv4, 1, 9, nhi), XP_NO_ERR);
    EXPECT_EQ(chip_.readNextHopRow(5, nextHop), XP_NO_ERR);
    return {prefix.leafVal[1], nhi.base[5], nextHop.nextHopId};
  }

  std::vector<std::string> log() const {
    std::vector<std::string> lines;
    for (const InjectedFault& injected : plan_.log()) {
      lines.push_back(toText(injected));
    }
    return lines;
  }

  Chip chip_{smallProfile()};
  SimLpmMgr chipManager_{chip_, Family::ipv4};
  FaultPlan plan_;
  FaultyLpmMgr manager_{chipManager_, chip_, Family::ipv4, plan_};
  // What `readAll` fills.
  xpLpmPrefixEntry prefix_;
  xpLpmNhiEntry nhi_;
  xpNextHopEntry nextHop_;
};

using Statuses = std::vector<XP_STATUS>;
using Numbers = std::vector<U64>;
using Lines = std::vector<std::string>;

TEST_F(FaultyManager, passesEverythingOnWithoutRules) {
  EXPECT_EQ(writeAll(1), (Statuses{0, 0, 0}));
  EXPECT_EQ(numbers(), (Numbers{1, 1, 1}));
  EXPECT_EQ(readAll(), (Statuses{0, 0, 0}));
  EXPECT_EQ(U64{prefix_.leafVal[2]}, 1U);
  EXPECT_EQ(U32{nhi_.base[0]}, 1U);
  EXPECT_EQ(nextHop_.nextHopId, 1U);
  xpLpmPrefixEntry entry;
  EXPECT_EQ(manager_.readPrefixEntry(0, 9, 0, &entry, 0), XP_ERR_NOTHING_TO_READ);
  EXPECT_EQ(manager_.writePrefixEntry(1, 0, 0, &entry), XP_ERR_INVALID_DEVICE);
  EXPECT_EQ(plan_.calls(), 8U);
  EXPECT_EQ(log(), Lines());
}

TEST_F(FaultyManager, theNthCallOfAnOperationAnswersAsScheduled) {
  plan_.failsAt(kWritePrefixEntry, 2, {.status = 9, .effect = FaultEffect::done});
  plan_.failsAt(kWriteNhiEntry, 1, {.status = 42, .effect = FaultEffect::notDone});
  plan_.failsAt(kReadPrefixEntry, 1, {.status = 11, .effect = FaultEffect::notDone});
  plan_.failsAt(kReadNextHopEntry, 1, {.status = kUnheardOf, .effect = FaultEffect::done});
  EXPECT_EQ(writeAll(1), (Statuses{0, 42, 0}));
  EXPECT_EQ(numbers(), (Numbers{1, 0, 1}));
  EXPECT_EQ(writeAll(2), (Statuses{9, 0, 0}));
  EXPECT_EQ(numbers(), (Numbers{2, 2, 2}));
  EXPECT_EQ(readAll(), (Statuses{11, 0, kUnheardOf}));
  EXPECT_EQ(U64{prefix_.leafVal[1]}, 0U);
  EXPECT_EQ(nextHop_.nextHopId, 2U);
  EXPECT_EQ(readAll(), (Statuses{0, 0, 0}));
  EXPECT_EQ(log(), (Lines{"call 2, writeNhiEntry of ipv4 NHI tile 1 row 9: status 42, not done",
                          "call 4, writePrefixEntry of ipv4 prefix table 1 row 3: status 9, done",
                          "call 7, readPrefixEntry of ipv4 prefix table 1 row 3: status 11, not "
                          "done",
                          "call 9, readNextHopEntry of next-hop row 5: status 12345, done"}));
}

TEST_F(FaultyManager, everyOperationCanAnswerAnyCode) {
  const LpmCalls calls[] = {kWritePrefixEntry, kWriteNhiEntry, kWriteNextHopEntry,
                            kReadPrefixEntry,  kReadNhiEntry,  kReadNextHopEntry};
  for (std::size_t failing = 0; failing < 6; ++failing) {
    for (const XP_STATUS status : {0, 9, 11, 42, -1, kUnheardOf}) {
      plan_.failsAt(calls[failing], 1, {.status = status});
      Statuses statuses = writeAll(3);
      const Statuses reads = readAll();
      statuses.insert(statuses.end(), reads.begin(), reads.end());
      Statuses expected(6, XP_NO_ERR);
      expected[failing] = status;
      EXPECT_EQ(statuses, expected);
      EXPECT_EQ(plan_.log().back().call, calls[failing]);
      plan_.clear();
    }
  }
}

TEST_F(FaultyManager, aFaultWithoutAnErrorIsAWriteThatGotLost) {
  plan_.failsAt(kAllWrites, 2, {.status = XP_NO_ERR, .effect = FaultEffect::notDone});
  EXPECT_EQ(writeAll(1), (Statuses{0, 0, 0}));
  EXPECT_EQ(numbers(), (Numbers{1, 0, 1}));
  EXPECT_EQ(plan_.log().size(), 1U);
}

TEST_F(FaultyManager, aRuleOfSeveralOperationsCountsThemTogether) {
  plan_.failsFrom(kAllWrites, 3, {.status = 3});
  EXPECT_EQ(writeAll(1), (Statuses{0, 0, 3}));
  EXPECT_EQ(readAll(), (Statuses{0, 0, 0}));
  EXPECT_EQ(writeAll(2), (Statuses{3, 3, 3}));
  EXPECT_EQ(numbers(), (Numbers{1, 1, 0}));
  plan_.clear();
  EXPECT_EQ(writeAll(3), (Statuses{0, 0, 0}));
}

TEST_F(FaultyManager, aRuleCountsFromWhenItWasAdded) {
  writeAll(1);
  plan_.failsAt(kWriteNhiEntry, 1, {.status = 9});
  EXPECT_EQ(writeAll(2), (Statuses{0, 9, 0}));
}

TEST_F(FaultyManager, ofTwoRulesTheEarlierWinsAndBothCount) {
  plan_.failsAt(kWriteNhiEntry, 1, {.status = 9});
  plan_.failsAt(kAllWrites, 2, {.status = 42});
  plan_.failsAt(kWriteNhiEntry, 2, {.status = 11});
  EXPECT_EQ(writeAll(1), (Statuses{0, 9, 0}));
  EXPECT_EQ(writeAll(2), (Statuses{0, 11, 0}));
}

TEST_F(FaultyManager, managersOfOnePlanCountTogether) {
  SimLpmMgr chipManager6(chip_, Family::ipv6);
  FaultyLpmMgr manager6(chipManager6, chip_, Family::ipv6, plan_);
  plan_.failsAt(kWriteNhiEntry, 2, {.status = 9});
  xpLpmNhiEntry nhi = nhiEntry(4);
  EXPECT_EQ(manager_.writeNhiEntry(0, 0, 0, &nhi), XP_NO_ERR);
  EXPECT_EQ(manager6.writeNhiEntry(0, 1, 2, &nhi), 9);
  EXPECT_EQ(log(), (Lines{"call 2, writeNhiEntry of ipv6 NHI tile 1 row 2: status 9, not done"}));
}

TEST_F(FaultyManager, probabilityIsKeptAndTheSeedSettlesTheCalls) {
  const auto struckBy = [](U64 seed, double probability) {
    FaultPlan plan(seed);
    plan.failsOften(kReadNhiEntry, probability, {.status = 42});
    for (int i = 0; i < 10000; ++i) {
      (void)plan.strike(kReadNhiEntry, kNhiRow);
      (void)plan.strike(kReadPrefixEntry, kPrefixRow);
    }
    return plan.log();
  };
  const std::vector<InjectedFault> struck = struckBy(5, 0.1);
  // Ten standard deviations around 1,000.
  EXPECT_GT(struck.size(), 700U);
  EXPECT_LT(struck.size(), 1300U);
  EXPECT_TRUE(std::ranges::all_of(
      struck, [](const InjectedFault& injected) { return injected.call == kReadNhiEntry; }));
  EXPECT_EQ(struckBy(5, 0.1), struck);
  EXPECT_NE(struckBy(6, 0.1), struck);
  EXPECT_EQ(struckBy(5, 0).size(), 0U);
  EXPECT_EQ(struckBy(5, 1).size(), 10000U);
}

/// Which words of a row differ, a bit for each.
U32 changedWords(const std::vector<U64>& before, std::span<const U64> now) {
  U32 changed = 0;
  for (std::size_t word = 0; word < now.size(); ++word) {
    changed |= U32{before[word] != now[word]} << word;
  }
  return changed;
}

TEST_F(FaultyManager, halfAWriteChangesSomeWordsButNotAll) {
  plan_.failsFrom(kAllWrites, 1, {.status = 9, .effect = FaultEffect::half});
  for (const RowPlace& place : {kPrefixRow, kNhiRow, kNextHopRow}) {
    const std::span<const U64> row = chip_.memory().row(place);
    std::set<U32> seen;
    for (U32 round = 0; round < 200; ++round) {
      plan_.clear();
      writeAll(1);
      const std::vector<U64> before(row.begin(), row.end());
      plan_.failsFrom(kAllWrites, 1, {.status = 9, .effect = FaultEffect::half});
      EXPECT_EQ(writeAll(2), (Statuses{9, 9, 9}));
      seen.insert(changedWords(before, row));
    }
    std::set<U32> expected;
    for (U32 words = 1; words < (1U << row.size()) - 1; ++words) {
      expected.insert(words);
    }
    EXPECT_EQ(seen, expected) << toText(place);
  }
}

TEST_F(FaultyManager, halfAWriteOfWhatTheChipRefusesChangesNothing) {
  writeAll(1);
  plan_.failsFrom(kAllWrites, 1, {.status = XP_NO_ERR, .effect = FaultEffect::half});
  xpLpmPrefixEntry tooWide = prefixEntry(2);
  tooWide.keySize = 4;
  EXPECT_EQ(manager_.writePrefixEntry(0, 1, 3, &tooWide), XP_NO_ERR);
  EXPECT_EQ(manager_.writePrefixEntry(0, 1, 16, &tooWide), XP_NO_ERR);
  EXPECT_EQ(numbers(), (Numbers{1, 1, 1}));
  EXPECT_EQ(plan_.log().size(), 2U);
}

TEST_F(FaultyManager, halfAReadFillsTheFirstHalfOfTheRecord) {
  writeAll(5);
  plan_.failsFrom(kAllReads, 1, {.status = 42, .effect = FaultEffect::half});
  EXPECT_EQ(readAll(), (Statuses{42, 42, 42}));
  EXPECT_EQ(U32{prefix_.branchLen}, 24U);
  EXPECT_EQ(U64{prefix_.leafVal[2]}, 5U);
  EXPECT_EQ(U32{nhi_.base[5]}, 5U);
  EXPECT_EQ(nextHop_.way, 5U);
  EXPECT_EQ(nextHop_.nextHopId, 0U);
  EXPECT_EQ(manager_.readPrefixEntry(0, 1, 3, nullptr, 0), 42);
}

TEST_F(FaultyManager, aReadNotDoneLeavesTheRecordAlone) {
  writeAll(5);
  plan_.failsFrom(kAllReads, 1, {.status = XP_NO_ERR, .effect = FaultEffect::notDone});
  prefix_.stride = 77;
  nhi_.size[1] = 78;
  nextHop_.way = 79;
  EXPECT_EQ(readAll(), (Statuses{0, 0, 0}));
  EXPECT_EQ(U32{prefix_.stride}, 77U);
  EXPECT_EQ(U32{nhi_.size[1]}, 78U);
  EXPECT_EQ(nextHop_.way, 79U);
}

}  // namespace
}  // namespace XdkSim
