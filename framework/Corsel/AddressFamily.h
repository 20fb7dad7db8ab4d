#pragma once

#include "framework/Vellor/Types.h"

namespace Corsel {

/// The value 1 is IPv4; every other one prints as IPv6.
enum class AddressFamily : U32 { unspecified = 0, ipv4 = 1, ipv6 = 2 };

}  // namespace Corsel
