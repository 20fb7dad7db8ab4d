#include "model/PrefixTableConfig.h"

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Invariant.h"

namespace Quarle::Tarnlet {

U32 PrefixTableConfig::hashFunc(const LpmPrefix::Ptr&) const {
  throw Vellor::NoImplementationException("hashFunc must be implemented in the derived class");
}

U8 PrefixTableConfig::entrySize() const {
  if (tableType_ == prefixTableNarrow128b) {
    return 88;
  }
  VELLOR_ASSERT(tableType_ == prefixTableWide256b, "tableType() == prefixTableWide256b_");
  return 216;
}

Vellor::String8 PrefixTableConfig::str() const {
  return Vellor::format("%u,%u,%u,%u", unsigned{tableId_.value()},
                        static_cast<unsigned>(tableType_), depth_ & 0xffffU, unsigned{tread_});
}

}  // namespace Quarle::Tarnlet
