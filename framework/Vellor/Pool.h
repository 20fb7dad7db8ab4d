#pragma once

#include <cstddef>

#include "framework/Vellor/Export.h"

namespace Vellor {

/// Size-class free lists for the many small blocks of the system: shared objects, collection
/// members, lists.
///
/// A block's size is told again when it is given back, so blocks carry no header. Sizes are rounded
/// up to 8 bytes; blocks above `kMaxPooled` go to the C++ heap. The lists are one per thread, need
/// no lock, and blocks may be given back on another thread than the one that took them. Memory once
/// taken from the heap stays with the lists.
class VELLOR_API Pool {
 public:
  static constexpr std::size_t kGranule = 8;
  static constexpr std::size_t kMaxPooled = 512;

  /// A block of at least `size` bytes, aligned to 8. Throws std::bad_alloc like operator new.
  /// REQUIRES: `size` is not 0.
  static void* take(std::size_t size);

  /// REQUIRES: `block` came from take() with the same `size`.
  static void giveBack(void* block, std::size_t size) noexcept;
};

}  // namespace Vellor
