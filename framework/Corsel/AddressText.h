#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Corsel {

/// Splits "address/len". Raises Vellor::RangeException when there is no decimal length of at most
/// `maxLength`.
std::pair<std::string_view, U8> splitPrefixText(const Vellor::String8& text, unsigned maxLength);

/// Parses "a.b.c.d" into host byte order; false for any other text.
bool parseIp4(std::string_view text, U32& address);

/// Parses an IPv6 address, "::" and a dotted tail included, into network order; false for any other
/// text.
bool parseIp6(std::string_view text, std::array<U8, 16>& bytes);

}  // namespace Corsel
