#pragma once

#include "framework/Brumel/BestFitAllocator.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/NextHopBlock.h"
#include "model/NextHopConfig.h"

namespace Quarle::TarnletNextHop {

/// Allocation of the next-hop table: a run of neighbouring rows for each group that
/// `Config::request` names.
///
/// The client writes `Config::request`, and each change is worked off when its write returns. It
/// reads the runs in `Status::swIdToNextHopBlock` and drains `Status::shuffleCmd`, which tells the
/// moves of a compaction. A request that does not fit is refused without a report: its group is
/// absent from the status, or keeps its old run. Nothing retries it. A compaction tells sizes as
/// they are requested, so the client puts the old size back into the request of a refused resize
/// before it requests anything else.
///
/// Everything runs on the writer's stack, in the notification. Whoever is notified of the status
/// must not end the machine.
///
/// Invariant 1, between requests: `swIdToBlock` and `Status::swIdToNextHopBlock` hold the same
/// groups, and their bases agree.
///
/// Invariant 2, between requests: `baseIdxToSwId` at the base of a group's block is the group.
/// Entries at other bases are left over from resizes and mean nothing; a block that comes to stand
/// there overwrites them.
class VELLOR_API LpmNextHopSm : public Vellor::PtrInterface {
  VELLOR_OBJECT(LpmNextHopSm, Vellor::PtrInterface);

 public:
  /// The machine's reactor on its configuration. It does not hold the machine and falls silent with
  /// it.
  class VELLOR_API VellorConfig final : public Config::Notifiee {
    VELLOR_POINTERS(VellorConfig);

   public:
    void lpmNextHopSmIs(LpmNextHopSm::RawPtr lpmNextHopSm) { lpmNextHopSm_ = lpmNextHopSm; }

    void onRequest(const SwId& swId) override;

   private:
    LpmNextHopSm::RawPtr lpmNextHopSm_ = nullptr;
  };

  /// Takes over `status`, empty, and serves what `config` requests already.
  /// REQUIRES: both are set, `config` has its `tableSize`, and no other machine uses them.
  LpmNextHopSm(Vellor::String name, Config::Ptr config, Status::Ptr status);
  ~LpmNextHopSm() override;

  VELLOR_CONST(name, Name, Vellor::String);
  VELLOR_CONST(config, Config, TarnletNextHop::Config::Ptr);
  VELLOR_CONST(status, Status, TarnletNextHop::Status::Ptr);
  // The rows of the table.
  VELLOR_OBJ_ATTR(allocator, Allocator, Brumel::BestFitAllocator::Ptr, nullptr);
  // The block of each group; being held here is what keeps its rows allocated.
  VELLOR_OBJ_MAP(swIdToBlock, SwIdToBlock, SwId, Brumel::BFA::Blk::Ptr);
  // The owner of the block that begins at a row: how the owner of a moved block is found.
  VELLOR_OBJ_MAP(baseIdxToSwId, BaseIdxToSwId, NextHopTableIdx, SwId);
  VELLOR_OBJ_ATTR(initialized, Initialized, bool, false);
  // Null: nothing schedules the machine.
  VELLOR_OBJ_ATTR(vellorFwkActivity, VellorFwkActivity, Vellor::Ptr<Vellor::PtrInterface>, nullptr);

  VELLOR_OBJ_END;

  /// Empties the status, makes the allocator and serves every request. The constructor's last step.
  void handleInitialized();

  /// Brings one group into line with its request; a request that is absent or of 65535 ways is
  /// none.
  void handleRequest(SwId swId);

  /// Gives the group a block of `nway` rows, in place of any that it has; compacts the table if no
  /// free run is long enough. Does nothing when fewer than `nway` rows are free. Fatal when the
  /// allocator gives no block of `nway` rows at all: of none, or of more than 1024.
  void insertEntry(SwId swId, Nway nway);

  /// Takes the group's block away. Fatal when it has none.
  void deleteEntry(SwId swId);

  /// Gives the group a new block when the size of its present one is not `nway`. The old rows stay
  /// allocated until the new ones are found, so they do not count towards them. Fatal when the
  /// group has no block.
  void updateEntry(SwId swId, Nway nway);

  /// Follows a compaction move by move, in the log's order: one move's new place may be an earlier
  /// one's old place. Each is told to the status before its command is queued. Empties the log.
  /// Fatal at a block that has no owner.
  void processDefrag(const Brumel::BFA::PendingCmds::Ptr& defragCmds);

  void hasNotificationActiveIs(bool active) override { reactor_->hasNotificationActiveIs(active); }

  /// Sets or clears the zombie mark of the machine's reactor.
  void vellorDoZombieReactors(bool on) { reactor_->isZombieIs(on); }

 private:
  const VellorConfig::Ptr reactor_;
};

VELLOR_API LpmNextHopSm::Ptr lpmNextHopSmFactory(const Vellor::String& name,
                                                 const Config::Ptr& config,
                                                 const Status::Ptr& status);

}  // namespace Quarle::TarnletNextHop
