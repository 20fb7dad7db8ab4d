#include "model/PrefixTable.h"

namespace Quarle::Tarnlet {

Vellor::String8 PrefixTable::str() const {
  return Vellor::format("%u, tcfg ", unsigned{tableId_.value()}) + tableConfig_->str();
}

PrefixTable::Ptr prefixTableFactory(PrefixTableId tableId,
                                    const PrefixTableConfig::Ptr& tableConfig) {
  return new PrefixTable(tableId, tableConfig);
}

}  // namespace Quarle::Tarnlet
