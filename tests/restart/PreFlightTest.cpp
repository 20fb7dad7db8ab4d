#include "tests/restart/RestartChip.h"

namespace Quarle::Agent::Testing {
namespace {

/// Stories of one family's rows, put down by hand: what pre-flight says, that it changes no answer
/// on the way, and what the walk makes of what is left.
class PreFlightTest : public ::testing::Test {
 protected:
  PreFlightTest() { Tarnlet::Testing::shuffleAddressOrder(); }

  RestartChip& on(bool longKey = false, U32 tiles = 1) {
    restart = std::make_unique<RestartChip>(longKey, restartProfile(tiles));
    return *restart;
  }

  /// The faults, with all answers watched.
  std::string faults(const PreFlightOptions& options = {}) {
    report = watchedPreFlight(*restart, addresses(), options);
    EXPECT_EQ(report.prefixWrites + report.nhiWrites, restart->sdk.writes);
    return faultsOf(report);
  }

  /// Faults whose answers may change: what is bad goes.
  std::string unwatched(const PreFlightOptions& options = {}) {
    report = restart->preFlight(options);
    return faultsOf(report);
  }

  std::set<Key> addresses() const {
    std::set<Key> result;
    for (const std::string& text : prefixes) {
      result.insert(keyFrom(text, restart->longKey).lowest());
      result.insert(keyFrom(text, restart->longKey).highest());
    }
    return result;
  }

  /// The state of a machine made from the chip. Whether it only rewrites what stands is held
  /// against the report.
  std::string warmState() {
    restart->start(/*warm=*/true);
    const std::vector<std::string> before = restart->bits();
    restart->write();
    EXPECT_EQ(restart->bits() == before, report.rewritesOnly);
    EXPECT_EQ(restart->subTries(), report.rowsSound);
    EXPECT_EQ(restart->config->requests(), report.prefixes);
    return stateOf(*restart->sm);
  }

  RowPlace put(U32 table, const RowStory& story) {
    for (const std::string& leaf : story.leaves) {
      if (!leaf.empty()) {
        prefixes.insert(leaf);
      }
    }
    return restart->put(table, story);
  }

  static std::string at(const RowPlace& place) {
    return "t" + std::to_string(place.table) + "[" + std::to_string(place.row) + "]";
  }

  std::unique_ptr<RestartChip> restart;
  PreFlightReport report;
  std::set<std::string> prefixes;
};

TEST_F(PreFlightTest, soundRowsAreLeftAlone) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}});
  put(0, {.branch = "10.1.0.0/19",
          .stride = 16,
          .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
          .offset = 4});
  put(1, {.branch = "10.3.0.0/20",
          .stride = 12,
          .leaves = {"10.3.0.0/24", "10.3.1.0/24"},
          .offset = 4});
  EXPECT_EQ(faults(), "");
  EXPECT_EQ(report.rowsRead, 41U);
  EXPECT_EQ(report.rowsSound, 2U);
  EXPECT_EQ(report.prefixes, 4U);
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(restart->sdk.writes, 0U);
  EXPECT_TRUE(linesOf(report).empty());
  warmState();
}

TEST_F(PreFlightTest, ofAMovedRowTheOneThatAnswersStays) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}});
  const RowStory story{
      .branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24", "10.1.1.0/24"}, .offset = 4};
  const RowPlace first = put(0, story);
  const RowPlace second = put(1, story);
  EXPECT_EQ(faults(), "prefix in another row too 1/1");
  EXPECT_FALSE(restart->isClear(first));
  EXPECT_TRUE(restart->isClear(second));
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(linesOf(report),
            std::vector<std::string>{"IPv4 prefix rows, prefix in another row too: 1 found, 1 rid "
                                     "of these prefixes"});
  EXPECT_EQ(warmState(),
            "block 0:4+1\n" + at(first) +
                " branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n"
                "used 0:4 by 1 of 1\n");
}

TEST_F(PreFlightTest, rowsThatHaveSomePrefixesInCommonLoseNone) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}});
  restart->nhi(0, 5, {{9, 1}, {10, 1}, {11, 1}});
  const RowPlace first = put(0, {.branch = "10.1.0.0/19",
                                 .stride = 16,
                                 .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
                                 .offset = 4});
  const RowPlace second = put(1, {.branch = "10.1.0.0/20",
                                  .stride = 14,
                                  .leaves = {"10.1.0.0/24", "10.1.2.0/24", "10.1.3.0/24"},
                                  .offset = 5});
  EXPECT_EQ(faults(), "prefix in another row too 1/1");
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(warmState(),
            "block 0:0+1\nblock 0:4+1\n" + at(first) +
                " branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n" +
                at(second) +
                " branch=10.1.0.0/20 stride=14 [10.1.2.0/24 10/1, 10.1.3.0/24 11/1] nhi=0:0\n"
                "used 0:0 by 1 of 1\nused 0:4 by 1 of 1\n");
}

TEST_F(PreFlightTest, aPrefixTwiceInARowStaysWhereTheChipFindsIt) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}, {9, 1}});
  const RowPlace place = put(0, {.branch = "10.1.0.0/19",
                                 .stride = 16,
                                 .leaves = {"10.1.0.0/24", "10.1.1.0/24", "10.1.0.0/24"},
                                 .offset = 4});
  EXPECT_EQ(faults(), "prefix twice in the row 1/1");
  EXPECT_FALSE(report.rewritesOnly) << "a pair is left behind the last slot";
  EXPECT_EQ(warmState(),
            "block 0:4+1\n" + at(place) +
                " branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n"
                "used 0:4 by 1 of 1\n");
}

TEST_F(PreFlightTest, rowsOfOneContentReadOneBlock) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}});
  restart->nhi(0, 9, {{7, 1}, {8, 2}});
  const RowPlace first = put(0, {.branch = "10.1.0.0/19",
                                 .stride = 16,
                                 .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
                                 .offset = 9});
  const RowPlace second = put(1, {.branch = "10.3.0.0/20",
                                  .stride = 12,
                                  .leaves = {"10.3.0.0/24", "10.3.1.0/24"},
                                  .offset = 4});
  EXPECT_EQ(faults(), "second block of one content 1/1");
  EXPECT_EQ(report.prefixWrites, 1U);
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(warmState(),
            "block 0:4+1\n" + at(first) +
                " branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n" +
                at(second) +
                " branch=10.3.0.0/20 stride=12 [10.3.0.0/24 7/1, 10.3.1.0/24 8/2] nhi=0:4\n"
                "used 0:4 by 2 of 2\n");
}

TEST_F(PreFlightTest, theBlockWithMostRowsWinsItsContent) {
  on();
  restart->nhi(0, 4, {{7, 1}});
  restart->nhi(0, 9, {{7, 1}});
  put(0, {.branch = "10.1.0.0/24", .stride = 8, .leaves = {"10.1.0.0/24"}, .offset = 4});
  put(0, {.branch = "10.4.0.0/24", .stride = 8, .leaves = {"10.4.0.0/24"}, .offset = 9});
  put(1, {.branch = "10.3.0.0/24", .stride = 8, .leaves = {"10.3.0.0/24"}, .offset = 9});
  EXPECT_EQ(faults(), "second block of one content 1/1");
  EXPECT_EQ(report.prefixWrites, 1U);
  EXPECT_THAT(warmState(), ::testing::HasSubstr("used 0:9 by 3 of 3\n"));
}

TEST_F(PreFlightTest, rowsOfSeveralLengthsOnOneBlockGetTheirOwn) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}});
  const RowPlace first = put(0, {.branch = "10.1.0.0/19",
                                 .stride = 16,
                                 .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
                                 .offset = 4});
  const RowPlace second =
      put(1, {.branch = "10.3.0.0/20", .stride = 12, .leaves = {"10.3.0.0/24"}, .offset = 4});
  EXPECT_EQ(faults(), "NHI entries that another block holds 1/1");
  EXPECT_EQ(report.nhiWrites, 1U);
  const std::string state = warmState();
  EXPECT_THAT(state, ::testing::HasSubstr("block 0:4+1\n"));
  EXPECT_THAT(state, ::testing::HasSubstr(" nhi=0:0\n"));
  EXPECT_EQ(restart->rowAt(first).nhiOffset + restart->rowAt(second).nhiOffset, 4U);
}

TEST_F(PreFlightTest, ofOverlappingBlocksTheLargerStays) {
  on();
  restart->nhi(0, 4, {{1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {6, 1}});
  restart->nhi(0, 5, {{7, 1}});
  const RowPlace large =
      put(0, {.branch = "10.1.0.0/19",
              .stride = 16,
              .leaves = {"10.1.0.0/24", "10.1.1.0/24", "10.1.2.0/24", "10.1.3.0/24", "10.1.4.0/24",
                         "10.1.5.0/24", "10.1.6.0/24"},
              .offset = 4});
  const RowPlace small =
      put(1, {.branch = "10.3.0.0/20", .stride = 12, .leaves = {"10.3.0.0/24"}, .offset = 5});
  EXPECT_EQ(faults(), "NHI entries that another block holds 1/1");
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(restart->rowAt(large).nhiOffset, 4U);
  EXPECT_EQ(restart->rowAt(small).nhiOffset, 0U);
  warmState();
}

TEST_F(PreFlightTest, aRowWithHolesIsClosedUp) {
  on(/*longKey=*/false, /*tiles=*/2);
  restart->nhi(1, 4, {{7, 1}, {9, 9}, {8, 2}});
  const RowPlace place = put(0, {.branch = "10.1.0.0/19",
                                 .stride = 16,
                                 .leaves = {"10.1.0.0/24", "", "10.1.1.0/24"},
                                 .tile = 1,
                                 .offset = 4});
  EXPECT_EQ(faults(), "empty slots between prefixes 1/1");
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(warmState(),
            "block 0:0+1\n" + at(place) +
                " branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:0\n"
                "used 0:0 by 1 of 1\n");
}

TEST_F(PreFlightTest, aRowWithHolesJoinsTheBlockOfItsContent) {
  on();
  restart->nhi(0, 4, {{7, 1}, {9, 9}, {8, 2}});
  restart->nhi(0, 7, {{7, 1}, {8, 2}});
  put(0, {.branch = "10.1.0.0/19",
          .stride = 16,
          .leaves = {"10.1.0.0/24", "", "10.1.1.0/24"},
          .offset = 4});
  put(1, {.branch = "10.3.0.0/20",
          .stride = 12,
          .leaves = {"10.3.0.0/24", "10.3.1.0/24"},
          .offset = 7});
  EXPECT_EQ(faults(), "empty slots between prefixes 1/1");
  EXPECT_EQ(report.nhiWrites, 0U);
  EXPECT_THAT(warmState(), ::testing::HasSubstr("used 0:7 by 2 of 2\n"));
}

TEST_F(PreFlightTest, aPrefixThatLeadsNowhereGoes) {
  on();
  restart->nhi(0, 4, {{7, 1}, {XdkSim::NhiPair::kNullBase, XdkSim::NhiPair::kNullSize}, {8, 2}});
  restart->nhi(0, 5, {{120, 10}, {4, 0}});
  const RowPlace first = put(0, {.branch = "10.1.0.0/19",
                                 .stride = 16,
                                 .leaves = {"10.1.0.0/24", "10.1.1.0/24", "10.1.2.0/24"},
                                 .offset = 4});
  const RowPlace second = put(1, {.branch = "10.3.0.0/20",
                                  .stride = 12,
                                  .leaves = {"10.3.0.0/24", "10.3.1.0/24"},
                                  .offset = 5});
  EXPECT_EQ(unwatched({.nextHopRows = 128}), "prefix that leads nowhere 2/2");
  EXPECT_TRUE(restart->isClear(second));
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(warmState(),
            "block 0:0+1\n" + at(first) +
                " branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.2.0/24 8/2] nhi=0:0\n"
                "used 0:0 by 1 of 1\n");
}

TEST_F(PreFlightTest, aTwinThatLeadsNowhereGivesWayToTheOther) {
  on();
  restart->nhi(0, 4, {});
  restart->nhi(0, 5, {{7, 1}});
  const RowPlace first =
      put(0, {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24"}, .offset = 4});
  put(1, {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24"}, .offset = 5});
  EXPECT_EQ(unwatched(), "prefix that leads nowhere 1/1");
  EXPECT_TRUE(restart->isClear(first));
  EXPECT_EQ(restart->lookup("10.1.0.1"), "/24 7/1");
}

TEST_F(PreFlightTest, rowsWithoutLeavesAreNobodysBusiness) {
  on();
  xpLpmPrefixEntry entry = recordOf({.branch = "10.1.0.0/19", .stride = 16, .leaves = {}}, false);
  restart->putAt({.table = 0, .row = 2}, entry);
  const std::vector<std::string> before = restart->bits();
  EXPECT_EQ(faults(), "");
  EXPECT_EQ(restart->bits(), before);
  EXPECT_EQ(warmState(), "");
}

/// Rows that nothing can be taken from, one a kind.
class BadRows : public PreFlightTest {
 protected:
  void putAll() {
    on();
    restart->nhi(0, 4, {{7, 1}, {8, 2}});
    const RowStory sound{.branch = "10.1.0.0/24", .stride = 8, .leaves = {"10.1.0.0/24"}};
    xpLpmPrefixEntry entry = recordOf(sound, false);
    entry.keySize = 2;
    restart->putAt({.table = 0, .row = 0}, entry);
    entry = recordOf(sound, false);
    entry.mode = 0;
    restart->putAt({.table = 0, .row = 1}, entry);
    entry = xpLpmPrefixEntry();
    entry.mode = 1;
    entry.branchLen = 40;
    restart->putAt({.table = 0, .row = 2}, entry);
    entry = recordOf(sound, false);
    restart->putAt({.table = 0, .row = (restart->rowOf(0, "10.1.0.0/24") + 1) % 2 + 4}, entry);
    entry.branchLen = 60;
    restart->putAt({.table = 0, .row = 8}, entry);
    entry.branchLen = 200;
    restart->putAt({.table = 0, .row = 9}, entry);
    put(1, {.branch = "10.2.0.0/24", .stride = 8, .leaves = {"10.2.0.0/24"}, .tile = 3});
    put(1, {.branch = "10.5.0.0/24", .stride = 8, .leaves = {"10.5.0.0/24"}, .offset = 64});
    put(2, {.branch = "10.0.0.0/8", .stride = 8, .leaves = {"10.0.0.0/8"}, .offset = 4});
    rows = restart->usedRows();
  }

  const std::string kinds =
      "wrong keySize 1/1, wrong mode 1/1, stride is zero 1/1, prefix hash does not match with "
      "offset 1/1, NHI tile doesn't exist 1/1, NHI block out of bound 1/1, prefix length that the "
      "family does not have 2/2, prefixes that the table cannot serve 1/1";
  U32 rows = 0;
};

TEST_F(BadRows, areClearedByKind) {
  putAll();
  EXPECT_EQ(unwatched(), kinds);
  EXPECT_EQ(restart->usedRows(), 0U);
  EXPECT_TRUE(report.keptRows.empty());
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_EQ(warmState(), "");
}

TEST_F(BadRows, areKeptOnWishAndHiddenFromTheWalk) {
  putAll();
  const RowPlace sound =
      put(3, {.branch = "10.0.0.0/8", .stride = 8, .leaves = {"10.0.0.0/8"}, .offset = 6});
  restart->nhi(0, 6, {{9, 1}});
  const std::vector<std::string> before = restart->bits();
  unwatched({.keepBadRows = true});
  EXPECT_EQ(restart->bits(), before);
  EXPECT_EQ(report.found(), rows);
  EXPECT_EQ(report.keptRows.size(), rows);
  WalkLpmMgr walk(restart->sdk, report.keptRows);
  restart->start(/*warm=*/true, &walk);
  restart->write();
  EXPECT_EQ(restart->subTries(), 1U);
  EXPECT_EQ(restart->bits(), before);
  EXPECT_TRUE(report.rewritesOnly);
  EXPECT_FALSE(restart->isClear(sound));
}

TEST_F(BadRows, areOnlyToldByADryRun) {
  putAll();
  const std::vector<std::string> before = restart->bits();
  unwatched({.dryRun = true});
  EXPECT_EQ(report.found(), rows);
  EXPECT_EQ(restart->sdk.writes, 0U);
  EXPECT_EQ(restart->bits(), before);
  EXPECT_FALSE(report.rewritesOnly);
}

TEST_F(PreFlightTest, aDryRunWritesNothingOfWhatItWouldMend) {
  on();
  restart->nhi(0, 4, {{7, 1}, {8, 2}});
  restart->nhi(0, 9, {{7, 1}, {8, 2}});
  const RowStory story{
      .branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.0.0/24", "10.1.1.0/24"}, .offset = 4};
  put(0, story);
  put(1, story);
  put(0, {.branch = "10.4.0.0/20",
          .stride = 12,
          .leaves = {"10.4.0.0/24", "10.4.1.0/24"},
          .offset = 9});
  put(1, {.branch = "10.5.0.0/20", .stride = 12, .leaves = {"10.5.0.0/24"}, .offset = 4});
  const std::vector<std::string> before = restart->bits();
  EXPECT_EQ(faults({.dryRun = true}),
            "prefix in another row too 1/0, second block of one content 1/0, NHI entries that "
            "another block holds 1/0");
  EXPECT_EQ(restart->bits(), before);
  EXPECT_EQ(restart->sdk.writes, 0U);
  EXPECT_FALSE(report.rewritesOnly);
}

TEST_F(PreFlightTest, withoutRoomForABlockARowGoes) {
  XdkSim::ChipProfile profile = restartProfile();
  profile.ipv4.nhi.entriesPerTile = 2;
  restart = std::make_unique<RestartChip>(false, profile);
  restart->nhi(0, 0, {{7, 1}, {8, 2}});
  restart->nhi(0, 1, {{9, 1}});
  put(0, {.branch = "10.1.0.0/19",
          .stride = 16,
          .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
          .offset = 0});
  put(0, {.branch = "10.4.0.0/24", .stride = 8, .leaves = {"10.4.0.0/24"}, .offset = 1});
  const RowPlace last =
      put(1, {.branch = "10.3.0.0/20", .stride = 12, .leaves = {"10.3.0.0/24"}, .offset = 0});
  EXPECT_EQ(unwatched({.keepBadRows = true}), "no room for a sound block 1/0");
  EXPECT_EQ(report.keptRows, std::vector<RowPlace>{last});
  EXPECT_EQ(unwatched(), "no room for a sound block 1/1");
  EXPECT_TRUE(restart->isClear(last));
  EXPECT_EQ(restart->usedRows(), 2U);
  warmState();
}

TEST_F(PreFlightTest, whatTheSdkRefusesIsOneClearError) {
  class Refusing final : public xpIpRouteLpmMgr {
   public:
    explicit Refusing(XP_STATUS status) : status_(status) {}

    XP_STATUS readPrefixEntry(U32, U32, U32, xpLpmPrefixEntry*, U8) override { return status_; }

   private:
    XP_STATUS status_;
  };

  on();
  Refusing nothing(XP_ERR_NOTHING_TO_READ);
  EXPECT_EQ(preFlight(Family::ipv4, *restart->config, nothing).found(), 0U);
  Refusing busy(XP_ERR_BUS_RETRIED);
  try {
    preFlight(Family::ipv4, *restart->config, busy);
    ADD_FAILURE() << "no error";
  } catch (const PreFlightError& error) {
    EXPECT_THAT(error.what(), ::testing::MatchesRegex("IPv4 prefix table [0-9] row 0: the read "
                                                      "answered 9, expected 0 or 11"));
  }
}

}  // namespace
}  // namespace Quarle::Agent::Testing
