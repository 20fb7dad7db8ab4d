#pragma once

namespace Vellor {

/// Asks the memory for the line at `address`, which need not be valid.
///
/// To the compiler a function that only asks does nothing, and GCC leaves calls of it out; the
/// empty statement keeps them.
inline void prefetch(const void* address) {
  __builtin_prefetch(address);
  asm volatile("");
}

}  // namespace Vellor
