#include "agent/restart/PreFlightReport.h"

#include "agent/CommandConsumer.h"

namespace Quarle::Agent {

namespace {

/// What is done about a fault.
const char* deedOf(RowFault fault) {
  switch (fault) {
    case RowFault::wrongKeySize:
    case RowFault::wrongMode:
    case RowFault::tooLarge:
    case RowFault::strideZero:
    case RowFault::wrongHash:
    case RowFault::noTile:
    case RowFault::blockOutOfBound:
    case RowFault::badLength:
    case RowFault::wideLeaf:
    case RowFault::treadNotCovered:
    case RowFault::noRoom:
      return "cleared";
    case RowFault::badPair:
    case RowFault::hiddenLeaf:
    case RowFault::twiceInRow:
    case RowFault::twiceInTables:
      return "rid of these prefixes";
    case RowFault::holes:
      return "closed up";
    case RowFault::twoBlocks:
      return "pointed at one block";
    case RowFault::sharedEntries:
      return "given a block of their own";
  }
  return "";
}

}  // namespace

const char* toText(RowFault fault) {
  switch (fault) {
    case RowFault::wrongKeySize:
      return "wrong keySize";
    case RowFault::wrongMode:
      return "wrong mode";
    case RowFault::tooLarge:
      return "branch length + stride too large";
    case RowFault::strideZero:
      return "stride is zero";
    case RowFault::wrongHash:
      return "prefix hash does not match with offset";
    case RowFault::noTile:
      return "NHI tile doesn't exist";
    case RowFault::blockOutOfBound:
      return "NHI block out of bound";
    case RowFault::badLength:
      return "prefix length that the family does not have";
    case RowFault::wideLeaf:
      return "leaf wider than the stride";
    case RowFault::treadNotCovered:
      return "prefixes that the table cannot serve";
    case RowFault::badPair:
      return "prefix that leads nowhere";
    case RowFault::hiddenLeaf:
      return "leaf behind the last slot";
    case RowFault::twiceInRow:
      return "prefix twice in the row";
    case RowFault::twiceInTables:
      return "prefix in another row too";
    case RowFault::holes:
      return "empty slots between prefixes";
    case RowFault::twoBlocks:
      return "second block of one content";
    case RowFault::sharedEntries:
      return "NHI entries that another block holds";
    case RowFault::noRoom:
      return "no room for a sound block";
  }
  return "";
}

U64 PreFlightReport::found() const {
  U64 sum = 0;
  for (const FaultCount& count : faults) {
    sum += count.found;
  }
  return sum;
}

std::vector<std::string> linesOf(const PreFlightReport& report) {
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < kRowFaults; ++i) {
    const FaultCount& count = report.faults[i];
    if (count.found == 0) {
      continue;
    }
    const RowFault fault = static_cast<RowFault>(i);
    lines.push_back(std::string(familyName(report.family)) + " prefix rows, " + toText(fault) +
                    ": " + std::to_string(count.found) + " found, " + std::to_string(count.mended) +
                    " " + deedOf(fault));
  }
  return lines;
}

}  // namespace Quarle::Agent
