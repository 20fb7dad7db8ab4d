#include "engine/RestartHelperBase.h"

#include "framework/Vellor/Exception.h"

namespace Quarle::Tarnlet {

VELLOR_FWK_TYPE(RestartHelperBase, "Quarle::Tarnlet::RestartHelperBase");

RestartHelperBase::RestartHelperBase(ConfigBase::Ptr lpmConfig, Status::Ptr lpmStatus)
    : lpmConfig_(std::move(lpmConfig)), lpmStatus_(std::move(lpmStatus)) {}

LpmPrefix::Ptr RestartHelperBase::createPrefix(const SubTrieBranch&, U8, U64, U64, U8) {
  throw Vellor::NoImplementationException(
      Vellor::format("%s must be implemented in the derived class", "createPrefix"));
}

void RestartHelperBase::deletePrefix(const LpmPrefix::Ptr&) {
  throw Vellor::NoImplementationException(
      Vellor::format("%s must be implemented in the derived class", "deletePrefix"));
}

void RestartHelperBase::doRestart(bool, LpmSmRawPtr lpmSm) {
  lpmSmIs(lpmSm);
  throw Vellor::NoImplementationException("the restart walk is not part of this version");
}

void RestartHelperBase::lpmSmIs(LpmSmRawPtr lpmSm) { lpmSm_ = lpmSm; }

void RestartHelperBase::xdkLpmMgrIs(XdkLpmMgrRawPtr xdkLpmMgr) { xdkLpmMgr_ = xdkLpmMgr; }

}  // namespace Quarle::Tarnlet
