// A chip configured, routed, restarted, audited and printed by names alone: the great objects come
// from their factories, and everything after that a diagnostic client could do as well.

#include <memory>
#include <string>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/CommandConsumer.h"
#include "agent/audit/ForkedCall.h"
#include "agent/restart/RestartHelperV4.h"
#include "cli/shell/WrittenText.h"
#include "config/TarnletConfigurator.h"
#include "engine/TarnletSm.h"
#include "framework/Vellor/GenericIf.h"
#include "tests/shell/ShellFixture.h"
#include "xdksim/SimLpmMgr.h"

#include <gmock/gmock.h>

namespace Quarle::Cli {
namespace {

using ::testing::StartsWith;
using Vellor::AttributeOp;
using Vellor::GenericIf;
using Vellor::genericIf;

/// What the library keeps of one family while a process lives.
struct Life {
  Tarnlet::ConfigV4::Ptr config = Tarnlet::configV4Factory("ipv4");
  Tarnlet::Status::Ptr status = Tarnlet::statusFactory("ipv4");
  std::unique_ptr<Agent::CommandConsumer> consumer;
  Tarnlet::LpmSm::Ptr engine;
};

class ByNameAlone : public ::testing::Test {
 protected:
  /// Configures by name, and puts an engine without routes over that.
  void begin(Life& life) {
    const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
    const auto configurator = tarnletConfiguratorFactory(
        Agent::systemStatusOf(chip), life.config, Tarnlet::configV6Factory("ipv6"),
        TarnletNextHop::configFactory("nextHops"), treads);
    genericIf(configurator)->call("doConfig");
    life.consumer = std::make_unique<Agent::CommandConsumer>(
        Agent::Family::ipv4, life.status, life.config->keyType(), &manager, faults);
    life.engine = Tarnlet::lpmSmFactory("ipv4", life.config, life.status, nullptr);
  }

  static std::string text(const GenericIf::Ptr& face) {
    return face == nullptr ? "-" : face->strRep().str();
  }

  static void route(const GenericIf::Ptr& config, U32 address, U8 length, const char* block) {
    GenericIf::Ptr prefix;
    config->attributeOp({config->attributeId("lpmPrefix"), AttributeOp::insert},
                        genericIf(Dunlix::VrfAndPrefix(0, Corsel::Prefix(address, length))),
                        prefix);
    config->set("request",
                GenericIf::Ptr(new GenericIf::List_({{"key", prefix}, {"value", block}})));
  }

  /// "10.1.0.0/16 at 1", or "none".
  std::string lookup(std::array<U8, 4> address) const {
    const XdkSim::LookupResult result = chip.lookup(XdkSim::Family::ipv4, 0, address.data());
    return result.matched
               ? std::to_string(result.matchLen - 16) + " at " + std::to_string(result.base)
               : "none";
  }

  /// Every route that is requested goes through the library's audit; those that failed.
  static std::string audited(const GenericIf::Ptr& config, const GenericIf::Ptr& engine) {
    std::string failed;
    for (auto member = config->attributeIterator(config->attributeId("request")); member->nonNull();
         member->inc()) {
      const GenericIf::Ptr prefix = member->key();
      const Agent::ForkedCall forked =
          Agent::callForked([&] { engine->call("verifyLpmRoute", {prefix}); });
      failed += forked.returned() ? "" : forked.reason() + "\n";
    }
    return failed;
  }

  static std::string printed(const GenericIf::Ptr& engine, const char* operation) {
    return writtenBy([&](int descriptor) {
      engine->call(operation, {{"socket", genericIf(static_cast<U32>(descriptor))}});
    });
  }

  /// With several tiles the library alone names a block after another tile than its own.
  static XdkSim::ChipProfile oneTile() {
    XdkSim::ChipProfile profile = XdkSim::parseProfile(Testing::kSmallProfile, "small");
    profile.ipv4.nhi.tilesIs(1);
    return profile;
  }

  XdkSim::Chip chip{oneTile()};
  XdkSim::SimLpmMgr manager{chip, XdkSim::Family::ipv4};
  Agent::WriteFaults faults;
};

TEST_F(ByNameAlone, aChipIsConfiguredRoutedRestartedAuditedAndPrinted) {
  Life first;
  begin(first);
  const GenericIf::Ptr config = genericIf(first.config);
  EXPECT_EQ(text(config->get("keyType")), "'keyShort48b'");
  EXPECT_EQ(config->count("prefixTableConfig"), 5U);

  route(config, 0x0a000000, 8,
        "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 7, "
        "'size': 1})");
  route(config, 0x0a010000, 16,
        "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 9, "
        "'size': 2})");
  route(config, 0x0a010200, 24,
        "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 7, "
        "'size': 1})");
  EXPECT_EQ(genericIf(first.status)->count("prefixToNextHopBlock"), 3U);
  EXPECT_EQ(lookup({10, 1, 2, 3}), "24 at 7");
  EXPECT_EQ(lookup({10, 1, 3, 3}), "16 at 9");

  const GenericIf::Ptr engine = genericIf(first.engine);
  EXPECT_EQ(audited(config, engine), "");
  const std::string tables = printed(engine, "printPrefixTables");
  EXPECT_THAT(tables, StartsWith("{'prefixTblId':0,'prefixTblTread':35,"));

  // The process ends; the chip stays, and its rows are all that the next one has.
  Life second;
  begin(second);
  const GenericIf::Ptr engineAgain = genericIf(second.engine);
  EXPECT_EQ(engineAgain->count("prefixToSubTrie"), 0U);
  const Vellor::Ptr<Agent::RestartHelperV4> helper(
      new Agent::RestartHelperV4(second.config, second.status));
  helper->xdkLpmMgrIs(&manager);
  // A machine that stands already must not take the walk's finds for requests.
  engineAgain->set("initialized", false);
  genericIf(Tarnlet::RestartHelperBase::Ptr(helper))
      ->call("doRestart", {{"removeStale", genericIf(false)}, {"lpmSm", engineAgain}});
  engineAgain->set("initialized", true);

  const GenericIf::Ptr configAgain = genericIf(second.config);
  EXPECT_EQ(configAgain->count("request"), 3U);
  EXPECT_EQ(audited(configAgain, engineAgain), "");
  EXPECT_EQ(printed(engineAgain, "printPrefixTables"), tables);
  EXPECT_EQ(printed(engineAgain, "showSoftwareSummary"),
            "\nIPv4 Lpm Summary\n Hash shuffling enabled: True\n  attempts: 0, success: 0\n"
            " Nexthop block defrags: 0\n Nexthop index shared: 2\n");

  // And the second process works on from there.
  route(configAgain, 0x0a010200, 24,
        "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': 9, "
        "'size': 2})");
  EXPECT_EQ(lookup({10, 1, 2, 3}), "24 at 9");
  EXPECT_EQ(audited(configAgain, engineAgain), "");
}

}  // namespace
}  // namespace Quarle::Cli
