#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "tests/agent/ChipClient.h"

#include <gtest/gtest.h>

namespace Quarle::Agent::Testing {

/// A folder of its own that goes with its owner.
class TestFolder {
 public:
  TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "restart-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }

  ~TestFolder() { std::filesystem::remove_all(path_); }

  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline std::string bytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void bytesAre(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/// A simulated chip with its list of groups that outlives its clients. A client can be made to die
/// between two writes: from then on nothing that it does has any effect.
class LastingChip {
 public:
  /// At which moment between two writes of the chip: right behind the first or right before the
  /// second.
  enum class Death { behindTheWrite, beforeTheNext };

  explicit LastingChip(XdkSim::ChipProfile profile, ClientOptions options = {})
      : chip(std::move(profile)), options(std::move(options)) {
    this->options.groupList = folder_ / "groups";
    this->options.chipName = "lasting";
  }

  ChipAccess access() {
    return {.systemStatus = systemStatusOf(chip), .ipv4 = &manager4_, .ipv6 = &manager6_};
  }

  void start() {
    options.warmStart.reset();
    client.emplace(access(), options);
  }

  /// The client before is gone without a word.
  void restart(const WarmStart& warm = {}) {
    client.reset();
    if (isDead()) {
      bytesAre(options.groupList, listAtDeath_);
      listAtDeath_.clear();
      writesToDeath_.reset();
    }
    options.warmStart = warm;
    client.emplace(access(), options);
  }

  /// The client dies after that many more writes.
  void diesAfter(U64 writes, Death death) {
    writesToDeath_ = writes;
    death_ = death;
    listAtDeath_ = writes == 0 ? bytesOf(options.groupList) : "";
  }

  /// The next client finds no list of groups.
  void loseList() {
    client.reset();
    std::filesystem::remove(options.groupList);
    if (isDead()) {
      listAtDeath_ = "none";
    }
  }

  bool isDead() const { return !listAtDeath_.empty(); }

  std::string route(const std::string& prefix, const std::vector<U64>& nextHops) {
    const RouteKey key = keyOf(prefix);
    return toText(client->family(key.prefix.family).routeIs(key, nextHops));
  }

  std::string routeTo(const std::string& prefix, SwId group) {
    const RouteKey key = keyOf(prefix);
    return toText(client->family(key.prefix.family).routeIs(key, group));
  }

  std::string withdraw(const std::string& prefix) {
    const RouteKey key = keyOf(prefix);
    return toText(client->family(key.prefix.family).routeDel(key));
  }

  std::string lookup(const std::string& address) const { return lookupIn(chip, address); }

  /// Rows and base of the group that a route leads to: "3+2".
  std::string blockOf(const std::string& prefix) const {
    const RouteKey key = keyOf(prefix);
    const auto group = client->family(key.prefix.family).groupOf(key);
    if (!group) {
      return "none";
    }
    const NextHopBlock block = client->groups().block(*group);
    return std::to_string(firstRow(block)) + "+" + std::to_string(block.size().value());
  }

  /// "1 1 . 2": the next hop of each row of the next-hop table, '.' for an empty one.
  std::string nextHopRows() const {
    std::string text;
    for (U32 row = 0; row < chip.profile().nextHopRows; ++row) {
      xpNextHopEntry entry;
      EXPECT_EQ(chip.readNextHopRow(row, entry), XP_NO_ERR);
      text += (row == 0 ? "" : " ") + (entry.valid == 0 ? "." : std::to_string(entry.nextHopId));
    }
    return text;
  }

  U64 writes() const {
    const XdkSim::ChipCounters& counters = chip.counters();
    return counters.prefixWrites + counters.nhiWrites + counters.nextHopWrites;
  }

  std::vector<U64> memory() {
    const auto words = chip.memory().words();
    return {words.begin(), words.end()};
  }

  XdkSim::Chip chip;
  ClientOptions options;
  // Called after each write that went to the chip.
  std::function<void()> watch;

 private:
  class Manager final : public xpIpRouteLpmMgr {
   public:
    Manager(LastingChip& owner, XdkSim::Family family)
        : owner_(owner), manager_(owner.chip, family) {}

    XP_STATUS readPrefixEntry(
        U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry, U8 flag) override {
      return manager_.readPrefixEntry(device, table, row, entry, flag);
    }

    XP_STATUS readNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry, U8 flag) override {
      return manager_.readNhiEntry(device, tile, row, entry, flag);
    }

    XP_STATUS readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override {
      return manager_.readNextHopEntry(device, row, entry);
    }

    XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override {
      return owner_.write([&] { return manager_.writePrefixEntry(device, table, row, entry); });
    }

    XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) override {
      return owner_.write([&] { return manager_.writeNhiEntry(device, tile, row, entry); });
    }

    XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override {
      return owner_.write([&] { return manager_.writeNextHopEntry(device, row, entry); });
    }

   private:
    LastingChip& owner_;
    XdkSim::SimLpmMgr manager_;
  };

  template <typename Write>
  XP_STATUS write(const Write& write) {
    if (writesToDeath_ == 0) {
      if (death_ == Death::beforeTheNext && !hasDied_) {
        listAtDeath_ = bytesOf(options.groupList);
      }
      hasDied_ = true;
      return XP_NO_ERR;
    }
    hasDied_ = false;
    const XP_STATUS status = write();
    if (writesToDeath_ && --*writesToDeath_ == 0) {
      listAtDeath_ = bytesOf(options.groupList);
    }
    if (watch) {
      watch();
    }
    return status;
  }

  TestFolder folder_;
  std::optional<U64> writesToDeath_;
  Death death_ = Death::behindTheWrite;
  bool hasDied_ = false;
  std::string listAtDeath_;
  Manager manager4_{*this, XdkSim::Family::ipv4};
  Manager manager6_{*this, XdkSim::Family::ipv6};

 public:
  std::optional<Client> client;
};

}  // namespace Quarle::Agent::Testing
