#pragma once

#include <cstddef>

namespace Vellor {

/// Asks the memory for the line at `address`, which need not be valid.
///
/// To the compiler a function that only asks does nothing, and GCC leaves calls of it out; the
/// empty statement keeps them.
inline void prefetch(const void* address) {
  __builtin_prefetch(address);
  asm volatile("");
}

/// The same for the first two lines of an object, if there is one.
inline void prefetchTwoLines(const void* object) {
  if (object != nullptr) {
    prefetch(object);
    prefetch(static_cast<const std::byte*>(object) + 64);
  }
}

/// The same for every line that an object stands in, if there is one.
template <class Object>
void prefetchObject(const Object* object) {
  if (object != nullptr) {
    const auto* bytes = reinterpret_cast<const std::byte*>(object);
    for (std::size_t at = 0; at < sizeof(Object); at += 64) {
      prefetch(bytes + at);
    }
    prefetch(bytes + sizeof(Object) - 1);
  }
}

}  // namespace Vellor
