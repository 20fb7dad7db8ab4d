#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/CommandEncoding.h"
#include "agent/restart/PreFlight.h"
#include "agent/restart/RestartHelperV4.h"
#include "agent/restart/RestartHelperV6.h"
#include "agent/restart/WalkLpmMgr.h"
#include "config/TarnletConfigurator.h"
#include "tests/engine/RestartFixture.h"
#include "tests/xdksim/SmallProfile.h"
#include "xdksim/SimLpmMgr.h"

#include <gmock/gmock.h>

namespace Quarle::Agent::Testing {

using Tarnlet::Testing::Key;
using Tarnlet::Testing::keyFrom;
using Tarnlet::Testing::keyOf;
using Tarnlet::Testing::recordOf;
using Tarnlet::Testing::RowStory;
using Tarnlet::Testing::stateOf;
using Tarnlet::Testing::textOf;

/// The SDK over a simulated chip, which tells of every write that was made.
class TellingLpmMgr final : public xpIpRouteLpmMgr {
 public:
  TellingLpmMgr(XdkSim::Chip& chip, XdkSim::Family family) : sim_(chip, family) {}

  XP_STATUS readPrefixEntry(
      U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) override {
    return sim_.readPrefixEntry(device, tableId, index, entry, flag);
  }

  XP_STATUS writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) override {
    return told(sim_.writePrefixEntry(device, tableId, index, entry));
  }

  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) override {
    return sim_.readNhiEntry(device, tile, index, entry, flag);
  }

  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) override {
    return told(sim_.writeNhiEntry(device, tile, index, entry));
  }

  U64 writes = 0;
  std::function<void()> onWrite;

 private:
  XP_STATUS told(XP_STATUS status) {
    EXPECT_EQ(status, XP_NO_ERR);
    ++writes;
    if (onWrite) {
      onWrite();
    }
    return status;
  }

  XdkSim::SimLpmMgr sim_;
};

/// A chip with one NHI tile in each family.
inline XdkSim::ChipProfile restartProfile(U32 tiles = 1) {
  XdkSim::ChipProfile profile = smallProfile();
  profile.ipv4.nhi.tilesIs(tiles);
  profile.ipv6.nhi.tilesIs(tiles);
  return profile;
}

/// One family of a simulated chip and, from start() to stop(), the library over it, whose commands
/// wait until write() carries them out.
class RestartChip {
 public:
  using Command = Tarnlet::CommandBase::Ptr;

  explicit RestartChip(bool longKey, const XdkSim::ChipProfile& profile = restartProfile())
      : longKey(longKey), chip(profile), sdk(chip, family()) {
    configure();
  }

  RestartChip(const RestartChip&) = delete;
  RestartChip& operator=(const RestartChip&) = delete;

  XdkSim::Family family() const { return longKey ? XdkSim::Family::ipv6 : XdkSim::Family::ipv4; }

  Family agentFamily() const { return longKey ? Family::ipv6 : Family::ipv4; }

  /// New configuration, status and machine, over an empty chip or one with rows.
  void start(bool warm, xpIpRouteLpmMgr* manager = nullptr) {
    stop();
    configure();
    status = Tarnlet::statusFactory("status");
    helper = nullptr;
    if (warm) {
      helper = makeHelper();
      helper->xdkLpmMgrIs(manager == nullptr ? &sdk : manager);
    }
    sm = Tarnlet::lpmSmFactory("sm", config, status, helper);
  }

  /// The software ends, with whatever it had not written yet.
  void stop() {
    sm = nullptr;
    helper = nullptr;
    status = nullptr;
  }

  Vellor::Ptr<RestartHelper> makeHelper() {
    if (longKey) {
      return new RestartHelperV6(dynamic_cast<Tarnlet::ConfigV6*>(config.get()), status);
    }
    return new RestartHelperV4(dynamic_cast<Tarnlet::ConfigV4*>(config.get()), status);
  }

  PreFlightReport preFlight(const PreFlightOptions& options = {}) {
    configure();
    return Agent::preFlight(agentFamily(), *config, sdk, options);
  }

  void route(const Key& key, U32 base, U16 size = 1) {
    config->requestIs(internPrefix(*config, key), Tarnlet::NextHopBlock(base, size));
  }

  void route(const std::string& prefix, U32 base, U16 size = 1) {
    route(keyFrom(prefix, longKey), base, size);
  }

  /// The same as a client does it: what is refused is put back. Whether it was served.
  bool tryRoute(const Key& key, U32 base) {
    const Tarnlet::LpmPrefix::Ptr prefix = internPrefix(*config, key);
    const Tarnlet::NextHopBlock wanted(base, 1);
    const Tarnlet::NextHopBlock old = status->prefixToNextHopBlock(prefix);
    config->requestIs(prefix, wanted);
    if (status->prefixToNextHopBlock(prefix) == wanted) {
      return true;
    }
    if (old == Tarnlet::NextHopBlock()) {
      config->requestDel(prefix);
    } else {
      config->requestIs(prefix, old);
    }
    return false;
  }

  /// Not tried when the NHI tile may have no room for what the row keeps.
  bool tryWithdraw(const Key& key) {
    constexpr U32 kLargestBlock = 4;
    if (sm->nhiAllocator(0)->freeEntries() < kLargestBlock) {
      return false;
    }
    config->requestDel(internPrefix(*config, key));
    return true;
  }

  /// Carries out up to `most` of the waiting commands; how many there were.
  U32 write(U32 most = ~0U) {
    U32 written = 0;
    for (; written < most; ++written) {
      const Command command = status->pendingCmdDeq();
      if (command == nullptr) {
        break;
      }
      write(*command);
    }
    return written;
  }

  /// A row of hand-made content at the place where the first leaf's hash puts it.
  RowPlace put(U32 table, const RowStory& story) {
    const xpLpmPrefixEntry entry = recordOf(story, longKey);
    std::string first;
    for (const std::string& leaf : story.leaves) {
      first = first.empty() ? leaf : first;
    }
    const RowPlace place{.table = table, .row = rowOf(table, first)};
    EXPECT_TRUE(isClear(place)) << "the row of " << first << " is taken";
    putAt(place, entry);
    return place;
  }

  void putAt(const RowPlace& place, const xpLpmPrefixEntry& entry) {
    ASSERT_EQ(chip.writePrefixRow(family(), place.table, place.row, entry), XP_NO_ERR)
        << chip.lastError();
  }

  U32 rowOf(U32 table, const std::string& prefix) {
    const Tarnlet::PrefixTableConfig::Ptr tableConfig = config->prefixTableConfig(table);
    return tableConfig->hashFunc(objectOf(keyFrom(prefix, longKey)));
  }

  /// Pairs of one NHI entry by base and size, null behind.
  void nhi(U32 tile, U32 offset, const std::vector<std::pair<U32, U32>>& pairs) {
    xpLpmNhiEntry entry;
    for (U32 i = 0; i < xpLpmNhiEntry::kPairs; ++i) {
      entry.base[i] = i < pairs.size() ? pairs[i].first : XdkSim::NhiPair::kNullBase;
      entry.size[i] = i < pairs.size() ? pairs[i].second : XdkSim::NhiPair::kNullSize;
    }
    ASSERT_EQ(chip.writeNhiRow(family(), tile, offset, entry), XP_NO_ERR) << chip.lastError();
  }

  xpLpmPrefixEntry rowAt(const RowPlace& place) const {
    xpLpmPrefixEntry entry;
    EXPECT_EQ(chip.readPrefixRow(family(), place.table, place.row, entry), XP_NO_ERR);
    return entry;
  }

  bool isClear(const RowPlace& place) const {
    const xpLpmPrefixEntry entry = rowAt(place);
    return entry.branchLen == 0 && entry.stride == 0;
  }

  /// Where the chip sends the address: "/length base/size", or "none".
  std::string lookup(const Key& address) const {
    const XdkSim::LookupResult result =
        chip.lookup(family(), static_cast<U16>(address.bytes[0] << 8 | address.bytes[1]),
                    address.bytes.data() + 2);
    if (!result.matched) {
      return "none";
    }
    return "/" + std::to_string(result.matchLen - Key::kVrf) + " " + std::to_string(result.base) +
           "/" + std::to_string(result.size);
  }

  std::string lookup(const std::string& address) const { return lookup(keyFrom(address, longKey)); }

  std::vector<std::string> lookups(const std::set<Key>& addresses) const {
    std::vector<std::string> answers;
    for (const Key& address : addresses) {
      answers.push_back(textOf(address) + " " + lookup(address));
    }
    return answers;
  }

  /// All rows and NHI entries that hold something, as a digest each, to be held against another
  /// time's.
  std::vector<std::string> bits() const {
    std::vector<std::string> digests;
    const auto add = [&digests](const std::string& place, const auto& record) {
      const std::string_view bytes(reinterpret_cast<const char*>(&record), sizeof record);
      if (bytes.find_first_not_of('\0') != bytes.npos) {
        digests.push_back(place + " " + std::to_string(std::hash<std::string_view>()(bytes)));
      }
    };
    eachRow([&add](const RowPlace& place, const xpLpmPrefixEntry& entry) {
      add("row " + std::to_string(place.table) + ":" + std::to_string(place.row), entry);
    });
    eachEntry([&add](U32 tile, U32 offset, const xpLpmNhiEntry& entry) {
      add("NHI " + std::to_string(tile) + ":" + std::to_string(offset), entry);
    });
    return digests;
  }

  /// Makes this chip's memories equal to those of another.
  void copyFrom(const RestartChip& other) {
    other.eachEntry([this](U32 tile, U32 offset, const xpLpmNhiEntry& entry) {
      ASSERT_EQ(chip.writeNhiRow(family(), tile, offset, entry), XP_NO_ERR) << chip.lastError();
    });
    other.eachRow(
        [this](const RowPlace& place, const xpLpmPrefixEntry& entry) { putAt(place, entry); });
  }

  U32 usedRows() const {
    U32 used = 0;
    eachRow([&used](const RowPlace&, const xpLpmPrefixEntry& entry) {
      used += entry.branchLen != 0 || entry.stride != 0 ? 1 : 0;
    });
    return used;
  }

  U32 subTries() const {
    U32 count = 0;
    for (auto table = sm->prefixTableIterator(); table; ++table) {
      count += table.ptr()->subTries();
    }
    return count;
  }

  void eachRow(const std::function<void(const RowPlace&, const xpLpmPrefixEntry&)>& visit) const {
    const auto& tables = chip.profile().family(family()).tables;
    for (U32 table = 0; table < tables.size(); ++table) {
      for (U32 row = 0; row < tables[table].rows; ++row) {
        visit({.table = table, .row = row}, rowAt({.table = table, .row = row}));
      }
    }
  }

  void eachEntry(const std::function<void(U32, U32, const xpLpmNhiEntry&)>& visit) const {
    const XdkSim::NhiProfile& nhi = chip.profile().family(family()).nhi;
    for (U32 tile = 0; tile < nhi.tiles(); ++tile) {
      for (U32 offset = 0; offset < nhi.entriesPerTile; ++offset) {
        xpLpmNhiEntry entry;
        EXPECT_EQ(chip.readNhiRow(family(), tile, offset, entry), XP_NO_ERR);
        visit(tile, offset, entry);
      }
    }
  }

  const bool longKey;
  XdkSim::Chip chip;
  TellingLpmMgr sdk;
  Tarnlet::ConfigBase::Ptr config;
  Tarnlet::Status::Ptr status;
  Vellor::Ptr<RestartHelper> helper;
  Tarnlet::LpmSm::Ptr sm;

 private:
  void configure() {
    const Tarnlet::ConfigV4::Ptr ipv4 = Tarnlet::configV4Factory("ipv4");
    const Tarnlet::ConfigV6::Ptr ipv6 = Tarnlet::configV6Factory("ipv6");
    tarnletConfiguratorFactory(systemStatusOf(chip), ipv4, ipv6,
                               TarnletNextHop::configFactory("nextHops"),
                               Config::LpmTreadCfg::Ptr(new Config::LpmTreadCfg()))
        ->doConfig();
    config = longKey ? Tarnlet::ConfigBase::Ptr(ipv6) : Tarnlet::ConfigBase::Ptr(ipv4);
    // The chip's own number, which its table contexts do not tell.
    config->nhiEntriesPerTileIs(
        static_cast<U16>(chip.profile().family(family()).nhi.entriesPerTile));
    config->restartModeIs(Tarnlet::modeRestartNormal);
  }

  void write(const Tarnlet::CommandBase& command) {
    if (command.cmdType() == Tarnlet::commandTypePrefix) {
      const auto& prefixCommand = dynamic_cast<const Tarnlet::PrefixCommand&>(command);
      xpLpmPrefixEntry entry;
      encode(prefixCommand, config->keyType(), entry);
      sdk.writePrefixEntry(0, prefixCommand.tableId().value(), prefixCommand.index().value(),
                           &entry);
      return;
    }
    const auto& nhiCommand = dynamic_cast<const Tarnlet::NhiCommand&>(command);
    xpLpmNhiEntry entry;
    encode(nhiCommand, entry);
    sdk.writeNhiEntry(0, nhiCommand.index().tile().value(), nhiCommand.index().offset(), &entry);
  }

  Tarnlet::LpmPrefix::Ptr objectOf(const Key& key) const {
    const U32 vrf = U32{key.bytes[0]} << 8 | key.bytes[1];
    const U8 length = static_cast<U8>(key.len - Key::kVrf);
    Corsel::Ip6Prefix::Bytes address{};
    std::copy(key.bytes.begin() + 2, key.bytes.end(), address.begin());
    if (longKey) {
      return Tarnlet::lpmPrefixV6Factory({vrf, Corsel::Ip6Prefix(address, length)});
    }
    return Tarnlet::lpmPrefixV4Factory(
        {vrf, Corsel::Prefix(
                  U32{address[0]} << 24 | U32{address[1]} << 16 | U32{address[2]} << 8 | address[3],
                  length)});
  }
};

/// Runs pre-flight and looks up, after every single one of its writes, whether the chip answers as
/// before.
inline PreFlightReport watchedPreFlight(RestartChip& restart,
                                        const std::set<Key>& addresses,
                                        const PreFlightOptions& options = {}) {
  const std::vector<std::string> before = restart.lookups(addresses);
  restart.sdk.onWrite = [&] { EXPECT_EQ(restart.lookups(addresses), before); };
  PreFlightReport report = restart.preFlight(options);
  restart.sdk.onWrite = nullptr;
  return report;
}

/// What was found and mended, a word and numbers for each kind: "twiceInTables 1/1".
inline std::string faultsOf(const PreFlightReport& report) {
  std::string text;
  for (std::size_t i = 0; i < kRowFaults; ++i) {
    const FaultCount& count = report.faults[i];
    if (count != FaultCount{}) {
      text += std::string(text.empty() ? "" : ", ") + toText(static_cast<RowFault>(i)) + " " +
              std::to_string(count.found) + "/" + std::to_string(count.mended);
    }
  }
  return text;
}

}  // namespace Quarle::Agent::Testing
