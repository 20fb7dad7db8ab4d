#include "agent/CommandConsumer.h"

#include <optional>
#include <stdexcept>
#include <string>

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
    if (raises) {
      throw std::runtime_error("the bus is gone");
    }
    return answer;
  }

  std::string log;
  XP_STATUS answer = XP_NO_ERR;
  bool raises = false;
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

  CommandConsumer& consumer(xpIpRouteLpmMgr* writer, Family family = Family::ipv4) {
    const Tarnlet::KeyType keyType =
        family == Family::ipv4 ? Tarnlet::keyShort48b : Tarnlet::keyLong144b;
    return consumer_.emplace(family, status, keyType, writer, faults);
  }

  std::string fault() {
    try {
      faults.raiseIfAny();
    } catch (const std::exception& error) {
      return error.what();
    }
    return "none";
  }

  Tarnlet::Status::Ptr status = Tarnlet::statusFactory("ipv4");
  FakeManager manager;
  WriteFaults faults;

 private:
  std::optional<CommandConsumer> consumer_;
  PrefixStore store_{Tarnlet::configV4Factory("ipv4")};
};

TEST_F(CommandConsumerTest, eachCommandReachesTheChipAsItIsQueued) {
  consumer(&manager);
  queueNhi(7, 100);
  EXPECT_EQ(manager.log, "nhi 0 1:7 100\n");
  queueNhi(8, 101);
  queuePrefix(3);
  queuePrefix(5, /*clear=*/true);
  EXPECT_EQ(manager.log,
            "nhi 0 1:7 100\n"
            "nhi 0 1:8 101\n"
            "prefix 0 t4[3]\n"
            "prefix 0 t4[5] clear\n");
  EXPECT_EQ(status->pendingCmds(), 0U);
}

TEST_F(CommandConsumerTest, whatStoodInTheQueueIsCarriedOutFirst) {
  queueNhi(7, 100);
  queueNhi(8, 101);
  queuePrefix(3);
  const CommandConsumer& late = consumer(&manager);
  EXPECT_EQ(manager.log,
            "nhi 0 1:7 100\n"
            "nhi 0 1:8 101\n"
            "prefix 0 t4[3]\n");
  EXPECT_EQ(late.counts(), (CommandCounts{.prefix = 1, .nhi = 2}));
}

TEST_F(CommandConsumerTest, withoutAManagerCommandsAreCountedAndDropped) {
  const CommandConsumer& counting = consumer(nullptr);
  queueNhi(7, 100);
  queuePrefix(3);
  queuePrefix(3);
  EXPECT_EQ(status->pendingCmds(), 0U);
  EXPECT_EQ(counting.counts(), (CommandCounts{.prefix = 2, .nhi = 1}));
}

TEST_F(CommandConsumerTest, aConsumerThatEndedLeavesTheQueueAlone) {
  { const CommandConsumer ended(Family::ipv4, status, Tarnlet::keyShort48b, &manager, faults); }
  queueNhi(7, 100);
  EXPECT_EQ(manager.log, "");
  EXPECT_EQ(status->pendingCmds(), 1U);
}

TEST_F(CommandConsumerTest, troubleThatTheChipMendedIsNoError) {
  consumer(&manager);
  for (const XP_STATUS mended : {9, 42}) {
    manager.answer = mended;
    queueNhi(7, 100);
    queuePrefix(3);
    EXPECT_EQ(fault(), "none") << "code " << mended;
  }
}

TEST_F(CommandConsumerTest, aRefusedWriteIsToldOnceWithItsRow) {
  consumer(&manager, Family::ipv6);
  manager.answer = 4;
  queuePrefix(3);
  EXPECT_EQ(fault(),
            "IPv6 prefix table 4 row 3: the SDK answered 4 to the write, expected 0, 9 or 42");
  EXPECT_EQ(fault(), "none");
  queueNhi(7, 100);
  EXPECT_EQ(fault(), "IPv6 NHI tile 1 row 7: the SDK answered 4 to the write, expected 0, 9 or 42");
}

TEST_F(CommandConsumerTest, whatFollowsARefusedWriteIsCarriedOut) {
  consumer(&manager);
  manager.answer = 3;
  queuePrefix(1);
  queuePrefix(2);
  manager.answer = 0;
  queuePrefix(3);
  EXPECT_EQ(manager.log, "prefix 0 t4[1]\nprefix 0 t4[2]\nprefix 0 t4[3]\n");
  EXPECT_EQ(fault(),
            "IPv4 prefix table 4 row 1: the SDK answered 3 to the write, expected 0, 9 or 42; "
            "1 more refused in the same operation");
}

TEST_F(CommandConsumerTest, whatTheSdkRaisesIsKeptForTheOperation) {
  consumer(&manager);
  manager.raises = true;
  queueNhi(7, 100);
  manager.raises = false;
  queueNhi(8, 100);
  EXPECT_EQ(manager.log, "nhi 0 1:7 100\nnhi 0 1:8 100\n");
  EXPECT_EQ(fault(), "the bus is gone");
  EXPECT_EQ(fault(), "none");
}

}  // namespace
}  // namespace Quarle::Agent
