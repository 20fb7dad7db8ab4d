#pragma once

#include "agent/restart/RestartHelper.h"

namespace Quarle::Agent {

/// Makes the IPv4 prefixes of a restart. See `RestartHelper`.
class RestartHelperV4 final : public RestartHelper {
  VELLOR_POINTERS(RestartHelperV4);

 public:
  RestartHelperV4(const Tarnlet::ConfigV4::Ptr& config, Tarnlet::Status::Ptr status)
      : RestartHelper(config, std::move(status)) {}
};

}  // namespace Quarle::Agent
