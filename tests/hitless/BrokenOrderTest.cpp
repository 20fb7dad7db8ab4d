// A check that never finds fault proves nothing: here somebody between client and chip breaks the
// order of the writes, and the check must tell.

#include "agent/source/SyntheticTable.h"
#include "tests/hitless/WatchedLoad.h"

#include <gmock/gmock.h>

namespace Quarle::Agent {
namespace {

using ::testing::HasSubstr;
using Testing::WatchedLoad;

enum class Harm {
  none,
  loseAnNhiRow,
  loseAPrefixRow,
  loseAClearing,
  prefixRowBeforeItsNhiRows,
  loseANextHopRow,
  clearBeforeTheMove,
};

/// Passes writes on, but does the harm to one in every `kEvery` that it can be done to.
class HarmfulMgr final : public xpIpRouteLpmMgr {
 public:
  HarmfulMgr(xpIpRouteLpmMgr& manager, Harm harm) : manager_(manager), harm_(harm) {}

  XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override {
    const bool clears = entry->stride == 0;
    if (harm_ == (clears ? Harm::loseAClearing : Harm::loseAPrefixRow) && isDue()) {
      return XP_NO_ERR;
    }
    if (harm_ == Harm::clearBeforeTheMove && !clears && isDue()) {
      heldTable_ = table;
      heldRow_ = row;
      held_ = *entry;
      isHeld_ = true;
      return XP_NO_ERR;
    }
    const XP_STATUS status = manager_.writePrefixEntry(device, table, row, entry);
    letGo(device);
    return status;
  }

  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) override {
    if (harm_ == Harm::loseAnNhiRow && isDue()) {
      return XP_NO_ERR;
    }
    if (harm_ == Harm::prefixRowBeforeItsNhiRows && !isHeld_ && isDue()) {
      heldTable_ = tile;
      heldRow_ = row;
      heldNhi_ = *entry;
      isHeld_ = true;
      return XP_NO_ERR;
    }
    return manager_.writeNhiEntry(device, tile, row, entry);
  }

  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override {
    if (harm_ == Harm::loseANextHopRow && isDue()) {
      return XP_NO_ERR;
    }
    return manager_.writeNextHopEntry(device, row, entry);
  }

 private:
  static constexpr U32 kEvery = 7;

  bool isDue() { return ++chances_ % kEvery == 0; }

  void letGo(U32 device) {
    if (!isHeld_) {
      return;
    }
    isHeld_ = false;
    if (harm_ == Harm::clearBeforeTheMove) {
      manager_.writePrefixEntry(device, heldTable_, heldRow_, &held_);
    } else {
      manager_.writeNhiEntry(device, heldTable_, heldRow_, &heldNhi_);
    }
  }

  xpIpRouteLpmMgr& manager_;
  Harm harm_;
  U32 chances_ = 0;
  bool isHeld_ = false;
  U32 heldTable_ = 0;
  U32 heldRow_ = 0;
  xpLpmPrefixEntry held_;
  xpLpmNhiEntry heldNhi_;
};

class BrokenOrder : public ::testing::TestWithParam<Harm> {};

std::unique_ptr<WatchedLoad> loadWith(Harm harm,
                                      std::vector<std::unique_ptr<HarmfulMgr>>& managers) {
  auto load = std::make_unique<WatchedLoad>(
      XdkSim::findProfile("lab"), [&](xpIpRouteLpmMgr& manager, Family) {
        managers.push_back(std::make_unique<HarmfulMgr>(manager, harm));
        return managers.back().get();
      });
  const RouteTable table = makeSyntheticTable({.ipv4 = 200, .ipv6 = 0}, 3);
  load->run(table.ipv4, 2'000, 3);
  return load;
}

TEST_P(BrokenOrder, isReported) {
  std::vector<std::unique_ptr<HarmfulMgr>> managers;
  const auto load = loadWith(GetParam(), managers);
  EXPECT_GT(load->check.counts().wrong, 0U);
  ASSERT_FALSE(load->check.faults().empty());
  EXPECT_THAT(load->check.faults().front(), HasSubstr("after write "));
  EXPECT_THAT(load->check.faults().front(), HasSubstr("in the request for "));
  EXPECT_THAT(load->check.faults().front(), HasSubstr(": expected "));
}

INSTANTIATE_TEST_SUITE_P(Harms,
                         BrokenOrder,
                         ::testing::Values(Harm::loseAnNhiRow,
                                           Harm::loseAPrefixRow,
                                           Harm::loseAClearing,
                                           Harm::prefixRowBeforeItsNhiRows,
                                           Harm::loseANextHopRow,
                                           Harm::clearBeforeTheMove));

TEST(HarmlessOrder, isNotReported) {
  std::vector<std::unique_ptr<HarmfulMgr>> managers;
  const auto load = loadWith(Harm::none, managers);
  EXPECT_EQ(load->check.counts().wrong, 0U) << load->faults();
}

}  // namespace
}  // namespace Quarle::Agent
