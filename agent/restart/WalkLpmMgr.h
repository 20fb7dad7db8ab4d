#pragma once

#include <vector>

#include "agent/NhiUsers.h"
#include "framework/Xdk/Xdk.h"

namespace Quarle::Agent {

/// The SDK's manager as the restart walk should see it: rows that stand in the chip and are not to
/// be taken over have nothing to read. The manager behind it outlives it, and it outlives the walk.
class WalkLpmMgr final : public xpIpRouteLpmMgr {
 public:
  WalkLpmMgr(xpIpRouteLpmMgr& manager, std::vector<RowPlace> hiddenRows);

  XP_STATUS readPrefixEntry(
      U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) override;
  XP_STATUS writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) override;
  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) override;
  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) override;
  XP_STATUS readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;
  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;

 private:
  xpIpRouteLpmMgr& manager_;
  // In rising order.
  std::vector<RowPlace> hiddenRows_;
};

}  // namespace Quarle::Agent
