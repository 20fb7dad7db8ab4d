// How a family takes over what its chip holds, and how its caller then tells what of that is still
// wanted.
//
// The library walks the chip and sweeps over what it found within the constructor of its machine,
// all NHI tiles on view. The walk needs them. The sweep normally allocates nothing, since each row
// keeps its content; a row that gets a new block all the same must find one tile alone, as with any
// other request. Nothing is called between the two, but the walk reads each row once: the last one
// is where the tiles go.

#include <algorithm>
#include <chrono>
#include <functional>
#include <unordered_map>
#include <utility>

#include "agent/FamilyClient.h"

namespace Quarle::Agent {

namespace {

using Tarnlet::LpmPrefix;
using Clock = std::chrono::steady_clock;

double secondsBetween(Clock::time_point begin, Clock::time_point end) {
  return std::chrono::duration<double>(end - begin).count();
}

U64 rowsOf(const Tarnlet::ConfigBase& config) {
  U64 rows = 0;
  for (const auto& table : config.prefixTableConfigCollection()) {
    rows += table.value->depth();
  }
  return rows;
}

/// The SDK's manager as a walk reads through it: with the last row all NHI tiles but one go out of
/// the machine's view.
class WalkedTiles final : public xpIpRouteLpmMgr {
 public:
  WalkedTiles(xpIpRouteLpmMgr& manager, const Tarnlet::RestartHelperBase& helper)
      : manager_(manager), helper_(helper), rows_(rowsOf(*helper.lpmConfig())) {}

  XP_STATUS readPrefixEntry(
      U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry, U8 flag) override {
    const XP_STATUS status = manager_.readPrefixEntry(device, table, row, entry, flag);
    if (++rowsRead_ == rows_) {
      leaveOne(status == XP_NO_ERR ? U32{entry->nhiTile} : 0);
    }
    return status;
  }

  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry, U8 flag) override {
    return manager_.readNhiEntry(device, tile, row, entry, flag);
  }

  XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override {
    return manager_.writePrefixEntry(device, table, row, entry);
  }

  /// Puts the tiles back.
  void restore(Tarnlet::LpmSm& sm) {
    for (const auto& [index, allocator] : hidden_) {
      sm.nhiAllocatorIs(index, allocator);
    }
    hidden_.clear();
  }

  U64 rowsRead() const { return rowsRead_; }

  /// When the last row was read.
  Clock::time_point end() const { return end_; }

 private:
  using Tile = std::pair<Tarnlet::NhiTileIdx, Brumel::BestFitAllocator::Ptr>;

  /// `tile` is the one that the last row may still claim a block of. When that row is empty it is
  /// tile 0, which is as good as any.
  void leaveOne(U32 tile) {
    end_ = Clock::now();
    Tarnlet::LpmSm& sm = *helper_.lpmSm();
    std::vector<Tile> others;
    for (const auto& each : sm.nhiAllocatorCollection()) {
      if (each.memberKey().value() != tile) {
        others.emplace_back(each.memberKey(), each.value);
      }
    }
    if (others.size() == sm.nhiAllocators()) {
      // No block is in a tile that there is not.
      others.pop_back();
    }
    for (const Tile& other : others) {
      sm.nhiAllocatorDel(other.first);
    }
    hidden_ = std::move(others);
  }

  xpIpRouteLpmMgr& manager_;
  const Tarnlet::RestartHelperBase& helper_;
  const U64 rows_;
  U64 rowsRead_ = 0;
  Clock::time_point end_;
  std::vector<Tile> hidden_;
};

}  // namespace

Tarnlet::LpmSm::Ptr FamilyClient::startEngine(const HelperMaker& makeHelper,
                                              xpIpRouteLpmMgr* manager) {
  if (!options_.warmStart) {
    return Tarnlet::lpmSmFactory(config_->name(), config_, status_, nullptr);
  }
  const FamilyWarmStart& warm = *options_.warmStart;
  const Tarnlet::RestartHelperBase::Ptr helper = makeHelper(status_);
  WalkedTiles walked(warm.walkManager != nullptr ? *warm.walkManager : *manager, *helper);
  helper->xdkLpmMgrIs(&walked);
  consumer_.isDroppingIs(warm.dropsRewrites);
  const Clock::time_point begin = Clock::now();
  Tarnlet::LpmSm::Ptr sm = Tarnlet::lpmSmFactory(config_->name(), config_, status_, helper);
  const Clock::time_point end = Clock::now();
  consumer_.isDroppingIs(false);
  helper->xdkLpmMgrIs(nullptr);
  walked.restore(*sm);
  recovery_ = {.rowsRead = walked.rowsRead(),
               .routes = routes(),
               .rewrites = consumer_.counts(),
               .longestQueue = consumer_.longestQueue(),
               .walkSeconds = secondsBetween(begin, walked.end()),
               .rewriteSeconds = secondsBetween(walked.end(), end)};
  return sm;
}

/// The sweep withdraws a prefix whose pair says that it leads nowhere; what is left is its request.
void FamilyClient::dropRoutesWithoutGroup() {
  if (!options_.warmStart) {
    return;
  }
  std::vector<LpmPrefix::Ptr> prefixes;
  for (const auto& request : config_->requestCollection()) {
    if (request.value == NextHopBlock()) {
      prefixes.push_back(request.key);
    }
  }
  for (const LpmPrefix::Ptr& prefix : prefixes) {
    config_->requestDel(prefix);
    prefixes_.forget(routeKeyOf(prefixes_.family(), *prefix));
  }
  recovery_.routesWithoutGroup = prefixes.size();
}

std::vector<AdoptedBlock> FamilyClient::adoptedBlocks() const {
  const auto keyOf = [](const NextHopBlock& block) {
    return U64{block.base().value()} << 16 | block.size().value();
  };
  std::unordered_map<U64, AdoptedBlock> blocks;
  for (const auto& request : config_->requestCollection()) {
    AdoptedBlock& adopted = blocks[keyOf(request.value)];
    adopted.block = request.value;
    ++adopted.routes;
  }
  std::vector<AdoptedBlock> result;
  result.reserve(blocks.size());
  for (const auto& [key, adopted] : blocks) {
    result.push_back(adopted);
  }
  return result;
}

// --- resynchronisation

void FamilyClient::resyncBegin() {
  resyncCounts_ = {};
  resync_ = std::make_unique<Resync>(config_->requests());
  for (const auto& request : config_->requestCollection()) {
    resync_->marks.insert(request.key.get());
  }
  refused_.forEach([this](const RefusedWish& wish) { resync_->wishes.insert(wish.key); });
}

void FamilyClient::claimMarked(const RouteKey& key) {
  resync_->wishes.erase(key);
  if (isSound(key)) {
    if (const LpmPrefix::Ptr prefix = prefixes_.find(key)) {
      resync_->marks.erase(prefix.get());
    }
  }
}

FamilyClient::ResyncStep FamilyClient::resyncEnd(U64 most) {
  if (resync_ == nullptr) {
    return {};
  }
  ResyncStep step;
  std::vector<RouteKey>& leaving = resync_->leaving;
  if (!resync_->isEnding) {
    resync_->isEnding = true;
    for (const auto& request : config_->requestCollection()) {
      if (resync_->marks.contains(request.key.get())) {
        leaving.push_back(routeKeyOf(prefixes_.family(), *request.key));
      }
    }
    leaving.insert(leaving.end(), resync_->wishes.begin(), resync_->wishes.end());
    std::sort(leaving.begin(), leaving.end(), std::greater<>());
    leaving.erase(std::unique(leaving.begin(), leaving.end()), leaving.end());
  }
  while (step.withdrawn != most && !leaving.empty()) {
    const RouteKey key = leaving.back();
    leaving.pop_back();
    const LpmPrefix::Ptr prefix = isSound(key) ? prefixes_.find(key) : nullptr;
    const bool isUnclaimed = prefix != nullptr && resync_->marks.erase(prefix.get());
    if (resync_->wishes.erase(key) == 0 && !isUnclaimed) {
      continue;
    }
    ++step.withdrawn;
    const Request request = withdraw(key);
    ++(request.answer.refused() ? resyncCounts_.waiting : resyncCounts_.withdrawn);
    tell(key, request.group, request.answer, Cause::resync);
    settle(request);
  }
  step.left = leaving.size();
  if (step.left == 0) {
    resync_ = nullptr;
  }
  return step;
}

}  // namespace Quarle::Agent
