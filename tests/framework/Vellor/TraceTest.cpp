#include "framework/Vellor/Trace.h"

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Vellor {
namespace {

// A unit of its own for each way of first use: a handle joins the registry at its first statement.
constinit const TraceHandle unitA("TraceTestA");
constinit const TraceHandle unitB("TraceTestB");
constinit const TraceHandle askedForBeforeUse("TraceTestAskedForBeforeUse");
constinit const TraceHandle neverAskedFor("TraceTestNeverAskedFor");

struct Line {
  std::string facility;
  std::string tag;
  std::string text;
  U32 level;
  bool levelIsOn;
  std::string file;
  U32 line;
  std::string function;
};

class Trace : public testing::Test {
 protected:
  Trace() {
    traceSinkIs([this](const char* facility, const char* tag, const String8& text, U32 level,
                       bool levelIsOn, const char* file, U32 line, const char* function) {
      lines_.push_back({facility, tag, text.str(), level, levelIsOn, file, line, function});
    });
  }

  ~Trace() override {
    traceSinkIs(nullptr);
    coverageStream_ = nullptr;
    for (const char* unit : {"TraceTestA", "TraceTestB", "TraceTestAskedForBeforeUse"}) {
      TraceHandle::masterIs(unit, false);
      for (U32 level = 0; level < TraceHandle::kLevels; ++level) {
        TraceHandle::levelIs(unit, level, false);
      }
    }
  }

  /// Stands in a statement's words and counts that they were evaluated.
  int evaluated() { return ++evaluations_; }

  std::string texts() const {
    std::string all;
    for (const Line& line : lines_) {
      all += line.text + "\n";
    }
    return all;
  }

  std::vector<Line> lines_;
  int evaluations_ = 0;
};

TEST_F(Trace, aStatementThatIsOffEvaluatesNothing) {
  VELLOR_TRACE(unitA, 3, " words " << evaluated());
  VELLOR_TRACE(neverAskedFor, 0, " words " << evaluated());
  EXPECT_EQ(evaluations_, 0);
  EXPECT_EQ(texts(), "");
}

TEST_F(Trace, needsTheMasterSwitchAndTheLevel) {
  TraceHandle::masterIs("TraceTestA", true);
  VELLOR_TRACE(unitA, 3, "master alone " << evaluated());
  TraceHandle::masterIs("TraceTestA", false);
  TraceHandle::levelIs("TraceTestA", 3, true);
  VELLOR_TRACE(unitA, 3, "level alone " << evaluated());
  EXPECT_EQ(evaluations_, 0);
  TraceHandle::masterIs("TraceTestA", true);
  VELLOR_TRACE(unitA, 3, "both " << evaluated());
  EXPECT_EQ(texts(), "both 1\n");
}

TEST_F(Trace, levelsSwitchOneByOne) {
  TraceHandle::masterIs("TraceTestA", true);
  for (const U32 on : {0U, 4U, 9U}) {
    TraceHandle::levelIs("TraceTestA", on, true);
  }
  for (U32 level = 0; level < TraceHandle::kLevels; ++level) {
    VELLOR_TRACE(unitA, level, "level " << level);
  }
  EXPECT_EQ(texts(), "level 0\nlevel 4\nlevel 9\n");
  TraceHandle::levelIs("TraceTestA", 4, false);
  VELLOR_TRACE(unitA, 4, "off again");
  EXPECT_EQ(lines_.size(), 3U);
}

TEST_F(Trace, unitsSwitchOneByOne) {
  TraceHandle::masterIs("TraceTestB", true);
  TraceHandle::levelIs("TraceTestB", 1, true);
  VELLOR_TRACE(unitA, 1, "a");
  VELLOR_TRACE(unitB, 1, "b");
  EXPECT_EQ(texts(), "b\n");
}

TEST_F(Trace, switchesByNameHoldBeforeTheUnitsFirstStatement) {
  TraceHandle::masterIs("TraceTestAskedForBeforeUse", true);
  TraceHandle::levelIs("TraceTestAskedForBeforeUse", 7, true);
  VELLOR_TRACE(askedForBeforeUse, 6, "six");
  VELLOR_TRACE(askedForBeforeUse, 7, "seven");
  EXPECT_EQ(texts(), "seven\n");
}

TEST_F(Trace, tellsTheSinkWhereTheStatementStands) {
  TraceHandle::masterIs("TraceTestA", true);
  TraceHandle::levelIs("TraceTestA", 5, true);
  VELLOR_TRACE(unitA, 5, " subtrie " << 7);
  const U32 here = __LINE__ - 1;
  ASSERT_EQ(lines_.size(), 1U);
  const Line& line = lines_.front();
  EXPECT_EQ(line.facility, "TraceTestA");
  EXPECT_EQ(line.tag, "<unknown>");
  EXPECT_EQ(line.text, " subtrie 7");
  EXPECT_EQ(line.level, 5U);
  EXPECT_TRUE(line.levelIsOn);
  EXPECT_EQ(line.file, __FILE__);
  EXPECT_EQ(line.line, here);
  EXPECT_EQ(line.function, "TestBody");
}

TEST_F(Trace, numbersHaveTwelveDigits) {
  TraceHandle::masterIs("TraceTestA", true);
  TraceHandle::levelIs("TraceTestA", 0, true);
  VELLOR_TRACE(unitA, 0, 1.0 / 3 << ' ' << 123456789012.0);
  EXPECT_EQ(texts(), "0.333333333333 123456789012\n");
}

TEST_F(Trace, theCoverageStreamSeesStatementsThatAreOff) {
  std::ostringstream coverage;
  coverageStream_ = &coverage;
  VELLOR_TRACE(unitA, 3, "off " << evaluated());
  EXPECT_EQ(evaluations_, 1);
  EXPECT_EQ(coverage.str(), "off 1\n");
  // It is no switch: the sink still sees nothing.
  EXPECT_EQ(texts(), "");
  coverageStream_ = nullptr;
  VELLOR_TRACE(unitA, 3, "off " << evaluated());
  EXPECT_EQ(evaluations_, 1);
}

TEST_F(Trace, withoutASinkALineGoesToTheErrorStream) {
  traceSinkIs(nullptr);
  TraceHandle::masterIs("TraceTestA", true);
  TraceHandle::levelIs("TraceTestA", 2, true);
  testing::internal::CaptureStderr();
  VELLOR_TRACE(unitA, 2, " key " << 1);
  const std::string error = testing::internal::GetCapturedStderr();
  EXPECT_NE(error.find(" key 1\n"), std::string::npos) << error;
  EXPECT_NE(error.find("TraceTestA"), std::string::npos) << error;
}

using TraceDeathTest = Trace;

TEST_F(TraceDeathTest, thereAreTenLevels) {
  EXPECT_DEATH(TraceHandle::levelIs("TraceTestA", 10, true), "level < kLevels");
}

}  // namespace
}  // namespace Vellor
