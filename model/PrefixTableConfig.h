#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Enumerations.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"

namespace Quarle::Tarnlet {

/// Shape of one hardware prefix table. Fixed once built; a derived class binds it to its hash.
class VELLOR_API PrefixTableConfig : public Vellor::PtrInterface {
  VELLOR_OBJECT(PrefixTableConfig, Vellor::PtrInterface);

 public:
  PrefixTableConfig(PrefixTableId tableId, PrefixTableType tableType, U32 depth, U8 tread)
      : tableId_(tableId), tableType_(tableType), depth_(depth), tread_(tread) {}

  VELLOR_CONST(tableId, TableId, PrefixTableId);
  VELLOR_CONST(tableType, TableType, PrefixTableType);
  // Rows.
  VELLOR_CONST(depth, Depth, U32);
  // Leading key bits that are hashed to select the row.
  VELLOR_CONST(tread, Tread, U8);

  VELLOR_OBJ_END;

  const PrefixTableId& fwkKey() const { return tableId_; }

  /// The row of a prefix in this table. Raises Vellor::NoImplementationException in this class.
  virtual U32 hashFunc(const LpmPrefix::Ptr& lpmPrefix) const;

  /// Usable bits of one row: 88 or 216.
  U8 entrySize() const;

  /// Table id, type as a number, the low 16 bits of the depth and the tread, between commas.
  Vellor::String8 str() const;
};

}  // namespace Quarle::Tarnlet
