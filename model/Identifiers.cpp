#include "model/Identifiers.h"

namespace Quarle::Tarnlet {

using Vellor::deserializeAttr;
using Vellor::StrepIterator;

void checkIdentifierFromText(const PrefixTableId& tableId) {
  if (tableId.value() > 32) {
    Vellor::throwRangeException("PrefixTableId::value < 0 or > 32 not allowed");
  }
}

NhiTableIdx::NhiTableIdx(StrepIterator& iterator, const StrepIterator& end) {
  Vellor::needStructuredValue(iterator, end, {"Quarle::Tarnlet::NhiTableIdx", "NhiTableIdx"},
                              [&](const Vellor::String8& name) {
                                if (name == "tile") {
                                  deserializeAttr(iterator, end, &tile_, name);
                                } else if (name == "offset") {
                                  deserializeAttr(iterator, end, &offset_, name);
                                } else {
                                  return false;
                                }
                                return true;
                              });
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, NhiTableIdx* index) {
  *index = NhiTableIdx(iterator, end);
}

Vellor::String8 NhiTableIdx::str() const {
  return Vellor::format("%u,%u", unsigned{tile_.value()}, unsigned{offset_});
}

Vellor::String8 valueToStrep(const NhiTableIdx& index) {
  return Vellor::format("Value('Quarle::Tarnlet::NhiTableIdx', ** {'tile': %u, 'offset': %u})",
                        unsigned{index.tile().value()}, unsigned{index.offset()});
}

std::ostream& operator<<(std::ostream& stream, const NhiTableIdx& index) {
  return stream << valueToStrep(index);
}

}  // namespace Quarle::Tarnlet
