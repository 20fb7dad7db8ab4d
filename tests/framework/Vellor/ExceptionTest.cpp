#include "framework/Vellor/Exception.h"

#include <exception>

#include <gtest/gtest.h>

namespace Vellor {
namespace {

template <class T>
class ExceptionOfType : public testing::Test {};

using ExceptionTypes = testing::Types<RangeException,
                                      NoImplementationException,
                                      ImmutableAttrMutationException,
                                      NondeletableAttrException,
                                      OpNotSupportedException>;
TYPED_TEST_SUITE(ExceptionOfType, ExceptionTypes);

TYPED_TEST(ExceptionOfType, isAnExceptionWithItsMessage) {
  try {
    throw TypeParam("what went wrong");
  } catch (const Exception& exception) {
    EXPECT_EQ(exception.message(), "what went wrong");
    EXPECT_STREQ(exception.what(), "what went wrong");
    EXPECT_NE(dynamic_cast<const TypeParam*>(&exception), nullptr);
  }
}

TEST(Exception, throwRangeExceptionRaisesOneOfThatText) {
  try {
    throwRangeException("value > 32");
    FAIL() << "nothing was raised";
  } catch (const RangeException& exception) {
    EXPECT_EQ(exception.message(), "value > 32");
  }
}

TEST(Exception, kindsAreNotOneAnother) {
  EXPECT_THROW(
      {
        try {
          throw NondeletableAttrException("a");
        } catch (const RangeException&) {
        } catch (const OpNotSupportedException&) {
        }
      },
      NondeletableAttrException);
}

}  // namespace
}  // namespace Vellor
