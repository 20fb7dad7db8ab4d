#include "framework/Vellor/DynArray.h"

#include "framework/Vellor/PtrInterface.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

struct Object : PtrInterface {};

using Array = DynArray<Ptr<Object>>;

class DynArrayTest : public testing::Test {
 protected:
  const Ptr<Object> a_{new Object};
  const Ptr<Object> b_{new Object};
  Array array_;
};

TEST_F(DynArrayTest, growsToHoldTheIndex) {
  EXPECT_TRUE(array_.set(3, a_));
  EXPECT_EQ(array_.count(), 4U);
  EXPECT_EQ(array_.value(3), a_);
  EXPECT_EQ(array_.value(0), nullptr);
}

TEST_F(DynArrayTest, readsNullAtAndBeyondTheCount) {
  array_.set(0, a_);
  EXPECT_EQ(array_.value(1), nullptr);
  EXPECT_EQ(array_.value(~U64{0}), nullptr);
  EXPECT_EQ(array_.count(), 1U);
}

TEST_F(DynArrayTest, tellsWhetherAnythingChanged) {
  EXPECT_TRUE(array_.set(0, a_));
  EXPECT_FALSE(array_.set(0, a_));
  EXPECT_TRUE(array_.set(0, b_));
  EXPECT_EQ(a_->references(), 1U);
  EXPECT_EQ(b_->references(), 2U);
}

TEST_F(DynArrayTest, takingTheLastPlaceShortensIt) {
  array_.set(0, a_);
  array_.set(1, b_);
  bool removed = false;
  EXPECT_EQ(array_.take(1, removed), b_);
  EXPECT_TRUE(removed);
  EXPECT_EQ(array_.count(), 1U);
  EXPECT_EQ(array_.take(1, removed), nullptr);
  EXPECT_FALSE(removed);
}

TEST_F(DynArrayTest, takingAnInnerPlaceLeavesANull) {
  array_.set(0, a_);
  array_.set(1, b_);
  bool removed = false;
  EXPECT_EQ(array_.take(0, removed), a_);
  EXPECT_TRUE(removed);
  EXPECT_EQ(array_.count(), 2U);
  EXPECT_EQ(array_.value(0), nullptr);
  EXPECT_EQ(array_.value(1), b_);
}

TEST_F(DynArrayTest, oneStepMayAddOneEntryLessThanTheLimit) {
  EXPECT_TRUE(array_.set(2003002, a_));
  EXPECT_EQ(array_.count(), 2003003U);
}

using DynArrayDeathTest = DynArrayTest;

TEST_F(DynArrayDeathTest, aStepOfTheLimitIsFatal) {
  EXPECT_DEATH(array_.set(2003003, a_), "Assertion `newEntries < 2003004' failed");
}

TEST_F(DynArrayDeathTest, theLimitCountsFromWhatIsThere) {
  array_.set(9, a_);
  EXPECT_TRUE(array_.set(10 + 2003002, b_));
  EXPECT_DEATH(array_.set(10 + 2003002 + 2003004, a_), "Assertion `newEntries < 2003004' failed");
}

}  // namespace
}  // namespace Vellor
