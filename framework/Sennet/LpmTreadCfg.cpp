#include "framework/Sennet/LpmTreadCfg.h"

namespace Quarle::Config {

VELLOR_FWK_TYPE(LpmTreadCfg, "Quarle::Config::LpmTreadCfg");

}  // namespace Quarle::Config
