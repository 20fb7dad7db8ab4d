#include "framework/Brumel/FreeRuns.h"

#include <algorithm>
#include <bit>
#include <functional>

namespace Brumel::BFA {
namespace {

// With a low limit on blocks nearly every run would be large; the list of large runs stays short
// all the same.
constexpr U32 kMinSmallMax = 63;

}  // namespace

FreeRuns::FreeRuns(EntryMap& map, U32 entries, U32 maxRequest)
    : map_(map),
      entries_(entries),
      smallMax_(std::min(entries, std::max(maxRequest, kMinSmallMax))),
      starts_(entries),
      sizes_(smallMax_ + 1),
      bySize_(smallMax_ + 1) {}

Run FreeRuns::bestFit(U32 size) const {
  const U32 fit = sizes_.lowestAtLeast(size);
  if (fit == BitTree::kNone) {
    if (large_.empty()) {
      return {};
    }
    return {.at = static_cast<U32>(large_.back()), .size = static_cast<U32>(large_.back() >> 32)};
  }
  // The stretch may hold the beginnings of smaller runs before the one that is meant.
  U32 at = starts_.lowestAtLeast(bySize_[fit]->lowest() << stretchShift(fit));
  while (map_.freeSizeAt(at) != fit) {
    at = starts_.lowestAtLeast(at + 1);
  }
  return {.at = at, .size = fit};
}

bool FreeRuns::canFit(U32 size) const {
  return !large_.empty() || sizes_.lowestAtLeast(size) != BitTree::kNone;
}

Run FreeRuns::runWith(U32 entry) const {
  const U32 at = starts_.highestAtMost(entry);
  if (at == BitTree::kNone) {
    return {};
  }
  const Run run{.at = at, .size = map_.freeSizeAt(at)};
  return entry < run.end() ? run : Run{};
}

Run FreeRuns::lowest() const {
  if (starts_.empty()) {
    return {};
  }
  const U32 at = starts_.lowest();
  return {.at = at, .size = map_.freeSizeAt(at)};
}

void FreeRuns::insert(Run run) {
  map_.freeRunIs(run);
  starts_.insert(run.at);
  if (run.size > smallMax_) {
    const U64 key = largeKey(run);
    if (large_.empty() || key < large_.back()) {
      large_.push_back(key);
    } else {
      large_.insert(std::lower_bound(large_.begin(), large_.end(), key, std::greater<>()), key);
    }
    return;
  }
  const U32 shift = stretchShift(run.size);
  auto& runs = bySize_[run.size];
  if (runs == nullptr) {
    runs = std::make_unique<BitTree>(((entries_ - 1) >> shift) + 1);
  }
  runs->insert(run.at >> shift);
  sizes_.insert(run.size);
}

void FreeRuns::erase(Run run) {
  map_.freeRunDel(run);
  starts_.erase(run.at);
  if (run.size > smallMax_) {
    const U64 key = largeKey(run);
    if (key == large_.back()) {
      large_.pop_back();
    } else {
      large_.erase(std::lower_bound(large_.begin(), large_.end(), key, std::greater<>()));
    }
    return;
  }
  BitTree& runs = *bySize_[run.size];
  runs.erase(run.at >> stretchShift(run.size));
  if (runs.empty()) {
    sizes_.erase(run.size);
  }
}

U64 FreeRuns::largeKey(Run run) { return U64{run.size} << 32 | run.at; }

U32 FreeRuns::stretchShift(U32 size) { return static_cast<U32>(std::bit_width(size + 1)) - 1; }

}  // namespace Brumel::BFA
