#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "framework/Brumel/Brumel.h"
#include "tests/framework/Brumel/BlkText.h"

#include <gtest/gtest.h>

namespace {

using Brumel::BestFitAllocator;
using Brumel::BFA::Blk;
using Brumel::Testing::moves;
using Brumel::Testing::newAllocator;
using Brumel::Testing::text;

/// The allocator as one would explain it: an owner for each entry, every question answered by
/// walking them all.
class Model {
 public:
  using Id = U32;
  static constexpr Id kFree = 0;

  Model(U32 memSz, U32 offset, U32 maxBlkSz)
      : owner_(memSz, kFree), offset_(offset), maxBlkSz_(maxBlkSz) {}

  std::optional<U32> bestFit(U32 size) const {
    std::optional<U32> best;
    std::size_t bestSize = 0;
    for (std::size_t at = 0; at < owner_.size();) {
      std::size_t end = at;
      while (end < owner_.size() && owner_[end] == owner_[at]) {
        ++end;
      }
      if (owner_[at] == kFree && end - at >= size && (!best || end - at < bestSize)) {
        best = static_cast<U32>(at) + offset_;
        bestSize = end - at;
      }
      at = end;
    }
    return size == 0 || size > maxBlkSz_ ? std::nullopt : best;
  }

  /// True when `id` can have exactly the entries of the range, besides those it has.
  bool canClaim(Id id, U32 offset, U32 size) const {
    bool can = size != 0 && size <= maxBlkSz_ && offset >= offset_;
    for (U32 i = 0; can && i < size; ++i) {
      const std::size_t at = std::size_t{offset} - offset_ + i;
      can = at < owner_.size() && (owner_[at] == kFree || owner_[at] == id);
    }
    return can;
  }

  void claim(Id id, U32 offset, U32 size) {
    release(id);
    for (U32 i = 0; i < size; ++i) {
      owner_[offset - offset_ + i] = id;
    }
  }

  void release(Id id) { std::replace(owner_.begin(), owner_.end(), id, kFree); }

  /// The owner whose block begins at the entry, or kFree.
  Id beginsAt(U32 offset) const {
    const std::size_t at = std::size_t{offset} - offset_;
    if (offset < offset_ || at >= owner_.size() || (at > 0 && owner_[at - 1] == owner_[at])) {
      return kFree;
    }
    return owner_[at];
  }

  /// Compacts, and tells the moves as moves() does.
  std::string defragment() {
    std::vector<Id> compact;
    std::string out;
    for (std::size_t at = 0; at < owner_.size();) {
      const Id id = owner_[at];
      const std::size_t from = at;
      const std::size_t to = compact.size();
      for (; at < owner_.size() && owner_[at] == id; ++at) {
        if (id != kFree) {
          compact.push_back(id);
        }
      }
      if (id != kFree && to != from) {
        out += (out.empty() ? "" : " ") + std::to_string(from + offset_) + ">" +
               std::to_string(to + offset_) + "+" + std::to_string(at - from);
      }
    }
    compact.resize(owner_.size(), kFree);
    owner_ = compact;
    return out;
  }

  U32 freeEntries() const {
    return static_cast<U32>(std::count(owner_.begin(), owner_.end(), kFree));
  }

  /// "offset+size" of the owner's entries.
  std::string text(Id id) const {
    const auto first = std::find(owner_.begin(), owner_.end(), id);
    return std::to_string(first - owner_.begin() + offset_) + "+" +
           std::to_string(std::count(owner_.begin(), owner_.end(), id));
  }

 private:
  std::vector<Id> owner_;
  U32 offset_;
  U32 maxBlkSz_;
};

struct Shape {
  U32 memSz;
  U32 offset;
  U32 maxBlkSz;
  U32 steps;
};

std::ostream& operator<<(std::ostream& stream, const Shape& shape) {
  return stream << "memSz " << shape.memSz << " offset " << shape.offset << " maxBlkSz "
                << shape.maxBlkSz;
}

U32 testSeed() {
  const char* text = std::getenv("VELLOR_TEST_SEED");
  return text != nullptr ? static_cast<U32>(std::strtoul(text, nullptr, 10))
                         : std::random_device()();
}

/// Runs random operations on the allocator and the model at once; fills and drains in turn, so that
/// both crowded and roomy states occur.
class BestFitAllocatorAgainstModel : public testing::TestWithParam<Shape> {
 protected:
  U32 draw(U32 below) { return static_cast<U32>(random_() % below); }

  U32 drawSize() {
    const U32 limit = std::min(shape_.maxBlkSz, shape_.memSz);
    // Mostly small, as far as allowed, and a little past it.
    return draw(3) == 0 ? draw(limit + 3) : draw(std::min(limit, 6u) + 1);
  }

  void stepAlloc() {
    const U32 size = drawSize();
    const std::optional<U32> expected = model_.bestFit(size);
    ASSERT_EQ(tile_->canAlloc(size), expected.has_value()) << "size " << size;
    const Blk::Ptr blk = tile_->alloc(size);
    ASSERT_EQ(text(blk), expected ? std::to_string(*expected) + "+" + std::to_string(size) : "null")
        << "alloc " << size;
    if (blk != nullptr) {
      model_.claim(++lastId_, *expected, size);
      blocks_[lastId_] = blk;
    }
  }

  void stepFree() {
    if (!blocks_.empty()) {
      const auto victim = std::next(blocks_.begin(), draw(static_cast<U32>(blocks_.size())));
      model_.release(victim->first);
      blocks_.erase(victim);
    }
  }

  void stepRealloc() {
    // Half of them at a block's beginning, the others anywhere, a little outside included.
    U32 offset = shape_.offset + draw(shape_.memSz + 2) - (shape_.offset != 0 ? 1 : 0);
    if (!blocks_.empty() && draw(2) == 0) {
      offset = std::next(blocks_.begin(), draw(static_cast<U32>(blocks_.size())))->second->offset();
    }
    const U32 size = drawSize();
    const Model::Id present = model_.beginsAt(offset);
    const Model::Id id = present != Model::kFree ? present : lastId_ + 1;
    const bool expected = model_.canClaim(id, offset, size);
    const Blk::Ptr blk = tile_->realloc(offset, size);
    ASSERT_EQ(text(blk), expected ? std::to_string(offset) + "+" + std::to_string(size) : "null")
        << "realloc " << offset << " " << size;
    if (blk == nullptr) {
      return;
    }
    model_.claim(id, offset, size);
    if (present != Model::kFree) {
      ASSERT_EQ(blk, blocks_[id]) << "a resized block stays the same object";
    }
    lastId_ = std::max(lastId_, id);
    blocks_[id] = blk;
  }

  void stepDefragment() { ASSERT_EQ(moves(tile_->defragment()), model_.defragment()); }

  void compareBlocks() {
    for (const auto& [id, blk] : blocks_) {
      ASSERT_EQ(text(blk), model_.text(id));
    }
  }

  const Shape shape_ = GetParam();
  const U32 seed_ = testSeed();
  std::mt19937 random_{seed_};
  BestFitAllocator::Ptr tile_ = newAllocator(shape_.memSz, shape_.maxBlkSz, shape_.offset);
  Model model_{shape_.memSz, shape_.offset, shape_.maxBlkSz};
  std::map<Model::Id, Blk::Ptr> blocks_;
  Model::Id lastId_ = Model::kFree;
};

TEST_P(BestFitAllocatorAgainstModel, everyAnswerIsTheModels) {
  for (U32 step = 0; step < shape_.steps; ++step) {
    SCOPED_TRACE(testing::Message() << shape_ << " VELLOR_TEST_SEED=" << seed_ << " step " << step);
    const bool filling = step % 1024 < 640;
    const U32 kind = draw(100);
    if (kind == 0) {
      stepDefragment();
      compareBlocks();
    } else if (kind < 15) {
      stepRealloc();
    } else if (kind < (filling ? 70u : 40u)) {
      stepAlloc();
    } else {
      stepFree();
    }
    ASSERT_EQ(tile_->freeEntries(), model_.freeEntries());
    if (HasFatalFailure()) {
      return;
    }
  }
  compareBlocks();
  blocks_.clear();
  EXPECT_EQ(tile_->freeEntries(), shape_.memSz);
  EXPECT_EQ(tile_->canAlloc(shape_.memSz), shape_.memSz <= shape_.maxBlkSz);
}

INSTANTIATE_TEST_SUITE_P(Shapes,
                         BestFitAllocatorAgainstModel,
                         testing::Values(Shape{1, 0, 1, 300},
                                         Shape{2, 7, 1, 300},
                                         Shape{12, 0, 4, 4000},
                                         Shape{64, 0, 36, 8000},
                                         Shape{65, 1000, 100, 8000},
                                         Shape{300, 0, 1, 8000},
                                         Shape{700, 3, 36, 16000},
                                         Shape{4097, 0, 36, 6000},
                                         Shape{5000, 0, 1024, 6000}));

}  // namespace
