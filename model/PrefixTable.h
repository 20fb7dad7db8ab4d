#pragma once

#include <tuple>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Identifiers.h"
#include "model/PrefixTableConfig.h"
#include "model/SubTrie.h"

namespace Quarle::Tarnlet {

/// One prefix table at run time: its occupied rows. A row that is absent from `subTrie` is free.
class VELLOR_API PrefixTable : public Vellor::PtrInterface {
  VELLOR_OBJECT(PrefixTable, Vellor::PtrInterface);

 public:
  // What one is made of by name, beside its key.
  using ConstructorTypes = std::tuple<PrefixTableConfig::Ptr>;

  PrefixTable(PrefixTableId tableId, PrefixTableConfig::Ptr tableConfig)
      : tableId_(tableId), tableConfig_(std::move(tableConfig)) {}

  VELLOR_CONST(tableId, TableId, PrefixTableId);
  VELLOR_CONST(tableConfig, TableConfig, PrefixTableConfig::Ptr);
  VELLOR_OBJ_MAP(subTrie, SubTrie, PrefixTableIdx, Tarnlet::SubTrie::Ptr);

  VELLOR_OBJ_END;

  const PrefixTableId& fwkKey() const { return tableId_; }

  /// Table id ", tcfg " and the configuration's str().
  Vellor::String8 str() const;
};

VELLOR_API PrefixTable::Ptr prefixTableFactory(PrefixTableId tableId,
                                               const PrefixTableConfig::Ptr& tableConfig);

}  // namespace Quarle::Tarnlet
