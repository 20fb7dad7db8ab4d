#pragma once

#include <optional>
#include <vector>

#include "agent/restart/PreFlightReport.h"
#include "agent/restart/RowKey.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// Judges single prefix rows of one family as the restart walk will, without its ways of ending: a
/// row of which the walk would raise, or take something over that the chip does not serve, has a
/// fault like one that it refuses. The checks come in the walk's order and have its words.
///
/// A row that passes always fits its table's entry: no more slots are looked at than it has bits
/// for.
class RowJudge {
 public:
  /// Slots that the walk looks at.
  static constexpr U32 kMaxSlots = 27;

  struct Verdict {
    // The row's first fault of those that leave nothing to take over.
    std::optional<RowFault> fault;
    // Prefixes of the slots in use, in slot order, and a bit for each such slot.
    std::vector<RowPrefix> prefixes;
    U32 slots = 0;
    // Slots in use that repeat the prefix of a lower one, which is the one that the chip answers.
    U32 repeated = 0;
    // Leaves where the walk does not look.
    bool hiddenLeaves = false;
    // Bits in the record that a write of the same row would leave out.
    bool strayBits = false;
  };

  /// The configuration is filled and outlives the judge.
  RowJudge(Family family, const Tarnlet::ConfigBase& config) : family_(family), config_(config) {}

  /// The walk passes over a row without branch and stride.
  static bool isEmpty(const xpLpmPrefixEntry& entry) {
    return entry.branchLen == 0 && entry.stride == 0;
  }

  /// The judgement on a row that is not empty. It stands until the next call.
  const Verdict& judge(const Tarnlet::PrefixTableConfig& table,
                       U32 row,
                       const xpLpmPrefixEntry& entry);

 private:
  std::optional<RowFault> headerFault(const xpLpmPrefixEntry& entry, U32 entrySize) const;
  std::optional<RowFault> readLeaves(const xpLpmPrefixEntry& entry, U32 slots);
  std::optional<RowFault> placeFault(const Tarnlet::PrefixTableConfig& table,
                                     U32 row,
                                     U32 branchLen) const;
  std::optional<RowFault> blockFault(const xpLpmPrefixEntry& entry) const;
  void noteRepeated(const xpLpmPrefixEntry& entry);
  Tarnlet::LpmPrefix::Ptr objectOf(const RowPrefix& prefix) const;

  const Family family_;
  const Tarnlet::ConfigBase& config_;
  Verdict verdict_;
};

/// A row's record with only these slots, moved up to slot 0 and on, at this block: nothing stray is
/// left in it.
xpLpmPrefixEntry closedUp(const xpLpmPrefixEntry& entry, U32 slots, U32 tile, U32 offset);

}  // namespace Quarle::Agent
