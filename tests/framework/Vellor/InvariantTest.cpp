#include "framework/Vellor/Invariant.h"

#include <string>

#include "framework/Vellor/String8.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

/// Counts how often it is put into a text.
struct Watched {
  int* prints;

  friend std::ostream& operator<<(std::ostream& stream, const Watched& watched) {
    ++*watched.prints;
    return stream << "watched";
  }
};

TEST(Invariant, aCheckThatHoldsBuildsNoText) {
  int prints = 0;
  VELLOR_INVARIANT(prints == 0, "prints", " label ", Watched{&prints});
  VELLOR_ASSERT(prints == 0, "prints");
  EXPECT_EQ(prints, 0);
}

TEST(Invariant, theConditionIsEvaluatedOnce) {
  int evaluations = 0;
  VELLOR_ASSERT(++evaluations > 0, "evaluations");
  VELLOR_INVARIANT(++evaluations > 0, "evaluations", " label ", 1);
  EXPECT_EQ(evaluations, 2);
}

TEST(InvariantDeathTest, anAssertionWritesItsTextAlone) {
  EXPECT_DEATH(
      VELLOR_ASSERT(false, "stride()"),
      "^[^\n]*InvariantTest\\.cpp:[0-9]+: TestBody: Assertion `stride\\(\\)' failed\\.\n$");
}

TEST(InvariantDeathTest, anInvariantWritesItsContextAndThenTheQuotedExpression) {
  // The labels bring their own blanks, so that two stand behind the bracket; the line goes on.
  EXPECT_DEATH(VELLOR_INVARIANT(false, "nhiInfo", " subtrie ", String8("1,2"), " count ", 3),
               "^Failed\\(nhiInfo\\)  subtrie 1,2 count 3[^\n]*InvariantTest\\.cpp:[0-9]+: "
               "TestBody: Assertion `! \"nhiInfo\"' failed\\.\n$");
}

TEST(InvariantDeathTest, theExpressionIsTheLiteralNotTheCode) {
  const int count = 0;
  EXPECT_DEATH(VELLOR_INVARIANT(count != 0, "updateNhiInfoForSubTrie( subTrie )", " count ", count),
               "Failed\\(updateNhiInfoForSubTrie\\( subTrie \\)\\)  count 0.*"
               "Assertion `! \"updateNhiInfoForSubTrie\\( subTrie \\)\"' failed");
}

TEST(InvariantDeathTest, smallIntegersPrintAsNumbers) {
  EXPECT_DEATH(VELLOR_INVARIANT(false, "x", " u8 ", U8{65}, " u16 ", U16{66}, " yes ", true),
               "Failed\\(x\\)  u8 65 u16 66 yes 1");
}

}  // namespace
}  // namespace Vellor
