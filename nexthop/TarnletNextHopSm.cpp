// Which rows each next-hop group has. A request ends in one of three ways: the group has a block of
// its size, it has none, or it is refused and everything stays as it was. The new block is always
// found before the old one is let go, so a resize can be refused without harm; the price is that
// the old rows do not help to serve it.
//
// Only a compaction moves blocks of groups that nobody asked about. It is told in full before the
// request that caused it goes on.

#include "nexthop/TarnletNextHopSm.h"

#include <utility>

#include "framework/Vellor/Invariant.h"
#include "framework/Vellor/Trace.h"
#include "model/TraceUnits.h"

namespace Quarle::TarnletNextHop {

namespace {

// Rows of the largest group.
constexpr U32 kMaxBlockSize = 1024;

}  // namespace

void LpmNextHopSm::VellorConfig::onRequest(const SwId& swId) {
  if (isZombie() || lpmNextHopSm_ == nullptr) {
    return;
  }
  lpmNextHopSm_->handleRequest(swId);
}

LpmNextHopSm::LpmNextHopSm(Vellor::String name,
                           Config::Ptr config,
                           TarnletNextHop::Status::Ptr status)
    : name_(std::move(name)),
      config_(std::move(config)),
      status_(std::move(status)),
      reactor_(new VellorConfig) {
  reactor_->lpmNextHopSmIs(this);
  reactor_->notifierIs(config_);
  reactor_->isRegisteredNotifieeIs(true);
  handleInitialized();
}

LpmNextHopSm::~LpmNextHopSm() {
  // A notification under way may hold the reactor for a while yet.
  reactor_->isRegisteredNotifieeIs(false);
  reactor_->lpmNextHopSmIs(nullptr);
}

void LpmNextHopSm::handleInitialized() {
  VELLOR_TRACE(tarnletNextHopTrace, 1, " handleInitialized " << name_);
  status_->shuffleCmdDelAll();
  status_->swIdToNextHopBlockDelAll();
  allocatorIs(
      new Brumel::BestFitAllocator("allocator", config_->tableSize(), /*offset=*/0, kMaxBlockSize));
  initializedIs(true);
  for (auto request = config_->requestIterator(); request; ++request) {
    handleRequest(request.key());
  }
}

void LpmNextHopSm::handleRequest(SwId swId) {
  VELLOR_TRACE(tarnletNextHopTrace, 8, " swId " << swId);
  const Nway nway = config_->request(swId);
  const bool hasBlock = status_->swIdToNextHopBlock(swId) != NextHopBlock();
  if (nway == Nway()) {
    if (hasBlock) {
      deleteEntry(swId);
    }
  } else if (hasBlock) {
    updateEntry(swId, nway);
  } else {
    insertEntry(swId, nway);
  }
}

void LpmNextHopSm::insertEntry(SwId swId, Nway nway) {
  VELLOR_TRACE(tarnletNextHopTrace, 8, " swId " << swId << " nway " << nway);
  if (allocator_->freeEntries() < nway.value()) {
    VELLOR_TRACE(tarnletNextHopTrace, 7, "Not enough NextHop entries");
    return;
  }
  Brumel::BFA::Blk::Ptr blk = allocator_->alloc(nway.value());
  if (blk == nullptr) {
    VELLOR_TRACE(tarnletNextHopTrace, 7, "NextHop table needs defragmentation");
    const Brumel::BFA::PendingCmds::Ptr defragCmds = allocator_->defragment();
    VELLOR_ASSERT(defragCmds, "defragCmds");
    processDefrag(defragCmds);
    blk = allocator_->alloc(nway.value());
    VELLOR_ASSERT(blk, "blk");
  }
  // A resize gives its old rows back here.
  swIdToBlockIs(swId, blk);
  baseIdxToSwIdIs(blk->offset(), swId);
  const NextHopBlock nextHopBlock(blk->offset(), nway);
  status_->swIdToNextHopBlockIs(swId, nextHopBlock);
  VELLOR_TRACE(tarnletNextHopTrace, 7, "allocated block " << nextHopBlock << " for swId " << swId);
}

void LpmNextHopSm::deleteEntry(SwId swId) {
  VELLOR_TRACE(tarnletNextHopTrace, 8, " swId " << swId);
  Brumel::BFA::Blk::Ptr blk = swIdToBlock(swId);
  VELLOR_ASSERT(blk, "blk");
  baseIdxToSwIdDel(blk->offset());
  swIdToBlockDel(swId);
  // The rows are free before anyone hears of it: whoever waits for some may ask from the
  // notification.
  blk = nullptr;
  status_->swIdToNextHopBlockDel(swId);
}

void LpmNextHopSm::updateEntry(SwId swId, Nway nway) {
  VELLOR_TRACE(tarnletNextHopTrace, 8, " swId " << swId);
  VELLOR_ASSERT(swIdToBlock(swId), "blk");
  if (nway == status_->swIdToNextHopBlock(swId).size()) {
    VELLOR_TRACE(tarnletNextHopTrace, 7, "NextHopBlock size doesn't change. No need to update.");
    return;
  }
  insertEntry(swId, nway);
}

void LpmNextHopSm::processDefrag(const Brumel::BFA::PendingCmds::Ptr& defragCmds) {
  VELLOR_TRACE(tarnletNextHopTrace, 8, "processDefrag");
  while (defragCmds->pendingCmdLogs() != 0) {
    const Brumel::BFA::PendingCmdLog move = defragCmds->pendingCmdLogDeq();
    const NextHopTableIdx oldIdx = move.oldOffset();
    const NextHopTableIdx newIdx = move.blk()->offset();
    VELLOR_TRACE(tarnletNextHopTrace, 7, "oldIdx = " << oldIdx << ", newIdx = " << newIdx);
    const SwId shuffledSwId = baseIdxToSwId(oldIdx);
    // What the client wants now. Of a group that is being resized this is not the size of the block
    // that moves.
    const Nway nway = config_->request(shuffledSwId);
    VELLOR_ASSERT(shuffledSwId != SwId(), "shuffledSwId != SwId()");
    const NextHopBlock nextHopBlock(newIdx, nway);
    const ShuffleCmd::Ptr cmd =
        shuffleCmdFactory(shuffledSwId, nextHopBlock, NextHopBlock(oldIdx, nway));
    baseIdxToSwIdDel(oldIdx);
    baseIdxToSwIdIs(newIdx, shuffledSwId);
    swIdToBlockIs(shuffledSwId, move.blk());
    status_->swIdToNextHopBlockIs(shuffledSwId, nextHopBlock);
    status_->shuffleCmdEnq(cmd);
  }
}

LpmNextHopSm::Ptr lpmNextHopSmFactory(const Vellor::String& name,
                                      const Config::Ptr& config,
                                      const Status::Ptr& status) {
  return new LpmNextHopSm(name, config, status);
}

}  // namespace Quarle::TarnletNextHop
