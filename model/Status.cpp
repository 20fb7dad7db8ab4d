#include "model/Status.h"

namespace Quarle::Tarnlet {

VELLOR_FWK_TYPE(Status, "Quarle::Tarnlet::Status");

Status::Ptr statusFactory(const Vellor::Name& name) { return new Status(name); }

}  // namespace Quarle::Tarnlet
