#include "model/Enumerations.h"

#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

/// Each enumeration's operations under one name.
template <class T>
struct Operations;

#define OPERATIONS(Type, listed)                                                       \
  template <>                                                                          \
  struct Operations<Type> {                                                            \
    static constexpr const char* kName = #Type;                                        \
    static constexpr const char* kListed = listed;                                     \
    static Type instance(U32 number) { return Type##Instance(number); }                \
    static Type instance(const Vellor::String8& text) { return Type##Instance(text); } \
  }

OPERATIONS(KeyType, "keyShort48b keyLong144b ");
OPERATIONS(PrefixTableType, "prefixTableNarrow128b prefixTableWide256b ");
OPERATIONS(SubTrieMode, "modeSparse modeBitmap modeCpe ");
OPERATIONS(CommandType, "commandTypePrefix commandTypeNhi ");
OPERATIONS(RestartMode, "modeNoRestart modeRestartCli modeRestartTest modeRestartNormal ");
OPERATIONS(RouteReturnCode,
           "pass fail retry subTrieNotPresent subTriePresent nhiTableFull nhiCapacityExceeded "
           "full hashCollision ");
#undef OPERATIONS

template <class T>
class Enumeration : public testing::Test {
 protected:
  using Of = Operations<T>;

  /// What `instance` raises.
  template <class From>
  static std::string refusal(const From& from) {
    try {
      Of::instance(from);
    } catch (const Vellor::RangeException& exception) {
      return exception.message().str();
    }
    return "nothing was raised";
  }

  static U32 enumerators() {
    std::string listed = Of::kListed;
    return static_cast<U32>(std::count(listed.begin(), listed.end(), ' '));
  }
};

using EnumerationTypes = testing::
    Types<KeyType, PrefixTableType, SubTrieMode, CommandType, RestartMode, RouteReturnCode>;
TYPED_TEST_SUITE(Enumeration, EnumerationTypes);

TYPED_TEST(Enumeration, namesItsNumbersFromZero) {
  static_assert(sizeof(TypeParam) == 4);
  std::string names;
  for (U32 number = 0; number < this->enumerators(); ++number) {
    names += stringValue(static_cast<TypeParam>(number)).str() + " ";
  }
  EXPECT_EQ(names, TestFixture::Of::kListed);
}

TYPED_TEST(Enumeration, aNumberOutsidePrintsWithTheTypesName) {
  const std::string name = TestFixture::Of::kName;
  const U32 first = this->enumerators();
  EXPECT_EQ(stringValue(static_cast<TypeParam>(first)),
            Vellor::String8(name + "(" + std::to_string(first) + ")"));
  EXPECT_EQ(stringValue(static_cast<TypeParam>(~U32{0})), Vellor::String8(name + "(-1)"));
}

TYPED_TEST(Enumeration, instancesComeFromNumberAndName) {
  for (U32 number = 0; number < this->enumerators(); ++number) {
    const auto value = static_cast<TypeParam>(number);
    EXPECT_EQ(TestFixture::Of::instance(number), value);
    EXPECT_EQ(TestFixture::Of::instance(stringValue(value)), value);
  }
}

TYPED_TEST(Enumeration, anUnknownNumberOrNameRaisesTheTypesName) {
  EXPECT_EQ(this->refusal(this->enumerators()), TestFixture::Of::kName);
  EXPECT_EQ(this->refusal(~U32{0}), TestFixture::Of::kName);
  for (const char* text : {"", "nothing", "KeyType(2)", "Pass", "pass "}) {
    EXPECT_EQ(this->refusal(Vellor::String8(text)), TestFixture::Of::kName) << text;
  }
}

TYPED_TEST(Enumeration, streamsItsNameAndQuotesItAsAValue) {
  const auto value = static_cast<TypeParam>(1);
  std::ostringstream stream;
  stream << value;
  EXPECT_EQ(stream.str(), stringValue(value).str());
  EXPECT_EQ(valueToStrep(value), "'" + stringValue(value) + "'");
}

TEST(RouteReturnCode, theNumberNineFillsTheFormat) {
  EXPECT_EQ(stringValue(static_cast<RouteReturnCode>(9)), "RouteReturnCode(9)");
}

TEST(RestartMode, fourIsNoMode) {
  try {
    RestartModeInstance(4);
    FAIL() << "nothing was raised";
  } catch (const Vellor::RangeException& exception) {
    EXPECT_EQ(exception.message(), "RestartMode");
  }
}

}  // namespace
}  // namespace Quarle::Tarnlet
