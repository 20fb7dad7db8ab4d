#include "framework/Vellor/String8.h"

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace Vellor {
namespace {

TEST(String8, isACountedText) {
  const String8 text(std::string("a\0b", 3));
  EXPECT_EQ(text.size(), 3U);
  EXPECT_EQ(std::string(text.charPtr()), "a");
  EXPECT_TRUE(String8().empty());
  EXPECT_STREQ(String8().charPtr(), "");
}

TEST(String8, plusLeavesItsOperandsAlone) {
  const String8 left("tile ");
  const String8 right("3");
  EXPECT_EQ(left + right, "tile 3");
  EXPECT_EQ("no " + right, "no 3");
  EXPECT_EQ(left + "4", "tile 4");
  EXPECT_EQ(left, "tile ");
  EXPECT_EQ(right, "3");
}

TEST(String8, plusAssignAppendsAndYieldsTheText) {
  String8 text("a");
  (text += "b") += String8("c");
  EXPECT_EQ(text, "abc");
  text += text;
  EXPECT_EQ(text, "abcabc");
}

TEST(String8, aCopyIsIndependent) {
  String8 text("one");
  const String8 copy = text;
  text += " more";
  EXPECT_EQ(copy, "one");
  EXPECT_NE(copy, text);
}

TEST(String8, iteratorWalksTheBytes) {
  const String8 text("'tile'");
  std::string walked;
  for (String8::IteratorConst at = text.begin(); at != text.end(); ++at) {
    walked += *at;
  }
  EXPECT_EQ(walked, "'tile'");
}

TEST(String8, comparesAndHashesByContent) {
  EXPECT_LT(String8("abc"), String8("abd"));
  EXPECT_LT(String8("ab"), String8("abc"));
  EXPECT_EQ(String8("abc").hash(), String8("abc").hash());
}

TEST(String8, formatIsPrintfIntoAText) {
  EXPECT_EQ(format("%d,%u,%s,0x%x,%%", -3, 4U, "five", 0xabcU), "-3,4,five,0xabc,%");
  EXPECT_EQ(format("%s", ""), "");
}

TEST(String8, formatTakesTextsOfAnyLength) {
  const std::string text(100000, 'x');
  EXPECT_EQ(format("<%s>", text.c_str()).str(), "<" + text + ">");
}

TEST(String8, streamsAsItsBytes) {
  std::ostringstream stream;
  stream << Name("LpmSm") << ' ' << String("v4");
  EXPECT_EQ(stream.str(), "LpmSm v4");
}

}  // namespace
}  // namespace Vellor
