#include "framework/Sennet/SystemStatus.h"

namespace Sennet {

VELLOR_FWK_TYPE(ChipStatus, "Sennet::ChipStatus");
VELLOR_FWK_TYPE(SystemStatus, "Sennet::SystemStatus");

}  // namespace Sennet
