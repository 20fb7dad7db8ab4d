// Files that are none, of another kind, or damaged: each gets its line, and stays as it is.

#include <functional>
#include <string>

#include "tests/framework/Ferrix/TraceFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Ferrix {
namespace {

using testing::ElementsAre;

class DamagedTrace : public Testing::TraceFixture {
 protected:
  /// A sound file with three messages of 32 bytes.
  DamagedTrace() {
    traceFileIs(path_, kMinRingSize);
    MsgDesc desc("Sample.cpp", 1);
    for (U64 number = 0; number < 3; ++number) {
      write(desc, "number ", number, " and ", number);
    }
    traceFileDel();
  }

  void changeHeader(const std::function<void(FileHeader&)>& change) const {
    FileHeader changed = header();
    change(changed);
    headerIs(changed);
  }

  /// What reading and continuing both say.
  std::string fault() const {
    const std::string before = content();
    const std::string reading = faultOfReading();
    EXPECT_EQ(faultOfWriting(), reading);
    EXPECT_EQ(content(), before);
    return reading;
  }

  /// Writes over the head of the second message; what reading says of it.
  std::string faultOfHead(const std::function<void(MsgHead&)>& change) const {
    MsgHead head{.size = 32, .id = 0, .number = 1, .time = 0};
    change(head);
    overwrite(ringByte(32), &head, sizeof head);
    return faultOfReading();
  }
};

TEST_F(DamagedTrace, theSampleIsSound) {
  EXPECT_EQ(faultOfReading(), "");
  EXPECT_EQ(header().head, 96U);
  EXPECT_EQ(faultOfHead([](MsgHead&) {}), "");
  EXPECT_THAT(texts(), ElementsAre("number 0 and 0", "number 1 and 1", "number 2 and 2"));
}

TEST_F(DamagedTrace, aFileThatIsNotThere) {
  std::filesystem::remove(path_);
  EXPECT_EQ(faultOfReading(), "cannot be opened: No such file or directory");
  path_ = (directory_ / "none" / "trace").string();
  EXPECT_EQ(faultOfWriting(), "cannot be opened for writing: No such file or directory");
}

TEST_F(DamagedTrace, whatIsNoFile) {
  path_ = directory_.string();
  EXPECT_EQ(faultOfReading(), "no regular file, expected a trace file");
  EXPECT_EQ(faultOfWriting(), "cannot be opened for writing: Is a directory");
  path_ = "/dev/null";
  EXPECT_EQ(fault(), "no regular file, expected a trace file");
}

TEST_F(DamagedTrace, aFileOfAnotherKind) {
  contentIs(std::string(100'000, 'x'));
  EXPECT_EQ(fault(), "no trace file, expected one that begins with \"FERRIX\"");
  contentIs(std::string(100'000, '\0'));
  EXPECT_EQ(fault(), "no trace file, expected one that begins with \"FERRIX\"");
  contentIs("short");
  EXPECT_EQ(fault(), "5 bytes long, expected a trace file of 4096 bytes or more");
}

TEST_F(DamagedTrace, anEmptyFileIsWrittenButNotRead) {
  contentIs("");
  EXPECT_EQ(faultOfReading(), "0 bytes long, expected a trace file of 4096 bytes or more");
  EXPECT_EQ(faultOfWriting(), "");
  EXPECT_EQ(faultOfReading(), "");
}

TEST_F(DamagedTrace, anotherVersion) {
  changeHeader([](FileHeader& header) { header.version = 2; });
  EXPECT_EQ(fault(), "trace file of version 2, expected version 1");
}

TEST_F(DamagedTrace, anotherByteOrder) {
  changeHeader([](FileHeader& header) { header.byteOrder = 0x04030201; });
  EXPECT_EQ(fault(),
            "written by a machine of the other byte order, expected one of this machine's");
  changeHeader([](FileHeader& header) { header.byteOrder = 7; });
  EXPECT_EQ(fault(), "byte order mark 7, expected 16909060");
}

TEST_F(DamagedTrace, sizesThatNoFileHas) {
  changeHeader([](FileHeader& header) { header.ringSize = 1000; });
  EXPECT_EQ(fault(), "a ring of 1000 bytes, expected a multiple of 8 from 16384 to 1073741824");
  changeHeader([](FileHeader& header) { header.ringSize = ~U64{0}; });
  EXPECT_EQ(fault(),
            "a ring of 18446744073709551615 bytes, expected a multiple of 8 from 16384 to "
            "1073741824");
  changeHeader([](FileHeader& header) {
    header.ringSize = kMinRingSize;
    header.descTableSize = 8;
  });
  EXPECT_EQ(fault(), "a description table of 8 bytes, expected 262144");
}

TEST_F(DamagedTrace, aRingSizeThatCannotBe) {
  std::filesystem::remove(path_);
  EXPECT_EQ(faultOfWriting(100),
            "a ring of 100 bytes, expected a multiple of 8 from 16384 to 1073741824");
  EXPECT_EQ(faultOfWriting(kMaxRingSize + 8),
            "a ring of 1073741832 bytes, expected a multiple of 8 from 16384 to 1073741824");
  EXPECT_EQ(faultOfWriting(kMinRingSize + 4),
            "a ring of 16388 bytes, expected a multiple of 8 from 16384 to 1073741824");
}

TEST_F(DamagedTrace, aFileThatIsCutShort) {
  contentIs(content().substr(0, 100'000));
  EXPECT_EQ(fault(), "damaged: 100000 bytes long, expected 282624");
}

TEST_F(DamagedTrace, positionsThatDoNotGoTogether) {
  changeHeader([](FileHeader& header) { header.tail = 128; });
  EXPECT_EQ(faultOfReading(),
            "damaged: the message at position 128 and messages end at 96, expected multiples of 8 "
            "in order");
  EXPECT_EQ(faultOfWriting(),
            "damaged: messages from 128 to 96 and descriptions to 48, expected rising multiples of "
            "8 and at most 16384 and 262144 bytes");
  changeHeader([](FileHeader& header) { header.tail = 3; });
  EXPECT_EQ(faultOfReading(),
            "damaged: the message at position 3 and messages end at 96, expected multiples of 8 in "
            "order");
  changeHeader([](FileHeader& header) {
    header.tail = 0;
    header.head = 1'000'000;
  });
  EXPECT_EQ(faultOfReading(),
            "damaged: the message at position 96 has size 0, expected 16 to 4096");
  EXPECT_EQ(faultOfWriting(),
            "damaged: messages from 0 to 1000000 and descriptions to 48, expected rising multiples "
            "of 8 and at most 16384 and 262144 bytes");
}

TEST_F(DamagedTrace, aMessageOfAnImpossibleSize) {
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.size = 15; }),
            "damaged: the message at position 32 has size 15, expected 16 to 64");
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.size = 65; }),
            "damaged: the message at position 32 has size 65, expected 16 to 64");
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.size = 0x7fff; }),
            "damaged: the message at position 32 has size 32767, expected 16 to 64");
}

TEST_F(DamagedTrace, argumentsThatAreNotTheDescriptions) {
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.size = 24; }),
            "damaged: the message at position 32 has 8 bytes of arguments, expected those of "
            "\"number {u64} and {u64}\"");
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.size = 40; }),
            "damaged: the message at position 32 has 24 bytes of arguments, expected those of "
            "\"number {u64} and {u64}\"");
}

TEST_F(DamagedTrace, aMessageThatNothingDescribes) {
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.id = 1; }),
            "damaged: the message at position 32 has description 1, expected less than 1");
}

TEST_F(DamagedTrace, numbersThatGoBack) {
  EXPECT_EQ(faultOfHead([](MsgHead& head) { head.number = 0; }),
            "damaged: the message at position 32 has number 0, expected 1 or more");
}

TEST_F(DamagedTrace, whatStandsBeforeTheDamageIsRead) {
  faultOfHead([](MsgHead& head) { head.size = 1; });
  TraceReader reader(path_);
  const std::optional<TraceMessage> message = reader.next();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->text, "number 0 and 0");
  EXPECT_THROW(reader.next(), TraceError);
}

TEST_F(DamagedTrace, descriptionsThatAreNotWhole) {
  const DescHead sound{.size = 48, .line = 1, .fileSize = 10, .formatSize = 22};
  const auto faultOf = [&](DescHead head) {
    overwrite(kHeaderSize, &head, sizeof head);
    return fault();
  };
  EXPECT_EQ(faultOf(sound), "");
  DescHead head = sound;
  head.size = 0;
  EXPECT_EQ(faultOf(head),
            "damaged: description 0 at byte 4096 has size 0, expected 48 and at most 48");
  head = sound;
  head.formatSize = 1000;
  EXPECT_EQ(faultOf(head),
            "damaged: description 0 at byte 4096 has size 48, expected 1032 and at most 48");
  head = sound;
  head.formatSize = 21;
  EXPECT_EQ(faultOf(head),
            "damaged: description 0 at byte 4096 has format \"number {u64} and {u64\", expected "
            "argument types between braces");
  faultOf(sound);
  changeHeader([](FileHeader& header) { header.descUsed = 8; });
  EXPECT_EQ(fault(), "damaged: description 0 at byte 4096 is cut off, expected a head of 16 bytes");
  changeHeader([](FileHeader& header) { header.descUsed = 1'000'000; });
  EXPECT_EQ(faultOfReading(), "damaged: 1000000 bytes of descriptions, expected at most 262144");
}

TEST_F(DamagedTrace, formatsThatAreNone) {
  for (const char* format :
       {"number {u65} and {u64}", "number .u64} and {u64}", "number {u64} and {u64{"}) {
    overwrite(kHeaderSize + sizeof(DescHead) + 10, format, 22);
    EXPECT_EQ(fault(), std::string("damaged: description 0 at byte 4096 has format \"") + format +
                           "\", expected argument types between braces");
  }
}

TEST_F(DamagedTrace, aWriterGetsPastMessagesThatWereDamaged) {
  const std::string sample = content();
  for (const U16 size : {U16{0}, U16{0x7fff}}) {
    SCOPED_TRACE(size);
    contentIs(sample);
    faultOfHead([&](MsgHead& head) { head.size = size; });
    traceFileIs(path_);
    MsgDesc desc("Sample.cpp", 2);
    for (U32 number = 0; number < 2000; ++number) {
      write(desc, "later ", number);
      if (header().tail > 32) {
        ASSERT_EQ(faultOfReading(), "") << number;
      }
    }
    const std::vector<std::string> kept = texts();
    ASSERT_FALSE(kept.empty());
    EXPECT_EQ(kept.back(), "later 1999");
    traceFileDel();
  }
}

}  // namespace
}  // namespace Ferrix
