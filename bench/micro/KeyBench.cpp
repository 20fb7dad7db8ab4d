// From a route to a row: the branch of its prefix, and the CRC of that key.

#include <array>
#include <random>
#include <vector>

#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

#include <benchmark/benchmark.h>

namespace {

using namespace Quarle;

constexpr std::size_t kKeys = 4096;
constexpr U32 kKeyBits = 144;

template <class Prefix, class Key>
void branch(benchmark::State& state, Key (*keyOf)(std::mt19937&)) {
  std::mt19937 random(1);
  std::vector<typename Prefix::Ptr> prefixes;
  for (std::size_t i = 0; i < kKeys; ++i) {
    prefixes.push_back(typename Prefix::Ptr(new Prefix(keyOf(random))));
  }
  const auto length = static_cast<U8>(state.range(0));
  std::size_t next = 0;
  for (auto _ : state) {
    const Tarnlet::LpmPrefix& prefix = *prefixes[next++ % kKeys];
    benchmark::DoNotOptimize(prefix.branch(length));
  }
}

Dunlix::VrfAndPrefix keyV4(std::mt19937& random) {
  return {0, Corsel::Prefix(static_cast<U32>(random()) & 0xffffff00U, 24)};
}

Dunlix::VrfAndIp6Prefix keyV6(std::mt19937& random) {
  std::array<U8, 16> address{0x20, 0x01};
  for (std::size_t i = 2; i < 6; ++i) {
    address[i] = static_cast<U8>(random());
  }
  return {0, Corsel::Ip6Prefix(address, 48)};
}

void branchV4(benchmark::State& state) { branch<Tarnlet::LpmPrefixV4>(state, keyV4); }

void branchV6(benchmark::State& state) { branch<Tarnlet::LpmPrefixV6>(state, keyV6); }

BENCHMARK(branchV4)->ArgName("length")->Arg(35);
BENCHMARK(branchV6)->ArgName("length")->Arg(60);

/// The hash of keys of which `bytes` bytes can be set; the others, leading ones, are zero as they
/// are in the tables' keys.
void crcHash(benchmark::State& state) {
  std::mt19937 random(1);
  std::vector<std::array<U8, kKeyBits / 8>> keys(kKeys);
  for (auto& key : keys) {
    key.fill(0);
    for (std::size_t i = key.size() - static_cast<std::size_t>(state.range(0)); i < key.size();
         ++i) {
      key[i] = static_cast<U8>(random());
    }
  }
  crcHashFunction function(kKeyBits, /*hashBits=*/16, /*poly=*/0x1021, /*enabled=*/true,
                           /*tread=*/35);
  std::size_t next = 0;
  for (auto _ : state) {
    XpBitVector bits(kKeyBits, keys[next++ % kKeys].data(), kKeyBits);
    benchmark::DoNotOptimize(function.hash(bits));
  }
}

BENCHMARK(crcHash)->ArgName("bytes")->Arg(5)->Arg(8)->Arg(18);

}  // namespace

BENCHMARK_MAIN();
