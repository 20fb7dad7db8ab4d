#include "framework/Halyard/TableContextEntry.h"

#include "framework/Vellor/Exception.h"

namespace Halyard {

VELLOR_FWK_TYPE(TableContextEntry, "Halyard::TableContextEntry");

void TableContextEntry::xpTblContext(U8, xpTableContext*, bool) {
  throw Vellor::NoImplementationException("xpTblContext must be implemented in the derived class");
}

}  // namespace Halyard
