#pragma once

#include "framework/Vellor/Types.h"
#include "xdksim/NhiRow.h"

namespace XdkSim {

/// A pair in the NHI memory. A damaged row can name a tile or an entry that does not exist.
struct NhiPlace {
  U32 tile = 0;
  U32 row = 0;
  U32 pair = 0;

  bool operator==(const NhiPlace&) const = default;
};

/// Where one address leads. Only `matched` means anything when it is false.
struct LookupResult {
  bool matched = false;
  // Key bits, those of the VRF included.
  U32 matchLen = 0;
  U32 table = 0;
  U32 row = 0;
  U32 slot = 0;
  U32 tile = 0;
  U32 nhiRow = 0;
  U32 pair = 0;
  // The run of next-hop rows, or the null block when the match leads nowhere.
  U32 base = NhiPair::kNullBase;
  U32 size = NhiPair::kNullSize;

  bool operator==(const LookupResult&) const = default;

  /// Whether there is a match that leads to next-hop rows.
  bool hasNextHop() const {
    return matched && !(base == NhiPair::kNullBase && size == NhiPair::kNullSize);
  }

  /// The next-hop row that a packet with this hash of its flow takes.
  ///
  /// REQUIRES: `hasNextHop()`.
  U32 nextHopRow(U32 flowHash) const { return size == 0 ? base : base + flowHash % size; }
};

}  // namespace XdkSim
