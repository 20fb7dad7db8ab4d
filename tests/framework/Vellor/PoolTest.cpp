#include "framework/Vellor/Pool.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "framework/Vellor/Types.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace Vellor {
namespace {

/// Blocks filled with a byte of their own: overlapping ones spoil one another.
class Blocks {
 public:
  ~Blocks() {
    while (!blocks_.empty()) {
      giveBack(0);
    }
  }

  void take(std::size_t size, U8 fill) {
    void* at = Pool::take(size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(at) % Pool::kGranule, 0U) << "size " << size;
    std::memset(at, fill, size);
    blocks_.push_back({static_cast<U8*>(at), size, fill});
  }

  void giveBack(std::size_t which) {
    const Block block = blocks_[which];
    for (std::size_t i = 0; i < block.size; ++i) {
      ASSERT_EQ(block.at[i], block.fill) << "byte " << i << " of a block of " << block.size;
    }
    Pool::giveBack(block.at, block.size);
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(which));
  }

  std::size_t count() const { return blocks_.size(); }

 private:
  struct Block {
    U8* at;
    std::size_t size;
    U8 fill;
  };

  std::vector<Block> blocks_;
};

TEST(Pool, blocksOfAllSizesAreAlignedAndApart) {
  Blocks blocks;
  for (std::size_t size = 1; size <= 2 * Pool::kMaxPooled; ++size) {
    blocks.take(size, static_cast<U8>(size));
  }
}

TEST(Pool, randomTakesAndReturnsNeverOverlap) {
  Random random;
  SCOPED_TRACE(random.seedText());
  Blocks blocks;
  for (U32 step = 0; step < 20000; ++step) {
    if (blocks.count() == 0 || (blocks.count() < 600 && random.oneIn(2))) {
      blocks.take(random.between(1, 600), random.byte());
    } else {
      blocks.giveBack(random.between(0, static_cast<U32>(blocks.count()) - 1));
    }
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(Pool, aBlockMayBeGivenBackOnAnotherThread) {
  void* block = nullptr;
  std::thread([&block] {
    block = Pool::take(48);
    std::memset(block, 1, 48);
  }).join();
  Pool::giveBack(block, 48);
  Blocks blocks;
  blocks.take(48, 2);
  blocks.take(48, 3);
}

}  // namespace
}  // namespace Vellor
