#include "model/Identifiers.h"

namespace Quarle::Tarnlet {

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
