#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "agent/PrefixStore.h"
#include "agent/RouteKey.h"
#include "engine/TarnletSm.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

struct RouteChange;

/// Asks the memory for what the coming changes of a batch will touch, while earlier ones are worked
/// off.
///
/// In a large table a request waits longer for its objects than it works: they stand apart, and the
/// place of each is read in the one before. What stands one step further is asked for some requests
/// later, so that the waits of many requests overlap. It changes nothing, and what it guesses wrong
/// costs a wait and no more.
///
/// A batch makes one for itself and leads it through its changes. It writes nothing that others
/// read; the prefix objects of the installed routes ahead are held by it, so that the memory of one
/// that is withdrawn meanwhile returns some changes later, with the batch at the latest.
///
/// Invariant: the changes between the one that is worked off and the farthest that was seen have a
/// place in the ring each.
///
/// REQUIRES: the changes and what it is made of outlive it.
class LookAhead {
 public:
  LookAhead(const PrefixStore& prefixes,
            const Tarnlet::ConfigBase& config,
            const Tarnlet::LpmSm& sm,
            std::span<const RouteChange> changes)
      : prefixes_(prefixes), config_(config), sm_(sm), changes_(changes) {}

  LookAhead(const LookAhead&) = delete;
  LookAhead& operator=(const LookAhead&) = delete;

  /// To be called before the work on each change, in order.
  void beforeChange(std::size_t change);

 private:
  /// What is known of a change: an installed route by its prefix, a new one by the row where the
  /// engine looks first.
  struct Coming {
    // Nothing is asked for it.
    bool isPassedOver = true;
    Tarnlet::LpmPrefix::Ptr prefix;
    const Tarnlet::PrefixTable* table = nullptr;
    Tarnlet::PrefixTableIdx row;
  };

  using Step = void (LookAhead::*)(std::size_t change, Coming& coming);

  /// A step is done for a change that is so many places ahead of the one that is worked off.
  struct Stage {
    Step step;
    std::size_t distance;
  };

  using Stages = std::array<Stage, 7>;

  // More than the longest distance; a power of two.
  static constexpr std::size_t kRing = 32;

  static const Stages kStages;

  /// Whether its objects are not at hand already, as they are where a change follows its neighbour,
  /// and it will get as far as them.
  bool isWorthIt(std::size_t change) const;

  void place(std::size_t change, Coming& coming);
  void prefixOrRow(std::size_t change, Coming& coming);
  void subTrie(std::size_t change, Coming& coming);
  void parts(std::size_t change, Coming& coming);
  void prefixesAndPlaceOfBlock(std::size_t change, Coming& coming);
  void block(std::size_t change, Coming& coming);
  void placesInBlock(std::size_t change, Coming& coming);

  /// Where the engine looks for room first.
  void firstRow(const Tarnlet::LpmPrefix::Ptr& prefix, Coming& coming) const;
  const Tarnlet::SubTrie::Ptr* subTrieOf(const Coming& coming) const;

  const PrefixStore& prefixes_;
  const Tarnlet::ConfigBase& config_;
  const Tarnlet::LpmSm& sm_;
  const std::span<const RouteChange> changes_;
  std::array<Coming, kRing> ring_;
  // For each stage the first change that it has not seen.
  std::array<std::size_t, std::tuple_size_v<Stages>> next_{};
};

}  // namespace Quarle::Agent
