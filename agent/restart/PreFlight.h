#pragma once

#include "agent/restart/PreFlightReport.h"
#include "agent/restart/RowAccess.h"
#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

struct PreFlightOptions {
  // Report, write nothing.
  bool dryRun = false;
  // Leave rows that cannot be taken over in the chip, where they go on answering, instead of
  // clearing them. The walk must not see them: give it a `WalkLpmMgr`.
  bool keepBadRows = false;
  // Rows of the next-hop table; 0 when that is not known. A pair that leads behind them leads
  // nowhere.
  U32 nextHopRows = 0;
};

/// Reads every prefix row of one family, and the NHI entries of those that hold prefixes, and mends
/// what the restart walk would refuse for good, end the process for, or take over wrongly. To run
/// before the machine is built: what is left then is taken over whole, and the sweep behind the
/// walk takes no NHI block.
///
/// A process can end between any two writes. By the order of the library's own writes that leaves:
///
///   twiceInTables   a moved row whose old place is not cleared yet; the two are equal
///   twoBlocks       a block that a compaction moves, with some of its rows repointed
///   sharedEntries   in a compaction too: a row that the request changes, rewritten at its moved
///                   block while others read that, or a block that slid by less than its size
///   badPair         such a row, when it has more prefixes than the others left pairs
///
/// All else is damage. Rows that hold some prefixes in common and others not are among it, and so
/// are holes: the library closes a row up before it writes it.
///
/// Every single write leaves all that the chip answers as it is, but for what is itself bad: a
/// block is written before a row reads it, into entries that no row reads, and a row changes with
/// one write. So of two rows with one prefix the one in the table of lower number keeps it, which
/// is the one that the chip answers. Where their next hops differ, nobody can tell here which are
/// right; the client's replay of its routes settles that.
///
/// Costs one read for each row of the tables and for each entry of their blocks, and some 60 bytes
/// a prefix until it returns. Raises `PreFlightError`.
///
/// REQUIRES: `config` is filled, passed `checkProfile`, and has no requests.
PreFlightReport preFlight(Family family,
                          const Tarnlet::ConfigBase& config,
                          xpIpRouteLpmMgr& manager,
                          const PreFlightOptions& options = {});

}  // namespace Quarle::Agent
