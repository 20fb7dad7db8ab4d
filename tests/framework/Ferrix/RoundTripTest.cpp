// What goes in comes out: operands of every type, statements and files, and texts that are too
// long.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

#include "framework/Dunlix/Dunlix.h"
#include "framework/Ferrix/RingBuf.h"
#include "tests/framework/Ferrix/TraceFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ferrix {
namespace {

using testing::ElementsAre;

class TraceRoundTrip : public Testing::TraceFixture {
 protected:
  TraceRoundTrip() { traceFileIs(path_, kMinRingSize); }

  /// The text of one message with this operand, between marks.
  template <class Operand>
  std::string printed(Operand&& operand) {
    MsgDesc desc("Sample.cpp", 1);
    TraceReader reader(path_);
    textsOf(reader);
    write(desc, "<", std::forward<Operand>(operand), ">");
    const std::vector<std::string> texts = textsOf(reader);
    return texts.size() == 1 ? texts.front() : std::to_string(texts.size()) + " messages";
  }

  /// The texts of all messages, with "[N x]" for long runs of this letter.
  std::vector<std::string> shortTexts() const {
    std::vector<std::string> all = texts();
    for (std::string& text : all) {
      const std::size_t first = text.find("xxxxxxxxxx");
      if (first != std::string::npos) {
        const std::size_t end = std::min(text.find_first_not_of('x', first), text.size());
        text.replace(first, end - first, "[" + std::to_string(end - first) + " x]");
      }
    }
    return all;
  }

  // Letters of a text that is its message's only argument.
  static constexpr std::size_t kRoom = kMaxMsgSize - sizeof(MsgHead) - sizeof(U16);
};

enum class Colour : U8 { red };

std::ostream& operator<<(std::ostream& stream, Colour) { return stream << "red"; }

TEST_F(TraceRoundTrip, signedNumbersOfEveryWidth) {
  EXPECT_EQ(printed(std::numeric_limits<std::int8_t>::min()), "<-128>");
  EXPECT_EQ(printed(std::numeric_limits<std::int16_t>::min()), "<-32768>");
  EXPECT_EQ(printed(std::numeric_limits<std::int32_t>::min()), "<-2147483648>");
  EXPECT_EQ(printed(std::numeric_limits<std::int64_t>::min()), "<-9223372036854775808>");
  EXPECT_EQ(printed(std::int8_t{127}), "<127>");
  EXPECT_EQ(printed(-1LL), "<-1>");
}

TEST_F(TraceRoundTrip, unsignedNumbersOfEveryWidth) {
  EXPECT_EQ(printed(U8{255}), "<255>");
  EXPECT_EQ(printed(U16{65535}), "<65535>");
  EXPECT_EQ(printed(U32{4294967295}), "<4294967295>");
  EXPECT_EQ(printed(std::numeric_limits<U64>::max()), "<18446744073709551615>");
  EXPECT_EQ(printed(0ULL), "<0>");
}

TEST_F(TraceRoundTrip, otherNumbersPrintAsInAStream) {
  EXPECT_EQ(printed(true), "<1>");
  EXPECT_EQ(printed(false), "<0>");
  EXPECT_EQ(printed('x'), "<x>");
  EXPECT_EQ(printed(1.0 / 3), "<0.333333333333>");
  EXPECT_EQ(printed(-2.5F), "<-2.5>");
  EXPECT_EQ(printed(1.5L), "<1.5>");
  EXPECT_EQ(printed(-std::numeric_limits<double>::infinity()), "<-inf>");
}

TEST_F(TraceRoundTrip, textsOfEveryKind) {
  char array[] = "array";
  char* pointer = array;
  const char* none = nullptr;
  EXPECT_EQ(printed(array), "<array>");
  EXPECT_EQ(printed(pointer), "<array>");
  EXPECT_EQ(printed(none), "<>");
  EXPECT_EQ(printed(std::string("string")), "<string>");
  EXPECT_EQ(printed(std::string_view("view")), "<view>");
  EXPECT_EQ(printed(Vellor::String8("String8")), "<String8>");
  EXPECT_EQ(printed(std::string()), "<>");
  EXPECT_EQ(printed(std::string("a\0b", 3)), std::string("<a\0b>", 5));
}

TEST_F(TraceRoundTrip, pointersAreAddresses) {
  const int number = 0;
  std::ostringstream expected;
  expected << "<" << &number << ">";
  EXPECT_EQ(printed(&number), expected.str());
  EXPECT_EQ(printed(static_cast<const void*>(&number)), expected.str());
}

TEST_F(TraceRoundTrip, valuesAreKeptAsTheTextThatAStreamPrints) {
  EXPECT_EQ(printed(Colour::red), "<red>");
  EXPECT_EQ(printed(Dunlix::VrfId(7)), "<7>");
  EXPECT_EQ(printed(Dunlix::VrfAndPrefix(Dunlix::VrfId(7), Corsel::Prefix("10.0.0.0/8"))),
            "<vrf 7 prefix 10.0.0.0/8>");
}

TEST_F(TraceRoundTrip, literalsMayHoldBraces) {
  MsgDesc desc("Sample.cpp", 1);
  write(desc, "{", 1, "} {i32} }}{{ ", std::string("{u8}"));
  write(desc, "alone");
  EXPECT_THAT(texts(), ElementsAre("{1} {i32} }}{{ {u8}", "alone"));
}

TEST_F(TraceRoundTrip, aMessageTellsItsStatementAndTime) {
  const auto now = [] {
    return static_cast<U64>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                std::chrono::system_clock::now().time_since_epoch())
                                .count());
  };
  MsgDesc desc("model/Sample.cpp", 4711);
  const U64 before = now();
  write(desc, " prefixLen ", 34);
  const U64 after = now();
  TraceReader reader(path_);
  const std::optional<TraceMessage> message = reader.next();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->file, "model/Sample.cpp");
  EXPECT_EQ(message->line, 4711U);
  EXPECT_EQ(message->text, " prefixLen 34");
  EXPECT_GE(message->time, before);
  EXPECT_LE(message->time, after);
  EXPECT_EQ(message->missed, 0U);
  EXPECT_FALSE(reader.next());
}

TEST_F(TraceRoundTrip, literalsAreKeptOnceAndArgumentsInTheirWidth) {
  MsgDesc desc("Sample.cpp", 1);
  write(desc, "a long literal that many messages share ", U32{1}, " and ", U64{2});
  const FileHeader first = header();
  write(desc, "a long literal that many messages share ", U32{3}, " and ", U64{4});
  const FileHeader second = header();
  EXPECT_EQ(second.descUsed, first.descUsed);
  EXPECT_EQ(first.head, 32U) << "16 of head, 4 and 8 of arguments, and 4 to fill up";
  EXPECT_EQ(second.head, 64U);
}

TEST_F(TraceRoundTrip, anOperandMayChooseBetweenLiterals) {
  MsgDesc desc("Sample.cpp", 1);
  for (const bool up : {true, false, true}) {
    write(desc, "went ", up ? "up" : "dn");
  }
  EXPECT_THAT(texts(), ElementsAre("went up", "went dn", "went up"));
}

TEST_F(TraceRoundTrip, statementsOfOneFileMix) {
  MsgDesc one("One.cpp", 1);
  MsgDesc two("Two.cpp", 2);
  write(one, "a");
  write(two, "b", 1);
  write(one, "a");
  EXPECT_EQ(lines(), "One.cpp:1:a\nTwo.cpp:2:b1\nOne.cpp:1:a\n");
}

TEST_F(TraceRoundTrip, eachFileDescribesItsMessages) {
  MsgDesc desc("Sample.cpp", 1);
  write(desc, "first file");
  const std::string first = path_;
  path_ = (directory_ / "other").string();
  traceFileIs(path_, kMinRingSize);
  MsgDesc other("Other.cpp", 2);
  write(other, "other");
  write(desc, "first file");
  EXPECT_EQ(lines(), "Other.cpp:2:other\nSample.cpp:1:first file\n");
  path_ = first;
  EXPECT_EQ(lines(), "Sample.cpp:1:first file\n");
}

TEST_F(TraceRoundTrip, aLongTextIsCutAndSoIsTheRest) {
  MsgDesc desc("Sample.cpp", 1);
  const std::string longText(100'000, 'x');
  write(desc, "n ", U32{1}, " text ", longText, " more ", 2, " and ", longText, " end");
  write(desc, "after");
  EXPECT_EQ(kRoom, 4078U);
  EXPECT_THAT(shortTexts(), ElementsAre("n 1 text [4074 x]...", "after"));
}

TEST_F(TraceRoundTrip, nothingStandsBehindANumberThatWasCut) {
  MsgDesc desc("Sample.cpp", 1);
  const std::string text(kRoom - sizeof(U32), 'x');
  write(desc, text, " ", U64{8}, " ", U32{4}, " ", U8{1});
  write(desc, text, " ", U64{8}, " ", std::string("text"), " ", U8{1});
  write(desc, text, " ", U32{4}, " ", U8{1});
  EXPECT_THAT(shortTexts(), ElementsAre("[4074 x]...", "[4074 x]...", "[4074 x] 4 ..."));
}

TEST_F(TraceRoundTrip, aTextThatJustFitsIsWhole) {
  MsgDesc desc("Sample.cpp", 1);
  const std::string text(kRoom, 'x');
  write(desc, "<", text, ">");
  write(desc, "<", text + "y", ">");
  write(desc, "<", text, ">", 1, "end");
  EXPECT_THAT(shortTexts(), ElementsAre("<[4078 x]>", "<[4078 x]...", "<[4078 x]..."));
}

TEST_F(TraceRoundTrip, aMessageThatWasNotEndedIsDropped) {
  traceFileDel();
  std::vector<U64> ring(kMinRingSize / 8);
  FileHeader header;
  header.ringSize = kMinRingSize;
  RingBuf ringBuf(header, ring.data());
  ringBuf.startMsg(1);
  ringBuf.text("never ended");
  EXPECT_EQ(header.head, 0U);
  ringBuf.startMsg(2);
  ringBuf.number(7, 1);
  ringBuf.endMsg();
  EXPECT_EQ(header.head, 24U);
  EXPECT_EQ(header.begun, 1U);
  const MsgHead head = msgHeadOf(ring[0], ring[1]);
  EXPECT_EQ(head.id, 2U);
  EXPECT_EQ(head.size, 17U);
}

TEST_F(TraceRoundTrip, whatIsNotDescribedIsLeftOutAndCounted) {
  MsgDesc known("Sample.cpp", 1);
  write(known, "known");
  const std::string name(60'000, 'f');
  for (U32 line = 0; line < 6; ++line) {
    MsgDesc desc(name.c_str(), line);
    write(desc, "described");
  }
  const std::string tooLong(70'000, 'f');
  MsgDesc desc(tooLong.c_str(), 1);
  write(desc, "never");
  write(known, "known");
  TraceReader reader(path_);
  EXPECT_THAT(textsOf(reader),
              ElementsAre("known", "described", "described", "described", "described", "known"));
  EXPECT_EQ(reader.undescribed(), 3U);
}

}  // namespace
}  // namespace Ferrix
