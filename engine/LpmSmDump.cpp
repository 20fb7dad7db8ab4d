#include "engine/LpmSm.h"
#include "model/TraceUnits.h"

// The full picture of the tables, to trace level 9. Read only.

namespace Quarle::Tarnlet {

void LpmSm::dumpPrefixTables() const {
  for (U32 i = 0; i < prefixTables(); ++i) {
    const Tarnlet::PrefixTable::Ptr prefixTable =
        config_->prefixTableSortedByTread(static_cast<U8>(i));
    if (prefixTable) {
      dumpPrefixTable(prefixTable);
    }
  }
}

void LpmSm::dumpPrefixTable(const Tarnlet::PrefixTable::Ptr& prefixTable) const {
  VELLOR_TRACE(tarnletSmTrace, 9,
               "Dump prefix table " << prefixTable->tableId() << " tread "
                                    << unsigned{prefixTable->tableConfig()->tread()});
  for (const auto& member : prefixTable->subTrieCollection()) {
    member.value->dump();
  }
}

}  // namespace Quarle::Tarnlet
