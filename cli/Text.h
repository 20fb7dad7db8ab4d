#pragma once

#include <cstdint>
#include <string>

#include "agent/Refusal.h"

namespace Quarle::Cli {

/// A short text in the manner of printf.
[[gnu::format(printf, 1, 2)]] std::string format(const char* form, ...);

/// 1,060,000
std::string grouped(std::uint64_t number);

/// "112 of 943, 11.9 %"
std::string share(std::uint64_t part, std::uint64_t whole);

/// The reason for people: "no row free".
const char* sentence(Agent::RefusalReason reason);

}  // namespace Quarle::Cli
