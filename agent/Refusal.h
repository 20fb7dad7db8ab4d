#pragma once

#include <array>

#include "engine/TarnletSm.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Agent {

/// Why a route was refused. The library itself reports nothing but that it was.
enum class RefusalReason : U8 {
  /// Every row that may hold the prefix is another branch's.
  noRow,
  /// A row with the prefix's branch has no room for one leaf more.
  rowFull,
  /// No NHI tile has room for the block of the row that would take the prefix.
  nhiTableFull,
  /// The row's pairs fill one NHI entry and rows may not span several.
  nhiCapacityExceeded,
  /// The next-hop table has no room for the group.
  nextHopTableFull,
  /// So little NHI memory is left that withdrawals and updates must have it.
  headroom,
  /// The request cannot be served by this chip whatever its state: a length beyond what the client
  /// was made for, a VRF beyond the key, bits behind the length, a group of no ways or of more than
  /// an NHI pair can name.
  invalid,
};

inline constexpr std::array kRefusalReasons = {
    RefusalReason::noRow,
    RefusalReason::rowFull,
    RefusalReason::nhiTableFull,
    RefusalReason::nhiCapacityExceeded,
    RefusalReason::nextHopTableFull,
    RefusalReason::headroom,
    RefusalReason::invalid,
};

/// The reason as one word for machines: "noRow".
const char* toText(RefusalReason reason);

/// Why the engine has just refused the new `prefix`, told from the state that it left. Of several
/// tables that refused for different reasons, the one that more room in the NHI memory would help
/// decides, then the one that fewer leaves in its row would.
///
/// REQUIRES: `prefix` is not installed, and nothing was requested since the refusal.
RefusalReason reasonOfRefusal(const Tarnlet::LpmSm& sm, const Tarnlet::LpmPrefix::Ptr& prefix);

}  // namespace Quarle::Agent
