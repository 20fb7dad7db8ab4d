#pragma once

#include "engine/RestartHelperBase.h"
#include "framework/Brumel/BestFitAllocator.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Tarnlet.h"

namespace Quarle::Tarnlet {

/// The prefix table engine of one address family: decides which row of which table holds each
/// route, shares the NHI blocks, and queues the writes that bring the hardware there.
///
/// Input is `request` of the configuration, output the routes and the command queue of the status.
/// A write to `request` is worked off before it returns. A refused route stays unserved until the
/// same prefix is notified again; its absence from the status is the only report.
///
/// Invariants, between requests:
///  1. `prefixToSubTrie` alone decides whether a prefix is installed; it and the sub-tries' slots
///     agree.
///  2. An NhiInfo's base is never null, and `nhiBaseIdxToBlk` has a block there.
///  3. An NhiInfo's count is the number of sub-tries with its key; each has its base and stands in
///     the set at that base.
///  4. No set of `nhiBaseIdxToSubTrie` is empty and no NhiInfo's count is 0.
///  5. In the queue, NHI entries come before the prefix entry that points at them, and a moved
///     sub-trie's new entry before the clearing of its old one.
///
/// Operations by source:
///   LpmSm.cpp            lifetime, reactor, handleInitialized, handleRequest
///   LpmSmRoute.cpp       insertPrefix, updatePrefix, deletePrefix
///   LpmSmInsert.cpp      insertPrefixInternal ... insertPrefixToSubTrie
///   LpmSmShuffle.cpp     moveSubTrie
///   LpmSmNhiSharing.cpp  generateNhiInfoKey ... updateNhiInfoForSubTrie
///   LpmSmNhiTiles.cpp    isNhiBlockAvailable ... processNhiDefrag
///   LpmSmWriteCmds.cpp   nhiBlockSize, generate...
///   LpmSmDump.cpp        dumpPrefixTables, dumpPrefixTable
///   LpmSmSummary.cpp     showSoftwareSummary, printNhiTiles, printPrefixTables
///   LpmSmAudit.cpp       verifyLpmRoute
class VELLOR_API LpmSm : public Vellor::PtrInterface {
  VELLOR_OBJECT(LpmSm, Vellor::PtrInterface);

 public:
  /// The reactor on the configuration's requests. Its way back to the machine is uncounted and cut
  /// when the machine ends.
  class VELLOR_API VellorConfig : public ConfigBase::Notifiee {
    VELLOR_POINTERS(VellorConfig);

   public:
    void lpmSmIs(LpmSm* lpmSm) { lpmSm_ = lpmSm; }

    void onRequest(const LpmPrefix::Ptr& lpmPrefix) override;

   private:
    LpmSm* lpmSm_ = nullptr;
  };

  /// Makes the tables and tile allocators, runs the restart when there is a helper, and serves
  /// every request that already stands in the configuration.
  LpmSm(Vellor::String8 name,
        ConfigBase::Ptr config,
        Status::Ptr status,
        RestartHelperBase::Ptr restartHelper);
  ~LpmSm() override;

  VELLOR_CONST(name, Name, Vellor::String8);
  VELLOR_CONST(config, Config, ConfigBase::Ptr);
  VELLOR_CONST(status, Status, Tarnlet::Status::Ptr);
  // Null for a cold start.
  VELLOR_CONST(restartHelper, RestartHelper, RestartHelperBase::Ptr);
  VELLOR_OBJ_CHILD_MAP(prefixTable, PrefixTable, PrefixTableId, Tarnlet::PrefixTable);
  // One for each NHI tile. A client may hold some back: an allocation looks at what is here.
  VELLOR_OBJ_MAP(nhiAllocator, NhiAllocator, NhiTileIdx, Brumel::BestFitAllocator::Ptr);
  // Holding a block here is what keeps it allocated.
  VELLOR_OBJ_MAP(nhiBaseIdxToBlk, NhiBaseIdxToBlk, NhiTableIdx, Brumel::BFA::Blk::Ptr);
  VELLOR_OBJ_MAP(nhiBaseIdxToSubTrie, NhiBaseIdxToSubTrie, NhiTableIdx, SubTrieSet::Ptr);
  // Blocks moved by defragmentation.
  VELLOR_OBJ_COUNTER(numNhiBlockDefrag, NumNhiBlockDefrag, U64);
  // Gates nothing: blocks are shared whatever it says.
  VELLOR_OBJ_ATTR(nhiSharingEnabled, NhiSharingEnabled, bool, true);
  VELLOR_OBJ_CHILD_MAP(sharedNhi, SharedNhi, NhiInfoKey, NhiInfo);
  VELLOR_OBJ_MAP(prefixToSubTrie, PrefixToSubTrie, LpmPrefix::Ptr, SubTrie::Ptr);
  // Whether a colliding sub-trie may be moved out of the way. The client's to set.
  VELLOR_OBJ_ATTR(hashShufflingEnabled, HashShufflingEnabled, bool, true);
  VELLOR_OBJ_COUNTER(numHashShufflingAttempt, NumHashShufflingAttempt, U64);
  VELLOR_OBJ_COUNTER(numHashShufflingSuccess, NumHashShufflingSuccess, U64);
  // Set at the end of the restart step, before standing requests are served; never cleared.
  VELLOR_OBJ_ATTR(initialized, Initialized, bool, false);
  // Null: nothing schedules the machine.
  VELLOR_OBJ_ATTR(vellorFwkActivity, VellorFwkActivity, Vellor::Ptr<Vellor::PtrInterface>, nullptr);

  VELLOR_OBJ_END;

  // ---- LpmSm.cpp ----

  /// Set-up; the constructor's last step.
  void handleInitialized();

  /// Brings one prefix from what is installed to what is requested: insert, update, delete or
  /// nothing.
  void handleRequest(const LpmPrefix::Ptr& lpmPrefix);

  void hasNotificationActiveIs(bool active) override;

  /// Sets or clears the zombie mark on the machine's reactor.
  void vellorDoZombieReactors(bool on);

  // ---- LpmSmRoute.cpp ----

  /// Tries the tables by falling tread, between the prefix's least tread and its length, until one
  /// takes it; tables whose tread is its length come last. Fatal when no table may hold the length.
  void insertPrefix(const LpmPrefix::Ptr& lpmPrefix);

  /// Gives an installed prefix its requested next hops; it stays where it is.
  void updatePrefix(const LpmPrefix::Ptr& lpmPrefix);

  /// Takes an installed prefix out.
  void deletePrefix(const LpmPrefix::Ptr& lpmPrefix);

  // ---- LpmSmInsert.cpp ----

  /// One prefix into one table: joins the sub-trie in its row, makes a new one, or makes room by
  /// moving a colliding one
  /// (`retry`).
  RouteReturnCode insertPrefixInternal(const LpmPrefix::Ptr& lpmPrefix,
                                       const Tarnlet::PrefixTable::Ptr& prefixTable);
  RouteReturnCode insertPrefixToTable(const LpmPrefix::Ptr& lpmPrefix,
                                      const Tarnlet::PrefixTable::Ptr& prefixTable);
  RouteReturnCode createSubTrieWithPrefix(const LpmPrefix::Ptr& lpmPrefix,
                                          const Tarnlet::PrefixTable::Ptr& prefixTable);

  /// Settles a layout of the sub-trie with the prefix in it and refuses or commits. A refusal
  /// changes nothing.
  RouteReturnCode insertPrefixToSubTrie(const LpmPrefix::Ptr& lpmPrefix,
                                        const SubTrie::Ptr& subTrie);

  // ---- LpmSmShuffle.cpp ----

  /// Moves the sub-trie in the prefix's row to a free row of another table of the same tread:
  /// `pass` or `fail`.
  RouteReturnCode moveSubTrie(const LpmPrefix::Ptr& lpmPrefix,
                              const Tarnlet::PrefixTable::Ptr& prefixTable);

  // ---- LpmSmNhiSharing.cpp ----

  /// The content of the sub-trie's NHI block as the live requests want it.
  NhiInfoKey generateNhiInfoKey(const SubTrie::Ptr& subTrie) const;

  /// Where a block of this content stands; null when there is none.
  NhiTableIdx nhiBaseIdxFromNhiInfoKey(const SubTrie::Ptr& subTrie, const NhiInfoKey& key) const;

  /// Links a sub-trie to the block of this content, whose record is made when it is new. Never
  /// null.
  NhiInfo::Ptr allocateNhiInfo(const SubTrie::Ptr& subTrie,
                               const NhiInfoKey& key,
                               const NhiTableIdx& nhiBaseIdx);

  /// Unlinks a sub-trie from its block, which is given back with its last user. The sub-trie keeps
  /// its stale base and key.
  void releaseNhiInfo(const SubTrie::Ptr& subTrie);

  /// Moves a sub-trie to the block of its present content, an existing or a new one. False, with
  /// nothing changed, when a new one is needed and none is to be had.
  [[nodiscard]] bool updateNhiInfoForSubTrie(const SubTrie::Ptr& subTrie);

  // ---- LpmSmNhiTiles.cpp ----

  /// Whether a block for this many slots can be had, defragmenting if need be. Reserves nothing.
  bool isNhiBlockAvailable(U8 numPrefixes) const;

  /// A block for this many slots; null when all tiles are full.
  NhiTableIdx allocateNhiBlock(U8 numPrefixes);

  /// Resizes the block at `baseIdx` where it stands, or claims the free range there.
  void reallocNhiBlock(const NhiTableIdx& baseIdx, U8 numPrefixes);

  /// Gives a block back. REQUIRES: there is one at `baseIdx`.
  void releaseNhiBlock(const NhiTableIdx& baseIdx);

  /// Replays a tile's compaction, oldest move first: repoints and rewrites every sub-trie of every
  /// moved block.
  void processNhiDefrag(NhiTileIdx tile, const Brumel::BFA::PendingCmds::Ptr& defragCmds);

  // ---- LpmSmWriteCmds.cpp ----

  /// NHI entries that hold this many pairs.
  U8 nhiBlockSize(U8 numPrefixes) const;

  /// Queues the sub-trie's prefix table entry.
  void generatePrefixTableWriteCmds(const SubTrie::Ptr& subTrie);

  /// Queues every entry of the sub-trie's NHI block, from the live requests.
  void generateNhiWriteCmds(const SubTrie::Ptr& subTrie);

  /// Queues both, the NHI entries first. REQUIRES: at least one is asked for.
  void generateSubTrieWriteCmds(const SubTrie::Ptr& subTrie,
                                bool generatePrefixCmds,
                                bool generateNhiCmds);

  /// Queues the clearing of a former place of the sub-trie.
  void generatePrefixTableIdxDeleteWriteCmd(const Tarnlet::PrefixTable::Ptr& prefixTable,
                                            U32 prefixTableIdx,
                                            const SubTrie::Ptr& subTrie);

  // ---- LpmSmDump.cpp ----

  /// Every sub-trie of every table, or of one, to trace level 9.
  void dumpPrefixTables() const;
  void dumpPrefixTable(const Tarnlet::PrefixTable::Ptr& prefixTable) const;

  // ---- LpmSmSummary.cpp ----

  // To an open descriptor, piece by piece and without a look at what becomes of it. The two lists
  // know descriptors up to 255, and end neither a record nor the list: a comma stands behind each
  // member and each record, and line ends and brackets are the caller's.
  void showSoftwareSummary(U32 socket);
  void printNhiTiles(U8 socket) const;
  void printPrefixTables(U8 socket) const;

  // ---- LpmSmAudit.cpp ----

  /// Audits an installed route against everything that must agree about it. The first
  /// disagreement is fatal. Changes nothing.
  void verifyLpmRoute(const LpmPrefix::Ptr& lpmPrefix) const;

 private:
  // A prefix is hashed once for a table: these take the row that the public operations compute.
  RouteReturnCode insertPrefixToRow(const LpmPrefix::Ptr& lpmPrefix,
                                    const Tarnlet::PrefixTable::Ptr& prefixTable,
                                    PrefixTableIdx index);
  RouteReturnCode createSubTrieInRow(const LpmPrefix::Ptr& lpmPrefix,
                                     const Tarnlet::PrefixTable::Ptr& prefixTable,
                                     PrefixTableIdx index);
  RouteReturnCode moveSubTrieFromRow(const LpmPrefix::Ptr& lpmPrefix,
                                     const Tarnlet::PrefixTable::Ptr& prefixTable,
                                     PrefixTableIdx srcPrefixTableIdx);

  /// Queues the block's entries with this content, then the prefix table entry.
  void enqueueSubTrieCmds(const SubTrie::Ptr& subTrie, const NhiInfoKey& content);
  void enqueueNhiCmds(const SubTrie::Ptr& subTrie, const NhiInfoKey& content);

  VellorConfig::Ptr reactor_;
};

/// A machine over a configuration that is filled; `restartHelper` null for a cold start.
VELLOR_API LpmSm::Ptr lpmSmFactory(const Vellor::String8& name,
                                   const ConfigBase::Ptr& config,
                                   const Status::Ptr& status,
                                   const RestartHelperBase::Ptr& restartHelper);
VELLOR_API LpmSm::Ptr LpmSmIs(const Vellor::String8& name,
                              const ConfigBase::Ptr& config,
                              const Status::Ptr& status,
                              const RestartHelperBase::Ptr& restartHelper);

}  // namespace Quarle::Tarnlet
