#pragma once

#include "agent/source/RouteEntry.h"
#include "xdksim/SimLpmMgr.h"

namespace Quarle::Agent {

/// Who wants to know of each write to a chip that went through, right after it, with what stood
/// there before.
class WriteWatcher {
 public:
  virtual void prefixRowWritten(Family family,
                                U32 table,
                                U32 row,
                                const xpLpmPrefixEntry& before,
                                const xpLpmPrefixEntry& now) = 0;
  virtual void nhiRowWritten(
      Family family, U32 tile, U32 row, const xpLpmNhiEntry& before, const xpLpmNhiEntry& now) = 0;
  virtual void nextHopRowWritten(U32 row,
                                 const xpNextHopEntry& before,
                                 const xpNextHopEntry& now) = 0;

 protected:
  ~WriteWatcher() = default;
};

/// The SDK's manager of one family over a simulated chip, with a watcher of its writes. Chip and
/// watcher outlive it.
class WatchedLpmMgr final : public xpIpRouteLpmMgr {
 public:
  WatchedLpmMgr(XdkSim::Chip& chip, Family family, WriteWatcher& watcher);

  XP_STATUS readPrefixEntry(
      U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry, U8 flag) override;
  XP_STATUS writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) override;
  XP_STATUS readNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry, U8 flag) override;
  XP_STATUS writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) override;
  XP_STATUS readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;
  XP_STATUS writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) override;

 private:
  XdkSim::SimLpmMgr manager_;
  Family family_;
  WriteWatcher& watcher_;
};

}  // namespace Quarle::Agent
