#pragma once

#include <string>
#include <string_view>

#include "agent/source/RouteEntry.h"

namespace Quarle::Agent {

/// A value read from text, or what was wrong with the text and what was expected instead.
template <typename Value>
struct Parsed {
  Value value{};
  std::string fault;

  bool ok() const { return fault.empty(); }
};

/// Reads an IPv4 or IPv6 address without length, such as "192.0.2.1" or "2001:db8::1".
[[nodiscard]] Parsed<IpAddress> parseAddress(std::string_view text);

/// Reads "address/length". Bits set behind the length are a fault, not rounded away: a mistyped
/// route would otherwise land on another one.
[[nodiscard]] Parsed<RoutePrefix> parsePrefix(std::string_view text);

std::string toText(const IpAddress& address);
std::string toText(const RoutePrefix& prefix);

/// `text` in double quotes for a message of one line: shortened when long, bytes outside printable
/// ASCII as \xNN.
std::string inQuotes(std::string_view text);

}  // namespace Quarle::Agent
