// get, set, del and call: everything by name, and one line for what cannot be.

#include <iterator>

#include "tests/shell/ShellFixture.h"

#include <gmock/gmock.h>

namespace Quarle::Cli {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class ObjectVerbs : public Testing::ShellTest {};

TEST_F(ObjectVerbs, withoutAPathTheGreatObjectsAreListed) {
  EXPECT_EQ(run("get"),
            "ipv4.config\nipv4.status\nipv4.engine\nipv6.config\nipv6.status\nipv6.engine\n"
            "nexthops.config\nnexthops.status\nnexthops.engine\n");
  EXPECT_EQ(objects("get")[2], (Json{{"path", "ipv4.engine"}, {"type", "LpmSm"}}));
}

TEST_F(ObjectVerbs, anAttributeIsToldInItsTextualForm) {
  EXPECT_EQ(run("get ipv4.engine.hashShufflingEnabled"), "True\n");
  EXPECT_EQ(run("get ipv4.engine.name"), "'ipv4'\n");
  EXPECT_EQ(run("get ipv4.config.request[10.0.0.0/8]"),
            "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 0, 'size': 1})\n");
  EXPECT_EQ(objects("get ipv4.engine.hashShufflingEnabled")[0],
            (Json{{"path", "ipv4.engine.hashShufflingEnabled"}, {"value", true}}));
}

TEST_F(ObjectVerbs, aPathLeadsThroughObjectsMembersAndValues) {
  EXPECT_EQ(run("get ipv4.config.request[10.1.0.0/16].size"), "2\n");
  EXPECT_EQ(run("get ipv4.engine.prefixToSubTrie[10.1.0.0/16].table.tableConfig.tread"), "28\n");
  EXPECT_EQ(run("get ipv4.engine.config.lpmPrefix[10.1.0.0/16].vrfAndPrefix.vrf"), "0\n");
  EXPECT_EQ(run("get ipv4.engine.sharedNhi[" +
                session.engine(Agent::Family::ipv4)
                    ->sharedNhiCollection()
                    .begin()
                    .
                    operator*()
                    .value->nhiInfoKey()
                    .str()
                    .str() +
                "].subTrieCount"),
            "1\n");
}

TEST_F(ObjectVerbs, anObjectListsAttributesAndOperations) {
  const std::string text = run("get ipv4.engine");
  EXPECT_THAT(text, StartsWith("name                             'ipv4'\n"
                               "config                           ipv4.config\n"
                               "status                           ipv4.status\n"));
  EXPECT_THAT(text, HasSubstr("prefixTable                      5 members\n"));
  EXPECT_THAT(text, HasSubstr("operations:\n"));
  EXPECT_THAT(text, HasSubstr("  nhiBlockSize(numPrefixes: U8) -> U8, changes nothing\n"));
  EXPECT_THAT(run("get ipv4.config.prefixTableConfig[0]"),
              HasSubstr("xdkHashFunction                  (no face)\n"));
}

TEST_F(ObjectVerbs, aListOfAnObjectIsForProgramsToo) {
  bool foundOperation = false;
  for (const Json& one : objects("get ipv4.engine")) {
    if (one["name"] == "moveSubTrie") {
      foundOperation = true;
      EXPECT_EQ(one["arguments"], Json::parse(R"([{"name":"lpmPrefix","type":"LpmPrefix"},
                                {"name":"prefixTable","type":"PrefixTable"}])"));
      EXPECT_EQ(one["result"], "RouteReturnCode");
      EXPECT_EQ(one["const"], false);
    }
    if (one["name"] == "prefixTable") {
      EXPECT_EQ(one["count"], 5);
      EXPECT_EQ(one["key"], "PrefixTableId");
    }
  }
  EXPECT_TRUE(foundOperation);
}

TEST_F(ObjectVerbs, aCollectionListsItsFirstMembersOrAll) {
  for (int i = 0; i < 30; ++i) {
    session.client().groupIs(std::vector<U64>{100 + static_cast<U64>(i)});
  }
  EXPECT_THAT(run("get nexthops.config.request"), HasSubstr("\n... 15 more, with --all\n"));
  EXPECT_EQ(objects("get nexthops.config.request").size(), 20U);
  EXPECT_EQ(objects("get nexthops.config.request --all").size(), 35U);
  EXPECT_EQ(run("get ipv4.status.pendingCmd"), "no members\n");
}

TEST_F(ObjectVerbs, keysOfAListAreKeysOfAPath) {
  for (const char* path : {"ipv4.config.request", "ipv6.config.lpmPrefix", "ipv4.engine.sharedNhi",
                           "ipv4.engine.nhiBaseIdxToBlk", "ipv4.engine.prefixTable"}) {
    for (const Json& member : objects(std::string("get ") + path)) {
      const std::string key =
          member["key"].is_string() ? member["key"].get<std::string>() : member["key"].dump();
      EXPECT_THAT(run(std::string("get ") + path + "[" + key + "]"),
                  ::testing::Not(HasSubstr("-> 1")));
    }
  }
}

TEST_F(ObjectVerbs, aRouteOfAVrfIsNamedWithIt) {
  route("10.0.0.0/8", {9}, /*vrf=*/3);
  EXPECT_EQ(run("get ipv4.config.request[vrf 3 10.0.0.0/8].size"), "1\n");
  EXPECT_EQ(run("call ipv4.engine verifyLpmRoute [vrf 3 10.0.0.0/8]"), "passed\n");
}

TEST_F(ObjectVerbs, setChangesAnAttributeInPlace) {
  EXPECT_EQ(run("set ipv4.engine.hashShufflingEnabled false"), "");
  EXPECT_FALSE(session.engine(Agent::Family::ipv4)->hashShufflingEnabled());
  EXPECT_EQ(run("set ipv4.engine.prefixToSubTrie[10.1.0.0/16].mode 'modeCpe'"), "");
  EXPECT_EQ(run("get ipv4.engine.prefixToSubTrie[10.1.0.0/16].mode"), "'modeCpe'\n");
}

TEST_F(ObjectVerbs, aRouteIsMadeAndTakenOutByName) {
  EXPECT_EQ(run("set ipv4.config.lpmPrefix[10.1.64.0/18]"), "");
  EXPECT_EQ(run("set ipv4.config.request[10.1.64.0/18] 1,2"), "");
  EXPECT_THAT(run("lookup 10.1.64.1"), HasSubstr("reference       10.1.64.0/18 to rows 1 to 2"));
  EXPECT_EQ(run("del ipv4.config.request[10.1.64.0/18]"), "");
  EXPECT_THAT(run("lookup 10.1.64.1"), HasSubstr("reference       10.1.0.0/16 to rows 1 to 2"));
}

TEST_F(ObjectVerbs, callTakesArgumentsByPositionAndByName) {
  EXPECT_EQ(run("call ipv4.engine nhiBlockSize 7"), "2\n");
  EXPECT_EQ(run("call ipv4.engine nhiBlockSize numPrefixes=6"), "1\n");
  EXPECT_EQ(run("call ipv4.engine.prefixTable[2].tableConfig str"), "'2,0,2,28'\n")
      << "a type, a depth and a tread";
  EXPECT_EQ(run("call ipv4.config.prefixTableConfig[2] hashFunc 10.1.0.0/16"),
            run("get ipv4.engine.prefixToSubTrie[10.1.0.0/16].index"));
}

TEST_F(ObjectVerbs, callMovesASubTrieToAnotherTable) {
  const std::string table = "get ipv4.engine.prefixToSubTrie[10.1.2.0/24].table.tableId";
  ASSERT_EQ(run(table), "0\n");
  EXPECT_EQ(run("call ipv4.engine moveSubTrie 10.1.2.0/24 ipv4.engine.prefixTable[0]"), "'pass'\n");
  EXPECT_EQ(run(table), "1\n");
  EXPECT_THAT(run("lookup 10.1.2.9"), HasSubstr("all agree"));
}

TEST_F(ObjectVerbs, anAnswerThatWouldEndTheProcessIsAnError) {
  const std::string text = run("call ipv4.config fanoutPrefixLen 5");
  EXPECT_THAT(text, StartsWith("call: ipv4.config.fanoutPrefixLen would end the process, expected "
                               "what it can serve: model/ConfigBase.cpp:"));
  EXPECT_THAT(text, ::testing::EndsWith("Assertion `prefixTableFound' failed.\n-> 1\n"));
  EXPECT_EQ(run("get ipv4.engine.name"), "'ipv4'\n");
}

TEST_F(ObjectVerbs, aChangeThatWouldEndTheProcessIsAnErrorAndChangesNothing) {
  EXPECT_EQ(run("call ipv4.engine releaseNhiBlock 0,77"),
            "call: ipv4.engine.releaseNhiBlock would end the process, expected what it can serve: "
            "Failed(blk)  baseIdx 0,77\n-> 1\n");
  const std::string subTrie = "ipv4.engine.prefixToSubTrie[10.1.2.0/24]";
  EXPECT_THAT(run("call " + subTrie + " allocatePrefixBitmap"),
              ::testing::EndsWith("Assertion `!prefixBitmap()' failed.\n-> 1\n"));
  EXPECT_THAT(run("audit all"), ::testing::EndsWith("all is right\n"));
}

TEST_F(ObjectVerbs, whatIsTriedFirstPrintsOnce) {
  run("set ipv4.engine.numNhiBlockDefrag 5");
  EXPECT_EQ(run("get ipv4.engine.numNhiBlockDefrag"), "5\n");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(run("call ipv4.engine showSoftwareSummary 1"), "");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "\nIPv4 Lpm Summary\n Hash shuffling enabled: True\n  attempts: 0, success: 0\n"
            " Nexthop block defrags: 5\n Nexthop index shared: 3\n");
}

TEST_F(ObjectVerbs, aChildIsMadeOfItsArgumentsByName) {
  const std::string bitmap = "ipv4.engine.prefixToSubTrie[10.1.2.0/24].prefixBitmap";
  EXPECT_EQ(run("set " + bitmap + " size=12 initialBitState=bitClear id=7"), "");
  EXPECT_EQ(run("get " + bitmap),
            "id                               7\n"
            "size                             12\n");
  EXPECT_EQ(run("set " + bitmap + " 3 9 bitSet"), "");
  EXPECT_EQ(run("get " + bitmap + ".size"), "9\n");
}

TEST_F(ObjectVerbs, requestsByNameFindEveryTileAsOnesOfTheClient) {
  ASSERT_EQ(run("get ipv4.config.nhiAvailableTiles"), "2\n");
  const char* const blocks[] = {"0,1", "1,2", "3,1", "4,1", "5,2"};
  std::string added;
  for (U32 i = 0; i < std::size(blocks); ++i) {
    const std::string prefix = "50." + std::to_string(i) + ".7.0/24";
    run("set ipv4.config.lpmPrefix[" + prefix + "]");
    run("set ipv4.config.request[" + prefix + "] " + blocks[i]);
    added += run("get ipv4.status.prefixToNextHopBlock[" + prefix + "].base");
    EXPECT_EQ(run("audit " + prefix), prefix + ": all checks hold\n");
  }
  EXPECT_EQ(added, "0\n1\n3\n4\n5\n");
  for (U32 i = 0; i < std::size(blocks); ++i) {
    EXPECT_THAT(run("lookup 50." + std::to_string(i) + ".7.1"), HasSubstr("all agree"));
  }
  EXPECT_EQ(objects("get ipv4.engine.nhiAllocator").size(), 2U) << "all are on view again";
}

struct BadLine {
  const char* line;
  const char* error;
};

void PrintTo(const BadLine& bad, std::ostream* stream) { *stream << bad.line; }

class BadObjectLine : public Testing::ShellTest, public ::testing::WithParamInterface<BadLine> {};

TEST_P(BadObjectLine, getsOneLineAndTheShellLivesOn) {
  EXPECT_EQ(run(GetParam().line), std::string(GetParam().error) + "\n-> 1\n");
  EXPECT_EQ(run("get ipv4.engine.hashShufflingEnabled"), "True\n");
}

INSTANTIATE_TEST_SUITE_P(
    ObjectVerbs,
    BadObjectLine,
    ::testing::Values(
        BadLine{"get ipv4.engin.x",
                "get: there is no \"ipv4.engin\", expected ipv4, ipv6 or nexthops with .config, "
                ".status or .engine, nearest \"ipv4.engine\""},
        BadLine{"get ipv4.engine.hashShuflingEnabled",
                "get: ipv4.engine has no attribute \"hashShuflingEnabled\", expected one of 17 "
                "names of LpmSm, nearest \"hashShufflingEnabled\""},
        BadLine{"get ipv4.engine.moveSubTrie",
                "get: ipv4.engine.moveSubTrie is an operation, expected: call ipv4.engine "
                "moveSubTrie"},
        BadLine{"get ipv4.engine.prefixTable.subTrie",
                "get: ipv4.engine.prefixTable is a collection, expected a key: "
                "ipv4.engine.prefixTable[PrefixTableId].subTrie"},
        BadLine{"get ipv4.engine.prefixTable[9]",
                "get: ipv4.engine.prefixTable[9] is not there, expected a key that get lists"},
        BadLine{"get ipv4.engine.prefixTable[x]",
                "get: ipv4.engine.prefixTable[x]: key: value: expected a number, found \"x\""},
        BadLine{"get ipv4.engine.name[1]",
                "get: ipv4.engine.name is no collection, expected .NAME instead of [1]"},
        BadLine{"get ipv4.engine.vellorFwkActivity.x",
                "get: ipv4.engine.vellorFwkActivity is None, so there is no "
                "ipv4.engine.vellorFwkActivity.x"},
        BadLine{"get ipv4.config.request[11.0.0.0/8]",
                "get: there is no object \"11.0.0.0/8\", expected PREFIX or [vrf N PREFIX] of a "
                "prefix that the configuration has"},
        BadLine{"get ipv4.config.prefixTableConfig[0].xdkHashFunction",
                "get: ipv4.config.prefixTableConfig[0].xdkHashFunction cannot be shown: its type "
                "has no face"},
        BadLine{"get ipv4.config.lpmPrefix[2001:db8::/32]",
                "get: \"2001:db8::/32\" is of the other family, expected IPv4"},
        BadLine{"get ipv4.engine.prefixTable 3",
                "get: 2 words, expected get [PATH], a member as PATH[KEY]"},
        BadLine{"get ipv4.engine.prefixTable[0",
                "\"ipv4.engine.prefixTable[0\" is not finished, expected ]"},
        BadLine{"set ipv4.engine.name 'x'",
                "set: ipv4.engine.name cannot be changed, it is constant"},
        BadLine{"set ipv4.engine.hashShufflingEnabled maybe",
                "set: ipv4.engine.hashShufflingEnabled: value: expected True or False, found "
                "\"maybe\""},
        BadLine{"set ipv4.engine.hashShufflingEnabled",
                "set: ipv4.engine.hashShufflingEnabled: 0 values, expected one of type bool"},
        BadLine{"set ipv4.engine.prefixTable 3",
                "set: ipv4.engine.prefixTable is a collection, expected a member: "
                "ipv4.engine.prefixTable[PrefixTableId]"},
        BadLine{"set ipv4.config.request[10.0.0.0/8].base 3",
                "set: ipv4.config.request[10.0.0.0/8].base is part of a value, expected the whole: "
                "ipv4.config.request[10.0.0.0/8]"},
        BadLine{"set ipv4.engine 1",
                "set: ipv4.engine stands for the whole session, expected one of its attributes"},
        BadLine{"del ipv4.engine.name", "del: ipv4.engine.name cannot be removed, it is constant"},
        BadLine{"call ipv4.engine nhiBlokSize 3",
                "call: ipv4.engine has no operation \"nhiBlokSize\", expected one of 33 names of "
                "LpmSm, nearest \"nhiBlockSize\""},
        BadLine{"call ipv4.engine nhiBlockSize",
                "call: ipv4.engine.nhiBlockSize: 0 given, expected 1 argument: "
                "nhiBlockSize(numPrefixes: U8) -> U8, changes nothing"},
        BadLine{"call ipv4.engine nhiBlockSize many",
                "call: ipv4.engine.nhiBlockSize: numPrefixes: expected a number, found \"many\""},
        BadLine{"get ipv4.config.request[10.1.2.3/24]",
                "get: \"10.1.2.3/24\" has host bits set, expected 10.1.2.0/24"},
        BadLine{"get ipv4.engine.nhiBaseIdxToBlk[300,1]",
                "get: \"300,1\", expected a tile up to 255 and an entry up to 65535: 3,40"},
        BadLine{"set ipv4.config.request[10.0.0.0/8] 7",
                "set: ipv4.config.request[10.0.0.0/8]: \"7\", expected a first row and up to 65535 "
                "rows: 40,4"},
        BadLine{"set ipv4.config.nhiPairPerEntry 256",
                "set: ipv4.config.nhiPairPerEntry: \"256\", expected a number from 0 to 255"},
        BadLine{"set nexthops.config.request[9] 65536",
                "set: nexthops.config.request[9]: \"65536\", expected a number from 0 to 65535"},
        BadLine{"set ipv4.config.keyType keyLong48b",
                "set: ipv4.config.keyType: \"keyLong48b\", expected one of keyShort48b, "
                "keyLong144b, nearest \"keyLong144b\""},
        BadLine{"call ipv4.engine nhiBlockSize numPrefixs=3",
                "call: ipv4.engine.nhiBlockSize: there is no argument \"numPrefixs\", expected "
                "those of nhiBlockSize(numPrefixes: U8) -> U8, changes nothing, nearest "
                "\"numPrefixes\""},
        BadLine{"call ipv4.engine verifyLpmRoute ipv4.engine",
                "call: ipv4.engine.verifyLpmRoute: lpmPrefix, expected 1 argument: "
                "verifyLpmRoute(lpmPrefix: LpmPrefix), changes nothing"},
        BadLine{"set ipv4.engine.prefixToSubTrie[10.1.2.0/24].prefixBitmap 0 8",
                "set: ipv4.engine.prefixToSubTrie[10.1.2.0/24].prefixBitmap: 2 given, expected 3 "
                "arguments: Bitmap(id: U64, size: U32, initialBitState: BitState)"},
        BadLine{"set ipv4.engine.prefixToSubTrie[10.1.2.0/24].prefixBitmap 0 sise=8 bitSet",
                "set: ipv4.engine.prefixToSubTrie[10.1.2.0/24].prefixBitmap: there is no argument "
                "\"sise\", expected those of Bitmap(id: U64, size: U32, initialBitState: "
                "BitState), nearest \"size\""},
        BadLine{"call ipv4.engine dumpPrefixTable 10.0.0.0/8",
                "call: ipv4.engine.dumpPrefixTable: prefixTable, expected 1 argument: "
                "dumpPrefixTable(prefixTable: PrefixTable), changes nothing"}));

}  // namespace
}  // namespace Quarle::Cli
