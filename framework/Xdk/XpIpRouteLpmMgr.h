#pragma once

#include "framework/Vellor/Types.h"
#include "framework/Xdk/XpExport.h"
#include "framework/Xdk/XpLpmEntry.h"
#include "framework/Xdk/XpStatus.h"

/// The SDK's access to the LPM memories of one address family: prefix rows, NHI rows, and the rows
/// of the next-hop table, which the families share.
///
/// Each operation here answers `XP_ERR_NOT_SUPPORTED` and touches nothing; a chip's manager
/// overrides those that the chip has.
class XDK_API xpIpRouteLpmMgr {
 public:
  xpIpRouteLpmMgr() = default;
  xpIpRouteLpmMgr(const xpIpRouteLpmMgr&) = delete;
  xpIpRouteLpmMgr& operator=(const xpIpRouteLpmMgr&) = delete;
  virtual ~xpIpRouteLpmMgr() = default;

  /// Fills `entry` from row `index` of prefix table `tableId`; `XP_ERR_NOTHING_TO_READ` where there
  /// is no such row. `flag` is 0.
  virtual XP_STATUS readPrefixEntry(
      U32 /*device*/, U32 /*tableId*/, U32 /*index*/, xpLpmPrefixEntry* /*entry*/, U8 /*flag*/) {
    return XP_ERR_NOT_SUPPORTED;
  }

  /// Writes `entry` to row `index` of prefix table `tableId`, wholly or not at all. An all-zero
  /// record clears the row.
  virtual XP_STATUS writePrefixEntry(U32 /*device*/,
                                     U32 /*tableId*/,
                                     U32 /*index*/,
                                     xpLpmPrefixEntry* /*entry*/) {
    return XP_ERR_NOT_SUPPORTED;
  }

  /// Fills `entry` from row `index` of NHI tile `tile`. `flag` is 0.
  virtual XP_STATUS readNhiEntry(
      U32 /*device*/, U32 /*tile*/, U32 /*index*/, xpLpmNhiEntry* /*entry*/, U8 /*flag*/) {
    return XP_ERR_NOT_SUPPORTED;
  }

  /// Writes `entry` to row `index` of NHI tile `tile`, wholly or not at all.
  virtual XP_STATUS writeNhiEntry(U32 /*device*/,
                                  U32 /*tile*/,
                                  U32 /*index*/,
                                  xpLpmNhiEntry* /*entry*/) {
    return XP_ERR_NOT_SUPPORTED;
  }

  /// Fills `entry` from row `row` of the next-hop table.
  virtual XP_STATUS readNextHopEntry(U32 /*device*/, U32 /*row*/, xpNextHopEntry* /*entry*/) {
    return XP_ERR_NOT_SUPPORTED;
  }

  /// Writes `entry` to row `row` of the next-hop table.
  virtual XP_STATUS writeNextHopEntry(U32 /*device*/, U32 /*row*/, xpNextHopEntry* /*entry*/) {
    return XP_ERR_NOT_SUPPORTED;
  }
};
