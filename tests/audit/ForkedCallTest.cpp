// What comes back of a call that may end its process.

#include "agent/audit/ForkedCall.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>

#include "framework/Vellor/Invariant.h"

#include <gtest/gtest.h>

namespace Quarle::Agent {
namespace {

using End = ForkedCall::End;

TEST(ForkedCall, whatComesBackHasChangedNothingHere) {
  int number = 1;
  const ForkedCall call = callForked([&] { number = 2; });
  EXPECT_TRUE(call.returned());
  EXPECT_EQ(call.words + call.ending + call.told + call.reason(), "");
  EXPECT_EQ(number, 1);
}

TEST(ForkedCall, aConditionComesWithoutTheLinesAroundIt) {
  const ForkedCall call = callForked([] {
    std::cerr << "Sm 9 "
              << "first\n";
    const int slots = 3;
    VELLOR_INVARIANT(slots == 4, "slots == 4", " slots ", slots);
  });
  EXPECT_EQ(call.end, End::died);
  EXPECT_EQ(call.words, "Failed(slots == 4)  slots 3");
  EXPECT_EQ(call.reason(), call.words);
  EXPECT_EQ(call.told, "Sm 9 first\n");
  EXPECT_EQ(call.ending, "ended by signal 6, Aborted");
}

TEST(ForkedCall, anExceptionComesWithItsText) {
  const ForkedCall call = callForked([] {
    std::cerr << "Sm 9 first\n";
    throw std::runtime_error("no such\nattribute");
  });
  EXPECT_EQ(call.end, End::raised);
  EXPECT_EQ(call.words, "no such attribute");
  EXPECT_EQ(call.reason(), call.words);
  EXPECT_EQ(call.told, "Sm 9 first\n");
}

TEST(ForkedCall, aSilentEndIsNamedByItsSignal) {
  const ForkedCall call = callForked([] { std::raise(SIGSEGV); });
  EXPECT_EQ(call.end, End::died);
  EXPECT_EQ(call.words, "");
  EXPECT_EQ(call.reason(), "ended by signal 11, Segmentation fault");
}

TEST(ForkedCall, theLastLineGoesWithASignal) {
  const ForkedCall call = callForked([] {
    std::cerr << "first\nlast\n";
    std::raise(SIGSEGV);
  });
  EXPECT_EQ(call.reason(), "ended by signal 11, Segmentation fault: last");
}

TEST(ForkedCall, anExitIsNoReturn) {
  const ForkedCall call = callForked([] { std::_Exit(7); });
  EXPECT_EQ(call.end, End::died);
  EXPECT_EQ(call.reason(), "ended with exit code 7");
}

TEST(ForkedCall, ofVeryMuchTheEndIsKept) {
  const ForkedCall call = callForked([] {
    const std::string line(1023, 'x');
    for (int i = 0; i < 8192; ++i) {
      std::cerr << line + "\n";
    }
    std::cerr << "the end";
  });
  EXPECT_TRUE(call.returned());
  EXPECT_GT(call.told.size(), 1U << 20);
  EXPECT_LT(call.told.size(), 4U << 20);
  EXPECT_TRUE(call.told.ends_with("x\nthe end"));
}

TEST(ForkedCall, nothingReachesTheStandardStreams) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const ForkedCall call = callForked([] {
    std::puts("to the output");
    std::fflush(stdout);
    std::cerr << "to the errors\n";
  });
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(call.told, "to the errors\n");
}

}  // namespace
}  // namespace Quarle::Agent
