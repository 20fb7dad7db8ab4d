#pragma once

#include <array>
#include <string>
#include <vector>

#include "framework/Xdk/Xdk.h"
#include "xdksim/ChipImage.h"
#include "xdksim/ChipMemory.h"
#include "xdksim/ChipProfile.h"
#include "xdksim/CrcTables.h"
#include "xdksim/Explanation.h"
#include "xdksim/LookupResult.h"
#include "xdksim/LpmKey.h"
#include "xdksim/NhiRow.h"
#include "xdksim/PrefixRow.h"

namespace XdkSim {

/// What was written to a chip since it was made or its image was opened.
struct ChipCounters {
  U64 prefixWrites = 0;
  // Prefix writes that left the row empty; they count as writes too.
  U64 prefixClears = 0;
  U64 nhiWrites = 0;
  U64 nextHopWrites = 0;
  // Writes of any kind that were refused; they count nowhere else.
  U64 refusedWrites = 0;
};

/// A simulated switch chip: prefix tables, NHI tiles and the next-hop table, bit-packed as in
/// hardware, and the look-up over them.
///
/// Written row by row, through `SimLpmMgr` by a client of the SDK or directly by a test; looked up
/// by whoever wants to know where a packet would go. Look-ups may run side by side on several
/// threads as long as nobody writes.
///
/// 1. A write is done wholly or not at all: a record with a field that does not fit is refused, and
///    `lastError` tells which.
/// 2. The words of `ChipMemory` hold everything that a look-up or a read depends on. The rest, such
///    as which rows are occupied, is derived from them.
/// 3. Reading a row gives exactly the record that was written to it last; a row never written reads
///    as an all-zero record.
/// 4. A chip on a `ChipImage` outlives the process: 1 and 3 hold across a kill -9 as well.
class XDK_API Chip {
 public:
  /// Raises `ProfileError` for a profile that its `check` refuses.
  explicit Chip(ChipProfile profile);

  /// The chip of that image, with all rows as they were left.
  explicit Chip(ChipImage image);

  Chip(const Chip&) = delete;
  Chip& operator=(const Chip&) = delete;

  const ChipProfile& profile() const { return profile_; }

  /// Fills `context` with the table context of that number: 50 IPv4 and 51 IPv6 (an
  /// `xpLpmTableContext`), 52 next hop (an `xpNhTableContext`). False, and nothing filled, for any
  /// other number and for a record of another type.
  bool fillTableContext(U32 number, xpTableContext* context) const;

  /// Prefix rows. A write of an all-zero record clears the row. `XP_ERR_OUT_OF_RANGE` for a write
  /// to, `XP_ERR_NOTHING_TO_READ` for a read from a row that does not exist.
  [[nodiscard]] XP_STATUS writePrefixRow(Family family,
                                         U32 table,
                                         U32 row,
                                         const xpLpmPrefixEntry& entry);
  [[nodiscard]] XP_STATUS readPrefixRow(Family family,
                                        U32 table,
                                        U32 row,
                                        xpLpmPrefixEntry& entry) const;

  /// NHI rows. Pairs behind those that a row has must be unused: all zero, or no next hop.
  [[nodiscard]] XP_STATUS writeNhiRow(Family family, U32 tile, U32 row, const xpLpmNhiEntry& entry);
  [[nodiscard]] XP_STATUS readNhiRow(Family family, U32 tile, U32 row, xpLpmNhiEntry& entry) const;

  /// Next-hop rows.
  [[nodiscard]] XP_STATUS writeNextHopRow(U32 row, const xpNextHopEntry& entry);
  [[nodiscard]] XP_STATUS readNextHopRow(U32 row, xpNextHopEntry& entry) const;

  /// Why the last refused write was refused, in one line; empty when none ever was.
  const std::string& lastError() const { return lastError_; }

  /// The memory as bits, for those who damage, save or compare it. After changing words of prefix
  /// tables `memoryChanged` must be called before the next operation.
  ChipMemory& memory() { return memory_; }

  const ChipMemory& memory() const { return memory_; }

  /// Derives anew what is derived from the memory.
  void memoryChanged();

  /// The same for one row.
  ///
  /// REQUIRES: the row exists.
  void memoryChanged(const RowPlace& place);

  /// Where the hardware sends a packet to `address` (4 or 16 bytes in network order) in `vrf`: the
  /// longest prefix over all tables, and of equally long ones the one in the table of lowest
  /// number.
  LookupResult lookup(Family family, U16 vrf, const U8* address) const;

  /// The same look-up, with all that each table had to say.
  Explanation explain(Family family, U16 vrf, const U8* address) const;

  const ChipCounters& counters() const { return counters_; }

  U32 rowsUsed(Family family, U32 table) const { return bank(family).tables[table].used; }

  /// Over all tables of the family.
  U32 rowsUsed(Family family) const;
  U32 rowCapacity(Family family) const;

 private:
  /// One prefix table with what makes looking it up fast.
  struct Table {
    U64* words = nullptr;
    U32 rows = 0;
    U32 width = 0;
    U32 tread = 0;
    U32 used = 0;
    const xpCrcTables* crc = nullptr;
    // One bit for each row: set while the row is not empty. Most look-ups of a table end here.
    std::vector<U64> occupied;

    PrefixRow row(U32 index) const { return {words + std::size_t{index} * (width / 64), width}; }

    bool isOccupied(U32 index) const { return (occupied[index / 64] >> index % 64 & 1) != 0; }

    U32 hash(const LpmKey& key) const;
    void rowChanged(U32 index);
  };

  /// What one family has.
  struct Bank {
    U32 keyWidth;
    U32 tiles;
    U32 entriesPerTile;
    NhiLayout nhiLayout;
    std::vector<Table> tables;
    std::vector<U64*> nhiTiles;

    const U64* nhiRow(U32 tile, U32 row) const {
      return nhiTiles[tile] + std::size_t{row} * ChipLayout::kNhiRowWords;
    }

    bool matches(const PrefixRow& row, const LpmKey& key) const;
    void findLeaf(const PrefixRow& row, const LpmKey& key, U32 table, LookupResult& best) const;
    NhiPlace nhiPlace(const PrefixRow& row, U32 slot) const;
    NhiPair pairAt(const NhiPlace& place) const;
    TableExplanation explainTable(U32 table, const LpmKey& key) const;
  };

  Bank bankOf(Family family);

  const Bank& bank(Family family) const { return family == Family::ipv4 ? ipv4_ : ipv6_; }

  Bank& bank(Family family) { return family == Family::ipv4 ? ipv4_ : ipv6_; }

  XP_STATUS refuse(XP_STATUS status, const RowPlace& place, const std::string& text);

  ChipProfile profile_;
  ChipMemory memory_;
  Bank ipv4_;
  Bank ipv6_;
  ChipCounters counters_;
  std::string lastError_;
};

}  // namespace XdkSim
