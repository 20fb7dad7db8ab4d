#include "xdksim/SimLpmMgr.h"

namespace XdkSim {

namespace {

/// What is wrong with a call before the chip sees it.
XP_STATUS checkCall(U32 device, const void* entry) {
  if (device != 0) {
    return XP_ERR_INVALID_DEVICE;
  }
  return entry == nullptr ? XP_ERR_NULL_POINTER : XP_NO_ERR;
}

}  // namespace

XP_STATUS SimLpmMgr::readPrefixEntry(
    U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 /*flag*/) {
  const XP_STATUS status = checkCall(device, entry);
  return status != XP_NO_ERR ? status : chip_.readPrefixRow(family_, tableId, index, *entry);
}

XP_STATUS SimLpmMgr::writePrefixEntry(U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry) {
  const XP_STATUS status = checkCall(device, entry);
  return status != XP_NO_ERR ? status : chip_.writePrefixRow(family_, tableId, index, *entry);
}

XP_STATUS SimLpmMgr::readNhiEntry(
    U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 /*flag*/) {
  const XP_STATUS status = checkCall(device, entry);
  return status != XP_NO_ERR ? status : chip_.readNhiRow(family_, tile, index, *entry);
}

XP_STATUS SimLpmMgr::writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) {
  const XP_STATUS status = checkCall(device, entry);
  return status != XP_NO_ERR ? status : chip_.writeNhiRow(family_, tile, index, *entry);
}

XP_STATUS SimLpmMgr::readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  const XP_STATUS status = checkCall(device, entry);
  return status != XP_NO_ERR ? status : chip_.readNextHopRow(row, *entry);
}

XP_STATUS SimLpmMgr::writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  const XP_STATUS status = checkCall(device, entry);
  return status != XP_NO_ERR ? status : chip_.writeNextHopRow(row, *entry);
}

}  // namespace XdkSim
