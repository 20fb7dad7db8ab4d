#include "xdksim/EntryLayout.h"

#include <array>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/Random.h"

namespace XdkSim {
namespace {

LpmKey randomKey(Random& random) {
  return {.words = {random.word(), random.word(), random.word() & ~lowBits(48)}};
}

/// The bits of `key` as digits.
std::string digits(const LpmKey& key) {
  std::string text;
  for (U32 bit = 0; bit < LpmKey::kBits; ++bit) {
    text += static_cast<char>('0' + (key.byte(bit / 8) >> (7 - bit % 8) & 1));
  }
  return text;
}

std::string digits(const Leaf& leaf) {
  std::string text;
  for (int bit = 63; bit >= 0; --bit) {
    text += static_cast<char>('0' + (leaf.high >> bit & 1));
  }
  for (int bit = 63; bit >= 0; --bit) {
    text += static_cast<char>('0' + (leaf.low >> bit & 1));
  }
  return text.substr(std::min(text.find('1'), text.size()));
}

TEST(LpmKey, bitsAreThoseOfTheDigits) {
  Random random;
  SCOPED_TRACE(random.seedText());
  const LpmKey key = randomKey(random);
  const std::string text = digits(key);
  for (U32 first = 0; first < LpmKey::kBits; ++first) {
    for (U32 count = 0; count <= 64 && first + count <= LpmKey::kBits; ++count) {
      const U64 expected = count == 0 ? 0 : std::stoull(text.substr(first, count), nullptr, 2);
      ASSERT_EQ(key.bits(first, count), expected) << "first " << first << " count " << count;
    }
  }
}

TEST(LpmKey, bitsIsReplacesThoseBitsAndNoOther) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 first = 0; first < LpmKey::kBits; ++first) {
    for (U32 count = 0; count <= 64 && first + count <= LpmKey::kBits; ++count) {
      LpmKey key = randomKey(random);
      std::string expected = digits(key);
      const U64 value = random.word() & lowBits(count);
      for (U32 i = 0; i < count; ++i) {
        expected[first + i] = static_cast<char>('0' + (value >> (count - 1 - i) & 1));
      }
      key.bitsIs(first, count, value);
      ASSERT_EQ(digits(key), expected) << "first " << first << " count " << count;
    }
  }
}

TEST(LpmKey, prefixKeepsTheFirstBitsAndClearsTheRest) {
  Random random;
  SCOPED_TRACE(random.seedText());
  const LpmKey key = randomKey(random);
  for (U32 length = 0; length <= LpmKey::kBits; ++length) {
    std::string expected = digits(key).substr(0, length);
    expected.resize(LpmKey::kBits, '0');
    ASSERT_EQ(digits(key.prefix(length)), expected) << "length " << length;
  }
}

TEST(LpmKey, vrfComesFirstAndTheAddressBehindIt) {
  const std::array<U8, 4> address = {10, 1, 2, 3};
  EXPECT_EQ(LpmKey::of(0x1234, address.data(), 4), (LpmKey{.words = {0x12340a0102030000, 0, 0}}));
  std::array<U8, 16> address6{};
  address6[0] = 0x20;
  address6[15] = 0x01;
  EXPECT_EQ(LpmKey::of(1, address6.data(), 16),
            (LpmKey{.words = {0x0001200000000000, 0, U64{1} << 48}}));
}

TEST(EntryLayout, branchOfTwentyBitsIsRightAlignedLowByteFirst) {
  xpLpmPrefixEntry entry;
  setBranch(entry, {.words = {0xabcdef0123456789, 0, 0}}, 20);
  EXPECT_EQ(U32{entry.branchLen}, 20U);
  EXPECT_EQ(entry.branch[0], 0xde);
  EXPECT_EQ(entry.branch[1], 0xbc);
  EXPECT_EQ(entry.branch[2], 0x0a);
  EXPECT_EQ(entry.branch[3], 0);
}

TEST(EntryLayout, branchOfEveryLengthComesBack) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 length = 0; length <= LpmKey::kBits; ++length) {
    const LpmKey key = randomKey(random);
    xpLpmPrefixEntry entry;
    for (U8& byte : entry.branch) {
      byte = random.byte();
    }
    setBranch(entry, key, length);
    ASSERT_EQ(digits(branchOf(entry)), digits(key.prefix(length))) << "length " << length;
    for (U32 byte = (length + 7) / 8; byte < xpLpmPrefixEntry::kBranchBytes; ++byte) {
      ASSERT_EQ(entry.branch[byte], 0) << "length " << length << " byte " << byte;
    }
  }
}

TEST(EntryLayout, leafIsTheBitsBehindTheBranchUnderAStopBit) {
  Random random;
  SCOPED_TRACE(random.seedText());
  for (U32 branchLen = 0; branchLen <= LpmKey::kBits; ++branchLen) {
    for (U32 count = 0; count <= 127 && branchLen + count <= LpmKey::kBits; ++count) {
      const LpmKey key = randomKey(random);
      const Leaf leaf = leafOf(key, branchLen + count, branchLen);
      ASSERT_EQ(digits(leaf), "1" + digits(key).substr(branchLen, count))
          << "branch length " << branchLen << " count " << count;
      ASSERT_EQ(leaf.length(), count);
    }
  }
}

TEST(EntryLayout, prefixAsLongAsTheBranchHasLeafOne) {
  const Leaf leaf = leafOf({.words = {~U64{0}, ~U64{0}, 0}}, 35, 35);
  EXPECT_EQ(leaf.low, 1U);
  EXPECT_EQ(leaf.high, 0U);
}

TEST(EntryLayout, setLeafFillsItsSlotOnly) {
  const LpmKey key{.words = {0x00000a0102030000, 0, 0}};
  xpLpmPrefixEntry entry;
  setBranch(entry, key, 32);
  setLeaf(entry, 2, key, 40);
  EXPECT_EQ(U64{entry.leafVal[2]}, 0x102U);
  EXPECT_EQ(U64{entry.leafVal[1]} | entry.leafVal[3] | entry.leafValHigh[2], 0U);
}

TEST(EntryLayout, keySizeCodesOfTheTwoKeyWidths) {
  EXPECT_EQ(keySizeCode(48), 0U);
  EXPECT_EQ(keySizeCode(144), 2U);
}

}  // namespace
}  // namespace XdkSim
