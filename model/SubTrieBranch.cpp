#include "model/SubTrieBranch.h"

namespace Quarle::Tarnlet {

using Vellor::deserializeAttr;
using Vellor::StrepIterator;

SubTrieBranch::SubTrieBranch(StrepIterator& iterator, const StrepIterator& end) {
  Vellor::needStructuredValue(iterator, end, {"Quarle::Tarnlet::SubTrieBranch", "SubTrieBranch"},
                              [&](const Vellor::String8& name) {
                                if (name == "word0") {
                                  deserializeAttr(iterator, end, &word0_, name);
                                } else if (name == "word1") {
                                  deserializeAttr(iterator, end, &word1_, name);
                                } else if (name == "word2") {
                                  deserializeAttr(iterator, end, &word2_, name);
                                } else if (name == "word3") {
                                  deserializeAttr(iterator, end, &word3_, name);
                                } else if (name == "word4") {
                                  deserializeAttr(iterator, end, &word4_, name);
                                } else {
                                  return false;
                                }
                                return true;
                              });
}

void sequenceToValue(StrepIterator& iterator, const StrepIterator& end, SubTrieBranch* branch) {
  *branch = SubTrieBranch(iterator, end);
}

U8 SubTrieBranch::u8(U32 index) const {
  if (index > 17) {
    Vellor::throwRangeException("SubTrieBranch::u8: index out of range");
  }
  return static_cast<U8>(u64(index / 8) >> (56 - index % 8 * 8));
}

void SubTrieBranch::u8Is(U32 index, U8 value) {
  if (index > 17) {
    Vellor::throwRangeException("SubTrieBranch::u8Is: index out of range");
  }
  const U32 shift = 56 - index % 8 * 8;
  const U64 others = u64(index / 8) & ~(U64{0xff} << shift);
  u64Is(index / 8, others | U64{value} << shift);
}

void SubTrieBranch::u64Is(U32 index, U64 value) {
  switch (index) {
    case 0:
      word0_ = static_cast<U32>(value >> 32);
      word1_ = static_cast<U32>(value);
      break;
    case 1:
      word2_ = static_cast<U32>(value >> 32);
      word3_ = static_cast<U32>(value);
      break;
    case 2:
      word4_ = static_cast<U16>(value >> 48);
      break;
    default:
      Vellor::throwRangeException("SubTrieBranch::u64Is: index out of range");
  }
}

void SubTrieBranch::u8Del(U32) { throw Vellor::NondeletableAttrException("SubTrieBranch::u8Del"); }

void SubTrieBranch::u64Del(U32) {
  throw Vellor::NondeletableAttrException("SubTrieBranch::u64Del");
}

Vellor::String8 valueToStrep(const SubTrieBranch& branch) {
  return Vellor::format(
      "Value('Quarle::Tarnlet::SubTrieBranch', ** {'word0': %u, 'word1': %u, 'word2': %u, 'word3': "
      "%u, 'word4': %u})",
      branch.word0(), branch.word1(), branch.word2(), branch.word3(), unsigned{branch.word4()});
}

std::ostream& operator<<(std::ostream& stream, const SubTrieBranch& branch) {
  return stream << valueToStrep(branch);
}

}  // namespace Quarle::Tarnlet
