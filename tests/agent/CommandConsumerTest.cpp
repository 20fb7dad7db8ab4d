#include "agent/CommandConsumer.h"

#include <string>
#include <vector>

#include "agent/PrefixStore.h"
#include "tests/agent/ChipClient.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

/// An SDK that writes down what it is asked and answers as it is told.
class FakeManager : public xpIpRouteLpmMgr {
 public:
  XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override {
    log += "prefix " + std::to_string(device) + " t" + std::to_string(table) + "[" +
           std::to_string(row) + "]" + (entry->mode == 0 ? " clear" : "") + "\n";
    return answer;
  }

  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) override {
    log += "nhi " + std::to_string(device) + " " + std::to_string(tile) + ":" +
           std::to_string(row) + " " + std::to_string(entry->base[0]) + "\n";
    return answer;
  }

  std::string log;
  XP_STATUS answer = XP_NO_ERR;
};

class CommandConsumerTest : public ::testing::Test {
 protected:
  void queueNhi(U16 row, U32 base) {
    Tarnlet::NextHopBlockList list;
    list.nextHopBlockEnq(NextHopBlock(base, 1));
    status->pendingCmdEnq(Tarnlet::nhiCommandFactory(Tarnlet::NhiTableIdx(1, row), list));
  }

  void queuePrefix(U32 row, bool clear = false) {
    const Tarnlet::LpmPrefix::Ptr prefix = store_.intern(Testing::keyOf("10.0.0.0/8")).prefix;
    Tarnlet::LpmPrefixList list;
    list.prefixEnq(clear ? nullptr : prefix);
    status->pendingCmdEnq(Tarnlet::prefixCommandFactory(
        4, row, prefix->branch(24), 24, 8, Tarnlet::modeSparse, list, Tarnlet::NhiTableIdx(1, 0)));
  }

  std::string drainError(CommandConsumer& consumer) {
    try {
      consumer.drain();
    } catch (const ChipWriteError& error) {
      return error.what();
    }
    return "no error";
  }

  Tarnlet::Status::Ptr status = Tarnlet::statusFactory("ipv4");
  FakeManager manager;

 private:
  PrefixStore store_{Tarnlet::configV4Factory("ipv4")};
};

TEST_F(CommandConsumerTest, commandsReachTheChipInQueueOrder) {
  CommandConsumer consumer(Family::ipv4, status, Tarnlet::keyShort48b, &manager);
  queueNhi(7, 100);
  queueNhi(8, 101);
  queuePrefix(3);
  queuePrefix(5, /*clear=*/true);
  consumer.drain();
  EXPECT_EQ(manager.log,
            "nhi 0 1:7 100\n"
            "nhi 0 1:8 101\n"
            "prefix 0 t4[3]\n"
            "prefix 0 t4[5] clear\n");
  EXPECT_EQ(status->pendingCmds(), 0U);
  EXPECT_EQ(consumer.counts(), (CommandCounts{.prefix = 2, .nhi = 2}));
}

TEST_F(CommandConsumerTest, withoutAManagerCommandsAreCountedAndDropped) {
  CommandConsumer consumer(Family::ipv4, status, Tarnlet::keyShort48b, nullptr);
  queueNhi(7, 100);
  queuePrefix(3);
  queuePrefix(3);
  consumer.drain();
  EXPECT_EQ(status->pendingCmds(), 0U);
  EXPECT_EQ(consumer.counts(), (CommandCounts{.prefix = 2, .nhi = 1}));
}

TEST_F(CommandConsumerTest, troubleThatTheChipMendedIsNoError) {
  CommandConsumer consumer(Family::ipv4, status, Tarnlet::keyShort48b, &manager);
  for (const XP_STATUS mended : {9, 42}) {
    manager.answer = mended;
    queueNhi(7, 100);
    queuePrefix(3);
    EXPECT_NO_THROW(consumer.drain()) << "code " << mended;
  }
}

TEST_F(CommandConsumerTest, aRefusedWriteIsToldWithItsRow) {
  CommandConsumer consumer(Family::ipv6, status, Tarnlet::keyLong144b, &manager);
  manager.answer = 4;
  queuePrefix(3);
  EXPECT_EQ(drainError(consumer),
            "IPv6 prefix table 4 row 3: the SDK answered 4 to the write, expected 0, 9 or 42");
  queueNhi(7, 100);
  EXPECT_EQ(drainError(consumer),
            "IPv6 NHI tile 1 row 7: the SDK answered 4 to the write, expected 0, 9 or 42");
}

TEST_F(CommandConsumerTest, theNextDrainGoesOnBehindARefusedWrite) {
  CommandConsumer consumer(Family::ipv4, status, Tarnlet::keyShort48b, &manager);
  queuePrefix(1);
  queuePrefix(2);
  manager.answer = 3;
  EXPECT_THROW(consumer.drain(), ChipWriteError);
  EXPECT_EQ(status->pendingCmds(), 1U);
  manager.answer = 0;
  consumer.drain();
  EXPECT_EQ(manager.log, "prefix 0 t4[1]\nprefix 0 t4[2]\n");
}

}  // namespace
}  // namespace Quarle::Agent
