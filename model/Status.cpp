#include "model/Status.h"

namespace Quarle::Tarnlet {

Status::Ptr statusFactory(const Vellor::Name& name) { return new Status(name); }

}  // namespace Quarle::Tarnlet
