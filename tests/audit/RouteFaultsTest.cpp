// Each check of the library's own audit of a route, provoked by reflection: the process lives, the
// condition is told to the letter and the route is named.

#include <cstdint>

#include "agent/audit/RouteAudit.h"
#include "tests/audit/AuditedChip.h"

namespace Quarle::Agent {
namespace {

using Testing::keyOf;
using Testing::textOf;
using namespace Tarnlet;

constexpr const char* kRoute = "IPv4 10.1.0.0/24";

class RouteFaults : public Testing::Damaged {
 protected:
  void expectCondition(const std::string& condition, const std::string& words) {
    expectFault(condition, kRoute, words);
    const std::optional<AuditFault> fault =
        auditRoute(chip.client->family(Family::ipv4), keyOf("10.1.0.0/24"));
    ASSERT_TRUE(fault);
    EXPECT_EQ(fault->what, condition);
    EXPECT_EQ(fault->where, kRoute);
    EXPECT_NE(fault->reason.find(words), std::string::npos) << fault->reason;
  }
};

TEST_F(RouteFaults, aWholeRoutePasses) {
  EXPECT_FALSE(auditRoute(chip.client->family(Family::ipv4), keyOf("10.1.0.0/24")));
  EXPECT_FALSE(auditRoute(chip.client->family(Family::ipv6), keyOf("2001:db8::/48")));
}

TEST_F(RouteFaults, aRouteThatNobodyHasIsNoRoute) {
  const auto fault = auditRoute(chip.client->family(Family::ipv4), keyOf("10.9.0.0/24", 7));
  ASSERT_TRUE(fault);
  EXPECT_EQ(toText(*fault), "IPv4 vrf 7 10.9.0.0/24: subTrie: prefix");
}

TEST_F(RouteFaults, aRouteWithoutASubTrie) {
  remove(engine, "prefixToSubTrie", {prefix});
  expectCondition("subTrie", "prefix vrf 0 prefix 10.1.0.0/24");
}

TEST_F(RouteFaults, aSubTrieWithoutAKey) {
  set(subTrie, "nhiInfoKey", NhiInfoKey());
  expectCondition("nhiInfoKey != NhiInfoKey()", "prefix vrf 0 prefix 10.1.0.0/24");
}

TEST_F(RouteFaults, aKeyThatNobodyKnows) {
  remove(engine, "sharedNhi", {subTrie->nhiInfoKey()});
  expectCondition("nhiInfo", "nhiInfoKey " + std::string(subTrie->nhiInfoKey().str().str()));
}

TEST_F(RouteFaults, aBaseThatIsNotTheSharedOne) {
  set(subTrie, "nhiBaseIdx", NhiTableIdx(0, 9));
  expectCondition("( nhiInfo->nhiBaseIdx() == subTrie->nhiBaseIdx() )", "base index mismatch");
}

TEST_F(RouteFaults, theNullBase) {
  set(subTrie, "nhiBaseIdx", NhiTableIdx());
  set(info, "nhiBaseIdx", NhiTableIdx());
  expectCondition("nhiBaseIdx != NhiTableIdx()", "prefix vrf 0 prefix 10.1.0.0/24");
}

TEST_F(RouteFaults, aRequestThatIsAheadOfTheKey) {
  NhiInfoKey key = subTrie->nhiInfoKey();
  key.slotToNextHopBlockIs(subTrie->prefixToSlot(prefix), NextHopBlock(33, 1));
  const NhiInfo::Ptr other = engine->sharedNhiIs(key);
  other->nhiBaseIdxIs(base);
  set(subTrie, "nhiInfoKey", key);
  expectCondition("( nhiInfoKey.slotToNextHopBlock( slot ) == nhBlock )",
                  "next hop block mismatch");
}

TEST_F(RouteFaults, aRecordWithoutUsers) {
  set(info, "subTrieCount", U32{0});
  expectCondition("nhiInfo->subTrieCount()", "nhiInfoKey " + std::string(info->str().str()));
}

TEST_F(RouteFaults, aBlockWithoutASet) {
  remove(engine, "nhiBaseIdxToSubTrie", {base});
  expectCondition("subTrieSet", "nhiInfoKey " + std::string(info->str().str()));
}

TEST_F(RouteFaults, aSetWithoutTheSubTrie) {
  remove(engine->nhiBaseIdxToSubTrie(base), "subTrie", {subTrie});
  expectCondition("subTrieSet->subTrieIterator().isMemberOf( subTrie )", info->str().str());
}

TEST_F(RouteFaults, aSetOfAnotherSize) {
  set(info, "subTrieCount", U32{9});
  expectCondition("subTrieSet->subTries() == nhiInfo->subTrieCount()", info->str().str());
}

TEST_F(RouteFaults, aBaseWithoutABlock) {
  remove(engine, "nhiBaseIdxToBlk", {base});
  expectCondition("blk", subTrie->nhiInfoKey().str().str());
}

TEST_F(RouteFaults, aSubTrieWithoutABitmap) {
  remove(subTrie, "prefixBitmap", {});
  expectCondition("subTrie->prefixBitmap()", "subTrie " + std::string(subTrie->str().str()));
}

TEST_F(RouteFaults, aSubTrieWithoutASlot) {
  set(subTrie, "maxPrefixSlot", U8{0});
  expectCondition("subTrie->maxPrefixSlot() > 0", "subtrie " + std::string(subTrie->str().str()));
}

TEST_F(RouteFaults, aBlockOfAnotherSize) {
  set(subTrie, "maxPrefixSlot", U8{20});
  expectCondition("blk->blkSz() == expectedBlkSize", "blkSz 1 expectedBlkSize 4");
}

TEST_F(RouteFaults, eachRouteThatFailsIsNamedAndTheOthersAreStillVerified) {
  remove(engine, "prefixToSubTrie", {prefixOf("10.1.1.0/24")});
  remove(engine, "prefixToSubTrie", {prefixOf("10.2.0.0/24")});
  std::vector<LpmPrefix::Ptr> prefixes;
  for (const char* text : {"10.1.0.0/24", "10.1.1.0/24", "10.2.0.0/24", "10.3.0.0/24"}) {
    prefixes.push_back(prefixOf(text));
  }
  std::vector<const LpmPrefix::Ptr*> routes;
  for (const LpmPrefix::Ptr& each : prefixes) {
    routes.push_back(&each);
  }
  std::string failures;
  const auto note = [&failures](std::size_t position, const RouteVerdict& verdict) {
    failures += std::to_string(position) + " " + verdict.condition + "; ";
    return true;
  };
  EXPECT_EQ(verifyRoutes(*engine, routes, note), 4U);
  EXPECT_EQ(failures, "1 subTrie; 2 subTrie; ");
  // Who has heard enough is not told more.
  failures.clear();
  EXPECT_EQ(verifyRoutes(*engine, routes,
                         [&note](std::size_t position, const RouteVerdict& verdict) {
                           note(position, verdict);
                           return false;
                         }),
            2U);
  EXPECT_EQ(failures, "1 subTrie; ");
}

TEST_F(RouteFaults, aChildThatDiesWithoutAWordIsNamedByItsSignal) {
  set(subTrie, "nhiInfoKey", NhiInfoKey());
  // A route that stands nowhere at all: the library follows the pointer.
  const auto* nowhere = reinterpret_cast<const LpmPrefix::Ptr*>(std::uintptr_t{64});
  const LpmPrefix::Ptr* const routes[] = {nowhere, &prefix};
  std::string failures;
  verifyRoutes(*engine, routes, [&failures](std::size_t, const RouteVerdict& verdict) {
    failures += verdict.condition + "; ";
    return true;
  });
  EXPECT_EQ(failures, "ended by signal 11, Segmentation fault; nhiInfoKey != NhiInfoKey(); ");
}

TEST_F(RouteFaults, aRouteTwiceIsVerifiedTwice) {
  const LpmPrefix::Ptr* const one = &prefix;
  const std::vector<const LpmPrefix::Ptr*> routes(2, one);
  EXPECT_EQ(verifyRoutes(*engine, routes, [](std::size_t, const RouteVerdict&) { return false; }),
            routes.size());
}

}  // namespace
}  // namespace Quarle::Agent
