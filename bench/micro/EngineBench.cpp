// Parts of a request on an engine that holds a table of some size: the content of a row's next
// hops, its hash, and one route more into a row that stands.

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "agent/ChipContexts.h"
#include "agent/source/SyntheticTable.h"
#include "config/TarnletConfigurator.h"
#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"
#include "xdksim/Chip.h"

#include <benchmark/benchmark.h>

namespace {

using namespace Quarle;
using TarnletNextHop::NextHopBlock;

constexpr U32 kNextHops = 64;

/// An IPv4 engine with a made-up table on a chip with room for ten times as much.
class LoadedEngine {
 public:
  explicit LoadedEngine(U32 routes)
      : chip_(XdkSim::findProfile("internet")),
        config_(Tarnlet::configV4Factory("ipv4")),
        status_(Tarnlet::statusFactory("ipv4")) {
    const Config::LpmTreadCfg::Ptr treads(new Config::LpmTreadCfg());
    tarnletConfiguratorFactory(Agent::systemStatusOf(chip_), config_,
                               Tarnlet::configV6Factory("ipv6"),
                               TarnletNextHop::configFactory("nextHops"), treads)
        ->doConfig();
    sm_ = Tarnlet::lpmSmFactory("ipv4", config_, status_, nullptr);
    const Agent::RouteTable table = Agent::makeSyntheticTable({.ipv4 = routes, .ipv6 = 0}, 1);
    std::vector<Dunlix::VrfAndPrefix> keys;
    for (const Agent::RouteEntry& route : table.ipv4) {
      const auto& bytes = route.prefix.address;
      const U32 address = U32{bytes[0]} << 24 | U32{bytes[1]} << 16 | U32{bytes[2]} << 8;
      if (bytes[3] == 0) {
        keys.emplace_back(0, Corsel::Prefix(address, route.prefix.length));
      }
    }
    std::shuffle(keys.begin(), keys.end(), random_);
    // One in ten is kept back: mostly neighbours of routes that stand.
    const std::size_t kept = keys.size() / 10;
    for (std::size_t i = kept; i < keys.size(); ++i) {
      insert(keys[i]);
    }
    newcomers_.assign(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(kept));
    // Those that need no row of their own stay: the others would measure another road.
    std::erase_if(newcomers_, [this](const Dunlix::VrfAndPrefix& key) {
      const U64 rows = rowsUsed();
      insert(key);
      const bool newRow = rowsUsed() != rows;
      remove(key);
      return newRow;
    });
  }

  void insert(const Dunlix::VrfAndPrefix& key) {
    config_->requestIs(config_->lpmPrefixIs(key),
                       NextHopBlock(TarnletNextHop::NextHopTableIdx(key.hash() % kNextHops),
                                    TarnletNextHop::Nway(1)));
    drain();
  }

  void remove(const Dunlix::VrfAndPrefix& key) {
    config_->requestDel(config_->lpmPrefix(key));
    config_->lpmPrefixDel(key);
    drain();
  }

  /// Routes that find a row of their branch.
  const std::vector<Dunlix::VrfAndPrefix>& newcomers() const { return newcomers_; }

  const Tarnlet::LpmSm& sm() const { return *sm_; }

 private:
  void drain() {
    while (status_->pendingCmdDeq() != nullptr) {
    }
  }

  U64 rowsUsed() const {
    U64 rows = 0;
    for (const auto& table : sm_->prefixTableCollection()) {
      rows += table.value->subTries();
    }
    return rows;
  }

  XdkSim::Chip chip_;
  Tarnlet::ConfigV4::Ptr config_;
  Tarnlet::Status::Ptr status_;
  Tarnlet::LpmSm::Ptr sm_;
  std::mt19937 random_{1};
  std::vector<Dunlix::VrfAndPrefix> newcomers_;
};

/// The engine of this size, loaded once for all that ask.
LoadedEngine& loadedEngine(U32 routes) {
  static std::map<U32, std::unique_ptr<LoadedEngine>> engines;
  std::unique_ptr<LoadedEngine>& engine = engines[routes];
  if (engine == nullptr) {
    engine = std::make_unique<LoadedEngine>(routes);
  }
  return *engine;
}

std::vector<Tarnlet::SubTrie::Ptr> someSubTries(const Tarnlet::LpmSm& sm) {
  std::vector<Tarnlet::SubTrie::Ptr> subTries;
  for (const auto& route : sm.prefixToSubTrieCollection()) {
    if (subTries.empty() || subTries.back() != route.value) {
      subTries.push_back(route.value);
    }
    if (subTries.size() == 4096) {
      break;
    }
  }
  return subTries;
}

void nhiKey(benchmark::State& state) {
  const LoadedEngine& engine = loadedEngine(static_cast<U32>(state.range(0)));
  const std::vector<Tarnlet::SubTrie::Ptr> subTries = someSubTries(engine.sm());
  std::size_t next = 0;
  U64 slots = 0;
  for (auto _ : state) {
    const Tarnlet::SubTrie::Ptr& subTrie = subTries[next];
    next = next + 1 == subTries.size() ? 0 : next + 1;
    const Tarnlet::NhiInfoKey key = engine.sm().generateNhiInfoKey(subTrie);
    benchmark::DoNotOptimize(key.hash());
    slots += key.slotToNextHopBlocks();
  }
  state.counters["slots"] =
      benchmark::Counter(static_cast<double>(slots), benchmark::Counter::kAvgIterations);
}

BENCHMARK(nhiKey)->ArgName("routes")->Arg(5'000)->Arg(100'000);

/// Inserts a run of newcomers, timed by the process's CPU time, then takes them out again, untimed.
void insertIntoSubTrie(benchmark::State& state) {
  LoadedEngine& engine = loadedEngine(static_cast<U32>(state.range(0)));
  for (auto _ : state) {
    const std::clock_t start = std::clock();
    for (const Dunlix::VrfAndPrefix& key : engine.newcomers()) {
      engine.insert(key);
    }
    const std::clock_t end = std::clock();
    state.SetIterationTime(static_cast<double>(end - start) / CLOCKS_PER_SEC);
    for (const Dunlix::VrfAndPrefix& key : engine.newcomers()) {
      engine.remove(key);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(engine.newcomers().size()));
}

BENCHMARK(insertIntoSubTrie)->ArgName("routes")->Arg(5'000)->Arg(100'000)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
