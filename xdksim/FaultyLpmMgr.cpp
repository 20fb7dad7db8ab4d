#include "xdksim/FaultyLpmMgr.h"

#include <cstring>

#include "xdksim/Damage.h"

namespace XdkSim {

template <typename Record, typename Operation>
XP_STATUS FaultyLpmMgr::read(LpmCalls call,
                             const RowPlace& place,
                             Record* entry,
                             const Operation& operation) {
  const std::optional<LpmFault> fault = plan_.strike(call, place);
  if (!fault) {
    return operation(entry);
  }
  switch (fault->effect) {
    case FaultEffect::notDone:
      break;
    case FaultEffect::done:
      operation(entry);
      break;
    case FaultEffect::half: {
      Record whole;
      if (entry != nullptr && operation(&whole) == XP_NO_ERR) {
        std::memcpy(static_cast<void*>(entry), &whole, sizeof whole / 2);
      }
      break;
    }
  }
  return fault->status;
}

XP_STATUS FaultyLpmMgr::write(LpmCalls call,
                              const RowPlace& place,
                              const std::function<XP_STATUS()>& operation) {
  const std::optional<LpmFault> fault = plan_.strike(call, place);
  if (!fault) {
    return operation();
  }
  switch (fault->effect) {
    case FaultEffect::notDone:
      break;
    case FaultEffect::done:
      operation();
      break;
    case FaultEffect::half:
      if (chip_.memory().layout().has(place)) {
        const auto words = static_cast<U32>(chip_.memory().row(place).size());
        (void)writeHalf(chip_, place, plan_.wordsOfHalf(words), operation);
      }
      break;
  }
  return fault->status;
}

RowPlace FaultyLpmMgr::placeOf(RowKind kind, U32 table, U32 row) const {
  return {.kind = kind, .family = family_, .table = table, .row = row};
}

XP_STATUS FaultyLpmMgr::readPrefixEntry(
    U32 device, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 flag) {
  return read(kReadPrefixEntry, placeOf(RowKind::prefix, tableId, index), entry,
              [=, this](xpLpmPrefixEntry* record) {
                return manager_.readPrefixEntry(device, tableId, index, record, flag);
              });
}

XP_STATUS FaultyLpmMgr::writePrefixEntry(U32 device,
                                         U32 tableId,
                                         U32 index,
                                         xpLpmPrefixEntry* entry) {
  return write(kWritePrefixEntry, placeOf(RowKind::prefix, tableId, index),
               [=, this] { return manager_.writePrefixEntry(device, tableId, index, entry); });
}

XP_STATUS FaultyLpmMgr::readNhiEntry(
    U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry, U8 flag) {
  return read(kReadNhiEntry, placeOf(RowKind::nhi, tile, index), entry,
              [=, this](xpLpmNhiEntry* record) {
                return manager_.readNhiEntry(device, tile, index, record, flag);
              });
}

XP_STATUS FaultyLpmMgr::writeNhiEntry(U32 device, U32 tile, U32 index, xpLpmNhiEntry* entry) {
  return write(kWriteNhiEntry, placeOf(RowKind::nhi, tile, index),
               [=, this] { return manager_.writeNhiEntry(device, tile, index, entry); });
}

XP_STATUS FaultyLpmMgr::readNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  return read(
      kReadNextHopEntry, {.kind = RowKind::nextHop, .row = row}, entry,
      [=, this](xpNextHopEntry* record) { return manager_.readNextHopEntry(device, row, record); });
}

XP_STATUS FaultyLpmMgr::writeNextHopEntry(U32 device, U32 row, xpNextHopEntry* entry) {
  return write(kWriteNextHopEntry, {.kind = RowKind::nextHop, .row = row},
               [=, this] { return manager_.writeNextHopEntry(device, row, entry); });
}

}  // namespace XdkSim
