#pragma once

#include <sstream>
#include <string>
#include <tuple>

#include "tests/support/Seed.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

namespace Quarle::Tarnlet::Testing {

/// Runs a property that says what is wrong with one of its cases, or nothing. A failing case is
/// shrunk to a small one.
template <class... Inputs>
void forAllCases(int cases,
                 std::string (*fault)(const Inputs&...),
                 const rc::Gen<Inputs>&... inputs) {
  rc::detail::TestParams params;
  params.seed = testSeed();
  params.maxSuccess = cases;
  const auto property = [&] {
    shuffleAddressOrder();
    const std::string text = std::apply(fault, std::tuple<Inputs...>{*inputs...});
    if (!text.empty()) {
      RC_FAIL(text);
    }
  };
  const rc::detail::TestResult result =
      rc::detail::checkTestable(property, rc::detail::TestMetadata(), params);
  if (!result.is<rc::detail::SuccessResult>()) {
    std::ostringstream text;
    rc::detail::printResultMessage(result, text);
    FAIL() << "VELLOR_TEST_SEED=" << testSeed() << "\n" << text.str();
  }
}

}  // namespace Quarle::Tarnlet::Testing
