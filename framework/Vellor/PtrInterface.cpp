#include "framework/Vellor/PtrInterface.h"

#include "framework/Vellor/Exception.h"

namespace Vellor {

constinit bool VFPtrInterface::enableThreadSafePointers = false;

void throwNullParameter(const char* attribute, const FwkType* type) {
  throwRangeException(format("null _%s parameter to mutator for %s::%s not allowed", attribute,
                             type->name, attribute));
}

PtrInterface::~PtrInterface() = default;

void PtrInterface::hasNotificationActiveIs(bool) {}

void PtrInterface::vellorAuditErrors(U32) const {}

void PtrInterface::auditErrors(U32) const {}

void PtrInterface::zeroReferencesIs(bool zero) {
  if (zero) {
    delete this;
  }
}

constinit const FwkType PtrInterface::kVellorType_{"Vellor::PtrInterface"};

const FwkType* PtrInterface::fwkType() const { return &kVellorType_; }

}  // namespace Vellor
