// The cost of one block: alloc and free on a tile filled at random, as the next hops of a full
// table leave it.

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

#include "framework/Brumel/Brumel.h"

#include <benchmark/benchmark.h>

namespace {

using Brumel::BestFitAllocator;
using Brumel::BFA::Blk;

constexpr U32 kMaxBlkSz = 36;
constexpr std::size_t kDraws = 8192;

/// Block sizes as sub-tries ask for them: mostly one or two entries, now and then up to the
/// largest.
std::vector<U32> drawSizes(std::mt19937& random) {
  std::geometric_distribution<U32> small(0.45);
  std::uniform_int_distribution<U32> any(1, kMaxBlkSz);
  std::vector<U32> sizes(kDraws);
  for (U32& size : sizes) {
    size = random() % 32 == 0 ? any(random) : std::min(1 + small(random), kMaxBlkSz);
  }
  return sizes;
}

/// Replaces random blocks of a tile that is `percent` full: each round frees one block and
/// allocates another.
void replaceRandomBlock(benchmark::State& state) {
  const auto tileEntries = static_cast<U32>(state.range(0));
  const auto percent = static_cast<U32>(state.range(1));
  std::mt19937 random(1);
  const std::vector<U32> sizes = drawSizes(random);
  const BestFitAllocator::Ptr tile = new BestFitAllocator("tile", tileEntries, 0, kMaxBlkSz);
  std::vector<Blk::Ptr> blocks;
  std::size_t draw = 0;
  while (tileEntries - tile->freeEntries() < tileEntries / 100 * percent) {
    blocks.push_back(tile->alloc(sizes[draw++ % kDraws]));
  }
  std::vector<std::size_t> victims(kDraws);
  for (std::size_t& victim : victims) {
    victim = random() % blocks.size();
  }
  U64 refused = 0;
  for (auto _ : state) {
    Blk::Ptr& block = blocks[victims[draw % kDraws]];
    block = nullptr;
    block = tile->alloc(sizes[(draw * 7) % kDraws]);
    refused += block == nullptr;
    ++draw;
  }
  state.counters["refused"] = static_cast<double>(refused);
}

BENCHMARK(replaceRandomBlock)
    ->ArgNames({"entries", "percent"})
    ->Args({16384, 50})
    ->Args({16384, 90})
    ->Args({65536, 90});

/// A block that comes and goes at once, which is what a walk over tiles does in all but the last.
void allocAndFree(benchmark::State& state) {
  const BestFitAllocator::Ptr tile = new BestFitAllocator("tile", 16384, 0, kMaxBlkSz);
  const Blk::Ptr first = tile->alloc(5);
  for (auto _ : state) {
    benchmark::DoNotOptimize(tile->alloc(3));
  }
}

BENCHMARK(allocAndFree);

}  // namespace

BENCHMARK_MAIN();
