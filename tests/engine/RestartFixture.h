#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engine/TarnletSm.h"
#include "framework/Xdk/Xdk.h"
#include "tests/support/ChipShape.h"
#include "tests/support/CommandText.h"
#include "tests/support/Key.h"
#include "tests/support/Seed.h"
#include "xdksim/EntryLayout.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet::Testing {

/// The interned prefix object of a key. Raises Vellor::RangeException for a key that ends in the
/// VRF.
inline LpmPrefix::Ptr internPrefix(ConfigBase& config, const Key& key) {
  if (key.len < Key::kVrf) {
    Vellor::throwRangeException(Vellor::format("a key of %u bits", unsigned{key.len}));
  }
  const U32 vrf = static_cast<U32>(key.bytes[0] << 8 | key.bytes[1]);
  const U8 len = static_cast<U8>(key.len - Key::kVrf);
  if (key.longKey) {
    Corsel::Ip6Prefix::Bytes address{};
    std::copy(key.bytes.begin() + 2, key.bytes.end(), address.begin());
    return dynamic_cast<ConfigV6&>(config).lpmPrefixIs({vrf, Corsel::Ip6Prefix(address, len)});
  }
  U32 address = 0;
  for (U32 i = 2; i < 6; ++i) {
    address = address << 8 | key.bytes[i];
  }
  return dynamic_cast<ConfigV4&>(config).lpmPrefixIs({vrf, Corsel::Prefix(address, len)});
}

inline void forgetPrefix(ConfigBase& config, const LpmPrefix& prefix) {
  if (const auto* v4 = dynamic_cast<const LpmPrefixV4*>(&prefix)) {
    dynamic_cast<ConfigV4&>(config).lpmPrefixDel(v4->vrfAndPrefix());
  } else {
    dynamic_cast<ConfigV6&>(config).lpmPrefixDel(
        dynamic_cast<const LpmPrefixV6&>(prefix).vrfAndPrefix());
  }
}

/// A client's restart helper, which notes what is asked of it.
class NotingHelper : public RestartHelperBase {
  VELLOR_POINTERS(NotingHelper);

 public:
  using RestartHelperBase::RestartHelperBase;

  LpmPrefix::Ptr createPrefix(
      const SubTrieBranch& branch, U8 branchLen, U64 leafVal, U64 leafValHigh, U8) override {
    SubTrieBranch combined = branch;
    const U8 len = combineBranchAndLeaf(combined, branchLen, leafVal, leafValHigh);
    if (len > lpmConfig()->keyLength()) {
      Vellor::throwRangeException(Vellor::format("a key of %u bits", unsigned{len}));
    }
    const Key key = keyOf(combined, len, lpmConfig()->keyType() == keyLong144b);
    const LpmPrefix::Ptr prefix = internPrefix(*lpmConfig(), key);
    note("create", *prefix);
    return prefix;
  }

  void deletePrefix(const LpmPrefix::Ptr& prefix) override {
    note("delete", *prefix);
    forgetPrefix(*lpmConfig(), *prefix);
  }

  /// "create PREFIX" and "delete PREFIX" between commas, in order.
  std::string takeNotes() { return std::exchange(notes_, {}); }

 private:
  void note(const char* what, const LpmPrefix& prefix) {
    notes_ += (notes_.empty() ? "" : ", ") + std::string(what) + " " + textOf(keyOf(prefix));
  }

  std::string notes_;
};

/// The SDK over rows that a test puts down by hand, well-formed or not. A row that was never
/// written has nothing to read.
class RecordChip : public xpIpRouteLpmMgr {
 public:
  using Place = std::pair<U32, U32>;

  XP_STATUS readPrefixEntry(
      U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) override {
    EXPECT_EQ(device, 0U);
    EXPECT_EQ(flag, 0U);
    reads.push_back({tableId, index});
    const auto row = rows.find({tableId, index});
    if (row == rows.end()) {
      return XP_ERR_NOTHING_TO_READ;
    }
    *entry = row->second;
    return readPrefixStatus;
  }

  XP_STATUS writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) override {
    EXPECT_EQ(device, 0U);
    writes.push_back({tableId, index});
    rows[{tableId, index}] = *entry;
    return writeStatus;
  }

  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) override {
    EXPECT_EQ(device, 0U);
    EXPECT_EQ(flag, 0U);
    nhiReads.push_back({tile, index});
    if (const auto row = nhi.find({tile, index}); row != nhi.end()) {
      *entry = row->second;
    }
    return readNhiStatus;
  }

  XP_STATUS writeNhiEntry(U32, U32 tile, U32 index, xpLpmNhiEntry* entry) override {
    nhi[{tile, index}] = *entry;
    return XP_NO_ERR;
  }

  std::map<Place, xpLpmPrefixEntry> rows;
  std::map<Place, xpLpmNhiEntry> nhi;
  XP_STATUS readPrefixStatus = XP_NO_ERR;
  XP_STATUS writeStatus = XP_NO_ERR;
  XP_STATUS readNhiStatus = XP_NO_ERR;
  std::vector<Place> reads;
  std::vector<Place> writes;
  std::vector<Place> nhiReads;
};

/// A row as a test tells it: leaves are whole prefixes, an empty text is an empty slot.
struct RowStory {
  std::string branch;
  U32 stride = 0;
  std::vector<std::string> leaves = {};
  U32 tile = 0;
  U32 offset = 0;
};

inline xpLpmPrefixEntry recordOf(const RowStory& story, bool longKey) {
  const Key branch = keyFrom(story.branch, longKey);
  xpLpmPrefixEntry entry;
  entry.keySize = longKey ? 2 : 0;
  entry.mode = 1;
  entry.stride = story.stride;
  entry.nhiTile = story.tile;
  entry.nhiOffset = story.offset;
  XdkSim::setBranch(entry, XdkSim::LpmKey::fromBytes(branch.bytes.data()), branch.len);
  for (U32 slot = 0; slot < story.leaves.size(); ++slot) {
    if (!story.leaves[slot].empty()) {
      const Key key = keyFrom(story.leaves[slot], longKey);
      XdkSim::setLeaf(entry, slot, XdkSim::LpmKey::fromBytes(key.bytes.data()), key.len);
    }
  }
  return entry;
}

/// What a machine knows, whatever order its maps have: sub-tries with their slots and what the
/// requests and the status say of each prefix, sharing records, and blocks.
inline std::string stateOf(const LpmSm& sm) {
  const bool longKey = sm.config()->keyType() == keyLong144b;
  std::set<std::string> lines;
  for (auto table = sm.prefixTableIterator(); table; ++table) {
    for (auto row = table.ptr()->subTrieIterator(); row; ++row) {
      const SubTrie& subTrie = *row.ptr();
      std::string slots;
      for (U8 slot = 0; slot < subTrie.maxPrefixSlot(); ++slot) {
        const LpmPrefix::Ptr prefix = subTrie.prefix(slot);
        slots += slot == 0 ? "" : ", ";
        if (prefix == nullptr) {
          slots += "-";
          continue;
        }
        slots += textOf(keyOf(*prefix)) + " " + textOf(sm.config()->request(prefix));
        if (sm.status()->prefixToNextHopBlock(prefix) != sm.config()->request(prefix)) {
          slots += " status " + textOf(sm.status()->prefixToNextHopBlock(prefix));
        }
        if (sm.prefixToSubTrie(prefix) != &subTrie || subTrie.prefixToSlot(prefix) != slot ||
            !subTrie.prefixBitmap()->isBitSet(slot)) {
          slots += " unknown";
        }
      }
      lines.insert("t" + std::to_string(table.key().value()) + "[" +
                   std::to_string(row.key().value()) +
                   "] branch=" + textOf(keyOf(subTrie.branch(), subTrie.branchLen(), longKey)) +
                   " stride=" + std::to_string(subTrie.stride()) + " [" + slots +
                   "] nhi=" + textOf(subTrie.nhiBaseIdx()) + "\n");
    }
  }
  for (auto info = sm.sharedNhiIterator(); info; ++info) {
    const SubTrieSet::Ptr users = sm.nhiBaseIdxToSubTrie(info.ptr()->nhiBaseIdx());
    lines.insert("used " + textOf(info.ptr()->nhiBaseIdx()) + " by " +
                 std::to_string(info.ptr()->subTrieCount()) + " of " +
                 std::to_string(users == nullptr ? 0 : users->subTries()) + "\n");
  }
  for (auto blk = sm.nhiBaseIdxToBlkIterator(); blk; ++blk) {
    lines.insert("block " + textOf(blk.key()) + "+" + std::to_string(blk.ptr()->blkSz()) + "\n");
  }
  std::string text;
  for (const std::string& line : lines) {
    text += line;
  }
  return text;
}

/// Base of the suites over a restart: shape and rows first, then walk() or restart().
class RestartFixture : public ::testing::Test {
 protected:
  RestartFixture() {
    shuffleAddressOrder();
    shape.tables = {{.id = 0, .tread = 35, .rows = {{"10.1.0.0/19", 3}, {"10.2.0.0/19", 5}}},
                    {.id = 1, .tread = 35, .rows = {{"10.1.0.0/19", 6}, {"10.3.0.0/19", 9}}},
                    {.id = 2, .tread = 16, .depth = 1}};
  }

  /// A row in the chip.
  xpLpmPrefixEntry& row(U32 table, U32 index, const RowStory& story) {
    return chip.rows[{table, index}] = recordOf(story, shape.longKey);
  }

  /// An NHI row of the chip; a pair is base and size.
  void nhi(U32 tile, U32 index, const std::vector<std::pair<U32, U32>>& pairs) {
    xpLpmNhiEntry entry;
    for (U32 i = 0; i < pairs.size(); ++i) {
      entry.base[i] = pairs[i].first;
      entry.size[i] = pairs[i].second;
    }
    chip.nhi[{tile, index}] = entry;
  }

  /// Configuration, status and helper, as the client makes them before the machine.
  void prepare() {
    if (config == nullptr) {
      config = makeConfig(shape);
      config->restartModeIs(mode);
      status = statusFactory("status");
      helper = new NotingHelper(config, status);
      helper->xdkLpmMgrIs(&chip);
    }
  }

  /// The walk alone, over a machine that serves no request on the way and sweeps none after.
  void walk(bool removeStale = false) {
    prepare();
    sm = lpmSmFactory("sm", config, status, nullptr);
    sm->hasNotificationActiveIs(false);
    helper->doRestart(removeStale, sm.get());
  }

  /// The warm start as a client has it.
  void restart() {
    prepare();
    sm = lpmSmFactory("sm", config, status, helper);
  }

  LpmPrefix::Ptr prefix(const std::string& text) {
    return internPrefix(*config, keyFrom(text, shape.longKey));
  }

  std::string state() const { return stateOf(*sm); }

  ChipShape shape;
  RestartMode mode = modeRestartNormal;
  RecordChip chip;
  ConfigBase::Ptr config;
  Status::Ptr status;
  NotingHelper::Ptr helper;
  LpmSm::Ptr sm;
};

/// Base of the suites of the walk, with a few rows to put down.
class RestartWalk : public RestartFixture {
 protected:
  /// Two prefixes in table 0, row 3, with their block at 0:4.
  xpLpmPrefixEntry& soundRow() {
    nhi(0, 4, {{7, 1}, {8, 2}});
    return row(0, 3,
               {.branch = "10.1.0.0/19",
                .stride = 16,
                .leaves = {"10.1.0.0/24", "10.1.1.0/24"},
                .offset = 4});
  }

  /// One more row of the same pairs on the same block.
  xpLpmPrefixEntry& twinRow() {
    return row(1, 9,
               {.branch = "10.3.0.0/20",
                .stride = 12,
                .leaves = {"10.3.0.0/24", "10.3.1.0/24"},
                .offset = 4});
  }

  /// One that no check accepts, in table 0, row 5.
  xpLpmPrefixEntry& badRow() {
    return row(0, 5, {.branch = "10.1.0.0/19", .stride = 16, .leaves = {"10.1.9.0/24"}});
  }

  const std::string soundState =
      "block 0:4+1\n"
      "t0[3] branch=10.1.0.0/19 stride=16 [10.1.0.0/24 7/1, 10.1.1.0/24 8/2] nhi=0:4\n"
      "used 0:4 by 1 of 1\n";
};

}  // namespace Quarle::Tarnlet::Testing
