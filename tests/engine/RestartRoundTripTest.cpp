#include <cstring>
#include <memory>
#include <random>

#include "agent/ChipContexts.h"
#include "agent/CommandEncoding.h"
#include "config/TarnletConfigurator.h"
#include "tests/engine/RestartFixture.h"
#include "tests/support/EngineAudit.h"
#include "tests/support/Hardware.h"
#include "tests/xdksim/SmallProfile.h"
#include "xdksim/SimLpmMgr.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;

/// Carries every command in the queue out on the SDK.
void write(Status& status, KeyType keyType, xpIpRouteLpmMgr& sdk) {
  while (const CommandBase::Ptr command = status.pendingCmdDeq()) {
    if (command->cmdType() == commandTypePrefix) {
      const auto& prefixCommand = dynamic_cast<const PrefixCommand&>(*command);
      xpLpmPrefixEntry entry;
      Quarle::Agent::encode(prefixCommand, keyType, entry);
      ASSERT_EQ(sdk.writePrefixEntry(0, prefixCommand.tableId().value(),
                                     prefixCommand.index().value(), &entry),
                XP_NO_ERR);
    } else {
      const auto& nhiCommand = dynamic_cast<const NhiCommand&>(*command);
      xpLpmNhiEntry entry;
      Quarle::Agent::encode(nhiCommand, entry);
      ASSERT_EQ(sdk.writeNhiEntry(0, nhiCommand.index().tile().value(), nhiCommand.index().offset(),
                                  &entry),
                XP_NO_ERR);
    }
  }
}

/// A key with a small choice of leading bits, so that sub-tries fill and content repeats.
Key randomKey(std::mt19937_64& random, bool longKey) {
  Key key;
  key.longKey = longKey;
  const U32 vrf = random() % 8 == 0 ? 3 : 0;
  key.bytes = {0, static_cast<U8>(vrf), 10, static_cast<U8>(random() % 2)};
  for (U32 i = 4; i < key.fullLength() / 8U; ++i) {
    key.bytes[i] = static_cast<U8>(random() % (i < 6 ? 256 : 3));
  }
  const U32 shortest = random() % 8 == 0 ? 16 : 40;
  const U32 len = shortest + random() % (key.fullLength() - shortest + 1U);
  return key.cut(static_cast<U8>(len));
}

NextHopBlock randomBlock(std::mt19937_64& random) {
  return NextHopBlock(static_cast<U32>(1 + random() % 3), 1);
}

template <class Record>
std::string bytesOf(const std::map<RecordChip::Place, Record>& rows) {
  std::string bytes;
  for (const auto& [place, record] : rows) {
    bytes += std::to_string(place.first) + ":" + std::to_string(place.second) + " ";
    bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
  }
  return bytes;
}

/// A machine over a shaped chip whose commands reach both the model of the chip, for the audit, and
/// the records that a restart reads.
class RestartRoundTrip : public RestartFixture, public ::testing::WithParamInterface<bool> {
 protected:
  RestartRoundTrip() {
    shape.longKey = GetParam();
    const U8 deep = shape.longKey ? 60 : 35;
    // A narrow row is shorter than a long key, and must not be asked to hold one.
    const PrefixTableType narrow = shape.longKey ? prefixTableWide256b : prefixTableNarrow128b;
    shape.tables = {{.id = 0, .tread = deep, .depth = 64},
                    {.id = 1, .tread = deep, .depth = 64},
                    {.id = 2, .tread = 28, .depth = 32},
                    {.id = 5, .tread = 24, .depth = 32, .type = narrow},
                    {.id = 7, .tread = 16, .depth = 4}};
    shape.pairsPerEntry = 4;
    shape.entriesPerTile = 512;
    hardware = std::make_unique<Hardware>(shape);
  }

  void start() {
    config = nullptr;
    prepare();
    sm = lpmSmFactory("sm", config, status, nullptr);
  }

  /// Drops the software, all of it.
  void drop() {
    sm = nullptr;
    helper = nullptr;
    status = nullptr;
    config = nullptr;
  }

  void drain() {
    for (auto command = status->pendingCmdIterator(); command; ++command) {
      ASSERT_EQ(hardware->apply(*command.value()), "");
    }
    ASSERT_NO_FATAL_FAILURE(write(*status, config->keyType(), chip));
  }

  /// One random request: mostly a route, else a withdrawal of one that stands.
  void churn() {
    if (random() % 3 == 0 && config->requests() != 0) {
      auto request = config->requestIterator();
      for (U64 skip = random() % config->requests(); skip != 0; --skip) {
        ++request;
      }
      config->requestDel(request);
    } else {
      config->requestIs(internPrefix(*config, randomKey(random, shape.longKey)),
                        randomBlock(random));
    }
    drain();
  }

  /// What is wrong with the machine as its requests want it.
  std::string audited() const {
    Routes routes;
    for (auto request = config->requestIterator(); request; ++request) {
      routes.add(keyOf(*request.key()), request.value());
    }
    return audit(*sm, *hardware, routes);
  }

  void forgetRefused() {
    for (auto request = config->requestIterator(); request; ++request) {
      if (sm->prefixToSubTrie(request.key()) == nullptr) {
        config->requestDel(request);
      }
    }
  }

  std::mt19937_64 random{testSeed()};
  std::unique_ptr<Hardware> hardware;
};

INSTANTIATE_TEST_SUITE_P(BothFamilies, RestartRoundTrip, ::testing::Bool(), [](const auto& info) {
  return info.param ? "ipv6" : "ipv4";
});

TEST_P(RestartRoundTrip, theWalkRebuildsWhatTheCommandsWrote) {
  start();
  for (int round = 0; round < 6; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    for (int i = 0; i < 150; ++i) {
      ASSERT_NO_FATAL_FAILURE(churn());
    }
    forgetRefused();
    ASSERT_EQ(audited(), "");
    ASSERT_GT(sm->prefixToSubTries(), 30U);
    ASSERT_LT(sm->sharedNhis(), hardware->rows().size()) << "nothing is shared";
    const std::string before = state();
    const U32 freeEntries = sm->nhiAllocator(0)->freeEntries();

    drop();
    walk();
    ASSERT_EQ(state(), before);
    ASSERT_EQ(audited(), "");
    ASSERT_EQ(sm->nhiAllocator(0)->freeEntries(), freeEntries);
    ASSERT_EQ(status->pendingCmds(), 0U);

    // The same once more with the sweep, which writes what stands there already.
    drop();
    restart();
    const std::string rows = bytesOf(chip.rows);
    const std::string nhiRows = bytesOf(chip.nhi);
    ASSERT_NE(status->pendingCmds(), 0U);
    ASSERT_NO_FATAL_FAILURE(drain());
    ASSERT_EQ(bytesOf(chip.rows), rows);
    ASSERT_EQ(bytesOf(chip.nhi), nhiRows);
    ASSERT_EQ(state(), before);
    ASSERT_EQ(audited(), "");
  }
  config->requestDelAll();
  drain();
  EXPECT_EQ(hardware->text(), "");
  EXPECT_EQ(state(), "");
  EXPECT_EQ(sm->nhiAllocator(0)->freeEntries(), shape.entriesPerTile);
}

TEST_P(RestartRoundTrip, everyRouteIsStillThereForUpdatesAndWithdrawals) {
  start();
  for (int i = 0; i < 300; ++i) {
    ASSERT_NO_FATAL_FAILURE(churn());
  }
  std::vector<Key> keys;
  for (auto route = status->prefixToNextHopBlockIterator(); route; ++route) {
    keys.push_back(keyOf(*route.key()));
  }
  drop();
  restart();
  drain();
  ASSERT_EQ(config->requests(), keys.size());
  for (const Key& key : keys) {
    config->requestIs(internPrefix(*config, key), NextHopBlock(77, 2));
    ASSERT_NO_FATAL_FAILURE(drain());
    ASSERT_EQ(audited(), "") << "after the update of " << textOf(key);
  }
  for (const Key& key : keys) {
    ASSERT_EQ(textOf(hardware->lookup(key.lowest()).block), "77/2") << textOf(key);
  }
  for (const Key& key : keys) {
    config->requestDel(internPrefix(*config, key));
    ASSERT_NO_FATAL_FAILURE(drain());
    ASSERT_EQ(audited(), "") << "after the withdrawal of " << textOf(key);
  }
  EXPECT_EQ(hardware->text(), "");
}

/// A row that no machine has left behind, but another writer might have.
TEST_F(RestartWalk, aRowWithHolesIsGivenABlockOfItsWholeKeyByTheSweep) {
  nhi(0, 4, {{7, 1}, {9, 9}, {8, 2}});
  row(0, 3,
      {.branch = "10.1.0.0/19",
       .stride = 16,
       .leaves = {"10.1.0.0/24", "", "10.1.1.0/24"},
       .offset = 4});
  restart();
  std::string commands;
  for (int i = 0; i < 2; ++i) {
    commands += textOf(*status->pendingCmdDeq(), false) + "\n";
  }
  EXPECT_EQ(commands,
            "nhi 0:0 = 7/1 none 8/2\n"
            "prefix t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24, -, 10.1.1.0/24] nhi=0:0\n");
  EXPECT_EQ(state(),
            "block 0:0+1\n"
            "t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, -, 10.1.1.0/24 8/2] nhi=0:0\n"
            "used 0:0 by 1 of 1\n");
}

/// The same on a simulated chip, configured and hashed as it is, its rows packed in their bits.
class RestartOnChip : public ::testing::TestWithParam<bool> {
 protected:
  static XdkSim::ChipProfile profile() {
    XdkSim::ChipProfile profile = smallProfile();
    profile.ipv4.nhi.tilesIs(1);
    profile.ipv6.nhi.tilesIs(1);
    return profile;
  }

  bool longKey() const { return GetParam(); }

  /// New software over the chip, as a client makes it.
  void start(bool warm) {
    sm = nullptr;
    const ConfigV4::Ptr ipv4 = configV4Factory("ipv4");
    const ConfigV6::Ptr ipv6 = configV6Factory("ipv6");
    Quarle::tarnletConfiguratorFactory(
        Quarle::Agent::systemStatusOf(chip), ipv4, ipv6,
        Quarle::TarnletNextHop::configFactory("nextHops"),
        Quarle::Config::LpmTreadCfg::Ptr(new Quarle::Config::LpmTreadCfg()))
        ->doConfig();
    config = longKey() ? ConfigBase::Ptr(ipv6) : ConfigBase::Ptr(ipv4);
    status = statusFactory("status");
    const NotingHelper::Ptr helper = new NotingHelper(config, status);
    helper->xdkLpmMgrIs(&sdk);
    sm = lpmSmFactory("sm", config, status,
                      warm ? RestartHelperBase::Ptr(helper) : RestartHelperBase::Ptr());
    drain();
  }

  void drain() { ASSERT_NO_FATAL_FAILURE(write(*status, config->keyType(), sdk)); }

  std::string lookup(const Key& key) const {
    const Key address = key.lowest();
    const XdkSim::LookupResult result = chip.lookup(
        sdkFamily(), static_cast<U16>(key.bytes[0] << 8 | key.bytes[1]), address.bytes.data() + 2);
    return result.matched ? std::to_string(result.base) + "/" + std::to_string(result.size)
                          : "none";
  }

  XdkSim::Family sdkFamily() const {
    return GetParam() ? XdkSim::Family::ipv6 : XdkSim::Family::ipv4;
  }

  /// What a naive router answers.
  static std::string expected(const std::map<Key, NextHopBlock>& routes, const Key& key) {
    std::string best = "none";
    int bestLen = -1;
    for (const auto& [route, block] : routes) {
      if (key.lowest().beginsWith(route) && route.len > bestLen) {
        best = textOf(block);
        bestLen = route.len;
      }
    }
    return best;
  }

  void expectLookups(const std::map<Key, NextHopBlock>& routes) const {
    for (const auto& [key, block] : routes) {
      ASSERT_EQ(lookup(key), expected(routes, key)) << textOf(key);
    }
  }

  XdkSim::Chip chip{profile()};
  XdkSim::SimLpmMgr sdk{chip, GetParam() ? XdkSim::Family::ipv6 : XdkSim::Family::ipv4};
  ConfigBase::Ptr config;
  Status::Ptr status;
  LpmSm::Ptr sm;
};

INSTANTIATE_TEST_SUITE_P(BothFamilies, RestartOnChip, ::testing::Bool(), [](const auto& info) {
  return info.param ? "ipv6" : "ipv4";
});

TEST_P(RestartOnChip, aMachineMadeFromTheChipAloneGoesOnWhereTheOldOneEnded) {
  std::mt19937_64 random(testSeed());
  start(/*warm=*/false);
  for (int i = 0; i < 150; ++i) {
    config->requestIs(internPrefix(*config, randomKey(random, longKey())), randomBlock(random));
    drain();
  }
  std::map<Key, NextHopBlock> routes;
  for (auto route = status->prefixToNextHopBlockIterator(); route; ++route) {
    routes[keyOf(*route.key())] = route.value();
  }
  ASSERT_GT(routes.size(), 30U);
  expectLookups(routes);
  const std::string before = stateOf(*sm);

  start(/*warm=*/true);
  EXPECT_EQ(stateOf(*sm), before);
  EXPECT_EQ(config->requests(), routes.size());
  expectLookups(routes);

  for (auto& [key, block] : routes) {
    block = NextHopBlock(99, 2);
    config->requestIs(internPrefix(*config, key), block);
    drain();
  }
  expectLookups(routes);
  start(/*warm=*/true);
  expectLookups(routes);
  while (!routes.empty()) {
    config->requestDel(internPrefix(*config, routes.begin()->first));
    drain();
    routes.erase(routes.begin());
    expectLookups(routes);
  }
  EXPECT_EQ(chip.rowsUsed(sdkFamily()), 0U);
}

}  // namespace
