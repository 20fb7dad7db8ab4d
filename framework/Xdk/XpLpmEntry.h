#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "framework/Vellor/Types.h"

#pragma pack(push, 1)

/// One prefix table row as the SDK hands it over, all fields in host order.
///
/// The client fills it for `xpIpRouteLpmMgr::writePrefixEntry`, `readPrefixEntry` fills it for the
/// client. A record whose bytes are all zero is an empty row.
///
/// 1. `branch` is one integer of `branchLen` bits, least significant byte first, right aligned: the
///    last bit of the branch is bit 0 of `branch[0]`. Bits above `branchLen` are zero.
/// 2. `leafVal[i]` and `leafValHigh[i]` are the low and high word of slot i, below 2 to the power
///    `stride` taken together; an empty slot is zero.
///
/// The record is packed, so its fields cannot be bound to references and the leaf words stand at
/// odd addresses: copy values out and in.
struct xpLpmPrefixEntry {
  static constexpr U32 kBranchBytes = 28;
  static constexpr U32 kLeaves = 36;

  xpLpmPrefixEntry() { std::memset(static_cast<void*>(this), 0, sizeof *this); }

  // 0 for keys of 48 bits, 2 for keys of 144 bits.
  U32 keySize;
  // Layout of the leaf area; 1 is one leaf field per slot.
  U32 mode;
  U32 branchLen;
  U32 stride;
  U32 nhiTile;
  U32 nhiOffset;
  U8 branch[kBranchBytes];
  U64 leafVal[kLeaves];
  U64 leafValHigh[kLeaves];
};

/// One NHI row as the SDK hands it over: pair i is the run of `size[i]` next-hop rows that begins
/// at `base[i]`. A chip keeps fewer pairs per row than the record has room for.
///
/// Packed as well: a record may stand at an odd address.
struct xpLpmNhiEntry {
  static constexpr U32 kPairs = 10;

  xpLpmNhiEntry() { std::memset(static_cast<void*>(this), 0, sizeof *this); }

  U32 base[kPairs];
  U32 size[kPairs];
};

#pragma pack(pop)

/// One row of the next-hop table. A record whose `valid` is zero is a free row.
struct xpNextHopEntry {
  U32 valid = 0;
  // Position of this row within its next-hop group.
  U32 way = 0;
  // What the client calls the next hop of this row.
  U64 nextHopId = 0;
};

// The offsets are what programs built against another release of the SDK rely on.
static_assert(sizeof(xpLpmPrefixEntry) == 628);
static_assert(offsetof(xpLpmPrefixEntry, keySize) == 0);
static_assert(offsetof(xpLpmPrefixEntry, mode) == 4);
static_assert(offsetof(xpLpmPrefixEntry, branchLen) == 8);
static_assert(offsetof(xpLpmPrefixEntry, stride) == 12);
static_assert(offsetof(xpLpmPrefixEntry, nhiTile) == 16);
static_assert(offsetof(xpLpmPrefixEntry, nhiOffset) == 20);
static_assert(offsetof(xpLpmPrefixEntry, branch) == 24);
static_assert(offsetof(xpLpmPrefixEntry, leafVal) == 52);
static_assert(offsetof(xpLpmPrefixEntry, leafValHigh) == 340);
static_assert(std::is_trivially_copyable_v<xpLpmPrefixEntry>);
static_assert(sizeof(xpLpmNhiEntry) == 80);
static_assert(offsetof(xpLpmNhiEntry, base) == 0);
static_assert(offsetof(xpLpmNhiEntry, size) == 40);
static_assert(std::is_trivially_copyable_v<xpLpmNhiEntry>);
