#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"

namespace Quarle::Config {

/// The user's settings about treads, as far as table configuration asks for them. A family whose
/// treads are the user's own has no least tread for any length.
class VELLOR_API LpmTreadCfg : public Vellor::PtrInterface {
  VELLOR_OBJECT(LpmTreadCfg, Vellor::PtrInterface);

 public:
  VELLOR_OBJ_ATTR(v4TreadUserCfgd, V4TreadUserCfgd, bool, false);
  VELLOR_OBJ_ATTR(v6TreadUserCfgd, V6TreadUserCfgd, bool, false);

  VELLOR_OBJ_END;
};

}  // namespace Quarle::Config
