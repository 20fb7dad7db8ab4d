#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include "framework/Brumel/Brumel.h"

#include <gtest/gtest.h>

namespace {

using Brumel::Bitmap;
using Brumel::HBitmap::BitState;
using Brumel::HBitmap::IndexPreference;

constexpr auto kLowest = static_cast<IndexPreference>(0);

Bitmap::Ptr newBitmap(U32 size) { return new Bitmap(0, size, static_cast<BitState>(1)); }

TEST(Bitmap, stateOneIsAllClear) {
  for (const U32 size : {1u, 63u, 64u, 65u, 216u, 255u, 256u, 1000u}) {
    const Bitmap::Ptr bitmap = new Bitmap(42, size, static_cast<BitState>(1));
    EXPECT_EQ(bitmap->id(), 42u);
    EXPECT_EQ(bitmap->size(), size);
    EXPECT_EQ(bitmap->findSetBitInRange(0, size, kLowest), size);
    EXPECT_EQ(bitmap->findClearBitInRange(0, size - 1, kLowest), 0u);
  }
}

TEST(Bitmap, stateZeroIsAllSet) {
  for (const U32 size : {1u, 63u, 64u, 65u, 216u, 255u, 256u, 1000u}) {
    const Bitmap::Ptr bitmap = new Bitmap(0, size, static_cast<BitState>(0));
    EXPECT_EQ(bitmap->findClearBitInRange(0, size, kLowest), size);
    EXPECT_EQ(bitmap->findSetBitInRange(0, size - 1, kLowest), 0u);
  }
}

TEST(Bitmap, lowestMatchOfTheRangeIsFound) {
  const Bitmap::Ptr bitmap = newBitmap(200);
  bitmap->setBitsInRange(0, 2);
  bitmap->setBit(70);
  bitmap->setBit(199);
  EXPECT_EQ(bitmap->findClearBitInRange(0, 199, kLowest), 3u);
  EXPECT_EQ(bitmap->findSetBitInRange(3, 199, kLowest), 70u);
  EXPECT_EQ(bitmap->findSetBitInRange(71, 199, kLowest), 199u);
  EXPECT_EQ(bitmap->findSetBitInRange(70, 70, kLowest), 70u);
}

TEST(Bitmap, nothingIsFoundPastTheRangeEvenInItsLastWord) {
  const Bitmap::Ptr bitmap = newBitmap(200);
  bitmap->setBit(70);
  EXPECT_EQ(bitmap->findSetBitInRange(0, 69, kLowest), 200u);
  EXPECT_EQ(bitmap->findSetBitInRange(71, 199, kLowest), 200u);
  EXPECT_EQ(bitmap->findSetBitInRange(9, 8, kLowest), 200u);
}

TEST(Bitmap, rangeMayReachPastTheEnd) {
  const Bitmap::Ptr bitmap = newBitmap(24);
  EXPECT_EQ(bitmap->findSetBitInRange(0, 24, kLowest), 24u);
  bitmap->setBit(23);
  EXPECT_EQ(bitmap->findSetBitInRange(0, 24, kLowest), 23u);
  EXPECT_EQ(bitmap->findSetBitInRange(24, 24, kLowest), 24u);
  bitmap->setBitsInRange(0, 23);
  EXPECT_EQ(bitmap->findClearBitInRange(0, ~0u, kLowest), 24u);
}

TEST(Bitmap, emptyBitmapFindsNothing) {
  for (const U32 state : {0u, 1u}) {
    const Bitmap::Ptr bitmap = new Bitmap(0, 0, static_cast<BitState>(state));
    EXPECT_EQ(bitmap->findSetBitInRange(0, 0, kLowest), 0u);
    EXPECT_EQ(bitmap->findClearBitInRange(0, 0, kLowest), 0u);
  }
}

TEST(Bitmap, isSmall) { EXPECT_LE(sizeof(Bitmap), 48u); }

TEST(BitmapDeathTest, bitsOutsideAreFatal) {
  const Bitmap::Ptr bitmap = newBitmap(24);
  EXPECT_DEATH(bitmap->setBit(24), "Assertion `bit < size\\(\\)' failed");
  EXPECT_DEATH(bitmap->clearBit(24), "Assertion `bit < size\\(\\)' failed");
  EXPECT_DEATH(static_cast<void>(bitmap->isBitSet(24)), "Assertion `bit < size\\(\\)' failed");
  EXPECT_DEATH(bitmap->setBitsInRange(0, 24), "Assertion `last < size\\(\\)' failed");
  EXPECT_DEATH(bitmap->setBitsInRange(2, 1), "Assertion `first <= last' failed");
}

TEST(BitmapDeathTest, otherPreferencesAreFatal) {
  const Bitmap::Ptr bitmap = newBitmap(24);
  EXPECT_DEATH(bitmap->findSetBitInRange(0, 1, static_cast<IndexPreference>(1)),
               "Assertion `preference == preferLowest' failed");
  EXPECT_DEATH(bitmap->findClearBitInRange(0, 1, static_cast<IndexPreference>(1)),
               "Assertion `preference == preferLowest' failed");
}

TEST(Bitmap, agreesWithAVectorOfBools) {
  const char* text = std::getenv("VELLOR_TEST_SEED");
  const U32 seed =
      text != nullptr ? static_cast<U32>(std::strtoul(text, nullptr, 10)) : std::random_device()();
  std::mt19937 random(seed);
  for (int round = 0; round < 60; ++round) {
    const U32 size = 1 + static_cast<U32>(random() % 300);
    const Bitmap::Ptr bitmap = newBitmap(size);
    std::vector<bool> model(size);
    const auto find = [&](U32 first, U32 last, bool wanted) {
      for (U32 bit = first; bit <= last && bit < size; ++bit) {
        if (model[bit] == wanted) {
          return bit;
        }
      }
      return size;
    };
    for (int step = 0; step < 300; ++step) {
      SCOPED_TRACE(testing::Message() << "VELLOR_TEST_SEED=" << seed << " round " << round
                                      << " size " << size << " step " << step);
      const U32 bit = static_cast<U32>(random() % size);
      const U32 other = static_cast<U32>(random() % size);
      switch (random() % 8) {
        case 0:
          bitmap->setBitsInRange(std::min(bit, other), std::max(bit, other));
          std::fill(model.begin() + std::min(bit, other), model.begin() + std::max(bit, other) + 1,
                    true);
          break;
        case 1:
        case 2:
          bitmap->setBit(bit);
          model[bit] = true;
          break;
        default:
          bitmap->clearBit(bit);
          model[bit] = false;
          break;
      }
      const U32 first = static_cast<U32>(random() % size);
      const U32 last = static_cast<U32>(random() % (size + 2));
      ASSERT_EQ(bitmap->findSetBitInRange(first, last, kLowest), find(first, last, true));
      ASSERT_EQ(bitmap->findClearBitInRange(first, last, kLowest), find(first, last, false));
      ASSERT_EQ(bitmap->isBitSet(other), model[other]);
    }
  }
}

}  // namespace
