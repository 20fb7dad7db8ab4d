#include "agent/source/RouteText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

#include <arpa/inet.h>

namespace Quarle::Agent {

namespace {

bool readAddress(std::string_view text, IpAddress& address) {
  char terminated[INET6_ADDRSTRLEN];
  if (text.size() >= sizeof(terminated)) {
    return false;
  }
  std::copy(text.begin(), text.end(), terminated);
  terminated[text.size()] = '\0';
  const bool ipv6 = text.find(':') != std::string_view::npos;
  address.family = ipv6 ? Family::ipv6 : Family::ipv4;
  return inet_pton(ipv6 ? AF_INET6 : AF_INET, terminated, address.bytes.data()) == 1;
}

bool readLength(std::string_view text, unsigned& length) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  return error == std::errc{} && end == text.data() + text.size();
}

}  // namespace

Parsed<IpAddress> parseAddress(std::string_view text) {
  Parsed<IpAddress> result;
  if (!readAddress(text, result.value)) {
    result.fault = inQuotes(text) + " is no address, expected an IPv4 or IPv6 address";
  }
  return result;
}

Parsed<RoutePrefix> parsePrefix(std::string_view text) {
  Parsed<RoutePrefix> result;
  const std::size_t slash = text.find('/');
  IpAddress address;
  if (!readAddress(text.substr(0, slash), address)) {
    result.fault =
        inQuotes(text) + " is no prefix, expected one such as 192.0.2.0/24 or 2001:db8::/32";
    return result;
  }
  const unsigned longest = addressBits(address.family);
  unsigned length = 0;
  if (slash == std::string_view::npos) {
    result.fault = inQuotes(text) + " has no length, expected " + std::string(text) + "/" +
                   std::to_string(longest) + " or shorter";
    return result;
  }
  if (!readLength(text.substr(slash + 1), length) || length > longest) {
    result.fault = inQuotes(text) + " has no valid length, expected a number from 0 to " +
                   std::to_string(longest);
    return result;
  }
  const AddressBits bits = AddressBits::of(address.bytes);
  result.value = RoutePrefix::of(address.family, bits, length);
  if (result.value.bits() != bits) {
    result.fault = inQuotes(text) + " has host bits set, expected " + toText(result.value);
  }
  return result;
}

std::string toText(const IpAddress& address) {
  char text[INET6_ADDRSTRLEN];
  inet_ntop(address.family == Family::ipv6 ? AF_INET6 : AF_INET, address.bytes.data(), text,
            sizeof(text));
  return text;
}

std::string toText(const RoutePrefix& prefix) {
  return toText(prefix.firstAddress()) + "/" + std::to_string(prefix.length);
}

std::string inQuotes(std::string_view text) {
  constexpr std::size_t kLongest = 60;
  constexpr char kDigits[] = "0123456789abcdef";
  std::string result = "\"";
  for (const char letter : text.substr(0, kLongest)) {
    if (letter >= ' ' && letter <= '~') {
      result += letter;
      continue;
    }
    const auto byte = static_cast<std::uint8_t>(letter);
    result += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return result + (text.size() > kLongest ? "...\"" : "\"");
}

}  // namespace Quarle::Agent
