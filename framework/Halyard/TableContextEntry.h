#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "framework/Xdk/XpTableContext.h"

namespace Halyard {

/// One entry of the chip's table-context store: where the record of one hardware table is read.
/// Whoever holds the store derives it.
class VELLOR_API TableContextEntry : public Vellor::PtrInterface {
  VELLOR_OBJECT(TableContextEntry, Vellor::PtrInterface);

 public:
  VELLOR_OBJ_END;

  /// Fills `context`, which is default-constructed and of the kind that belongs to the table. The
  /// configurator passes 0 and false. Raises Vellor::NoImplementationException in this class.
  virtual void xpTblContext(U8 id, xpTableContext* context, bool flag);
};

}  // namespace Halyard
