// Readers beside a writer, and writers that are killed: in other processes, at random moments.

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "tests/framework/Ferrix/TraceFixture.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Ferrix {
namespace {

class LiveTrace : public Testing::TraceFixture {
 protected:
  ~LiveTrace() override { kill(); }

  /// Starts a process that writes messages "number N text", one after another, until it is killed.
  void start() {
    child_ = fork();
    if (child_ == 0) {
      traceFileIs(path_, kMinRingSize);
      MsgDesc odd("Odd.cpp", 1);
      MsgDesc even("Even.cpp", 2);
      for (U64 number = 0;; ++number) {
        write(number % 2 != 0 ? odd : even, "number ", number, " ", textFor(number));
      }
    }
    ASSERT_GT(child_, 0);
  }

  void kill() {
    if (child_ > 0) {
      ::kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
      child_ = -1;
    }
  }

  /// Waits until the process has written something that is not there yet.
  void awaitMessages(U64 beyond) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (header().head <= beyond) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the writer does not write";
      std::this_thread::yield();
    }
  }

  static std::string textFor(U64 number) {
    return std::string(number * 7 % 113, static_cast<char>('a' + number % 26));
  }

  /// Whether the message is one that the process wrote; its number.
  static U64 checked(const TraceMessage& message) {
    U64 number = 0;
    EXPECT_EQ(std::sscanf(message.text.c_str(), "number %lu", &number), 1) << message.text;
    EXPECT_EQ(message.text, "number " + std::to_string(number) + " " + textFor(number));
    EXPECT_EQ(message.file, number % 2 != 0 ? "Odd.cpp" : "Even.cpp");
    EXPECT_EQ(message.line, number % 2 != 0 ? 1U : 2U);
    return number;
  }

  pid_t child_ = -1;
};

TEST_F(LiveTrace, readersSeeOnlyWholeMessagesInOrder) {
  start();
  awaitMessages(0);
  // In a ring this small the writer overtakes the readers all the time.
  TraceReader one(path_);
  TraceReader two(path_);
  for (TraceReader* reader : {&one, &two, &one}) {
    std::optional<U64> last;
    U32 seen = 0;
    U64 missed = 0;
    while (seen < 20'000) {
      const std::optional<TraceMessage> message = reader->next();
      if (!message) {
        std::this_thread::yield();
        continue;
      }
      const U64 number = checked(*message);
      if (last) {
        ASSERT_EQ(number, *last + 1 + message->missed);
        missed += message->missed;
      }
      last = number;
      ++seen;
      ASSERT_FALSE(HasFailure());
      if (seen % 1000 == 0) {
        // Time enough for the writer to go round.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    EXPECT_GT(missed, 0U) << "the writer never came round";
  }
}

TEST_F(LiveTrace, aWriterThatIsKilledLeavesWholeMessages) {
  constexpr U32 kKills = 50;
  Random random;
  SCOPED_TRACE(random.seedText());
  U64 head = 0;
  for (U32 round = 0; round < kKills; ++round) {
    start();
    // A process that continues the file has still to be seen writing.
    awaitMessages(head);
    std::this_thread::sleep_for(std::chrono::microseconds(random.between(0, 1000)));
    kill();
    ASSERT_EQ(faultOfReading(), "") << "kill " << round;
    TraceReader reader(path_);
    U32 messages = 0;
    std::optional<U64> last;
    while (const std::optional<TraceMessage> message = reader.next()) {
      const U64 number = checked(*message);
      // Numbers begin anew with each process.
      ASSERT_TRUE(!last || number == *last + 1 || number == 0) << number << " after " << *last;
      last = number;
      ++messages;
    }
    ASSERT_GT(messages, 0U);
    ASSERT_FALSE(HasFailure()) << "kill " << round;
    head = header().head;
  }
  EXPECT_GT(head, kMinRingSize);
}

}  // namespace
}  // namespace Ferrix
