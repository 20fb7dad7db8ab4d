// The ring over time: it goes round, it is continued, and it survives a writer that ended amid a
// message.

#include <map>
#include <string>
#include <vector>

#include "tests/framework/Ferrix/TraceFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ferrix {
namespace {

using testing::ElementsAre;

class TraceRing : public Testing::TraceFixture {
 protected:
  TraceRing() { traceFileIs(path_, kMinRingSize); }

  /// Writes messages "number N " and a text of N % 301 letters.
  void writeNumbers(U32 from, U32 to) {
    for (U32 number = from; number < to; ++number) {
      write(desc_, "number ", number, " ", std::string(number % 301, 'x'));
    }
  }

  static std::string numberText(U32 number) {
    return "number " + std::to_string(number) + " " + std::string(number % 301, 'x');
  }

  /// Makes the file what a writer leaves that ended after `words` words of the newest message.
  void tearNewest(const FileHeader& before, U32 words) {
    FileHeader torn = header();
    torn.head = before.head;
    for (U64 at = before.head + U64{8} * words; at < header().head; at += 8) {
      const U64 old = 0xa5a5a5a5a5a5a5a5;
      overwrite(ringByte(at), &old, sizeof old);
    }
    headerIs(torn);
  }

  MsgDesc desc_{"Sample.cpp", 1};
};

TEST_F(TraceRing, nothingIsReadOfAnEmptyRing) {
  EXPECT_EQ(lines(), "");
  EXPECT_EQ(header().ringSize, kMinRingSize);
  EXPECT_EQ(content().size(), header().fileSize());
}

TEST_F(TraceRing, whenItGoesRoundTheNewestMessagesStayWhole) {
  constexpr U32 kMessages = 10'000;
  for (U32 written = 0; written < kMessages; written += 500) {
    writeNumbers(written, written + 500);
    const std::vector<std::string> kept = texts();
    // A message takes 22 to 330 bytes, filled up.
    ASSERT_GE(kept.size(), kMinRingSize / 336);
    U32 number = written + 500 - static_cast<U32>(kept.size());
    for (const std::string& text : kept) {
      ASSERT_EQ(text, numberText(number++));
    }
    const FileHeader now = header();
    EXPECT_LE(now.head - now.tail, kMinRingSize);
    EXPECT_GT(now.head - now.tail, kMinRingSize - 2 * 336) << "no more is given up than is needed";
  }
  EXPECT_GT(header().head, 50 * kMinRingSize);
}

TEST_F(TraceRing, theLargestMessagesGoRoundToo) {
  for (U32 number = 0; number < 50; ++number) {
    write(desc_, number, std::string(5000, 'y'));
  }
  const std::vector<std::string> kept = texts();
  ASSERT_EQ(kept.size(), kMinRingSize / kMaxMsgSize);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    EXPECT_EQ(kept[i].substr(0, 3), std::to_string(50 - kept.size() + i) + "y");
    EXPECT_EQ(kept[i].substr(kept[i].size() - 4), "y...");
  }
}

TEST_F(TraceRing, aReaderGoesOnWithWhatIsNew) {
  TraceReader reader(path_);
  writeNumbers(0, 3);
  EXPECT_EQ(textsOf(reader).size(), 3U);
  EXPECT_EQ(textsOf(reader).size(), 0U);
  MsgDesc other("Other.cpp", 2);
  write(other, "described after the reader opened");
  EXPECT_EQ(linesOf(reader), "Other.cpp:2:described after the reader opened\n");
}

TEST_F(TraceRing, aReaderTellsHowManyItMissed) {
  writeNumbers(0, 10);
  TraceReader reader(path_);
  ASSERT_TRUE(reader.next());
  writeNumbers(10, 1000);
  const std::optional<TraceMessage> message = reader.next();
  ASSERT_TRUE(message);
  const U32 kept = static_cast<U32>(texts().size());
  EXPECT_EQ(message->text, numberText(1000 - kept));
  EXPECT_EQ(message->missed, 1000 - kept - 1);
  EXPECT_EQ(reader.next()->missed, 0U);
}

TEST_F(TraceRing, aFileIsContinued) {
  writeNumbers(0, 3);
  const U64 descUsed = header().descUsed;
  traceFileDel();
  traceFileIs(path_, 2 * kMinRingSize);
  // Another process would have another object for the same statement.
  MsgDesc again("Sample.cpp", 1);
  write(again, "number ", U32{3}, " ", std::string("xxx"));
  EXPECT_THAT(texts(), ElementsAre(numberText(0), numberText(1), numberText(2), numberText(3)));
  EXPECT_EQ(header().ringSize, kMinRingSize) << "a file keeps its ring";
  EXPECT_EQ(header().descUsed, descUsed) << "the statement was described before";
  MsgDesc other("Other.cpp", 1);
  write(other, "other");
  EXPECT_EQ(texts().back(), "other");
}

TEST_F(TraceRing, aMessageTornByTheEndOfItsWriterIsIgnored) {
  for (U32 words = 0; words <= 6; ++words) {
    SCOPED_TRACE(words);
    std::filesystem::remove(path_);
    traceFileIs(path_, kMinRingSize);
    writeNumbers(0, 20);
    const FileHeader before = header();
    write(desc_, "number ", U32{20}, " ", std::string(20, 'x'));
    ASSERT_EQ(header().head, before.head + 48);
    traceFileDel();
    tearNewest(before, words);
    std::vector<std::string> kept = texts();
    ASSERT_EQ(kept.size(), 20U);
    EXPECT_EQ(kept.back(), numberText(19));
    traceFileIs(path_, kMinRingSize);
    writeNumbers(21, 22);
    TraceReader reader(path_);
    std::optional<TraceMessage> last;
    while (std::optional<TraceMessage> message = reader.next()) {
      last = std::move(message);
    }
    ASSERT_TRUE(last);
    EXPECT_EQ(last->text, numberText(21));
    EXPECT_EQ(last->missed, 1U) << "the torn one";
  }
}

TEST_F(TraceRing, aTornMessageHasOnlyTakenTheOldest) {
  writeNumbers(0, 1000);
  const FileHeader before = header();
  const std::vector<std::string> all = texts();
  write(desc_, "large ", std::string(4000, 'y'));
  const std::size_t kept = texts().size() - 1;
  ASSERT_LT(kept, all.size()) << "the tail moved";
  traceFileDel();
  tearNewest(before, 3);
  EXPECT_EQ(texts(), std::vector<std::string>(all.end() - static_cast<long>(kept), all.end()));
}

TEST_F(TraceRing, aFileWhoseMakerEndedEarlyIsFinished) {
  traceFileDel();
  contentIs(content().substr(0, sizeof(FileHeader)));
  EXPECT_EQ(faultOfReading(), "damaged: 72 bytes long, expected 282624");
  traceFileIs(path_, kMinRingSize);
  writeNumbers(0, 1);
  EXPECT_THAT(texts(), ElementsAre(numberText(0)));
}

TEST_F(TraceRing, aFileHasOneWriter) {
  const pid_t child = fork();
  if (child == 0) {
    try {
      traceFileIs(path_, kMinRingSize);
      _exit(1);
    } catch (const TraceError& error) {
      const bool expected = withoutPath(error) ==
                            "another process traces to this file, expected one that is not in use";
      _exit(expected && theTraceFile == nullptr ? 0 : 2);
    }
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  writeNumbers(0, 1);
  EXPECT_THAT(texts(), ElementsAre(numberText(0)));
}

TEST_F(TraceRing, aForkedChildLeavesTheFileToItsParent) {
  writeNumbers(0, 1);
  const std::string childPath = (directory_ / "child").string();
  const pid_t child = fork();
  if (child == 0) {
    if (theTraceFile != nullptr) {
      _exit(1);
    }
    traceFileIs(childPath, kMinRingSize);
    writeNumbers(7, 8);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  writeNumbers(1, 2);
  EXPECT_THAT(texts(), ElementsAre(numberText(0), numberText(1)));
  path_ = childPath;
  EXPECT_THAT(texts(), ElementsAre(numberText(7)));
}

}  // namespace
}  // namespace Ferrix
