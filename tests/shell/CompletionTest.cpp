// What the shell offers for an unfinished line.

#include "tests/shell/ShellFixture.h"

#include <gmock/gmock.h>

namespace Quarle::Cli {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class Completion : public Testing::ShellTest {
 protected:
  std::vector<std::string> after(const std::string& line) { return shell.completions(line); }
};

TEST_F(Completion, verbsAndTheirWords) {
  EXPECT_THAT(after("sh"), ElementsAre("show"));
  EXPECT_THAT(after(""), ElementsAre("audit", "call", "del", "get", "help", "lookup", "quit", "set",
                                     "show", "trace", "why"));
  EXPECT_THAT(after("show t"), ElementsAre("tables", "tiles"));
  EXPECT_THAT(after("trace set T"),
              ElementsAre("Tarnlet", "TarnletConfigurator", "TarnletNextHop", "TarnletSm"));
  EXPECT_THAT(after("trace set TarnletSm o"), ElementsAre("off"));
  EXPECT_THAT(after("show tables --"), ElementsAre("--all", "--json"));
}

TEST_F(Completion, pathsBeginWithTheGreatObjects) {
  EXPECT_THAT(after("get ipv4"), ElementsAre("ipv4.config", "ipv4.engine", "ipv4.status"));
  EXPECT_THAT(after("get ipv4.engine"), ElementsAre("ipv4.engine."));
}

TEST_F(Completion, attributesComeFromTheType) {
  EXPECT_THAT(after("get ipv4.engine.nh"),
              ElementsAre("ipv4.engine.nhiAllocator[", "ipv4.engine.nhiBaseIdxToBlk[",
                          "ipv4.engine.nhiBaseIdxToSubTrie[", "ipv4.engine.nhiSharingEnabled"));
  EXPECT_THAT(after("get ipv4.engine.prefixTable[0].tableConfig.de"),
              ElementsAre("ipv4.engine.prefixTable[0].tableConfig.depth"));
  EXPECT_THAT(after("get ipv4.engine."), Not(Contains("ipv4.engine.moveSubTrie")));
}

TEST_F(Completion, keysComeFromTheCollection) {
  EXPECT_THAT(after("get ipv4.config.request[10.1."),
              ElementsAre("ipv4.config.request[10.1.0.0/16]", "ipv4.config.request[10.1.2.0/24]",
                          "ipv4.config.request[10.1.3.0/24]"));
  EXPECT_THAT(after("get ipv4.engine.prefixTable[3"), ElementsAre("ipv4.engine.prefixTable[3]"));
  EXPECT_THAT(after("get ipv4.engine.prefixTable[3]"), ElementsAre("ipv4.engine.prefixTable[3]."));
}

TEST_F(Completion, keysWithBlanksAreOneWord) {
  route("10.0.0.0/8", {9}, /*vrf=*/3);
  EXPECT_THAT(after("get ipv4.config.request[vrf 3"),
              ElementsAre("ipv4.config.request[vrf 3 10.0.0.0/8]"));
}

TEST_F(Completion, operationsAndTheirArguments) {
  EXPECT_THAT(after("call ipv4.engine move"), ElementsAre("moveSubTrie"));
  EXPECT_THAT(after("call ipv4.engine moveSubTrie "), ElementsAre("lpmPrefix=", "prefixTable="));
  EXPECT_THAT(after("call ipv4.engine moveSubTrie prefixTable=ipv4.engine.prefixTable[3"),
              ElementsAre("prefixTable=ipv4.engine.prefixTable[3]"));
}

TEST_F(Completion, routesForWhyAuditAndShow) {
  EXPECT_THAT(after("audit 10.1.2"), ElementsAre("10.1.2.0/24"));
  EXPECT_THAT(after("audit a"), ElementsAre("all"));
  EXPECT_THAT(after("show route 2001:db8:1"), ElementsAre("2001:db8:1::/48"));
}

TEST_F(Completion, nothingBehindWhatLeadsNowhere) {
  EXPECT_THAT(after("get ipv4.engine.foo.b"), IsEmpty());
  EXPECT_THAT(after("lokup 1"), IsEmpty());
  EXPECT_THAT(after("get ipv4.engine.prefixTable[99]."), IsEmpty());
}

}  // namespace
}  // namespace Quarle::Cli
