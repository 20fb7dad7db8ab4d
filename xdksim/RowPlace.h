#pragma once

#include <string>

#include "framework/Xdk/XpExport.h"
#include "xdksim/ChipProfile.h"

namespace XdkSim {

enum class RowKind : U8 { prefix, nhi, nextHop };

/// Which row of a chip.
struct RowPlace {
  RowKind kind = RowKind::prefix;
  // Of a next-hop row `ipv4`, whoever wrote it.
  Family family = Family::ipv4;
  // The prefix table or the NHI tile; of a next-hop row 0.
  U32 table = 0;
  U32 row = 0;

  bool operator==(const RowPlace&) const = default;
};

/// As error texts name the row: "ipv4 prefix table 2 row 5", "ipv6 NHI tile 0 row 9", "next-hop
/// row 127".
XDK_API std::string toText(const RowPlace& place);

}  // namespace XdkSim
