#pragma once

#include <string>
#include <vector>

#include "framework/Xdk/XpExport.h"
#include "framework/Xdk/XpLpmEntry.h"
#include "xdksim/ChipProfile.h"
#include "xdksim/LookupResult.h"
#include "xdksim/LpmKey.h"

namespace XdkSim {

/// One used slot of a row that a look-up saw.
struct LeafExplanation {
  U32 slot = 0;
  // Branch and leaf together: the prefix of the slot and its length in key bits.
  LpmKey key;
  U32 length = 0;
  bool matches = false;
  NhiPlace place;
  // The null pair where `place` does not exist.
  NhiPair pair;
};

/// One table as a look-up saw it.
struct TableExplanation {
  U32 table = 0;
  U32 tread = 0;
  // The row that the key hashes to. The fields behind it are only filled when it is occupied.
  U32 row = 0;
  bool occupied = false;
  // Whether the row has the family's key size and the one known mode; others are passed over.
  bool readable = false;
  U32 branchLen = 0;
  U32 stride = 0;
  LpmKey branch;
  bool branchMatches = false;
  std::vector<LeafExplanation> leaves;
};

/// One row of the next-hop block that a look-up led to.
struct NextHopExplanation {
  U32 row = 0;
  xpNextHopEntry entry;
};

/// One look-up, step by step.
struct XDK_API Explanation {
  Family family = Family::ipv4;
  LpmKey key;
  std::vector<TableExplanation> tables;
  LookupResult result;
  // The rows of the result's block that the next-hop table has, the first one alone for a block of
  // size 0.
  std::vector<NextHopExplanation> nextHops;

  /// A line for each table, a line for each leaf of an occupied row, the result, and a line for
  /// each of its next-hop rows.
  std::string toText() const;
};

/// The first `length` bits of `key` as a prefix: "10.1.0.0/16" for 32 bits of an IPv4 key, with
/// "vrf 7 " in front for a VRF other than 0; "0x12/6" for lengths that end inside the VRF.
XDK_API std::string prefixText(Family family, const LpmKey& key, U32 length);

}  // namespace XdkSim
