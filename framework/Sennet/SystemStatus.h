#pragma once

#include "framework/Halyard/TableContextEntry.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"

namespace Sennet {

/// One chip as its driver reports it. The driver fills it, the configurator reads it.
class VELLOR_API ChipStatus : public Vellor::PtrInterface {
  VELLOR_OBJECT(ChipStatus, Vellor::PtrInterface);

 public:
  // The chip's table contexts by table number.
  VELLOR_OBJ_MAP(tableContext, TableContext, U32, Halyard::TableContextEntry::Ptr);

  VELLOR_OBJ_END;
};

/// The chips of the system by name. Where one chip is meant, it is the first of the walk.
class VELLOR_API SystemStatus : public Vellor::PtrInterface {
  VELLOR_OBJECT(SystemStatus, Vellor::PtrInterface);

 public:
  VELLOR_OBJ_MAP(chip, Chip, Vellor::Name, ChipStatus::Ptr);

  VELLOR_OBJ_END;
};

}  // namespace Sennet
