#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/ConfigBase.h"
#include "model/LpmPrefix.h"
#include "model/Status.h"
#include "model/SubTrieBranch.h"

class xpIpRouteLpmMgr;

namespace Quarle::Tarnlet {

class LpmSm;
using LpmSmRawPtr = LpmSm*;
using XdkLpmMgrRawPtr = xpIpRouteLpmMgr*;

/// Rebuilds the state of an LpmSm that is being built from what the hardware holds: sub-tries,
/// shared NHI blocks and their records, and the routes, in `request` of the configuration and in
/// the status. A client derives from it, since only the client makes prefix objects, and passes it
/// to LpmSm for a warm start.
///
/// Order of calls: the client sets the SDK's manager; LpmSm calls doRestart() once from its
/// constructor, which calls createPrefix() for each leaf that it finds and deletePrefix() for those
/// of a row that it then refuses.
///
/// 1. A refused row leaves no trace in the software. Everything that goes wrong with a row behind
///    its checks is fatal, for it has then been taken over in part.
/// 2. The walk queues no command, and writes nothing but rows that it is told to clear.
class VELLOR_API RestartHelperBase : public Vellor::PtrInterface {
  VELLOR_OBJECT(RestartHelperBase, Vellor::PtrInterface);

 public:
  RestartHelperBase(ConfigBase::Ptr lpmConfig, Status::Ptr lpmStatus);

  VELLOR_CONST(lpmConfig, LpmConfig, ConfigBase::Ptr);
  VELLOR_CONST(lpmStatus, LpmStatus, Status::Ptr);
  VELLOR_RECORD(lpmSm, LpmSm, value);
  VELLOR_RECORD(xdkLpmMgr, XdkLpmMgr, value);

  VELLOR_OBJ_END;

  /// The interned prefix object that a branch and one leaf spell (combineBranchAndLeaf() tells its
  /// key), made when it does not exist. Never null; writes no request. A damaged row may spell a
  /// key longer than the family's: what is raised then ends the walk. Raises
  /// Vellor::NoImplementationException in this class.
  virtual LpmPrefix::Ptr createPrefix(
      const SubTrieBranch& branch, U8 branchLen, U64 leafVal, U64 leafValHigh, U8 stride);

  /// Undoes createPrefix() for a prefix of a row that turned out invalid. Raises
  /// Vellor::NoImplementationException in this class.
  virtual void deletePrefix(const LpmPrefix::Ptr& prefix);

  /// Takes over every row of every prefix table that is sound. Rows that are not stay unknown to
  /// the software, and count as free; `removeStale` clears them in the hardware. With
  /// `modeRestartTest` such a row is fatal; with `modeRestartCli` the NHI blocks get no sharing
  /// records, which is a state to look at and not to change. A requested prefix is taken for one of
  /// another row. Raises what createPrefix() and deletePrefix() raise, and Vellor::RangeException
  /// for a branch longer than a SubTrieBranch.
  ///
  /// REQUIRES: `lpmSm` has its tables and NHI allocators and is not initialized; xdkLpmMgr() is
  /// set; the helper is held by a counted pointer.
  void doRestart(bool removeStale, LpmSmRawPtr lpmSm);

  /// The state machine being rebuilt, uncounted: it owns the helper.
  LpmSm* lpmSm() const { return lpmSm_; }

  virtual void lpmSmIs(LpmSmRawPtr lpmSm);

  /// The SDK's manager of this family's tables. The client sets it before the state machine is
  /// built.
  xpIpRouteLpmMgr* xdkLpmMgr() const { return xdkLpmMgr_; }

  virtual void xdkLpmMgrIs(XdkLpmMgrRawPtr xdkLpmMgr);

 private:
  LpmSm* lpmSm_ = nullptr;
  xpIpRouteLpmMgr* xdkLpmMgr_ = nullptr;
};

}  // namespace Quarle::Tarnlet
