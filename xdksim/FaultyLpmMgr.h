#pragma once

#include <functional>

#include "framework/Xdk/XpIpRouteLpmMgr.h"
#include "xdksim/Chip.h"
#include "xdksim/FaultPlan.h"

namespace XdkSim {

/// Another LPM manager, of one family of a simulated chip, some of whose operations fail as a plan
/// has it. Manager, chip and plan must outlive it.
///
/// Calls that no fault strikes are passed on as they are. A half write reaches the manager as a
/// whole one; the words that were not to change are put back in the chip's memory behind it.
class XDK_API FaultyLpmMgr final : public xpIpRouteLpmMgr {
 public:
  FaultyLpmMgr(xpIpRouteLpmMgr& manager, Chip& chip, Family family, FaultPlan& plan)
      : manager_(manager), chip_(chip), family_(family), plan_(plan) {}

  XP_STATUS readPrefixEntry(
      U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) override;
  XP_STATUS writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) override;
  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) override;
  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) override;
  XP_STATUS readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;
  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;

 private:
  template <typename Record, typename Operation>
  XP_STATUS read(LpmCalls call, const RowPlace& place, Record* entry, const Operation& operation);
  XP_STATUS write(LpmCalls call,
                  const RowPlace& place,
                  const std::function<XP_STATUS()>& operation);

  RowPlace placeOf(RowKind kind, U32 table, U32 row) const;

  xpIpRouteLpmMgr& manager_;
  Chip& chip_;
  Family family_;
  FaultPlan& plan_;
};

}  // namespace XdkSim
