// A client that takes over what another one has left on the chip.

#include <string>
#include <vector>

#include "agent/restart/RestartHelper.h"
#include "tests/agent/LastingChip.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Testing::keyOf;
using Testing::LastingChip;
using Testing::tinyOptions;
using Testing::tinyProfile;

const std::vector<XdkSim::PrefixTableProfile> kTables = {{.tread = 16, .rows = 1}};

class Restart : public ::testing::Test {
 protected:
  FamilyClient& ipv4() { return chip.client->family(Family::ipv4); }

  NextHopStatistics groups() const { return chip.client->groups().statistics(); }

  const RestartReport& report() const { return chip.client->restartReport(); }

  /// "unchanged 1 changed 2 ...", zeros left out.
  std::string resynced(Family family = Family::ipv4) const {
    const ResyncCounts& counts = chip.client->family(family).resyncCounts();
    std::string text;
    const auto tell = [&text](const char* what, U64 count) {
      text += count == 0 ? "" : (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
    };
    tell("unchanged", counts.unchanged);
    tell("changed", counts.changed);
    tell("added", counts.added);
    tell("refused", counts.refused);
    tell("withdrawn", counts.withdrawn);
    tell("waiting", counts.waiting);
    return text;
  }

  LastingChip chip{tinyProfile(kTables, /*nextHopRows=*/16), tinyOptions()};
};

TEST_F(Restart, routesAndGroupsAreWhereTheyWere) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  chip.route("10.2.0.0/16", {2, 2});
  chip.route("2001:db8::/32", {3, 3, 3});
  chip.withdraw("10.1.0.0/16");  // . 2 2 3 3 3
  const std::vector<U64> memory = chip.memory();
  const U64 writes = chip.writes();
  chip.restart();
  EXPECT_EQ(chip.memory(), memory);
  EXPECT_EQ(chip.writes(), writes) << "nothing had to be written";
  EXPECT_EQ(report().groupListFault, "");
  EXPECT_EQ(report().groups.known, 2U);
  EXPECT_EQ(report().groups.strangers, 0U);
  EXPECT_EQ(chip.blockOf("10.2.0.0/16"), "1+2");
  EXPECT_EQ(chip.blockOf("2001:db8::/32"), "3+3");
  EXPECT_EQ(ipv4().recovery().routes, 1U);
  EXPECT_EQ(groups().groups, 2U);
  EXPECT_EQ(groups().rowsUsed, 5U);
  // The gap is free, and the list of next hops is known.
  EXPECT_EQ(chip.route("10.3.0.0/16", {4}), "placed");
  EXPECT_EQ(chip.blockOf("10.3.0.0/16"), "0+1");
  EXPECT_EQ(chip.route("10.4.0.0/16", {2, 2}), "placed");
  EXPECT_EQ(chip.blockOf("10.4.0.0/16"), "1+2");
  EXPECT_EQ(chip.withdraw("2001:db8::/32"), "withdrawn");
}

TEST_F(Restart, aReplayOfTheSameRoutesWritesNothing) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  chip.route("10.2.0.0/16", {2, 2});
  chip.route("2001:db8::/32", {2, 2});
  const U64 writes = chip.writes();
  chip.restart();
  chip.client->resyncBegin();
  EXPECT_EQ(chip.route("2001:db8::/32", {2, 2}), "unchanged");
  EXPECT_EQ(chip.route("10.2.0.0/16", {2, 2}), "unchanged");
  EXPECT_EQ(chip.route("10.1.0.0/16", {1}), "unchanged");
  EXPECT_EQ(chip.client->resyncEnd(), 0U);
  EXPECT_EQ(chip.writes(), writes);
  EXPECT_EQ(resynced(), "2 unchanged");
  EXPECT_EQ(resynced(Family::ipv6), "1 unchanged");
}

TEST_F(Restart, whatNobodyClaimsIsWithdrawnAndItsGroupEnds) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  chip.route("10.2.0.0/16", {2});
  chip.route("10.3.0.0/16", {3});
  chip.route("10.4.0.0/16", {4});
  chip.restart();
  std::string events;
  chip.client->answerHandlerIs([&events](const RouteEvent& event) {
    if (event.cause == Cause::resync) {
      events += toText(event.key) + " " + toText(event.answer.outcome) + "\n";
    }
  });
  chip.client->resyncBegin();
  chip.route("10.1.0.0/16", {1});  // as it was
  chip.route("10.2.0.0/16", {9});  // elsewhere
  chip.route("10.5.0.0/16", {1});  // new
  chip.withdraw("10.3.0.0/16");    // by its caller
  EXPECT_EQ(chip.lookup("10.4.0.0"), "10.4.0.0/16 to 4") << "not before the end";
  EXPECT_EQ(chip.client->resyncEnd(), 0U);
  EXPECT_EQ(resynced(), "1 unchanged, 1 changed, 1 added, 2 withdrawn");
  EXPECT_EQ(events, "10.4.0.0/16 withdrawn\n");
  EXPECT_EQ(chip.lookup("10.4.0.0"), "none");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 9");
  EXPECT_EQ(chip.nextHopRows(), "1 . . . 9 . . . . . . . . . . .");
}

TEST_F(Restart, theEndMayGoInStepsAndRoutesMayBeClaimedBetweenThem) {
  chip.start();
  for (int i = 1; i <= 5; ++i) {
    chip.route("10." + std::to_string(i) + ".0.0/16", {1});
  }
  chip.restart();
  chip.client->resyncBegin();
  EXPECT_EQ(chip.client->resyncEnd(2), 3U);
  EXPECT_EQ(ipv4().routes(), 3U);
  EXPECT_EQ(chip.route("10.4.0.0/16", {1}), "unchanged");
  EXPECT_EQ(chip.client->resyncEnd(2), 0U);
  EXPECT_EQ(ipv4().routes(), 1U);
  EXPECT_EQ(chip.lookup("10.4.0.0"), "10.4.0.0/16 to 1");
  EXPECT_EQ(resynced(), "1 unchanged, 4 withdrawn");
}

TEST_F(Restart, aWishThatNobodyClaimsIsForgotten) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  chip.restart();
  const std::vector<U64> tooMany(17, 1);
  EXPECT_EQ(chip.route("10.2.0.0/16", tooMany), "refused nextHopTableFull");
  EXPECT_EQ(chip.route("10.3.0.0/16", tooMany), "refused nextHopTableFull");
  chip.client->resyncBegin();
  chip.route("10.1.0.0/16", {1});
  chip.route("10.2.0.0/16", tooMany);
  EXPECT_EQ(chip.client->resyncEnd(), 0U);
  EXPECT_EQ(ipv4().refused().size(), 1U);
  EXPECT_NE(ipv4().refused().find(keyOf("10.2.0.0/16")), nullptr);
  EXPECT_EQ(resynced(), "1 unchanged, 1 refused, 1 withdrawn");
}

TEST_F(Restart, whoDoesNotResynchroniseKeepsWhatThereWas) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  const SwId group = chip.client->groupIs(std::vector<U64>{7});
  EXPECT_EQ(chip.client->groups().block(group), NextHopBlock(1, 1));
  for (int i = 0; i < 3; ++i) {
    chip.restart();
    EXPECT_EQ(ipv4().routes(), 1U);
    EXPECT_EQ(chip.nextHopRows().substr(0, 5), "1 7 .");
  }
  EXPECT_EQ(chip.client->groupIs(std::vector<U64>{7}), group) << "still known by its list";
}

TEST_F(Restart, aGroupThatNoRouteLeadsToEndsWithTheResynchronisation) {
  chip.start();
  chip.client->groupIs(std::vector<U64>{7});
  chip.route("10.1.0.0/16", {1});
  chip.restart();
  chip.client->resyncBegin();
  chip.route("10.1.0.0/16", {1});
  chip.client->resyncEnd();
  EXPECT_EQ(chip.nextHopRows().substr(0, 5), ". 1 .");
}

TEST_F(Restart, anOwnGroupComesBackToItsMakerByItsNumber) {
  chip.start();
  const SwId kept = chip.client->ownGroupIs(std::vector<U64>{5, 5});
  const SwId lost = chip.client->ownGroupIs(std::vector<U64>{5, 5});
  chip.routeTo("10.1.0.0/16", kept);
  chip.restart();
  EXPECT_EQ(chip.client->adoptedOwnGroups(), (std::vector<SwId>{kept, lost}));
  EXPECT_NE(chip.client->groupIs(std::vector<U64>{5, 5}), kept) << "its list does not find it";
  chip.client->resyncBegin();
  chip.client->ownGroupIs(kept);
  EXPECT_EQ(chip.routeTo("10.1.0.0/16", kept), "unchanged");
  chip.client->resyncEnd();
  EXPECT_TRUE(chip.client->adoptedOwnGroups().empty());
  EXPECT_EQ(chip.nextHopRows().substr(0, 13), "5 5 . . 5 5 .");
  EXPECT_EQ(toText(chip.client->groupNextHopsAre(kept, std::vector<U64>{6, 5}).outcome),
            std::string("updated"));
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 6 5");
}

TEST_F(Restart, withoutTheListRoutesLeadOnAndMoveToNewRowsOneByOne) {
  chip.start();
  chip.route("10.1.0.0/16", {1, 1});
  chip.route("10.2.0.0/16", {1, 1});
  chip.route("10.3.0.0/16", {2});
  std::filesystem::remove(chip.options.groupList);
  chip.restart();
  EXPECT_EQ(report().groupListFault, "next-hop groups " + chip.options.groupList.string() +
                                         ": cannot be read, expected a file");
  EXPECT_EQ(report().groups.strangers, 2U);
  EXPECT_EQ(report().groups.strangerRoutes, 3U);
  EXPECT_EQ(groups().groups, 0U);
  EXPECT_EQ(groups().rowsUsed, 3U);
  std::string wrong;
  chip.watch = [&] {
    for (const auto& [address, expected] :
         {std::pair("10.1.0.0", "10.1.0.0/16 to 1 1"), std::pair("10.2.0.0", "10.2.0.0/16 to 1 1"),
          std::pair("10.3.0.0", "10.3.0.0/16 to 2")}) {
      const std::string seen = chip.lookup(address);
      wrong += seen == expected ? "" : seen + " in " + chip.nextHopRows() + "\n";
    }
  };
  chip.client->resyncBegin();
  EXPECT_EQ(chip.route("10.1.0.0/16", {1, 1}), "updated") << "its list does not find a stranger";
  EXPECT_EQ(chip.nextHopRows().substr(0, 11), "1 1 2 1 1 .");
  EXPECT_EQ(chip.route("10.2.0.0/16", {1, 1}), "updated");
  EXPECT_EQ(chip.nextHopRows().substr(0, 11), ". . 2 1 1 .");
  EXPECT_EQ(chip.route("10.3.0.0/16", {2}), "updated");
  EXPECT_EQ(chip.client->resyncEnd(), 0U);
  EXPECT_EQ(chip.nextHopRows().substr(0, 11), "2 . . 1 1 .");
  EXPECT_EQ(wrong, "");
  EXPECT_EQ(groups().strangers, 0U);
  EXPECT_EQ(groups().rowsUsed, 3U);
  // And the new groups are in a list again.
  chip.restart();
  EXPECT_EQ(report().groups.known, 2U);
}

TEST_F(Restart, aListOfLongAgoIsNotBelieved) {
  chip.start();
  chip.route("10.1.0.0/16", {1, 1});
  const std::string old = Testing::bytesOf(chip.options.groupList);
  chip.withdraw("10.1.0.0/16");
  chip.route("10.2.0.0/16", {2, 2});  // where the other was
  Testing::bytesAre(chip.options.groupList, old);
  chip.restart();
  EXPECT_EQ(report().groups.dropped, 1U);
  EXPECT_EQ(report().groups.strangers, 1U);
  chip.client->resyncBegin();
  EXPECT_EQ(chip.route("10.2.0.0/16", {2, 2}), "updated");
  EXPECT_EQ(chip.client->resyncEnd(), 0U);
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2 2");
}

TEST_F(Restart, theTableIsNotCompactedUnderStrangers) {
  chip.start();
  chip.route("10.1.0.0/16", std::vector<U64>(6, 1));
  chip.route("10.2.0.0/16", {2});
  chip.withdraw("10.1.0.0/16");  // ......2.........
  std::filesystem::remove(chip.options.groupList);
  chip.restart();
  EXPECT_EQ(chip.route("10.3.0.0/16", std::vector<U64>(10, 3)), "refused nextHopTableFull");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2");
  // The stranger's end lets it in.
  EXPECT_EQ(chip.route("10.2.0.0/16", {2}), "updated");
  EXPECT_EQ(chip.lookup("10.3.0.0"), "10.3.0.0/16 to 3 3 3 3 3 3 3 3 3 3");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2");
}

TEST_F(Restart, aGroupThatHadToWaitForItsRowsIsInTheListToo) {
  chip.start();
  chip.route("10.1.0.0/16", std::vector<U64>(10, 1));
  EXPECT_EQ(chip.route("10.2.0.0/16", std::vector<U64>(8, 2)), "refused nextHopTableFull");
  chip.withdraw("10.1.0.0/16");
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2 2 2 2 2 2 2 2");
  chip.restart();
  EXPECT_EQ(report().groups.known, 1U);
  EXPECT_EQ(chip.route("10.2.0.0/16", std::vector<U64>(8, 2)), "unchanged");
}

TEST_F(Restart, rowsOfNobodyAreCleared) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  const xpNextHopEntry entry{.valid = 1, .way = 0, .nextHopId = 77};
  ASSERT_EQ(chip.chip.writeNextHopRow(9, entry), XP_NO_ERR);
  chip.restart();
  EXPECT_EQ(report().groups.rowsCleared, 1U);
  EXPECT_EQ(chip.nextHopRows(), "1 . . . . . . . . . . . . . . .");
}

TEST_F(Restart, aRouteLongerThanMayBeRequestedCanOnlyGo) {
  chip.start();
  chip.route("10.1.0.0/19", {1});
  chip.route("10.2.0.0/16", {2});
  chip.options.maxLengthV4 = 16;
  chip.restart();
  EXPECT_EQ(ipv4().routes(), 2U);
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/19 to 1");
  EXPECT_EQ(chip.route("10.1.0.0/19", {2}), "refused invalid");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/19 to 1");
  chip.client->resyncBegin();
  chip.route("10.2.0.0/16", {2});
  EXPECT_EQ(chip.client->resyncEnd(), 0U);
  EXPECT_EQ(chip.lookup("10.1.0.0"), "none");
  EXPECT_EQ(ipv4().routes(), 1U);
}

TEST_F(Restart, aPrefixThatLeadsNowhereIsTakenOut) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  chip.route("10.2.0.0/16", {2});
  xpLpmNhiEntry entry;
  for (U32 row = 0; row < 4; ++row) {
    ASSERT_EQ(chip.chip.readNhiRow(XdkSim::Family::ipv4, 0, row, entry), XP_NO_ERR);
    for (U32 pair = 0; pair < xpLpmNhiEntry::kPairs; ++pair) {
      if (entry.size[pair] == 1 && entry.base[pair] == 0) {
        entry.base[pair] = ~U32{0};
        entry.size[pair] = 65535;
      }
    }
    ASSERT_EQ(chip.chip.writeNhiRow(XdkSim::Family::ipv4, 0, row, entry), XP_NO_ERR);
  }
  chip.restart();
  EXPECT_EQ(ipv4().routes(), 1U);
  EXPECT_EQ(ipv4().engine().config()->requests(), 1U);
  EXPECT_EQ(chip.lookup("10.2.0.0"), "10.2.0.0/16 to 2");
  EXPECT_EQ(chip.lookup("10.1.0.0"), "none");
  EXPECT_EQ(chip.route("10.1.0.0/16", {1}), "placed");
}

TEST_F(Restart, withoutManagersThereIsNothingToTakeOver) {
  ClientOptions options = tinyOptions();
  options.warmStart.emplace();
  EXPECT_THROW(Client({.systemStatus = systemStatusOf(chip.chip)}, options), std::invalid_argument);
}

/// Tells a leaf too wide from the second reading of the tables on.
class LateDamage final : public xpIpRouteLpmMgr {
 public:
  explicit LateDamage(XdkSim::Chip& chip) : chip_(chip) {}

  XP_STATUS readPrefixEntry(U32, U32 table, U32 row, xpLpmPrefixEntry* entry, U8) override {
    const XP_STATUS status = chip_.readPrefixRow(XdkSim::Family::ipv4, table, row, *entry);
    if (reads_++ >= chip_.rowCapacity(XdkSim::Family::ipv4) && entry->stride != 0) {
      entry->stride = 4;
      entry->leafVal[0] = 0xffff;
    }
    return status;
  }

  XP_STATUS readNhiEntry(U32, U32 tile, U32 row, xpLpmNhiEntry* entry, U8) override {
    return chip_.readNhiRow(XdkSim::Family::ipv4, tile, row, *entry);
  }

 private:
  XdkSim::Chip& chip_;
  U64 reads_ = 0;
};

TEST_F(Restart, whatTheWalkRaisesLeavesNothingBehind) {
  chip.start();
  chip.route("10.1.0.0/16", {1});
  chip.route("2001:db8::/32", {1});
  chip.client.reset();
  LateDamage damage(chip.chip);
  ChipAccess access = chip.access();
  access.ipv4 = &damage;
  ClientOptions options = chip.options;
  options.warmStart.emplace();
  EXPECT_THROW(Client(access, options), BadRowError);
  chip.restart();
  EXPECT_EQ(report().groups.known, 1U);
  EXPECT_EQ(chip.lookup("10.1.0.0"), "10.1.0.0/16 to 1");
}

}  // namespace
}  // namespace Quarle::Agent
