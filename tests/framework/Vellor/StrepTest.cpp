// The parts that textual forms are made of.

#include "framework/Vellor/Strep.h"

#include <string>

#include "tests/framework/Vellor/SampleEntity.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

template <class T>
std::string refusal(const std::string& text) {
  try {
    T value{};
    strepToValue(String8(text), &value);
  } catch (const RangeException& exception) {
    return exception.message().str();
  }
  return "none";
}

template <class T>
T parsed(const std::string& text) {
  T value{};
  strepToValue(String8(text), &value);
  return value;
}

TEST(NeedString, aBlankStandsForAnyWhiteSpaceOrNone) {
  for (const char* text : {"a b", "ab", "a \t\n b", "a\v\f\rb"}) {
    const String8 whole = text;
    StrepIterator iterator = whole.begin();
    needString(iterator, whole.end(), "a b");
    EXPECT_EQ(iterator, whole.end()) << text;
  }
}

TEST(NeedString, theFirstDifferenceRaises) {
  const String8 text = "Velue";
  StrepIterator iterator = text.begin();
  try {
    needString(iterator, text.end(), " Value");
    FAIL() << "nothing raised";
  } catch (const RangeException& exception) {
    EXPECT_EQ(exception.message(), "expected \"alue\", found \"elue\"");
  }
}

TEST(Strep, numbersAreDecimal) {
  EXPECT_EQ(valueToStrep(U64{18446744073709551615U}), "18446744073709551615");
  EXPECT_EQ(valueToStrep(U8{7}), "7");
  EXPECT_EQ(parsed<U64>("18446744073709551615"), 18446744073709551615U);
  EXPECT_EQ(parsed<int>("-2147483648"), -2147483648);
  EXPECT_EQ(refusal<U64>("18446744073709551616"), "number of more than 64 bits");
  EXPECT_EQ(refusal<int>("2147483648"), "number of more than 32 bits");
  EXPECT_EQ(refusal<U8>("256"), "number above 255");
  EXPECT_EQ(refusal<U32>(""), "expected a number, found the end");
  EXPECT_EQ(refusal<U32>("-1"), "expected a number, found \"-1\"");
  EXPECT_EQ(refusal<U32>("0x10"), "junk at column 1 deserializing 0x10");
}

TEST(Strep, truthIsTrueOrFalse) {
  EXPECT_EQ(valueToStrep(true), "True");
  EXPECT_EQ(valueToStrep(false), "False");
  EXPECT_TRUE(parsed<bool>("True"));
  EXPECT_FALSE(parsed<bool>("False"));
  EXPECT_EQ(refusal<bool>("1"), "expected True or False, found \"1\"");
  EXPECT_EQ(refusal<bool>("Trie"), "expected \"ue\", found \"ie\"");
}

TEST(Strep, everyTextComesBackEqual) {
  std::string all;
  for (int c = 0; c < 256; ++c) {
    all += static_cast<char>(c);
  }
  for (const std::string& text : {std::string(), std::string("it's"), std::string("a\\b"), all}) {
    EXPECT_EQ(parsed<String8>(valueToStrep(String8(text)).str()), String8(text));
  }
  EXPECT_EQ(valueToStrep(String8("it's\n\x01")), "'it\\'s\\n\\x01'");
  EXPECT_EQ(parsed<String8>("\"it's\""), "it's");
  EXPECT_EQ(refusal<String8>("'open"), "expected a closing ', found the end");
  EXPECT_EQ(refusal<String8>("bare"), "expected a text between quotes, found \"bare\"");
  EXPECT_EQ(refusal<String8>("'\\x4'"), "expected two hexadecimal digits, found \"'\"");
}

TEST(Strep, numbersOfAttributesAreCut) {
  const String8 text = "258";
  StrepIterator iterator = text.begin();
  U8 value = 0;
  deserializeAttr(iterator, text.end(), &value, "row");
  EXPECT_EQ(value, 2);
  EXPECT_EQ(iterator, text.end());
}

TEST(Strep, anObjectIsReadByItsName) {
  const Testing::Sample::Ptr sample(new Testing::Sample("first"));
  EXPECT_EQ(valueToStrep(sample), "'first'");
  EXPECT_EQ(valueToStrep(Testing::Sample::Ptr()), "None");
  EXPECT_EQ(parsed<Testing::Sample::Ptr>("None"), nullptr);
  EXPECT_EQ(refusal<Testing::Sample::Ptr>("'first'"),
            "cannot convert 'first' to Vellor::Testing::Sample");
  objectByNameIs([&](const String8& text) {
    return text == "first" ? Ptr<PtrInterface>(sample) : Ptr<PtrInterface>();
  });
  EXPECT_EQ(parsed<Testing::Sample::Ptr>("'first'"), sample);
  EXPECT_EQ(refusal<Testing::Table::Ptr>("'first'"),
            "cannot convert 'first' to Vellor::Testing::Table");
  EXPECT_EQ(refusal<Testing::Sample::Ptr>("'second'"),
            "cannot convert 'second' to Vellor::Testing::Sample");
  objectByNameIs(nullptr);
}

}  // namespace
}  // namespace Vellor
