#include "agent/restart/WalkLpmMgr.h"

#include <algorithm>
#include <utility>

namespace Quarle::Agent {

WalkLpmMgr::WalkLpmMgr(xpIpRouteLpmMgr& manager, std::vector<RowPlace> hiddenRows)
    : manager_(manager), hiddenRows_(std::move(hiddenRows)) {
  std::sort(hiddenRows_.begin(), hiddenRows_.end());
}

XP_STATUS WalkLpmMgr::readPrefixEntry(
    U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) {
  const RowPlace place{.table = tableId, .row = index};
  if (std::binary_search(hiddenRows_.begin(), hiddenRows_.end(), place)) {
    return XP_ERR_NOTHING_TO_READ;
  }
  return manager_.readPrefixEntry(device, tableId, index, entry, flag);
}

XP_STATUS WalkLpmMgr::writePrefixEntry(U32 device,
                                       U32 tableId,
                                       U32 index,
                                       xpLpmPrefixEntry* entry) {
  return manager_.writePrefixEntry(device, tableId, index, entry);
}

XP_STATUS WalkLpmMgr::readNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) {
  return manager_.readNhiEntry(device, tile, index, entry, flag);
}

XP_STATUS WalkLpmMgr::writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) {
  return manager_.writeNhiEntry(device, tile, index, entry);
}

XP_STATUS WalkLpmMgr::readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  return manager_.readNextHopEntry(device, row, entry);
}

XP_STATUS WalkLpmMgr::writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  return manager_.writeNextHopEntry(device, row, entry);
}

}  // namespace Quarle::Agent
