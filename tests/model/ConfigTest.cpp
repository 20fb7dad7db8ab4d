#include <string>
#include <utility>

#include "model/Tarnlet.h"
#include "model/TarnletNextHop.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using Corsel::AddressFamily;
using Corsel::Ip6Prefix;
using Corsel::Prefix;
using Dunlix::VrfAndIp6Prefix;
using Dunlix::VrfAndPrefix;

constexpr auto kNoKeyType = static_cast<KeyType>(2);

template <class T>
std::string attributes() {
  std::string names;
  for (U32 id = 0; id < Vellor::attributeRecords<T>.size(); ++id) {
    names += Vellor::attributeString<T>(id).str() + " ";
  }
  return names;
}

TEST(Attributes, areNumberedInDeclarationOrder) {
  const std::string ofConfigBase =
      "name addressFamily vrfBits keyType keyLength prefixTableConfig nhiPairPerEntry "
      "nhiBlockBaseWidth nhiBlockEcmpWidth nhiMaxBlockSize nhiTableSize nhiEntriesPerTile "
      "nhiAvailableTiles supportMultiNhiEntriesPerSubTrie leastTreadForPrefixLen availableStride "
      "restartMode prefixTableSortedByTread request ";
  EXPECT_EQ(attributes<ConfigBase>(), ofConfigBase);
  EXPECT_EQ(attributes<ConfigV4>(), ofConfigBase + "lpmPrefix ");
  EXPECT_EQ(attributes<ConfigV6>(), ofConfigBase + "lpmPrefix ");
  EXPECT_EQ(attributes<Status>(), "name prefixToNextHopBlock pendingCmd ");
  EXPECT_EQ(attributes<PrefixTableConfig>(), "tableId tableType depth tread ");
  EXPECT_EQ(attributes<PrefixTable>(), "tableId tableConfig subTrie ");
  EXPECT_EQ(attributes<SubTrieSet>(), "subTrie ");
  EXPECT_EQ(attributes<NhiInfo>(), "nhiInfoKey nhiBaseIdx subTrieCount ");
  EXPECT_EQ(attributes<SubTrie>(),
            "index branch branchLen stride mode table nhiBaseIdx nhiBlkSize nhiInfoKey "
            "maxPrefixSlot prefix prefixToSlot prefixBitmap ");
  EXPECT_EQ(attributes<LpmPrefixV4>(),
            "vrfAndPrefix ownerLpmPrefix otherOwnerList prefixFanoutList nhBlock ");
  EXPECT_EQ(attributes<LpmPrefixV6>(), "vrfAndPrefix ");
  EXPECT_EQ(attributes<CommandBase>(), "cmdType ");
  EXPECT_EQ(attributes<PrefixCommand>(),
            "cmdType tableId index branch branchLen stride mode prefixList nhiBaseIdx ");
  EXPECT_EQ(attributes<NhiCommand>(), "cmdType index nextHopBlockList ");
  EXPECT_EQ(attributes<NhiInfoKey>(), "slotToNextHopBlock ");
  EXPECT_EQ(attributes<LpmPrefixList>(), "prefix ");
  EXPECT_EQ(attributes<TarnletNextHop::NextHopBlockList>(), "nextHopBlock ");
}

TEST(Config, startsWithItsDefaults) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  EXPECT_EQ(config->name(), "v4");
  EXPECT_EQ(config->vrfBits(), 16U);
  EXPECT_EQ(config->keyType(), keyShort48b);
  EXPECT_EQ(config->nhiPairPerEntry(), 0U);
  EXPECT_EQ(config->nhiBlockBaseWidth(), 0U);
  EXPECT_EQ(config->nhiTableSize(), 0U);
  EXPECT_EQ(config->nhiEntriesPerTile(), 0U);
  EXPECT_EQ(config->nhiAvailableTiles(), 0U);
  EXPECT_TRUE(config->supportMultiNhiEntriesPerSubTrie());
  EXPECT_EQ(config->restartMode(), modeNoRestart);
  EXPECT_EQ(config->prefixTableConfigs() + config->leastTreadForPrefixLens() +
                config->availableStrides() + config->prefixTableSortedByTreads() +
                config->requests() + config->lpmPrefixs(),
            0U);
}

TEST(Config, theFamilyIsSetByTheConstructorAndFixed) {
  EXPECT_EQ(ConfigBase::Ptr(new ConfigBase("b"))->addressFamily(), AddressFamily::unspecified);
  const ConfigV4::Ptr v4 = configV4Factory("v4");
  const ConfigV6::Ptr v6 = configV6Factory("v6");
  EXPECT_EQ(static_cast<U32>(v4->addressFamily()), 1U);
  EXPECT_EQ(static_cast<U32>(v6->addressFamily()), 2U);
}

std::string refusalOfFamily(const ConfigBase::Ptr& config, AddressFamily family) {
  try {
    config->addressFamilyIs(family);
  } catch (const Vellor::ImmutableAttrMutationException& exception) {
    return exception.message().str();
  }
  return "nothing was raised";
}

TEST(Config, addressFamilyIsRaisesEvenWithTheValueItHas) {
  for (const auto family : {AddressFamily::ipv4, AddressFamily::ipv6, AddressFamily::unspecified}) {
    EXPECT_EQ(refusalOfFamily(configV4Factory("v4"), family),
              "Quarle::Tarnlet::ConfigV4::addressFamily");
    EXPECT_EQ(refusalOfFamily(configV6Factory("v6"), family),
              "Quarle::Tarnlet::ConfigV6::addressFamily");
  }
  const ConfigBase::Ptr base(new ConfigBase("base"));
  base->addressFamilyIs(AddressFamily::ipv6);
  EXPECT_EQ(base->addressFamily(), AddressFamily::ipv6);
}

TEST(Config, keyLengthFollowsTheKeyType) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  EXPECT_EQ(config->keyLength(), 48U);
  config->keyTypeIs(keyLong144b);
  EXPECT_EQ(config->keyLength(), 144U);
}

TEST(ConfigDeathTest, anUnknownKeyTypeIsFatal) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  config->keyTypeIs(kNoKeyType);
  EXPECT_DEATH(config->keyLength(), "Assertion `keyType\\(\\) == keyLong144b_' failed");
}

/// Runs of lengths of one least tread, as "from-to:tread".
std::string leastTreads(const ConfigBase::Ptr& config) {
  std::string text;
  U32 from = 0;
  for (U32 len = 0; len < 256; ++len) {
    const bool last =
        !config->leastTreadForPrefixLenCollection().isMember(static_cast<U8>(len + 1));
    const U8 tread = config->leastTreadForPrefixLen(static_cast<U8>(len));
    if (last || config->leastTreadForPrefixLen(static_cast<U8>(len + 1)) != tread) {
      text += Vellor::format("%u-%u:%u ", from, len, unsigned{tread}).str();
      from = len + 1;
    }
    if (last) {
      break;
    }
  }
  return text;
}

TEST(LeastTread, ofV4RisesAt36And38) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  config->populateLeastTreadForPrefixLenSettings(false);
  EXPECT_EQ(config->leastTreadForPrefixLens(), 49U);
  EXPECT_EQ(leastTreads(config), "0-35:0 36-37:30 38-48:35 ");
  EXPECT_EQ(config->leastTreadForPrefixLen(49), 0U);
}

TEST(LeastTread, ofV6RisesAt60) {
  const ConfigV6::Ptr config = configV6Factory("v6");
  config->keyTypeIs(keyLong144b);
  config->populateLeastTreadForPrefixLenSettings(false);
  EXPECT_EQ(config->leastTreadForPrefixLens(), 145U);
  EXPECT_EQ(leastTreads(config), "0-59:0 60-144:60 ");
}

TEST(LeastTread, isZeroEverywhereWhenTheUserConfigures) {
  const ConfigV4::Ptr v4 = configV4Factory("v4");
  v4->populateLeastTreadForPrefixLenSettings(false);
  v4->populateLeastTreadForPrefixLenSettings(true);
  EXPECT_EQ(v4->leastTreadForPrefixLens(), 49U);
  EXPECT_EQ(leastTreads(v4), "0-48:0 ");
  const ConfigV6::Ptr v6 = configV6Factory("v6");
  v6->keyTypeIs(keyLong144b);
  v6->populateLeastTreadForPrefixLenSettings(true);
  EXPECT_EQ(leastTreads(v6), "0-144:0 ");
}

TEST(LeastTread, leavesNoEntryOfAnEarlierRun) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  config->leastTreadForPrefixLenIs(200, 5);
  config->keyTypeIs(keyLong144b);
  config->populateLeastTreadForPrefixLenSettings(false);
  EXPECT_EQ(leastTreads(config), "0-35:0 36-37:30 38-144:35 ");
  config->keyTypeIs(keyShort48b);
  config->populateLeastTreadForPrefixLenSettings(false);
  EXPECT_EQ(config->leastTreadForPrefixLens(), 49U);
}

TEST(LeastTread, ofTheBaseRaisesTheOtherMethodsWords) {
  try {
    ConfigBase::Ptr(new ConfigBase("b"))->populateLeastTreadForPrefixLenSettings(true);
    FAIL() << "nothing was raised";
  } catch (const Vellor::NoImplementationException& exception) {
    EXPECT_EQ(exception.message(), "hashFunc must be implemented in the derived class");
  }
}

TEST(NhiGeometry, theLargestBlockHoldsOnePairForEachBitOfARow) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  const std::pair<U8, U32> expected[] = {{6, 36}, {7, 31}, {8, 27}, {10, 22}, {1, 216}, {255, 1}};
  for (const auto& [pairs, entries] : expected) {
    config->nhiPairPerEntryIs(pairs);
    EXPECT_EQ(config->nhiMaxBlockSize(), entries) << unsigned{pairs} << " pairs";
  }
}

TEST(NhiGeometry, thePairsBitsBeyondTheBaseAreForTheSize) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  const std::pair<U8, U8> widths[] = {{6, 21}, {7, 18}, {8, 16}, {10, 12}};
  for (const auto& [pairs, width] : widths) {
    config->nhiPairPerEntryIs(pairs);
    config->nhiBlockBaseWidthIs(10);
    EXPECT_EQ(config->nhiBlockEcmpWidth(), width - 10U) << unsigned{pairs} << " pairs";
    config->nhiBlockBaseWidthIs(width);
    EXPECT_EQ(config->nhiBlockEcmpWidth(), 0U) << "the base may take all";
  }
}

TEST(NhiGeometryDeathTest, theBaseMustFitThePair) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  config->nhiPairPerEntryIs(8);
  config->nhiBlockBaseWidthIs(17);
  EXPECT_DEATH(config->nhiBlockEcmpWidth(),
               "Assertion `nhiPairSize >= nhiBlockBaseWidth\\(\\)' failed");
}

TEST(NhiGeometryDeathTest, otherPairCountsAreUnknown) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  for (const U8 pairs : {U8{0}, U8{9}}) {
    config->nhiPairPerEntryIs(pairs);
    EXPECT_DEATH(config->nhiBlockEcmpWidth(),
                 "Assertion `false && \"Unknown NHI pair per entry\"' failed");
  }
}

PrefixTableConfig::Ptr table(U8 id, U8 tread) {
  return new PrefixTableConfig(id, prefixTableWide256b, 16, tread);
}

TEST(PrefixTableConfigs, goUnderTheirOwnIdAndReplaceOneAnother) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  config->prefixTableConfigIs(table(3, 35));
  config->prefixTableConfigIs(table(1, 28));
  config->prefixTableConfigIs(table(3, 24));
  EXPECT_EQ(config->prefixTableConfigs(), 2U);
  EXPECT_EQ(config->prefixTableConfig(3)->tread(), 24U);
  EXPECT_EQ(config->prefixTableConfig(1)->tread(), 28U);
  EXPECT_EQ(config->prefixTableConfig(2), nullptr);
  EXPECT_EQ(config->prefixTableConfigDel(1)->tread(), 28U);
  EXPECT_EQ(config->prefixTableConfigDel(1), nullptr);
}

TEST(PrefixTableConfigs, aNullOneIsRefused) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  try {
    config->prefixTableConfigIs(nullptr);
    FAIL() << "nothing was raised";
  } catch (const Vellor::RangeException& exception) {
    EXPECT_EQ(exception.message(),
              "null _prefixTableConfig parameter to mutator for "
              "Quarle::Tarnlet::ConfigBase::prefixTableConfig not allowed");
  }
}

TEST(PrefixTableConfigs, areWalkedInBitReversedOrder) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  for (U8 id = 0; id < 8; ++id) {
    config->prefixTableConfigIs(table(id, 16));
  }
  std::string order;
  for (auto member = config->prefixTableConfigIterator(); member; ++member) {
    order += member->tableId() == member.key() ? std::to_string(member.key().value()) + " " : "? ";
  }
  EXPECT_EQ(order, "0 4 2 6 1 5 3 7 ");
}

TEST(PrefixCollection, keepsOneObjectForEachVrfAndPrefix) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  const VrfAndPrefix key(1, Prefix("10.0.0.0/8"));
  const LpmPrefixV4::Ptr prefix = config->lpmPrefixIs(key);
  EXPECT_EQ(prefix->vrfAndPrefix(), key);
  EXPECT_EQ(config->lpmPrefixIs(key), prefix);
  EXPECT_EQ(config->lpmPrefix(key), prefix);
  EXPECT_NE(config->lpmPrefixIs(VrfAndPrefix(2, Prefix("10.0.0.0/8"))), prefix);
  EXPECT_EQ(config->lpmPrefixs(), 2U);
  const ConfigV6::Ptr v6 = configV6Factory("v6");
  const VrfAndIp6Prefix key6(1, Ip6Prefix("2001:db8::/32"));
  EXPECT_EQ(v6->lpmPrefixIs(key6), v6->lpmPrefixIs(key6));
}

TEST(PrefixCollection, twoObjectsWithEqualPrefixesAreTwoKeysOfRequest) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  const VrfAndPrefix key(1, Prefix("10.0.0.0/8"));
  const LpmPrefix::Ptr interned = config->lpmPrefixIs(key);
  const LpmPrefix::Ptr other = lpmPrefixV4Factory(key);
  config->requestIs(interned, NextHopBlock(1, 1));
  config->requestIs(other, NextHopBlock(2, 1));
  EXPECT_EQ(config->requests(), 2U);
  EXPECT_EQ(config->request(interned), NextHopBlock(1, 1));
  EXPECT_EQ(config->request(other), NextHopBlock(2, 1));
  EXPECT_EQ(config->request(lpmPrefixV4Factory(key)), NextHopBlock());
}

TEST(PrefixCollection, aPrefixOutlivesItsEntryWhileItIsRequested) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  const VrfAndPrefix key(1, Prefix("10.0.0.0/8"));
  config->requestIs(config->lpmPrefixIs(key), NextHopBlock(1, 1));
  config->lpmPrefixDel(key);
  EXPECT_EQ(config->lpmPrefix(key), nullptr);
  EXPECT_EQ(config->requestIterator().key()->stringValue(), "vrf 1 prefix 10.0.0.0/8");
}

TEST(Config, stridesAreWalkedByRisingStride) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  for (const U8 stride : {U8{16}, U8{1}, U8{8}, U8{2}}) {
    config->availableStrideIs(stride, true);
  }
  std::string text;
  for (auto stride = config->availableStrideIterator(); stride; ++stride) {
    text += std::to_string(stride.key()) + " ";
  }
  EXPECT_EQ(text, "1 2 8 16 ");
}

/// Writes down which attribute changed.
class RequestListener : public ConfigBase::Notifiee {
 public:
  void onRequest(const LpmPrefix::Ptr& prefix) override {
    heard += prefix->stringValue().str() + " " + notifier()->request(prefix).str().str() + "; ";
  }

  void onKeyType() override { heard += "keyType; "; }

  std::string heard;
};

TEST(Config, aRequestIsHeardWhenTheWriteReturns) {
  const ConfigV4::Ptr config = configV4Factory("v4");
  const Vellor::Ptr<RequestListener> listener(new RequestListener);
  listener->notifierIs(config);
  listener->isRegisteredNotifieeIs(true);
  const LpmPrefix::Ptr prefix = config->lpmPrefixIs(VrfAndPrefix(1, Prefix("10.0.0.0/8")));
  config->requestIs(prefix, NextHopBlock(7, 2));
  config->requestIs(prefix, NextHopBlock(7, 2));
  config->requestNotify(prefix);
  config->requestDel(prefix);
  config->keyTypeIs(keyLong144b);
  EXPECT_EQ(listener->heard,
            "vrf 1 prefix 10.0.0.0/8 7,2; vrf 1 prefix 10.0.0.0/8 7,2; "
            "vrf 1 prefix 10.0.0.0/8 4294967295,65535; keyType; ");
}

TEST(Status, holdsRoutesAndCommands) {
  const Status::Ptr status = statusFactory("status");
  EXPECT_EQ(status->name(), "status");
  const LpmPrefix::Ptr prefix = lpmPrefixV4Factory(VrfAndPrefix(1, Prefix("10.0.0.0/8")));
  EXPECT_EQ(status->prefixToNextHopBlock(prefix), NextHopBlock());
  status->prefixToNextHopBlockIs(prefix, NextHopBlock(1, 2));
  EXPECT_EQ(status->prefixToNextHopBlock(prefix), NextHopBlock(1, 2));
  EXPECT_EQ(status->pendingCmdDeq(), nullptr);
  const CommandBase::Ptr command = nhiCommandFactory(NhiTableIdx(1, 2), {});
  status->pendingCmdEnq(command);
  EXPECT_EQ(status->pendingCmdMetadata(), (Status::PendingCmdMetadata{0, 1}));
  EXPECT_EQ(status->pendingCmd(0), command);
  EXPECT_EQ(status->pendingCmdDeq(), command);
  EXPECT_EQ(status->pendingCmdMetadata(), (Status::PendingCmdMetadata{1, 1}));
}

TEST(Commands, carryWhatTheyWereBuiltFrom) {
  const LpmPrefix::Ptr prefix = lpmPrefixV4Factory(VrfAndPrefix(1, Prefix("10.0.0.0/8")));
  LpmPrefixList prefixes;
  prefixes.prefixEnq(prefix);
  prefixes.prefixEnq(nullptr);
  const PrefixCommand::Ptr write = prefixCommandFactory(
      3, 70000, SubTrieBranch(1, 2, 0, 0, 0), 24, 8, modeSparse, prefixes, NhiTableIdx(4, 500));
  EXPECT_EQ(write->cmdType(), commandTypePrefix);
  EXPECT_EQ(write->tableId(), PrefixTableId(3));
  EXPECT_EQ(write->index(), PrefixTableIdx(70000));
  EXPECT_EQ(write->branch(), SubTrieBranch(1, 2, 0, 0, 0));
  EXPECT_EQ(write->branchLen(), 24U);
  EXPECT_EQ(write->stride(), 8U);
  EXPECT_EQ(write->mode(), modeSparse);
  EXPECT_EQ(write->prefixList(), prefixes);
  EXPECT_EQ(write->nhiBaseIdx(), NhiTableIdx(4, 500));
  TarnletNextHop::NextHopBlockList blocks;
  blocks.nextHopBlockEnq(NextHopBlock(9, 2));
  const NhiCommand::Ptr nhi = nhiCommandFactory(NhiTableIdx(4, 501), blocks);
  EXPECT_EQ(nhi->cmdType(), commandTypeNhi);
  EXPECT_EQ(nhi->index(), NhiTableIdx(4, 501));
  EXPECT_EQ(nhi->nextHopBlockList(), blocks);
}

}  // namespace
}  // namespace Quarle::Tarnlet
