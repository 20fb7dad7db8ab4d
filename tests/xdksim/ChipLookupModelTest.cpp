#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Random.h"
#include "tests/xdksim/SmallProfile.h"
#include "tests/xdksim/SoftwareRow.h"
#include "xdksim/Chip.h"

namespace XdkSim {
namespace {

constexpr std::array<U32, 15> kStrides = {8,  9,  10, 11, 12, 14, 16, 20,
                                          24, 28, 32, 48, 64, 96, 128};

std::string digits(const LpmKey& key, U32 length) {
  std::string text;
  for (U32 bit = 0; bit < length; ++bit) {
    text += static_cast<char>('0' + (key.byte(bit / 8) >> (7 - bit % 8) & 1));
  }
  return text;
}

struct Answer {
  U32 length;
  NhiPair pair;
};

/// A chip filled with random sub-tries of one family, and a plain list of what it holds.
class RandomContent {
 public:
  RandomContent(Chip& chip, Family family, Random& random)
      : chip_(chip), family_(family), random_(random) {}

  void fill(U32 attempts) {
    const FamilyProfile& family = chip_.profile().family(family_);
    for (U32 i = 0; i < attempts; ++i) {
      const U32 id = random_.between(0, static_cast<U32>(family.tables.size()) - 1);
      place(id, family.tables[id], randomKey());
    }
  }

  const std::map<std::string, NhiPair>& prefixes() const { return prefixes_; }

  std::optional<Answer> naiveLookup(const LpmKey& key) const {
    const std::string text = digits(key, keyWidth());
    std::optional<Answer> best;
    for (const auto& [prefix, pair] : prefixes_) {
      if (text.starts_with(prefix) && (!best || prefix.size() > best->length)) {
        best = Answer{.length = static_cast<U32>(prefix.size()), .pair = pair};
      }
    }
    return best;
  }

  /// Keys cluster, so that prefixes nest and look-ups find something.
  LpmKey randomKey() {
    LpmKey key;
    key.bitsIs(0, 16, random_.oneIn(3) ? 1 : 0);
    for (U32 byte = 2; byte < keyWidth() / 8; ++byte) {
      if (random_.oneIn(4)) {
        key.byteIs(byte, static_cast<U8>(1U << random_.between(0, 7)));
      }
    }
    return key;
  }

  /// A key that begins with `prefix` and goes on at random.
  LpmKey keyWithin(const std::string& prefix) {
    LpmKey key;
    for (U32 bit = 0; bit < keyWidth(); ++bit) {
      key.bitsIs(bit, 1, bit < prefix.size() ? prefix[bit] == '1' : random_.oneIn(2));
    }
    return key;
  }

  U32 keyWidth() const { return chip_.profile().family(family_).keyWidth; }

 private:
  void place(U32 id, const PrefixTableProfile& table, const LpmKey& key) {
    const U32 row = softwareRow(table, id, key);
    xpLpmPrefixEntry entry;
    ASSERT_EQ(chip_.readPrefixRow(family_, id, row, entry), XP_NO_ERR);
    if (entry.stride != 0) {
      return;
    }
    const U32 usable = table.sramWidth - 40;
    entry.keySize = keySizeCode(keyWidth());
    entry.mode = kSparseModeCode;
    setBranch(entry, key, random_.between(table.tread, std::min(keyWidth(), usable - 8)));
    const U32 branchLen = entry.branchLen;
    U32 stride;
    do {
      stride = kStrides[random_.between(0, kStrides.size() - 1)];
    } while (stride > usable - branchLen);
    entry.stride = stride;
    const U32 slots = std::min((usable - branchLen) / stride, 27U);
    const U32 pairs = chip_.profile().family(family_).nhi.pairsPerEntry;
    const U32 nhiRows = (slots + pairs - 1) / pairs;
    if (nextNhiRow_ + nhiRows > 64) {
      nextNhiRow_ = 0;
      ++tile_;
    }
    if (tile_ == 2) {
      return;
    }
    entry.nhiTile = tile_;
    entry.nhiOffset = nextNhiRow_;
    std::vector<xpLpmNhiEntry> nhi(nhiRows);
    const U32 longest = std::min(keyWidth(), branchLen + stride - 1);
    for (U32 slot = 0; slot < slots; ++slot) {
      const U32 length = random_.between(branchLen, longest);
      const LpmKey prefix = keyWithin(digits(key, branchLen)).prefix(length);
      const NhiPair pair = random_.oneIn(6) ? NhiPair() : randomPair();
      if (random_.oneIn(3) || !prefixes_.try_emplace(digits(prefix, length), pair).second) {
        continue;
      }
      setLeaf(entry, slot, prefix, length);
      nhi[slot / pairs].base[slot % pairs] = pair.base;
      nhi[slot / pairs].size[slot % pairs] = pair.size;
    }
    for (U32 i = 0; i < nhiRows; ++i) {
      ASSERT_EQ(chip_.writeNhiRow(family_, tile_, nextNhiRow_ + i, nhi[i]), XP_NO_ERR)
          << chip_.lastError();
    }
    nextNhiRow_ += nhiRows;
    ASSERT_EQ(chip_.writePrefixRow(family_, id, row, entry), XP_NO_ERR) << chip_.lastError();
  }

  NhiPair randomPair() {
    const NhiProfile& nhi = chip_.profile().family(family_).nhi;
    const U32 highestSize = (1U << (nhi.pairWidth() - nhi.blockBaseWidth)) - 1;
    return {.base = random_.between(0, (1U << nhi.blockBaseWidth) - 2),
            .size = random_.between(0, highestSize)};
  }

  Chip& chip_;
  Family family_;
  Random& random_;
  std::map<std::string, NhiPair> prefixes_;
  U32 tile_ = 0;
  U32 nextNhiRow_ = 0;
};

class LookupIn : public testing::TestWithParam<Family> {
 protected:
  static std::array<U8, 16> addressOf(const LpmKey& key) {
    std::array<U8, 16> address;
    for (U32 i = 0; i < address.size(); ++i) {
      address[i] = key.byte(i + 2);
    }
    return address;
  }

  static U16 vrfOf(const LpmKey& key) { return static_cast<U16>(key.bits(0, 16)); }

  static LookupResult lookup(const Chip& chip, const LpmKey& key) {
    return chip.lookup(GetParam(), vrfOf(key), addressOf(key).data());
  }

  static void compare(const Chip& chip, const RandomContent& content, const LpmKey& key) {
    const LookupResult result = lookup(chip, key);
    const std::optional<Answer> expected = content.naiveLookup(key);
    ASSERT_EQ(result.matched, expected.has_value()) << digits(key, content.keyWidth());
    if (!expected) {
      return;
    }
    ASSERT_EQ(result.matchLen, expected->length) << digits(key, content.keyWidth());
    ASSERT_EQ(result.base, expected->pair.base) << digits(key, content.keyWidth());
    ASSERT_EQ(result.size, expected->pair.size) << digits(key, content.keyWidth());
    ASSERT_EQ(result.hasNextHop(), !expected->pair.null());
    expectPairIsWhereTheResultSays(chip, result);
  }

  static void expectPairIsWhereTheResultSays(const Chip& chip, const LookupResult& result) {
    xpLpmPrefixEntry row;
    ASSERT_EQ(chip.readPrefixRow(GetParam(), result.table, result.row, row), XP_NO_ERR);
    const U32 pairs = chip.profile().family(GetParam()).nhi.pairsPerEntry;
    ASSERT_EQ(result.tile, row.nhiTile);
    ASSERT_EQ(result.nhiRow, row.nhiOffset + result.slot / pairs);
    ASSERT_EQ(result.pair, result.slot % pairs);
    xpLpmNhiEntry nhi;
    ASSERT_EQ(chip.readNhiRow(GetParam(), result.tile, result.nhiRow, nhi), XP_NO_ERR);
    ASSERT_EQ(result.base, U32{nhi.base[result.pair]});
    ASSERT_EQ(result.size, U32{nhi.size[result.pair]});
  }
};

TEST_P(LookupIn, agreesWithALinearSearchOnRandomContent) {
  Random random;
  SCOPED_TRACE(random.seedText());
  std::size_t held = 0;
  for (const U32 pairs : {6U, 7U, 8U, 10U}) {
    for (int round = 0; round < 20; ++round) {
      Chip chip(smallProfile(pairs, /*blockBaseWidth=*/9));
      RandomContent content(chip, GetParam(), random);
      content.fill(60);
      if (HasFatalFailure()) {
        return;
      }
      held += content.prefixes().size();
      for (const auto& [prefix, pair] : content.prefixes()) {
        compare(chip, content, content.keyWithin(prefix));
      }
      for (int i = 0; i < 300 && !HasFatalFailure(); ++i) {
        compare(chip, content, content.randomKey());
      }
    }
  }
  EXPECT_GT(held, 1000U);
}

TEST_P(LookupIn, survivesAnyBitsInTheMemory) {
  Random random;
  SCOPED_TRACE(random.seedText());
  Chip chip(smallProfile());
  U32 matches = 0;
  for (int round = 0; round < 200; ++round) {
    for (U64& word : chip.memory().words()) {
      word = random.word();
    }
    // Rows of the right kind with random lengths get further than all-random ones.
    for (U32 table = 0; table < chip.profile().family(GetParam()).tables.size(); ++table) {
      const PrefixTableProfile& shape = chip.profile().family(GetParam()).tables[table];
      U64* words = chip.memory().prefixTable(GetParam(), table);
      for (U32 row = 0; row < shape.rows; ++row) {
        const U32 code = keySizeCode(chip.profile().family(GetParam()).keyWidth);
        U64& first = words[std::size_t{row} * (shape.sramWidth / 64)];
        first = (first & ~U64{0xfff}) | random.between(0, 24) << 4 | kSparseModeCode << 2 | code;
      }
    }
    chip.memoryChanged();
    for (int i = 0; i < 50; ++i) {
      const LpmKey key{.words = {random.word() & lowBits(40), random.word(), 0}};
      const Explanation seen = chip.explain(GetParam(), vrfOf(key), addressOf(key).data());
      matches += U32{lookup(chip, key).matched};
      ASSERT_FALSE(seen.toText().empty());
    }
  }
  EXPECT_GT(matches, 0U);
}

INSTANTIATE_TEST_SUITE_P(ChipLookup,
                         LookupIn,
                         testing::Values(Family::ipv4, Family::ipv6),
                         [](const auto& info) { return std::string(familyName(info.param)); });

}  // namespace
}  // namespace XdkSim
