// The allocator works on entries counted from its first one; offset_ is added where a block is
// written and taken off where an offset comes in. The map finds the neighbours of a block, the free
// runs find the best fit; each knows nothing of the other's question.

#include "framework/Brumel/BestFitAllocator.h"

namespace Brumel {
namespace BFA {

Blk::~Blk() {
  if (allocator_ != nullptr) {
    allocator_->blkEnds(*this);
  }
}

void Blk::prefetchPlace() const {
  if (allocator_ != nullptr) {
    allocator_->map_.prefetch(offset_ - allocator_->offset_);
  }
}

void PendingCmds::pendingCmdLogEnq(U32 oldOffset, Blk::Ptr blk) {
  log_.emplace_back(oldOffset, std::move(blk));
}

PendingCmdLog PendingCmds::pendingCmdLogDeq() {
  if (next_ == log_.size()) {
    return {};
  }
  return std::move(log_[next_++]);
}

}  // namespace BFA

BestFitAllocator::BestFitAllocator(Vellor::Name name, U32 memSz, U32 offset, U32 maxBlkSz)
    : name_(std::move(name)),
      memSz_(memSz),
      offset_(offset),
      maxBlkSz_(maxBlkSz),
      freeEntries_(memSz),
      map_(memSz),
      freeRuns_(map_, memSz, maxBlkSz_) {
  if (memSz != 0) {
    freeRuns_.insert({.at = 0, .size = memSz});
  }
}

BestFitAllocator::~BestFitAllocator() {
  for (U32 at = 0; at < memSz_;) {
    BFA::Blk* blk = map_.blkAt(at);
    if (blk == nullptr) {
      at += map_.freeSizeAt(at);
      continue;
    }
    at += blk->blkSz_;
    blk->allocator_ = nullptr;
  }
}

BFA::Blk::Ptr BestFitAllocator::alloc(U32 size) {
  if (!sizeAllowed(size)) {
    return nullptr;
  }
  const BFA::Run fit = freeRuns_.bestFit(size);
  if (fit.size == 0) {
    return nullptr;
  }
  return blkFromFree(fit, {.at = fit.at, .size = size});
}

bool BestFitAllocator::canAlloc(U32 size) const {
  return sizeAllowed(size) && freeRuns_.canFit(size);
}

BFA::Blk::Ptr BestFitAllocator::realloc(U32 offset, U32 size) {
  if (!sizeAllowed(size) || offset < offset_ || offset - offset_ >= memSz_) {
    return nullptr;
  }
  const U32 at = offset - offset_;
  if (size > memSz_ - at) {
    return nullptr;
  }
  if (BFA::Blk* blk = map_.blkAt(at); blk != nullptr) {
    return resized(*blk, size);
  }
  const BFA::Run whole = freeRuns_.runWith(at);
  if (whole.size == 0 || whole.end() - at < size) {
    return nullptr;
  }
  return blkFromFree(whole, {.at = at, .size = size});
}

BFA::PendingCmds::Ptr BestFitAllocator::defragment() {
  BFA::PendingCmds::Ptr cmds = new BFA::PendingCmds();
  const BFA::Run hole = freeRuns_.lowest();
  if (hole.size == 0) {
    return cmds;
  }
  // Blocks below the lowest hole stay; behind it, each block goes to where the one before it now
  // ends.
  U32 to = hole.at;
  for (U32 at = hole.at; at < memSz_;) {
    BFA::Blk* blk = map_.blkAt(at);
    if (blk == nullptr) {
      const BFA::Run run{.at = at, .size = map_.freeSizeAt(at)};
      freeRuns_.erase(run);
      at = run.end();
      continue;
    }
    map_.blkIs(at, nullptr);
    map_.blkIs(to, blk);
    cmds->pendingCmdLogEnq(std::exchange(blk->offset_, offset_ + to), blk);
    at += blk->blkSz_;
    to += blk->blkSz_;
  }
  freeRuns_.insert({.at = to, .size = memSz_ - to});
  return cmds;
}

BFA::Blk::Ptr BestFitAllocator::blkFromFree(BFA::Run whole, BFA::Run part) {
  BFA::Blk::Ptr blk = new BFA::Blk(this, part.size, offset_ + part.at);
  take(whole, part);
  map_.blkIs(part.at, blk.get());
  return blk;
}

BFA::Blk::Ptr BestFitAllocator::resized(BFA::Blk& blk, U32 size) {
  const U32 oldEnd = blk.offset_ - offset_ + blk.blkSz_;
  if (size > blk.blkSz_) {
    const U32 missing = size - blk.blkSz_;
    const U32 room = oldEnd < memSz_ ? map_.freeSizeAt(oldEnd) : 0;
    if (room < missing) {
      return nullptr;
    }
    take({.at = oldEnd, .size = room}, {.at = oldEnd, .size = missing});
  } else if (size < blk.blkSz_) {
    const U32 spare = blk.blkSz_ - size;
    release({.at = oldEnd - spare, .size = spare});
  }
  blk.blkSz_ = size;
  return &blk;
}

void BestFitAllocator::take(BFA::Run whole, BFA::Run part) {
  freeRuns_.erase(whole);
  if (part.at > whole.at) {
    freeRuns_.insert({.at = whole.at, .size = part.at - whole.at});
  }
  if (part.end() < whole.end()) {
    freeRuns_.insert({.at = part.end(), .size = whole.end() - part.end()});
  }
  freeEntries_ -= part.size;
}

void BestFitAllocator::release(BFA::Run run) {
  freeEntries_ += run.size;
  if (run.at > 0) {
    // The entry before is the last of its run: a free run's size is told there, a block of one
    // entry tells no size.
    const U32 below = map_.freeSizeAt(run.at - 1);
    if (below != 0) {
      freeRuns_.erase({.at = run.at - below, .size = below});
      run = {.at = run.at - below, .size = run.size + below};
    }
  }
  if (run.end() < memSz_) {
    const U32 above = map_.freeSizeAt(run.end());
    if (above != 0) {
      freeRuns_.erase({.at = run.end(), .size = above});
      run.size += above;
    }
  }
  freeRuns_.insert(run);
}

void BestFitAllocator::blkEnds(const BFA::Blk& blk) {
  const U32 at = blk.offset_ - offset_;
  map_.blkIs(at, nullptr);
  release({.at = at, .size = blk.blkSz_});
}

}  // namespace Brumel
