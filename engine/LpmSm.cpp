#include "engine/LpmSm.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "framework/Vellor/Invariant.h"
#include "model/TraceUnits.h"

// Lifetime of the machine and the road of a notification up to the choice of operation. The
// constructor does all the start-up work; from then on everything runs inside the writes to
// `request`.

namespace Quarle::Tarnlet {

namespace {

/// Falling tread, no second key.
bool prefixTableTreadComparisonFunc(const PrefixTable::Ptr& a, const PrefixTable::Ptr& b) {
  return a->tableConfig()->tread() > b->tableConfig()->tread();
}

/// The largest block of a tile, in entries. The environment is looked at first: a configuration
/// without pairs cannot even be asked.
U32 blockLimit(const ConfigBase& config) {
  const char* text = std::getenv("NHI_MAX_BLOCK_SIZE");
  return text != nullptr ? static_cast<U32>(std::strtol(text, nullptr, 10))
                         : config.nhiMaxBlockSize();
}

}  // namespace

void LpmSm::VellorConfig::onRequest(const LpmPrefix::Ptr& lpmPrefix) {
  if (lpmSm_ != nullptr && !isZombie()) {
    lpmSm_->handleRequest(lpmPrefix);
  }
}

LpmSm::LpmSm(Vellor::String8 name,
             ConfigBase::Ptr config,
             Tarnlet::Status::Ptr status,
             RestartHelperBase::Ptr restartHelper)
    : name_(std::move(name)),
      config_(std::move(config)),
      status_(std::move(status)),
      restartHelper_(std::move(restartHelper)),
      reactor_(new VellorConfig()) {
  const ConstructionHold hold(this);
  reactor_->lpmSmIs(this);
  reactor_->notifierIs(config_);
  reactor_->isRegisteredNotifieeIs(true);
  handleInitialized();
}

LpmSm::~LpmSm() {
  reactor_->isRegisteredNotifieeIs(false);
  reactor_->lpmSmIs(nullptr);
}

void LpmSm::handleInitialized() {
  VELLOR_TRACE(tarnletSmTrace, 1, " handleInitialized " << name_);
  status_->pendingCmdDelAll();

  std::vector<Tarnlet::PrefixTable::Ptr> tables;
  for (auto tableConfig = config_->prefixTableConfigIterator(); tableConfig; ++tableConfig) {
    tables.push_back(prefixTableIs(tableConfig.key(), tableConfig.ptr()));
  }
  // Stable, so that runs are reproducible among tables of equal tread.
  std::stable_sort(tables.begin(), tables.end(), prefixTableTreadComparisonFunc);
  for (std::size_t i = 0; i < tables.size(); ++i) {
    config_->prefixTableSortedByTreadIs(static_cast<U8>(i), tables[i]);
  }

  const U32 maxBlkSz = blockLimit(*config_);
  for (U32 tile = 0; tile < config_->nhiAvailableTiles(); ++tile) {
    nhiAllocatorIs(
        static_cast<U8>(tile),
        new Brumel::BestFitAllocator("nhiAllocator", config_->nhiEntriesPerTile(), 0, maxBlkSz));
  }
  VELLOR_ASSERT(config_->leastTreadForPrefixLens() == config_->keyLength() + U32{1},
                "config()->leastTreadForPrefixLens() == config()->keyLength() + (U32)1");

  if (restartHelper_) {
    restartHelper_->doRestart(/*removeStale=*/false, this);
  }
  initializedIs(true);
  for (auto request = config_->requestIterator(); request; ++request) {
    handleRequest(request.key());
  }
}

void LpmSm::handleRequest(const LpmPrefix::Ptr& lpmPrefix) {
  if (!initialized()) {
    VELLOR_TRACE(tarnletSmTrace, 3, " not initialized " << lpmPrefix->stringValue());
    return;
  }
  const bool wanted = config_->request(lpmPrefix) != NextHopBlock();
  const bool installed = prefixToSubTrie_.isMember(lpmPrefix);
  if (wanted && installed) {
    VELLOR_TRACE(tarnletSmTrace, 3, " update prefix " << lpmPrefix->stringValue());
    updatePrefix(lpmPrefix);
  } else if (wanted) {
    VELLOR_TRACE(tarnletSmTrace, 3, " insert prefix " << lpmPrefix->stringValue());
    insertPrefix(lpmPrefix);
  } else if (installed) {
    VELLOR_TRACE(tarnletSmTrace, 3, " delete prefix " << lpmPrefix->stringValue());
    deletePrefix(lpmPrefix);
  } else {
    VELLOR_TRACE(tarnletSmTrace, 3, " ignore prefix " << lpmPrefix->stringValue());
  }
}

void LpmSm::hasNotificationActiveIs(bool active) { reactor_->hasNotificationActiveIs(active); }

void LpmSm::vellorDoZombieReactors(bool on) { reactor_->isZombieIs(on); }

LpmSm::Ptr lpmSmFactory(const Vellor::String8& name,
                        const ConfigBase::Ptr& config,
                        const Status::Ptr& status,
                        const RestartHelperBase::Ptr& restartHelper) {
  return new LpmSm(name, config, status, restartHelper);
}

LpmSm::Ptr LpmSmIs(const Vellor::String8& name,
                   const ConfigBase::Ptr& config,
                   const Status::Ptr& status,
                   const RestartHelperBase::Ptr& restartHelper) {
  return lpmSmFactory(name, config, status, restartHelper);
}

}  // namespace Quarle::Tarnlet
