#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/shell/Shell.h"
#include "xdksim/ChipProfile.h"

#include <gtest/gtest.h>

namespace Quarle::Cli::Testing {

/// A chip with few rows: of tread 28 one table of two rows, of tread 16 one row in each of two.
inline const char* const kSmallProfile = R"({
  "name": "small",
  "description": "A few rows.",
  "ipv4": {
    "keyWidth": 48, "vrfIdWidth": 16,
    "tables": [{"count": 2, "tread": 35, "rows": 16, "sramWidth": 128},
               {"count": 1, "tread": 28, "rows": 2, "sramWidth": 128},
               {"count": 2, "tread": 16, "rows": 1, "sramWidth": 128}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 2}
  },
  "ipv6": {
    "keyWidth": 144, "vrfIdWidth": 16,
    "tables": [{"count": 2, "tread": 60, "rows": 16, "sramWidth": 256},
               {"count": 2, "tread": 128, "rows": 16, "sramWidth": 256},
               {"count": 1, "tread": 34, "rows": 16, "sramWidth": 256},
               {"count": 1, "tread": 16, "rows": 4, "sramWidth": 256}],
    "nhi": {"pairsPerEntry": 6, "blockBaseWidth": 16, "tiles": 1}
  },
  "nextHopTable": {"rows": 256}
})";

/// A shell over a small loaded chip.
class ShellTest : public ::testing::Test {
 protected:
  explicit ShellTest(const char* profile = kSmallProfile)
      : session(XdkSim::parseProfile(profile, "small")) {
    route("10.0.0.0/8", {1});
    route("10.1.0.0/16", {1, 2});
    route("10.1.2.0/24", {3});
    route("10.1.3.0/24", {3});
    route("2001:db8::/32", {5});
    route("2001:db8:1::/48", {6, 7});
  }

  Agent::Answer route(const std::string& prefix, std::vector<U64> nextHops, U32 vrf = 0) {
    const Agent::RouteKey key{.vrf = vrf, .prefix = Agent::parsePrefix(prefix).value};
    return session.client().family(key.prefix.family).routeIs(key, nextHops);
  }

  /// What a line prints, its errors in front and a code that is not 0 behind.
  std::string run(const std::string& line) {
    out.str("");
    err.str("");
    const int code = shell.run(line);
    return err.str() + out.str() + (code == 0 ? "" : "-> " + std::to_string(code) + "\n");
  }

  std::vector<Json> objects(const std::string& line) {
    const std::string text = run(line + " --json");
    std::vector<Json> objects;
    std::istringstream lines(text);
    for (std::string one; std::getline(lines, one);) {
      objects.push_back(Json::parse(one, nullptr, /*allow_exceptions=*/false));
      EXPECT_TRUE(objects.back().is_object()) << text;
    }
    return objects;
  }

  Session session;
  std::ostringstream out;
  std::ostringstream err;
  Shell shell{session, out, err, /*json=*/false};
};

}  // namespace Quarle::Cli::Testing
