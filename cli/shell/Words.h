#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/RouteKey.h"

namespace Quarle::Cli {

/// The words of a line. Blanks between quotes or brackets of any kind are part of their word, so
/// that keys and textual forms need no quoting; a `#` in front of a word ends the line. Raises
/// `ShellError` for a quote or a bracket that stays open.
std::vector<std::string> wordsOf(std::string_view line);

/// Where the last, perhaps unfinished word of a line begins; its end when the line ends in a blank.
std::size_t lastWordOf(std::string_view line);

/// ", nearest \"name\"" for the name that takes the fewest edits, or nothing when all are far off.
std::string nearestText(std::string_view word, std::span<const std::string> names);

/// The library's words on misuse, with what was expected unless they tell it.
std::string withExpected(const std::string& misuse, const std::string& expected);

/// The route of the words "PREFIX", "PREFIX vrf N" or "vrf N PREFIX". Raises `ShellError`.
Agent::RouteKey routeOf(std::span<const std::string> words);

/// An address and its VRF, as the words of a route.
struct AddressKey {
  U32 vrf = 0;
  Agent::IpAddress address;
};

AddressKey addressOf(std::span<const std::string> words);

}  // namespace Quarle::Cli
