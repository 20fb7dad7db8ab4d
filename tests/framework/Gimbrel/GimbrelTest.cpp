// One statement, two traces.

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "framework/Gimbrel/Gimbrel.h"
#include "tests/framework/Ferrix/TraceFixture.h"
#include "tests/support/TraceLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Gimbrel {
namespace {

using testing::ElementsAre;
using Vellor::Testing::TraceLines;

constinit const Vellor::TraceHandle unit("GimbrelTest");

/// Counts how often it is printed.
struct Printed {
  int& times;

  friend std::ostream& operator<<(std::ostream& stream, const Printed& printed) {
    return stream << ++printed.times;
  }
};

class GimbrelStatement : public Ferrix::Testing::TraceFixture {
 protected:
  ~GimbrelStatement() override { Vellor::coverageStream_ = nullptr; }

  void ferrixOn() { Ferrix::traceFileIs(path_, Ferrix::kMinRingSize); }

  int evaluated() { return ++evaluations_; }

  void statement() { VELLOR_GIMBREL_TRACE(unit, 3, " evaluation ", evaluated(), " of ", U8{65}); }

  static constexpr U32 kStatementLine = __LINE__ - 2;

  int evaluations_ = 0;
};

TEST_F(GimbrelStatement, aStatementThatIsOffInBothEvaluatesNothing) {
  statement();
  EXPECT_EQ(evaluations_, 0);
  // The level counts for one of the two only.
  TraceLines lines("GimbrelTest", {2});
  statement();
  EXPECT_EQ(evaluations_, 0);
  EXPECT_EQ(lines.take(), "");
}

TEST_F(GimbrelStatement, feedsTheUnitsTraceAlone) {
  TraceLines lines("GimbrelTest", {3});
  statement();
  EXPECT_EQ(lines.take(), "3: evaluation 1 of 65\n");
  EXPECT_EQ(evaluations_, 1);
  EXPECT_EQ(lines.facilityOfLast(), "GimbrelTest");
  EXPECT_EQ(lines.fileOfLast(), __FILE__);
}

TEST_F(GimbrelStatement, feedsTheProductionTraceAlone) {
  ferrixOn();
  testing::internal::CaptureStderr();
  statement();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(evaluations_, 1);
  EXPECT_EQ(lines(), std::string(__FILE__) + ":" + std::to_string(kStatementLine) +
                         ": evaluation 1 of 65\n");
}

TEST_F(GimbrelStatement, feedsBothFromOneEvaluation) {
  ferrixOn();
  TraceLines unitLines("GimbrelTest", {3});
  statement();
  EXPECT_EQ(evaluations_, 1);
  statement();
  EXPECT_EQ(evaluations_, 2);
  EXPECT_EQ(unitLines.take(), "3: evaluation 1 of 65\n3: evaluation 2 of 65\n");
  EXPECT_THAT(texts(), ElementsAre(" evaluation 1 of 65", " evaluation 2 of 65"));
}

TEST_F(GimbrelStatement, endsWithTheTraceFile) {
  ferrixOn();
  statement();
  Ferrix::traceFileDel();
  statement();
  EXPECT_EQ(evaluations_, 1);
  EXPECT_EQ(texts().size(), 1U);
}

TEST_F(GimbrelStatement, theCoverageStreamSeesTheStatement) {
  std::ostringstream coverage;
  Vellor::coverageStream_ = &coverage;
  statement();
  EXPECT_EQ(coverage.str(), " evaluation 1 of 65\n");
}

TEST_F(GimbrelStatement, tellsItsFunction) {
  std::string function;
  TraceLines lines("GimbrelTest", {3});
  Vellor::traceSinkIs([&](const char*, const char* tag, const Vellor::String8&, U32, bool,
                          const char*, U32 line, const char* name) {
    function = std::string(tag) + " " + name + ":" + std::to_string(line);
  });
  statement();
  EXPECT_EQ(function, "<unknown> statement:" + std::to_string(kStatementLine));
}

TEST_F(GimbrelStatement, anOperandIsPrintedForTheTracesThatAreOn) {
  int times = 0;
  const auto trace = [&] {
    VELLOR_GIMBREL_TRACE(unit, 3, Printed{times});
    return std::exchange(times, 0);
  };
  EXPECT_EQ(trace(), 0);
  ferrixOn();
  EXPECT_EQ(trace(), 1);
  TraceLines unitLines("GimbrelTest", {3});
  EXPECT_EQ(trace(), 2);
  Ferrix::traceFileDel();
  EXPECT_EQ(trace(), 1);
}

TEST_F(GimbrelStatement, bothTracesPrintTheSame) {
  ferrixOn();
  TraceLines unitLines("GimbrelTest", {0});
  const int number = 0;
  const char* text = "text";
  const Vellor::String8 string("string");
  VELLOR_GIMBREL_TRACE(unit, 0, "literal ", true, ' ', 'c', ' ', U8{200}, ' ', std::int8_t{-3}, ' ',
                       U16{65535}, ' ', -1, ' ', ~U64{0}, ' ', 1.0 / 3, ' ', 2.5F, ' ', text, ' ',
                       string, ' ', std::string("s"), ' ', &number);
  const std::vector<std::string> kept = texts();
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(unitLines.take(), "0:" + kept.front() + "\n");
  EXPECT_THAT(kept.front(), testing::StartsWith("literal 1 c 200 -3 65535 -1 18446744073709551615 "
                                                "0.333333333333 2.5 text string s 0x"));
}

}  // namespace
}  // namespace Gimbrel
