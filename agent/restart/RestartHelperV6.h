#pragma once

#include "agent/restart/RestartHelper.h"

namespace Quarle::Agent {

/// Makes the IPv6 prefixes of a restart. See `RestartHelper`.
class RestartHelperV6 final : public RestartHelper {
  VELLOR_POINTERS(RestartHelperV6);

 public:
  RestartHelperV6(const Tarnlet::ConfigV6::Ptr& config, Tarnlet::Status::Ptr status)
      : RestartHelper(config, std::move(status)) {}
};

}  // namespace Quarle::Agent
