#pragma once

#include "framework/Xdk/XpIpRouteLpmMgr.h"
#include "xdksim/Chip.h"

namespace XdkSim {

/// The SDK's LPM manager of one address family over a simulated chip, which is device 0. The chip
/// must outlive it. Why a write was refused is told by the chip's `lastError`.
class XDK_API SimLpmMgr final : public xpIpRouteLpmMgr {
 public:
  SimLpmMgr(Chip& chip, Family family) : chip_(chip), family_(family) {}

  XP_STATUS readPrefixEntry(
      U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) override;
  XP_STATUS writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) override;
  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) override;
  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) override;
  XP_STATUS readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;
  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;

 private:
  Chip& chip_;
  Family family_;
};

}  // namespace XdkSim
