#include "model/NhiInfoKey.h"

#include "framework/Vellor/Hash.h"

namespace Quarle::Tarnlet {

NhiInfoKey::NhiInfoKey(Vellor::StrepIterator&, const Vellor::StrepIterator&) {}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     NhiInfoKey* key) {
  *key = NhiInfoKey(iterator, end);
}

U32 NhiInfoKey::computeHash() const {
  Vellor::OneAtATimeHash hash;
  // Neighbours often go the same way: then the block's own hash is at hand.
  NextHopBlock lastBlock;
  U32 lastHash = lastBlock.hash();
  for (const auto& member : slotToNextHopBlock_) {
    if (member.value != lastBlock) {
      lastBlock = member.value;
      lastHash = lastBlock.hash();
    }
    hash.addByte(member.key);
    hash.addU32(lastHash);
  }
  return hash.finish();
}

Vellor::String8 NhiInfoKey::str() const {
  return Vellor::format("0x%x,%u", hash(), slotToNextHopBlocks());
}

bool operator<(const NhiInfoKey& a, const NhiInfoKey& b) {
  for (const auto& member : a.slotToNextHopBlock_) {
    if (member.value.hash() < b.slotToNextHopBlock(member.key).hash()) {
      return true;
    }
  }
  return false;
}

Vellor::String8 valueToStrep(const NhiInfoKey&) { return "None"; }

std::ostream& operator<<(std::ostream& stream, const NhiInfoKey& key) {
  return stream << valueToStrep(key);
}

}  // namespace Quarle::Tarnlet
