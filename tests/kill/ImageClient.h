#pragma once

#include <filesystem>
#include <optional>

#include "agent/ChipContexts.h"
#include "agent/Client.h"
#include "xdksim/Chip.h"
#include "xdksim/SimLpmMgr.h"

namespace Quarle::Agent::Testing {

/// A client on a chip that lives in a file, with its groups in FILE.groups.
struct ImageClient {
  /// Raises what opening the image raises. There is no client yet.
  explicit ImageClient(const std::filesystem::path& image)
      : path(image), chip(XdkSim::ChipImage(image)) {}

  /// The first client on the chip begins cold, all others take over what there is.
  void start(bool isCold) {
    ClientOptions options{.groupList = path.string() + ".groups", .chipName = "killed"};
    if (!isCold) {
      options.warmStart.emplace();
    }
    client.emplace(
        ChipAccess{.systemStatus = systemStatusOf(chip), .ipv4 = &manager4, .ipv6 = &manager6},
        options);
  }

  const std::filesystem::path path;
  XdkSim::Chip chip;
  XdkSim::SimLpmMgr manager4{chip, XdkSim::Family::ipv4};
  XdkSim::SimLpmMgr manager6{chip, XdkSim::Family::ipv6};
  std::optional<Client> client;
};

}  // namespace Quarle::Agent::Testing
