// The records are held against the prefixes' own texts, bit by bit: keys are strings of '0' and '1'
// here, so that nothing is shared with the arithmetic under test.

#include "agent/CommandEncoding.h"

#include <algorithm>
#include <bitset>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/PrefixStore.h"
#include "tests/agent/ChipClient.h"
#include "tests/support/Seed.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using Tarnlet::LpmPrefix;
using Tarnlet::NhiTableIdx;
using Testing::keyOf;

/// The key of a route as text: 16 bits of the VRF, then those of the prefix.
std::string keyText(const RouteKey& key) {
  std::string bits = std::bitset<16>(key.vrf).to_string();
  for (unsigned i = 0; i < key.prefix.length; ++i) {
    bits += (key.prefix.address[i / 8] >> (7 - i % 8) & 1) != 0 ? '1' : '0';
  }
  return bits;
}

/// What a reader of the record sees in one slot: the key, or nothing in an empty slot.
std::string slotText(const xpLpmPrefixEntry& entry, U32 slot) {
  std::string branch;
  for (U32 bit = entry.branchLen; bit-- > 0;) {
    branch += (entry.branch[bit / 8] >> bit % 8 & 1) != 0 ? '1' : '0';
  }
  const U64 low = entry.leafVal[slot];
  const U64 high = entry.leafValHigh[slot];
  std::string leaf = std::bitset<64>(high).to_string() + std::bitset<64>(low).to_string();
  const std::size_t stop = leaf.find('1');
  return stop == std::string::npos ? std::string() : branch + leaf.substr(stop + 1);
}

class CommandEncoding : public ::testing::Test {
 protected:
  /// The prefix of a text; "" is an empty slot.
  LpmPrefix::Ptr prefix(const std::string& text, U32 vrf = 0) {
    if (text.empty()) {
      return nullptr;
    }
    const RouteKey key = keyOf(text, vrf);
    return key.prefix.family == Family::ipv4 ? store4_.intern(key).prefix
                                             : store6_.intern(key).prefix;
  }

  /// A command whose branch is the first `branchLen` bits of `branch`, with what lies behind them
  /// in `branch` left in place as the engine may leave it.
  Tarnlet::PrefixCommand::Ptr command(const LpmPrefix::Ptr& branch,
                                      U8 branchLen,
                                      U8 stride,
                                      const std::vector<LpmPrefix::Ptr>& slots) {
    Tarnlet::LpmPrefixList list;
    for (const LpmPrefix::Ptr& slot : slots) {
      list.prefixEnq(slot);
    }
    return Tarnlet::prefixCommandFactory(3, 17, branch->branch(branch->len()), branchLen, stride,
                                         Tarnlet::modeSparse, list, NhiTableIdx(2, 515));
  }

 private:
  PrefixStore store4_{Tarnlet::configV4Factory("v4")};
  PrefixStore store6_{Tarnlet::configV6Factory("v6")};
};

TEST_F(CommandEncoding, slotsKeepTheirPlaceAndEmptyOnesStayEmpty) {
  const LpmPrefix::Ptr cover = prefix("10.1.0.0/16", 5);
  alignas(8) xpLpmPrefixEntry entry;
  encode(*command(prefix("10.1.2.0/24", 5), 32, 9, {prefix("10.1.2.0/24", 5), nullptr, cover}),
         Tarnlet::keyShort48b, entry);
  EXPECT_EQ(entry.keySize, 0U);
  EXPECT_EQ(entry.mode, 1U);
  EXPECT_EQ(entry.branchLen, 32U);
  EXPECT_EQ(entry.stride, 9U);
  EXPECT_EQ(entry.nhiTile, 2U);
  EXPECT_EQ(entry.nhiOffset, 515U);
  EXPECT_EQ(slotText(entry, 0), keyText(keyOf("10.1.2.0/24", 5)));
  EXPECT_EQ(slotText(entry, 1), "");
  EXPECT_EQ(slotText(entry, 2), keyText(keyOf("10.1.0.0/16", 5)));
  EXPECT_EQ(U64{entry.leafVal[0]}, 0x102U) << "the bits 00000010 under a stop bit";
  EXPECT_EQ(U64{entry.leafVal[2]}, 1U) << "a prefix as long as the branch is the stop bit alone";
  EXPECT_EQ(slotText(entry, 3), "");
}

TEST_F(CommandEncoding, bitsBehindTheBranchNeverReachTheRecord) {
  alignas(8) xpLpmPrefixEntry entry;
  // 20 bits: the VRF and the first four of the address; the rest of the branch is left-overs.
  encode(*command(prefix("255.255.255.255/32"), 20, 16, {prefix("240.0.0.0/8")}),
         Tarnlet::keyShort48b, entry);
  EXPECT_EQ(entry.branch[0], 0x0fU);
  for (U32 i = 1; i < xpLpmPrefixEntry::kBranchBytes; ++i) {
    EXPECT_EQ(entry.branch[i], 0U) << "byte " << i;
  }
}

TEST_F(CommandEncoding, aListWithoutPrefixesClearsTheWholeRecord) {
  alignas(8) xpLpmPrefixEntry entry;
  std::fill_n(reinterpret_cast<U8*>(&entry), sizeof entry, U8{0xa5});
  encode(*command(prefix("10.0.0.0/8"), 24, 9, {nullptr, nullptr}), Tarnlet::keyShort48b, entry);
  const U8* bytes = reinterpret_cast<const U8*>(&entry);
  EXPECT_TRUE(std::all_of(bytes, bytes + sizeof entry, [](U8 byte) { return byte == 0; }));
  std::fill_n(reinterpret_cast<U8*>(&entry), sizeof entry, U8{0xa5});
  encode(*command(prefix("10.0.0.0/8"), 24, 9, {}), Tarnlet::keyShort48b, entry);
  EXPECT_TRUE(std::all_of(bytes, bytes + sizeof entry, [](U8 byte) { return byte == 0; }));
}

TEST_F(CommandEncoding, whatAnEarlierCommandLeftInTheRecordIsGone) {
  alignas(8) xpLpmPrefixEntry entry;
  encode(*command(prefix("2001:db8::/32"), 40, 96,
                  {prefix("2001:db8:ffff:ffff:ffff::/80"), prefix("2001:db8::/32")}),
         Tarnlet::keyLong144b, entry);
  EXPECT_EQ(entry.keySize, 2U);
  EXPECT_NE(slotText(entry, 1), "");
  encode(*command(prefix("10.0.0.0/8"), 24, 9, {prefix("10.0.0.0/8")}), Tarnlet::keyShort48b,
         entry);
  xpLpmPrefixEntry fresh;
  encode(*command(prefix("10.0.0.0/8"), 24, 9, {prefix("10.0.0.0/8")}), Tarnlet::keyShort48b,
         fresh);
  EXPECT_EQ(std::memcmp(&entry, &fresh, sizeof entry), 0);
}

TEST_F(CommandEncoding, leavesOfAnyLengthReadBackAsTheirPrefix) {
  const U64 seed = Tarnlet::Testing::testSeed();
  std::mt19937_64 random(seed);
  for (int round = 0; round < 20000; ++round) {
    const Family family = random() % 2 == 0 ? Family::ipv4 : Family::ipv6;
    AddressBits bits{.high = random(), .low = random()};
    // Long runs of equal bits are where shifts go wrong.
    if (random() % 4 == 0) {
      bits = {.high = ~U64{0}, .low = ~U64{0}};
    }
    const unsigned length = static_cast<unsigned>(random() % (addressBits(family) + 1));
    const RouteKey key{.vrf = static_cast<U32>(random() % 65536),
                       .prefix = RoutePrefix::of(family, bits, length)};
    // A leaf holds at most 127 bits.
    const U32 keyBits = 16 + length;
    const U32 shortest = keyBits > 127 ? keyBits - 127 : 0;
    const U32 branchLen = shortest + static_cast<U32>(random() % (keyBits - shortest + 1));
    const LpmPrefix::Ptr slot = prefix(Agent::toText(key.prefix), key.vrf);
    const U32 before = static_cast<U32>(random() % 27);
    std::vector<LpmPrefix::Ptr> slots(before);
    slots.push_back(slot);
    xpLpmPrefixEntry entry;
    encode(*command(slot, static_cast<U8>(branchLen), 128, slots),
           family == Family::ipv4 ? Tarnlet::keyShort48b : Tarnlet::keyLong144b, entry);
    ASSERT_EQ(slotText(entry, before), keyText(key))
        << "seed " << seed << " round " << round << " " << toText(key) << " branch " << branchLen;
  }
}

TEST_F(CommandEncoding, moreSlotsThanTheRecordHoldsAreAnError) {
  const std::vector<LpmPrefix::Ptr> slots(xpLpmPrefixEntry::kLeaves + 1, prefix("10.0.0.0/8"));
  alignas(8) xpLpmPrefixEntry entry;
  EXPECT_THROW(encode(*command(slots[0], 24, 9, slots), Tarnlet::keyShort48b, entry),
               std::length_error);
}

TEST_F(CommandEncoding, pairsBehindTheListLeadNowhere) {
  Tarnlet::NextHopBlockList list;
  list.nextHopBlockEnq(NextHopBlock(7, 2));
  list.nextHopBlockEnq(NextHopBlock());
  xpLpmNhiEntry entry;
  encode(*Tarnlet::nhiCommandFactory(NhiTableIdx(0, 9), list), entry);
  EXPECT_EQ(entry.base[0], 7U);
  EXPECT_EQ(entry.size[0], 2U);
  for (U32 pair = 1; pair < xpLpmNhiEntry::kPairs; ++pair) {
    EXPECT_EQ(entry.base[pair], 0xffffffffU) << "pair " << pair;
    EXPECT_EQ(entry.size[pair], 0xffffU) << "pair " << pair;
  }
}

TEST_F(CommandEncoding, morePairsThanTheRecordHoldsAreAnError) {
  Tarnlet::NextHopBlockList list;
  for (U32 i = 0; i <= xpLpmNhiEntry::kPairs; ++i) {
    list.nextHopBlockEnq(NextHopBlock(i, 1));
  }
  xpLpmNhiEntry entry;
  EXPECT_THROW(encode(*Tarnlet::nhiCommandFactory(NhiTableIdx(0, 0), list), entry),
               std::length_error);
}

}  // namespace
}  // namespace Quarle::Agent
