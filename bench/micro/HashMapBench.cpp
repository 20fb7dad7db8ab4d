// HashMap with the two kinds of keys that the engine uses: objects by address, which are scattered,
// and small numbers. `members` says warm (all in the caches) or cold (of the size of a full table,
// so that nearly every operation waits for memory). Keys come in random order.

#include <algorithm>
#include <random>
#include <vector>

#include "framework/Vellor/Vellor.h"

#include <benchmark/benchmark.h>

namespace {

class Object : public Vellor::PtrInterface {
 public:
  using Ptr = Vellor::Ptr<Object>;
};

/// Two sets of keys of one kind, in random order: what a map holds, and what it never held.
template <class Key>
struct Keys {
  std::vector<Key> members;
  std::vector<Key> strangers;
};

template <class Key>
Key makeKey(U32 number) {
  if constexpr (Vellor::isPtr<Key>) {
    return Key(new Object());
  } else {
    return number;
  }
}

template <class Key>
Keys<Key> makeKeys(std::size_t count) {
  Keys<Key> keys;
  for (U32 i = 0; i < count; ++i) {
    keys.members.push_back(makeKey<Key>(2 * i));
    keys.strangers.push_back(makeKey<Key>(2 * i + 1));
  }
  std::mt19937 random(1);
  std::shuffle(keys.members.begin(), keys.members.end(), random);
  std::shuffle(keys.strangers.begin(), keys.strangers.end(), random);
  return keys;
}

template <class Key>
Vellor::HashMap<Key, U64> mapOf(const std::vector<Key>& keys) {
  Vellor::HashMap<Key, U64> map;
  for (const Key& key : keys) {
    map.set(key, 1);
  }
  return map;
}

/// From an empty map to a full one, growth included.
template <class Key>
void insertAll(benchmark::State& state) {
  const Keys<Key> keys = makeKeys<Key>(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(mapOf(keys.members));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Key>
void findMember(benchmark::State& state) {
  const Keys<Key> keys = makeKeys<Key>(static_cast<std::size_t>(state.range(0)));
  const Vellor::HashMap<Key, U64> map = mapOf(keys.members);
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys.members[next]));
    next = next + 1 == keys.members.size() ? 0 : next + 1;
  }
}

template <class Key>
void findStranger(benchmark::State& state) {
  const Keys<Key> keys = makeKeys<Key>(static_cast<std::size_t>(state.range(0)));
  const Vellor::HashMap<Key, U64> map = mapOf(keys.members);
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys.strangers[next]));
    next = next + 1 == keys.strangers.size() ? 0 : next + 1;
  }
}

/// One key goes and another comes, so that the map keeps its size: the cost of both.
template <class Key>
void eraseAndInsert(benchmark::State& state) {
  const Keys<Key> keys = makeKeys<Key>(static_cast<std::size_t>(state.range(0)));
  Vellor::HashMap<Key, U64> map = mapOf(keys.members);
  std::size_t next = 0;
  bool membersGo = true;
  for (auto _ : state) {
    bool removed = false;
    map.take(membersGo ? keys.members[next] : keys.strangers[next], removed);
    map.set(membersGo ? keys.strangers[next] : keys.members[next], 1);
    benchmark::DoNotOptimize(removed);
    if (++next == keys.members.size()) {
      next = 0;
      membersGo = !membersGo;
    }
  }
}

constexpr int kWarm = 1 << 10;
constexpr int kCold = 1 << 20;

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("members")->Arg(kWarm)->Arg(kCold);
}

BENCHMARK_TEMPLATE(insertAll, U32)->Apply(sizes);
BENCHMARK_TEMPLATE(insertAll, Object::Ptr)->Apply(sizes);
BENCHMARK_TEMPLATE(findMember, U32)->Apply(sizes);
BENCHMARK_TEMPLATE(findMember, Object::Ptr)->Apply(sizes);
BENCHMARK_TEMPLATE(findStranger, U32)->Apply(sizes);
BENCHMARK_TEMPLATE(findStranger, Object::Ptr)->Apply(sizes);
BENCHMARK_TEMPLATE(eraseAndInsert, U32)->Apply(sizes);
BENCHMARK_TEMPLATE(eraseAndInsert, Object::Ptr)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
