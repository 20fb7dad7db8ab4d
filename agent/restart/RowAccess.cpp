#include "agent/restart/RowAccess.h"

#include "agent/CommandConsumer.h"
#include "agent/WriteFaults.h"

namespace Quarle::Agent {

namespace {

constexpr U32 kDevice = 0;

std::string textOf(const RowPlace& place) {
  return "prefix table " + std::to_string(place.table) + " row " + std::to_string(place.row);
}

std::string textOf(const NhiBlocks::Place& place) {
  return "NHI tile " + std::to_string(place.tile) + " row " + std::to_string(place.offset);
}

}  // namespace

bool RowAccess::read(const RowPlace& place, xpLpmPrefixEntry& entry) const {
  const XP_STATUS status = manager_.readPrefixEntry(kDevice, place.table, place.row, &entry, 0);
  if (status == XP_ERR_NOTHING_TO_READ) {
    return false;
  }
  if (status != XP_NO_ERR) {
    fail(textOf(place), "read", status, "0 or 11");
  }
  return true;
}

void RowAccess::read(const NhiBlocks::Place& place, xpLpmNhiEntry& entry) const {
  const XP_STATUS status = manager_.readNhiEntry(kDevice, place.tile, place.offset, &entry, 0);
  if (!isWritten(status)) {
    fail(textOf(place), "read", status, "0, 9 or 42");
  }
}

void RowAccess::write(const RowPlace& place, xpLpmPrefixEntry entry) {
  const XP_STATUS status = manager_.writePrefixEntry(kDevice, place.table, place.row, &entry);
  if (!isWritten(status)) {
    fail(textOf(place), "write", status, "0, 9 or 42");
  }
  ++prefixWrites_;
}

void RowAccess::write(const NhiBlocks::Place& place, xpLpmNhiEntry entry) {
  const XP_STATUS status = manager_.writeNhiEntry(kDevice, place.tile, place.offset, &entry);
  if (!isWritten(status)) {
    fail(textOf(place), "write", status, "0, 9 or 42");
  }
  ++nhiWrites_;
}

void RowAccess::fail(const std::string& row,
                     const char* operation,
                     XP_STATUS status,
                     const char* expected) const {
  throw PreFlightError(std::string(familyName(family_)) + " " + row + ": the " + operation +
                       " answered " + std::to_string(status) + ", expected " + expected);
}

}  // namespace Quarle::Agent
