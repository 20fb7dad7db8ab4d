#include "agent/WatchedLpmMgr.h"

#include "agent/ChipContexts.h"
#include "agent/CommandConsumer.h"

namespace Quarle::Agent {

WatchedLpmMgr::WatchedLpmMgr(XdkSim::Chip& chip, Family family, WriteWatcher& watcher)
    : manager_(chip, chipFamily(family)), family_(family), watcher_(watcher) {}

XP_STATUS WatchedLpmMgr::readPrefixEntry(
    U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry, U8 flag) {
  return manager_.readPrefixEntry(device, table, row, entry, flag);
}

XP_STATUS WatchedLpmMgr::writePrefixEntry(U32 device, U32 table, U32 row, xpLpmPrefixEntry* entry) {
  xpLpmPrefixEntry before;
  manager_.readPrefixEntry(device, table, row, &before, 0);
  const XP_STATUS status = manager_.writePrefixEntry(device, table, row, entry);
  if (isWritten(status)) {
    watcher_.prefixRowWritten(family_, table, row, before, *entry);
  }
  return status;
}

XP_STATUS WatchedLpmMgr::readNhiEntry(
    U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry, U8 flag) {
  return manager_.readNhiEntry(device, tile, row, entry, flag);
}

XP_STATUS WatchedLpmMgr::writeNhiEntry(U32 device, U32 tile, U32 row, xpLpmNhiEntry* entry) {
  xpLpmNhiEntry before;
  manager_.readNhiEntry(device, tile, row, &before, 0);
  const XP_STATUS status = manager_.writeNhiEntry(device, tile, row, entry);
  if (isWritten(status)) {
    watcher_.nhiRowWritten(family_, tile, row, before, *entry);
  }
  return status;
}

XP_STATUS WatchedLpmMgr::readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  return manager_.readNextHopEntry(device, row, entry);
}

XP_STATUS WatchedLpmMgr::writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  xpNextHopEntry before;
  manager_.readNextHopEntry(device, row, &before);
  const XP_STATUS status = manager_.writeNextHopEntry(device, row, entry);
  if (isWritten(status)) {
    watcher_.nextHopRowWritten(row, before, *entry);
  }
  return status;
}

}  // namespace Quarle::Agent
