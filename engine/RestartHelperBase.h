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

/// Rebuilds the state of an LpmSm that is being built from what the hardware holds. A client
/// derives from it, since only the client makes prefix objects, and passes it to LpmSm for a warm
/// start.
class VELLOR_API RestartHelperBase : public Vellor::PtrInterface {
  VELLOR_OBJECT(RestartHelperBase, Vellor::PtrInterface);

 public:
  RestartHelperBase(ConfigBase::Ptr lpmConfig, Status::Ptr lpmStatus);

  VELLOR_CONST(lpmConfig, LpmConfig, ConfigBase::Ptr);
  VELLOR_CONST(lpmStatus, LpmStatus, Status::Ptr);
  VELLOR_RECORD(lpmSm, LpmSm, value);
  VELLOR_RECORD(xdkLpmMgr, XdkLpmMgr, value);

  VELLOR_OBJ_END;

  /// The interned prefix object that a branch and one leaf spell, made when it does not exist.
  /// Never null. Raises Vellor::NoImplementationException in this class.
  virtual LpmPrefix::Ptr createPrefix(
      const SubTrieBranch& branch, U8 branchLen, U64 leafVal, U64 leafValHigh, U8 stride);

  /// Undoes createPrefix() for a prefix of a row that turned out invalid. Raises
  /// Vellor::NoImplementationException in this class.
  virtual void deletePrefix(const LpmPrefix::Ptr& prefix);

  /// The walk over everything the hardware holds, called once while `lpmSm` is being built.
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
