#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "agent/NhiUsers.h"
#include "agent/source/RouteEntry.h"
#include "framework/Vellor/Types.h"

namespace Quarle::Agent {

/// What may be wrong with a prefix row before a restart. The rows of the first group say nothing
/// that could be taken over; those of the second are mended.
enum class RowFault : U8 {
  // The restart walk refuses these, for good. The reasons are its own words.
  wrongKeySize,
  wrongMode,
  tooLarge,
  strideZero,
  wrongHash,
  noTile,
  blockOutOfBound,
  // Of these the walk would make an error or a route that the chip does not serve.
  badLength,
  wideLeaf,
  treadNotCovered,

  // Some leaves have to go.
  badPair,
  hiddenLeaf,
  twiceInRow,
  twiceInTables,
  // The leaves have to move up.
  holes,
  // Another block is needed.
  twoBlocks,
  sharedEntries,
  // There was no room for another block.
  noRoom,
};

inline constexpr std::size_t kRowFaults = static_cast<std::size_t>(RowFault::noRoom) + 1;

/// The reason in a few words: "wrong keySize".
const char* toText(RowFault fault);

/// Rows of one kind.
struct FaultCount {
  U64 found = 0;
  U64 mended = 0;

  bool operator==(const FaultCount&) const = default;
};

/// What pre-flight found in one family's tables and what it did.
struct PreFlightReport {
  Family family = Family::ipv4;
  // Rows of the tables, empty ones included.
  U64 rowsRead = 0;
  // Rows that hold prefixes for the walk to take over, by the end.
  U64 rowsSound = 0;
  U64 prefixes = 0;
  // A row with several faults of the second group counts in each.
  std::array<FaultCount, kRowFaults> faults{};
  // In rising order: rows that stand in the chip with a fault and that the walk must not see.
  std::vector<RowPlace> keptRows;
  U64 prefixWrites = 0;
  U64 nhiWrites = 0;
  // Whether the rows that the walk will take over are such that all the library will write of them
  // is what the chip holds already, bit for bit.
  bool rewritesOnly = false;

  const FaultCount& operator[](RowFault fault) const {
    return faults[static_cast<std::size_t>(fault)];
  }

  FaultCount& operator[](RowFault fault) { return faults[static_cast<std::size_t>(fault)]; }

  /// Rows with a fault that were found; each kind counts.
  U64 found() const;
};

/// A line for each kind that was found: what it is, how many rows, what was done. Nothing for sound
/// tables.
std::vector<std::string> linesOf(const PreFlightReport& report);

}  // namespace Quarle::Agent
