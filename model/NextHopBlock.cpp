#include "model/NextHopBlock.h"

namespace Quarle::TarnletNextHop {

using Vellor::deserializeAttr;
using Vellor::StrepIterator;

NextHopBlock::NextHopBlock(StrepIterator& iterator, const StrepIterator& end) {
  Vellor::needStructuredValue(iterator, end,
                              {"Quarle::TarnletNextHop::NextHopBlock", "NextHopBlock"},
                              [&](const Vellor::String8& name) {
                                if (name == "base") {
                                  deserializeAttr(iterator, end, &base_, name);
                                } else if (name == "size") {
                                  deserializeAttr(iterator, end, &size_, name);
                                } else {
                                  return false;
                                }
                                return true;
                              });
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, NextHopBlock* block) {
  *block = NextHopBlock(iterator, end);
}

NextHopBlockList::NextHopBlockList(StrepIterator& iterator, const StrepIterator& end) {
  Vellor::queueHasNoTextForm(iterator, end);
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, NextHopBlockList* list) {
  *list = NextHopBlockList(iterator, end);
}

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
