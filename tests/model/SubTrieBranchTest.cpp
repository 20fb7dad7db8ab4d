#include "model/SubTrieBranch.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

/// The message of the exception of type `Expected` that `action` raises.
template <class Expected, class Action>
std::string raised(const Action& action) {
  try {
    action();
  } catch (const Expected& exception) {
    return exception.message().str();
  }
  return "nothing was raised";
}

const SubTrieBranch kCounting(0x00010203, 0x04050607, 0x08090a0b, 0x0c0d0e0f, 0x1011);

TEST(SubTrieBranch, startsAllZero) { EXPECT_EQ(SubTrieBranch(), SubTrieBranch(0, 0, 0, 0, 0)); }

TEST(SubTrieBranch, bytesAreNumberedFromTheMostSignificantEnd) {
  for (U32 index = 0; index < 18; ++index) {
    EXPECT_EQ(kCounting.u8(index), index);
  }
}

TEST(SubTrieBranch, writingAByteLeavesTheOthers) {
  for (U32 index = 0; index < 18; ++index) {
    SubTrieBranch branch = kCounting;
    branch.u8Is(index, 0xff);
    for (U32 other = 0; other < 18; ++other) {
      EXPECT_EQ(branch.u8(other), other == index ? 0xffU : other) << "after writing " << index;
    }
  }
}

TEST(SubTrieBranch, byteSixteenIsTheHighByteOfWord4AndSeventeenTheLow) {
  SubTrieBranch branch(1, 2, 3, 4, 0x5566);
  branch.u8Is(16, 0xab);
  EXPECT_EQ(branch, SubTrieBranch(1, 2, 3, 4, 0xab66));
  branch.u8Is(17, 0xcd);
  EXPECT_EQ(branch, SubTrieBranch(1, 2, 3, 4, 0xabcd));
}

TEST(SubTrieBranch, wideWordsAreNumberedFromTheMostSignificantEnd) {
  EXPECT_EQ(kCounting.u64(0), 0x0001020304050607U);
  EXPECT_EQ(kCounting.u64(1), 0x08090a0b0c0d0e0fU);
  EXPECT_EQ(kCounting.u64(2), 0x1011000000000000U);
}

TEST(SubTrieBranch, wideWordTwoIsLeftAligned) {
  EXPECT_EQ(SubTrieBranch(0, 0, 0, 0, 1).u64(2), 281474976710656U);
}

TEST(SubTrieBranch, writingAWideWordSetsItsWordsAlone) {
  SubTrieBranch branch = kCounting;
  branch.u64Is(0, 0x1112131415161718);
  EXPECT_EQ(branch, SubTrieBranch(0x11121314, 0x15161718, 0x08090a0b, 0x0c0d0e0f, 0x1011));
  branch = kCounting;
  branch.u64Is(1, 0x1112131415161718);
  EXPECT_EQ(branch, SubTrieBranch(0x00010203, 0x04050607, 0x11121314, 0x15161718, 0x1011));
  branch = kCounting;
  branch.u64Is(2, 0xabcd131415161718);
  EXPECT_EQ(branch, SubTrieBranch(0x00010203, 0x04050607, 0x08090a0b, 0x0c0d0e0f, 0xabcd));
}

TEST(SubTrieBranch, writingASmallNumberToWideWordTwoClearsWord4) {
  SubTrieBranch branch = kCounting;
  branch.u64Is(2, 5);
  EXPECT_EQ(branch.word4(), 0U);
}

TEST(SubTrieBranch, indicesOutOfRangeRaiseAndChangeNothing) {
  using Vellor::RangeException;
  SubTrieBranch branch = kCounting;
  for (const U32 index : {18U, 19U, ~U32{0}}) {
    EXPECT_EQ(raised<RangeException>([&] { branch.u8(index); }),
              "SubTrieBranch::u8: index out of range");
    EXPECT_EQ(raised<RangeException>([&] { branch.u8Is(index, 1); }),
              "SubTrieBranch::u8Is: index out of range");
  }
  for (const U32 index : {3U, ~U32{0}}) {
    EXPECT_EQ(raised<RangeException>([&] { branch.u64(index); }),
              "SubTrieBranch::u64: index out of range");
    EXPECT_EQ(raised<RangeException>([&] { branch.u64Is(index, 1); }),
              "SubTrieBranch::u64Is: index out of range");
  }
  EXPECT_EQ(branch, kCounting);
}

TEST(SubTrieBranch, theViewsCannotLoseMembers) {
  using Vellor::NondeletableAttrException;
  SubTrieBranch branch = kCounting;
  for (const U32 index : {0U, 99U}) {
    EXPECT_EQ(raised<NondeletableAttrException>([&] { branch.u8Del(index); }),
              "SubTrieBranch::u8Del");
    EXPECT_EQ(raised<NondeletableAttrException>([&] { branch.u64Del(index); }),
              "SubTrieBranch::u64Del");
  }
  EXPECT_EQ(branch, kCounting);
}

TEST(SubTrieBranch, comparesWordByWordUnsigned) {
  const SubTrieBranch ascending[] = {
      {},
      {0, 0, 0, 0, 1},
      {0, 0, 0, 0, 0xffff},
      {0, 0, 0, 1, 0},
      {0, 0, 1, 0, 0},
      {0, 1, 0, 0, 0},
      {1, 0, 0, 0, 0},
      {1, 0, 0, 0, 1},
      {0x80000000, 0, 0, 0, 0},
      {0xffffffff, 0xffffffff, 0xffffffff, 0xffffffff, 0xffff},
  };
  for (const SubTrieBranch& a : ascending) {
    for (const SubTrieBranch& b : ascending) {
      EXPECT_EQ(a < b, &a < &b) << a << " < " << b;
      EXPECT_EQ(a <= b, &a <= &b) << a << " <= " << b;
      EXPECT_EQ(a > b, &a > &b) << a << " > " << b;
      EXPECT_EQ(a >= b, &a >= &b) << a << " >= " << b;
      EXPECT_EQ(a == b, &a == &b) << a << " == " << b;
      EXPECT_EQ(a != b, &a != &b) << a << " != " << b;
    }
  }
}

TEST(SubTrieBranch, writesOneWordAlone) {
  SubTrieBranch branch;
  branch.word0Is(1);
  branch.word1Is(2);
  branch.word2Is(3);
  branch.word3Is(4);
  branch.word4Is(5);
  EXPECT_EQ(branch, SubTrieBranch(1, 2, 3, 4, 5));
}

TEST(SubTrieBranch, printsItsWordsInDecimal) {
  const SubTrieBranch branch(4294967295U, 1, 2, 3, 65535);
  EXPECT_EQ(valueToStrep(branch),
            "Value('Quarle::Tarnlet::SubTrieBranch', ** {'word0': 4294967295, 'word1': 1, "
            "'word2': 2, 'word3': 3, 'word4': 65535})");
  std::ostringstream stream;
  stream << branch;
  EXPECT_EQ(stream.str(), valueToStrep(branch).str());
}

}  // namespace
}  // namespace Quarle::Tarnlet
