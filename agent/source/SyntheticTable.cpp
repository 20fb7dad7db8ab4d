// A table is dealt out from the top: the number of routes gives the number of blocks, a curve gives
// the blocks' sizes, and beneath a block the routes of each node of the binary trie are parted over
// its halves as the measured figures of its depth and size say. So any count of routes beneath any
// node follows the real table without a route of it being known. Random choices are integers from
// one generator per family, drawn in a fixed order.

#include "agent/source/SyntheticTable.h"

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "agent/source/InternetShape.h"
#include "agent/source/Random.h"
#include "agent/source/RouteOrder.h"

namespace Quarle::Agent {

namespace {

// Blocks of one group resemble each other: of the spread of their ranks by size, 39 % lies between
// groups. Two uniform draws with these bounds, one for the group and one for the block, add up so.
constexpr std::uint32_t kGroupWeight = 800'000;
constexpr std::uint32_t kBlockWeight = 1'000'000;

/// `part` of `whole` scaled to `count`, to the nearest.
std::uint32_t scaled(std::uint32_t count, std::uint32_t part, std::uint32_t whole) {
  return static_cast<std::uint32_t>((std::uint64_t{count} * part + whole / 2) / whole);
}

std::size_t bucketOf(std::uint32_t routes) {
  const auto above = std::upper_bound(kShapeBuckets.begin(), kShapeBuckets.end(), routes);
  return static_cast<std::size_t>(above - kShapeBuckets.begin()) - 1;
}

/// Prefixes that fit beneath a node with `levels` more levels, itself among them.
std::uint32_t capacityOf(unsigned levels) { return (std::uint32_t{2} << levels) - 1; }

/// The value at the middle of the `index`th of `count` equal parts of the population.
std::uint32_t curveValue(std::span<const CurvePoint> curve,
                         std::uint32_t index,
                         std::uint32_t count) {
  const std::uint64_t place = (2 * std::uint64_t{index} + 1) * 500'000 / count;
  std::size_t next = 1;
  while (curve[next].perMille * std::uint64_t{1000} < place) {
    ++next;
  }
  const CurvePoint& low = curve[next - 1];
  const CurvePoint& high = curve[next];
  const std::uint64_t beyond = place - std::min(place, low.perMille * std::uint64_t{1000});
  const std::uint64_t width = (high.perMille - low.perMille) * std::uint64_t{1000};
  return static_cast<std::uint32_t>(low.value + (high.value - low.value) * beyond / width);
}

/// Parts `total` into `count` sizes of 1 to `largest` that follow `curve`, in rising order.
///
/// REQUIRES: `count` <= `total` <= `count * largest`.
std::vector<std::uint32_t> partedByCurve(std::span<const CurvePoint> curve,
                                         std::uint32_t total,
                                         std::uint32_t count,
                                         std::uint32_t largest) {
  std::vector<std::uint32_t> sizes(count);
  std::uint64_t sum = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    sizes[i] = curveValue(curve, i, count);
    sum += sizes[i];
  }
  std::uint64_t parted = 0;
  for (std::uint32_t& size : sizes) {
    const std::uint64_t wanted = (std::uint64_t{size} * total + sum / 2) / sum;
    size = static_cast<std::uint32_t>(std::clamp<std::uint64_t>(wanted, 1, largest));
    parted += size;
  }
  // Rounding and the bounds leave a rest; one each from the large end changes the shape least.
  while (parted != total) {
    for (std::uint32_t i = count; i > 0 && parted != total; --i) {
      std::uint32_t& size = sizes[i - 1];
      if (parted < total && size < largest) {
        ++size;
        ++parted;
      } else if (parted > total && size > 1) {
        --size;
        --parted;
      }
    }
  }
  std::sort(sizes.begin(), sizes.end());
  return sizes;
}

/// Makes the routes of one family. Lives for one call of `make`.
class FamilyMaker {
 public:
  FamilyMaker(Family family, std::uint64_t seed)
      : family_(family),
        shape_(internetShape(family)),
        random_(mixed(seed) + static_cast<std::uint64_t>(family)) {}

  std::vector<RouteEntry> make(std::uint32_t count) {
    routes_.reserve(count);
    const std::uint32_t shortCount = scaled(count, sumOf(shape_.shortRoutes), shape_.routes);
    const std::uint32_t longCount = scaled(count, sumOf(shape_.longRoutes), shape_.routes);
    addBlocks(count - shortCount - longCount);
    addShort(shortCount);
    addLong(longCount);
    sortRoutes(routes_);
    return std::move(routes_);
  }

 private:
  struct Block {
    AddressBits bits;
    std::uint32_t rank;
  };

  static std::uint32_t sumOf(std::span<const LengthCount> lengths) {
    std::uint32_t sum = 0;
    for (const LengthCount& entry : lengths) {
      sum += entry.routes;
    }
    return sum;
  }

  void addRoute(AddressBits bits, unsigned length) {
    routes_.push_back({.prefix = RoutePrefix::of(family_, bits, length)});
  }

  /// Adds a route of a length outside the blocks' tries; false when it is there already.
  bool addRareRoute(AddressBits bits, unsigned length) {
    if (!rare_.insert(RoutePrefix::of(family_, bits, length)).second) {
      return false;
    }
    addRoute(bits, length);
    return true;
  }

  unsigned drawnLength(std::span<const LengthCount> lengths) {
    std::uint32_t rest = random_.below(sumOf(lengths));
    std::size_t i = 0;
    while (rest >= lengths[i].routes) {
      rest -= lengths[i].routes;
      ++i;
    }
    return lengths[i].length;
  }

  static std::vector<std::uint32_t> listed(std::span<const GroupRange> ranges) {
    std::vector<std::uint32_t> groups;
    for (const GroupRange& range : ranges) {
      for (std::uint32_t group = range.first; group <= range.last; ++group) {
        groups.push_back(group);
      }
    }
    return groups;
  }

  /// All groups in the order in which a growing table takes them.
  std::vector<std::uint32_t> groupsInOrder() {
    std::vector<std::uint32_t> groups = listed(shape_.knownGroups);
    std::vector<std::uint32_t> spare = listed(shape_.spareGroups);
    shuffle(groups, random_);
    shuffle(spare, random_);
    groups.insert(groups.end(), spare.begin(), spare.end());
    return groups;
  }

  /// The places of the blocks of a table of `count` routes, those for the smallest blocks first.
  std::vector<Block> chosenBlocks(std::uint32_t count) {
    const std::vector<std::uint32_t> groups = groupsInOrder();
    const std::uint32_t blocksPerGroup = 1u << (shape_.blockLength - shape_.groupLength);
    const auto space = static_cast<std::uint32_t>(groups.size()) * blocksPerGroup;
    const std::uint32_t blockCount =
        std::clamp(scaled(count, shape_.blocks, shape_.routes), std::min(count, 1u), space);
    const std::uint32_t groupCount = std::clamp(scaled(blockCount, shape_.groups, shape_.blocks),
                                                (blockCount + blocksPerGroup - 1) / blocksPerGroup,
                                                static_cast<std::uint32_t>(groups.size()));
    std::vector<Block> blocks;
    for (std::uint32_t i = 0; i < groupCount; ++i) {
      const std::uint32_t groupRank = random_.below(kGroupWeight);
      for (std::uint32_t block = 0; block < blocksPerGroup; ++block) {
        const std::uint64_t top = std::uint64_t{groups[i]} * blocksPerGroup + block;
        blocks.push_back({.bits = {.high = top << (64 - shape_.blockLength), .low = 0},
                          .rank = groupRank + random_.below(kBlockWeight)});
      }
    }
    // Which of the groups' blocks are in use is left to chance, hence drawn before the ranking.
    shuffle(blocks, random_);
    blocks.resize(blockCount);
    std::sort(blocks.begin(), blocks.end(), [](const Block& left, const Block& right) {
      return std::pair(left.rank, left.bits) < std::pair(right.rank, right.bits);
    });
    return blocks;
  }

  void addBlocks(std::uint32_t count) {
    if (count == 0) {
      return;
    }
    blocks_ = chosenBlocks(count);
    // A block filled to the last prefix would look like none; a quarter stays free.
    const std::uint32_t largest = capacityOf(shape_.lastLength - shape_.blockLength) / 4 * 3;
    const std::vector<std::uint32_t> sizes = partedByCurve(
        shape_.blockSizes, count, static_cast<std::uint32_t>(blocks_.size()), largest);
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      addBeneath(blocks_[i].bits, shape_.blockLength, sizes[i], random_);
    }
  }

  /// Adds `count` routes at and beneath the node `bits`/`depth`.
  ///
  /// REQUIRES: `count` is at most the node's capacity.
  void addBeneath(AddressBits bits, unsigned depth, std::uint32_t count, Random& random) {
    if (count == 0) {
      return;
    }
    if (depth == shape_.lastLength) {
      addRoute(bits, depth);
      return;
    }
    const ShapeLevel& level = shape_.levels[depth - shape_.blockLength];
    const std::uint32_t sideCapacity = capacityOf(shape_.lastLength - depth - 1);
    if (random.chance(level[bucketOf(count)].own) || count > 2 * sideCapacity) {
      addRoute(bits, depth);
      --count;
    }
    if (count == 0) {
      return;
    }
    const ShapeCell& cell = level[bucketOf(count)];
    std::uint32_t left = smallerSide(cell, count, sideCapacity, random);
    if (random.chance(500)) {
      left = count - left;
    }
    // A twin repeats the draws of its sister.
    const bool twin = left * 2 == count && random.chance(cell.twin);
    Random repeated = random;
    addBeneath(bits, depth + 1, left, random);
    addBeneath(bits.withBit(depth), depth + 1, count - left, twin ? repeated : random);
  }

  /// Of `count` routes beneath a node those on its emptier side.
  static std::uint32_t smallerSide(const ShapeCell& cell,
                                   std::uint32_t count,
                                   std::uint32_t sideCapacity,
                                   Random& random) {
    std::uint32_t smaller = 0;
    if (count > 1 && !random.chance(cell.oneSided)) {
      const std::uint32_t share =
          cell.smallerShare[random.below(static_cast<std::uint32_t>(cell.smallerShare.size()))];
      smaller = std::max(scaled(count, share, 1000), 1u);
    }
    return count > sideCapacity ? std::max(smaller, count - sideCapacity) : smaller;
  }

  /// Adds routes shorter than a block. They stand where little else does: above the smaller half of
  /// the blocks.
  void addShort(std::uint32_t count) {
    const auto half = static_cast<std::uint32_t>(blocks_.size() + 1) / 2;
    while (count > 0) {
      const AddressBits bits = blocks_[random_.below(half)].bits;
      count -= addRareRoute(bits, drawnLength(shape_.shortRoutes));
    }
  }

  /// Adds routes longer than the tries reach, in clusters beneath routes of the table.
  void addLong(std::uint32_t count) {
    if (count == 0) {
      return;
    }
    const auto routes = static_cast<std::uint32_t>(routes_.size());
    const std::uint32_t clusters = std::clamp(scaled(count, shape_.clusters, 1000), 1u, count);
    for (const std::uint32_t size : partedByCurve(shape_.clusterSizes, count, clusters, count)) {
      RoutePrefix host = drawnHost(routes);
      for (std::uint32_t added = 0; added < size;) {
        const unsigned length = drawnLength(shape_.longRoutes);
        added += addRareRoute(drawnBeneath(host), length);
      }
    }
  }

  /// One of the first `routes` routes, of a host length if a few draws find one.
  RoutePrefix drawnHost(std::uint32_t routes) {
    constexpr int kDraws = 100;
    RoutePrefix host = routes_[random_.below(routes)].prefix;
    for (int i = 0; i < kDraws && !isHost(host); ++i) {
      host = routes_[random_.below(routes)].prefix;
    }
    return host;
  }

  bool isHost(const RoutePrefix& prefix) const {
    return prefix.length >= shape_.firstHostLength && prefix.length <= shape_.lastHostLength;
  }

  AddressBits drawnBeneath(const RoutePrefix& prefix) {
    const AddressBits free = AddressBits{}.filled(prefix.length);
    AddressBits bits = prefix.bits();
    bits.high |= random_.next() & free.high;
    bits.low |= random_.next() & free.low;
    return bits;
  }

  Family family_;
  const InternetShape& shape_;
  Random random_;
  std::vector<RouteEntry> routes_;

  /// The blocks in use, the smallest first.
  std::vector<Block> blocks_;

  /// The routes outside the blocks' tries so far.
  std::set<RoutePrefix> rare_;
};

std::vector<RouteEntry> makeFamily(Family family, std::uint32_t count, std::uint64_t seed) {
  if (count > SyntheticSize::kMaxRoutes) {
    throw std::invalid_argument("a synthetic table of " + std::to_string(count) +
                                (family == Family::ipv4 ? " IPv4" : " IPv6") +
                                " routes, expected at most " +
                                std::to_string(SyntheticSize::kMaxRoutes));
  }
  return FamilyMaker(family, seed).make(count);
}

}  // namespace

RouteTable makeSyntheticTable(const SyntheticSize& size, std::uint64_t seed) {
  RouteTable table;
  table.ipv4 = makeFamily(Family::ipv4, size.ipv4, seed);
  table.ipv6 = makeFamily(Family::ipv6, size.ipv6, seed);
  return table;
}

}  // namespace Quarle::Agent
