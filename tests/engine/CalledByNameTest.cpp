// Every operation that the engine's types offer, called by its name and its arguments' names. A
// type's test ends by asking whether an operation was left out.

#include <initializer_list>
#include <set>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "framework/Vellor/GenericIf.h"
#include "nexthop/TarnletNextHopSm.h"
#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Vellor::AttributeId;
using Vellor::AttributeKind;
using Vellor::genericIf;
using Vellor::GenericIf;

/// A face whose calls are noted.
class Callee {
 public:
  explicit Callee(GenericIf::Ptr face) : face_(std::move(face)) {}

  /// The text of what the operation returns, "-" for nothing.
  std::string call(const char* operation, std::initializer_list<GenericIf::Argument> arguments) {
    called_.insert(operation);
    const GenericIf::Ptr result = face_->call(operation, arguments);
    return result == nullptr ? "-" : result->strRep().str();
  }

  GenericIf& face() { return *face_; }

  /// The operations that nobody has called.
  std::string left() const {
    std::string names;
    for (AttributeId id = 0; id < face_->attributes(); ++id) {
      const auto& attribute = face_->attributeFace(id);
      if (attribute.kind == AttributeKind::operation &&
          !called_.contains(std::string(attribute.name))) {
        names += std::string(attribute.name) + " ";
      }
    }
    return names;
  }

 private:
  GenericIf::Ptr face_;
  std::set<std::string> called_;
};

/// Two tables of one tread, so that a sub-trie has somewhere to move.
class CalledByName : public ::testing::Test {
 protected:
  CalledByName() {
    chip_.tables({{.id = 0, .tread = 32, .depth = 64}, {.id = 1, .tread = 32, .depth = 64}})
        .tiles(1, 64)
        .start();
  }

  /// A prefix that is requested although nothing has served it.
  LpmPrefix::Ptr wished(const std::string& text, const NextHopBlock& block) {
    chip_.sm().hasNotificationActiveIs(false);
    const LpmPrefix::Ptr prefix = chip_.prefix(text);
    chip_.config()->requestIs(prefix, block);
    chip_.sm().hasNotificationActiveIs(true);
    return prefix;
  }

  ChipStory chip_;
};

TEST_F(CalledByName, theEngine) {
  Callee sm(genericIf(&chip_.sm()));
  const PrefixTable::Ptr table = chip_.table(0);

  // Placing, step by step.
  EXPECT_EQ(sm.call("hasNotificationActiveIs", {{"hasNotificationActiveIs", true}}), "-");
  EXPECT_EQ(sm.call("vellorDoZombieReactors", {{"on", false}}), "-");
  const LpmPrefix::Ptr first = wished("10.1.0.0/24", via(7));
  EXPECT_EQ(sm.call("insertPrefixToTable", {{"lpmPrefix", first}, {"prefixTable", table}}),
            "'subTrieNotPresent'");
  EXPECT_EQ(sm.call("createSubTrieWithPrefix", {{"lpmPrefix", first}, {"prefixTable", table}}),
            "'pass'");
  const SubTrie::Ptr subTrie = chip_.sm().prefixToSubTrie(first);
  ASSERT_NE(subTrie, nullptr);
  const LpmPrefix::Ptr second = wished("10.1.1.0/24", via(8));
  EXPECT_EQ(sm.call("insertPrefixToSubTrie", {{"lpmPrefix", second}, {"subTrie", subTrie}}),
            "'pass'");
  const LpmPrefix::Ptr third = wished("20.2.0.0/24", via(9));
  EXPECT_EQ(sm.call("insertPrefixInternal", {{"lpmPrefix", third}, {"prefixTable", table}}),
            "'pass'");
  const LpmPrefix::Ptr fourth = wished("30.3.0.0/24", via(9));
  EXPECT_EQ(sm.call("insertPrefix", {{"lpmPrefix", fourth}}), "-");
  EXPECT_EQ(chip_.status()->prefixToNextHopBlock(fourth), via(9));
  EXPECT_EQ(sm.call("handleRequest", {{"lpmPrefix", first}}), "-");
  EXPECT_EQ(sm.call("updatePrefix", {{"lpmPrefix", second}}), "-");
  EXPECT_EQ(chip_.status()->prefixToNextHopBlock(second), via(8));
  EXPECT_EQ(sm.call("moveSubTrie", {{"lpmPrefix", first}, {"prefixTable", table}}), "'pass'");
  EXPECT_EQ(subTrie->table()->tableId(), 1);

  // Contents and blocks.
  const GenericIf::Ptr key = sm.face().call("generateNhiInfoKey", {{"subTrie", subTrie}});
  EXPECT_EQ(sm.call("generateNhiInfoKey", {{"subTrie", subTrie}}), "None");
  EXPECT_EQ(sm.call("nhiBaseIdxFromNhiInfoKey", {{"subTrie", subTrie}, {"key", key}}),
            valueToStrep(subTrie->nhiBaseIdx()).str());
  EXPECT_EQ(sm.call("updateNhiInfoForSubTrie", {{"subTrie", subTrie}}), "True");
  const NhiTableIdx base = subTrie->nhiBaseIdx();
  EXPECT_EQ(sm.call("nhiBlockSize", {{"numPrefixes", U8{9}}}), "2");
  EXPECT_EQ(sm.call("isNhiBlockAvailable", {{"numPrefixes", U8{9}}}), "True");
  const GenericIf::Ptr block = sm.face().call("allocateNhiBlock", {{"numPrefixes", U8{1}}});
  EXPECT_EQ(sm.call("reallocNhiBlock", {{"baseIdx", block}, {"numPrefixes", U8{9}}}), "-");
  EXPECT_EQ(sm.call("releaseNhiBlock", {{"baseIdx", block}}), "-");
  EXPECT_NE(sm.call("allocateNhiBlock", {{"numPrefixes", U8{1}}}), "-");
  EXPECT_EQ(sm.call("releaseNhiInfo", {{"subTrie", subTrie}}), "-");
  EXPECT_EQ(chip_.sm().nhiBaseIdxToBlk(base), nullptr);
  EXPECT_EQ(sm.call("reallocNhiBlock", {{"baseIdx", base}, {"numPrefixes", U8{2}}}), "-");
  EXPECT_EQ(sm.call("allocateNhiInfo", {{"subTrie", subTrie}, {"key", key}, {"nhiBaseIdx", base}}),
            "'Quarle::Tarnlet::NhiInfo'");
  const Brumel::BFA::PendingCmds::Ptr moves(new Brumel::BFA::PendingCmds());
  EXPECT_EQ(sm.call("processNhiDefrag", {{"tile", NhiTileIdx(0)}, {"defragCmds", moves}}), "-");

  // Commands.
  while (chip_.status()->pendingCmdDeq()) {
  }
  sm.call("generatePrefixTableWriteCmds", {{"subTrie", subTrie}});
  sm.call("generateNhiWriteCmds", {{"subTrie", subTrie}});
  sm.call("generateSubTrieWriteCmds",
          {{"subTrie", subTrie}, {"generatePrefixCmds", true}, {"generateNhiCmds", false}});
  sm.call("generatePrefixTableIdxDeleteWriteCmd",
          {{"prefixTable", table}, {"prefixTableIdx", U32{5}}, {"subTrie", subTrie}});
  EXPECT_EQ(chip_.status()->pendingCmds(), 4U);

  // Looking.
  const U32 nowhere = static_cast<U32>(open("/dev/null", O_WRONLY | O_CLOEXEC));
  sm.call("verifyLpmRoute", {{"lpmPrefix", first}});
  sm.call("showSoftwareSummary", {{"socket", nowhere}});
  sm.call("printPrefixTables", {{"socket", nowhere}});
  sm.call("printNhiTiles", {{"socket", nowhere}});
  sm.call("dumpPrefixTables", {});
  sm.call("dumpPrefixTable", {{"prefixTable", table}});
  close(static_cast<int>(nowhere));

  sm.call("deletePrefix", {{"lpmPrefix", second}});
  EXPECT_EQ(chip_.sm().prefixToSubTrie(second), nullptr);
  sm.call("handleInitialized", {});
  EXPECT_TRUE(chip_.sm().initialized());
  EXPECT_EQ(sm.left(), "");
}

TEST_F(CalledByName, aSubTrieAndItsPrefixes) {
  chip_.route("10.1.0.0/24", via(7));
  Callee subTrie(genericIf(chip_.subTrie("10.1.0.0/24")));
  const LpmPrefix::Ptr prefix = chip_.prefix("10.1.1.0/24");
  EXPECT_EQ(subTrie.call("fit", {{"branchLen", U8{32}},
                                 {"stride", U8{8}},
                                 {"numPrefixes", U8{2}},
                                 {"mode", "modeSparse"}}),
            "True");
  EXPECT_EQ(subTrie.call("addPrefix", {{"prefix", prefix}}), "-");
  EXPECT_EQ(chip_.subTrie("10.1.0.0/24")->prefixs(), 2U);
  EXPECT_EQ(subTrie.call("compactPrefixes", {}), "-");
  EXPECT_EQ(subTrie.call("removePrefix", {{"prefix", prefix}}), "-");
  EXPECT_EQ(subTrie.call("dump", {}), "-");
  EXPECT_EQ(subTrie.call("str", {}), valueToStrep(chip_.subTrie("10.1.0.0/24")->str()).str());
  chip_.subTrie("10.1.0.0/24")->prefixBitmapDel();
  EXPECT_EQ(subTrie.call("allocatePrefixBitmap", {}), "-");
  EXPECT_EQ(subTrie.left(), "");

  Callee v4(genericIf(prefix));
  EXPECT_EQ(v4.call("branch", {{"branchLen", U8{24}}}),
            valueToStrep(SubTrieBranch(0x0a00, 0, 0, 0, 0)).str());
  EXPECT_EQ(v4.call("stringValue", {}), "'vrf 0 prefix 10.1.1.0/24'");
  EXPECT_EQ(v4.call("createFanoutPrefixV4", {{"targetTread", U32{42}}}), "-");
  EXPECT_EQ(v4.face().count("prefixFanoutList"), 4U);
  EXPECT_EQ(v4.left(), "");

  Callee v6(genericIf(lpmPrefixV6Factory({0, Corsel::Ip6Prefix("2001:db8::/32")})));
  EXPECT_EQ(v6.call("branch", {{"branchLen", U8{48}}}),
            valueToStrep(SubTrieBranch(0x2001, 0x0db80000, 0, 0, 0)).str());
  EXPECT_EQ(v6.call("stringValue", {}), "'vrf 0 prefix 2001:db8::/32'");
  EXPECT_EQ(v6.left(), "");
}

TEST_F(CalledByName, theConfiguration) {
  Callee config(genericIf(chip_.config()));
  EXPECT_EQ(config.call("fanoutPrefixLen", {{"prefixLen", 40}}), "40");
  EXPECT_EQ(config.call("populateLeastTreadForPrefixLenSettings", {{"lpmTreadUserCfgd", false}}),
            "-");
  EXPECT_EQ(config.left(), "");

  Callee table(genericIf(chip_.config()->prefixTableConfig(0)));
  const LpmPrefix::Ptr prefix = chip_.prefix("10.1.0.0/24");
  EXPECT_EQ(table.call("hashFunc", {{"lpmPrefix", prefix}}),
            std::to_string(chip_.config()->prefixTableConfig(0)->hashFunc(prefix)));
  EXPECT_EQ(table.call("str", {}), valueToStrep(chip_.config()->prefixTableConfig(0)->str()).str());
  EXPECT_EQ(table.left(), "");
}

TEST_F(CalledByName, theRestartHelperWithoutAClient) {
  // A machine without tables: the walk reads nothing.
  ChipStory empty;
  empty.tables({}).start();
  Callee helper(
      genericIf(RestartHelperBase::Ptr(new RestartHelperBase(empty.config(), empty.status()))));
  EXPECT_THROW(helper.call("createPrefix", {{"branch", SubTrieBranch()},
                                            {"branchLen", U8{0}},
                                            {"leafVal", U64{1}},
                                            {"leafValHigh", U64{0}},
                                            {"stride", U8{1}}}),
               Vellor::NoImplementationException);
  EXPECT_THROW(helper.call("deletePrefix", {{"prefix", chip_.prefix("10.0.0.0/8")}}),
               Vellor::NoImplementationException);
  EXPECT_EQ(helper.call("doRestart", {{"removeStale", true}, {"lpmSm", LpmSm::Ptr(&empty.sm())}}),
            "-");
  EXPECT_EQ(helper.left(), "");
}

TEST(CalledByNameNextHops, theMachineOfTheNextHopTable) {
  using namespace Quarle::TarnletNextHop;
  const Config::Ptr config = configFactory("nextHops");
  config->tableSizeIs(16);
  const Quarle::TarnletNextHop::Status::Ptr status =
      Quarle::TarnletNextHop::statusFactory("nextHops");
  Callee sm(genericIf(lpmNextHopSmFactory("nextHops", config, status)));
  EXPECT_EQ(sm.call("insertEntry", {{"swId", SwId(5)}, {"nway", Nway(3)}}), "-");
  EXPECT_EQ(status->swIdToNextHopBlock(5).size(), 3);
  EXPECT_EQ(sm.call("updateEntry", {{"swId", SwId(5)}, {"nway", Nway(4)}}), "-");
  EXPECT_EQ(status->swIdToNextHopBlock(5).size(), 4);
  EXPECT_EQ(sm.call("deleteEntry", {{"swId", SwId(5)}}), "-");
  EXPECT_EQ(status->swIdToNextHopBlocks(), 0U);
  EXPECT_EQ(sm.call("handleRequest", {{"swId", SwId(6)}}), "-");
  const Brumel::BFA::PendingCmds::Ptr moves(new Brumel::BFA::PendingCmds());
  EXPECT_EQ(sm.call("processDefrag", {{"defragCmds", moves}}), "-");
  EXPECT_EQ(sm.call("hasNotificationActiveIs", {{"hasNotificationActiveIs", false}}), "-");
  config->requestIs(7, Nway(2));
  EXPECT_EQ(status->swIdToNextHopBlocks(), 0U) << "the reactor is off";
  EXPECT_EQ(sm.call("hasNotificationActiveIs", {{"hasNotificationActiveIs", true}}), "-");
  EXPECT_EQ(sm.call("vellorDoZombieReactors", {{"on", true}}), "-");
  config->requestNotify(7);
  EXPECT_EQ(status->swIdToNextHopBlocks(), 0U) << "a zombie does nothing";
  EXPECT_EQ(sm.call("handleInitialized", {}), "-");
  EXPECT_EQ(status->swIdToNextHopBlock(7).size(), 2);
  EXPECT_EQ(sm.left(), "");
}

}  // namespace
