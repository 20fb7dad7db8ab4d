#include "model/NextHopBlock.h"

namespace Quarle::TarnletNextHop {

Vellor::String8 NextHopBlock::str() const {
  return Vellor::format("%u,%u", base_.value(), unsigned{size_.value()});
}

Vellor::String8 valueToStrep(const NextHopBlock& block) {
  return Vellor::format(
      "Value('Quarle::TarnletNextHop::NextHopBlock', ** {'base': %u, 'size': %u})",
      block.base().value(), unsigned{block.size().value()});
}

std::ostream& operator<<(std::ostream& stream, const NextHopBlock& block) {
  return stream << valueToStrep(block);
}

Vellor::String8 valueToStrep(const NextHopBlockList&) { return "None"; }

std::ostream& operator<<(std::ostream& stream, const NextHopBlockList& list) {
  return stream << valueToStrep(list);
}

}  // namespace Quarle::TarnletNextHop
