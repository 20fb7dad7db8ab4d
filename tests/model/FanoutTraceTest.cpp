// What the fan-out leaves in the production trace: the same words as in the unit's own.

#include "model/Tarnlet.h"
#include "tests/framework/Ferrix/TraceFixture.h"
#include "tests/support/TraceLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Quarle::Tarnlet {
namespace {

using testing::ElementsAre;

class FanoutTrace : public Ferrix::Testing::TraceFixture {
 protected:
  FanoutTrace() {
    Ferrix::traceFileIs(path_, Ferrix::kMinRingSize);
    config_->populateLeastTreadForPrefixLenSettings(false);
    for (const U8 index : {U8{0}, U8{1}}) {
      const U8 tread = index == 0 ? 35 : 28;
      config_->prefixTableSortedByTreadIs(
          index,
          prefixTableFactory(index, new PrefixTableConfig(
                                        index, PrefixTableType::prefixTableWide256b, 16, tread)));
    }
  }

  void fanOut() {
    const LpmPrefixV4::Ptr prefix =
        lpmPrefixV4Factory(Dunlix::VrfAndPrefix(7, Corsel::Prefix("10.0.0.0/16")));
    prefix->createFanoutPrefixV4(33);
    config_->fanoutPrefixLen(34);
  }

  const ConfigV4::Ptr config_ = configV4Factory("config");
};

TEST_F(FanoutTrace, tellsTheStepsAndTheResult) {
  fanOut();
  EXPECT_THAT(texts(),
              ElementsAre(" fanout of vrf 7 prefix 10.0.0.0/16 targetTread 33 count 2",
                          "  -- #0 vrf 7 prefix 10.0.0.0/17", "  -- #1 vrf 7 prefix 10.0.128.0/17",
                          " prefixLen 34 fanoutLen 35"));
  Ferrix::TraceReader reader(path_);
  EXPECT_EQ(reader.next()->file, "model/LpmPrefix.cpp");
}

TEST_F(FanoutTrace, agreesWithTheUnitsTrace) {
  Vellor::Testing::TraceLines unitLines("Tarnlet", {3});
  fanOut();
  std::string kept;
  for (const std::string& text : texts()) {
    kept += "3:" + text + "\n";
  }
  EXPECT_EQ(unitLines.take(), kept);
}

}  // namespace
}  // namespace Quarle::Tarnlet
