// The faces of the resource library's objects.

#include "framework/Brumel/BestFitAllocator.h"
#include "framework/Brumel/Bitmap.h"
#include "framework/Vellor/Enumeration.h"
#include "framework/Vellor/Reflect.h"

namespace Brumel {

namespace {

constexpr std::array<Vellor::AttributeFace, 0> kNone{};

}  // namespace

namespace HBitmap {

namespace {

constexpr const char* kBitStates[] = {"bitSet", "bitClear"};
constexpr Vellor::EnumerationNames kBitStateNames{"BitState", kBitStates};

}  // namespace

Vellor::String8 valueToStrep(BitState state) {
  return "'" + Vellor::enumerationText(kBitStateNames, static_cast<U32>(state)) + "'";
}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     BitState* state) {
  Vellor::String8 text;
  Vellor::sequenceToValue(iterator, end, &text);
  *state = static_cast<BitState>(Vellor::enumerationNumber(kBitStateNames, text));
}

const Vellor::FwkType& vellorValueType(const BitState*) {
  static constinit const Vellor::FwkType kType{"Brumel::HBitmap::BitState"};
  return kType;
}

}  // namespace HBitmap

namespace BFA {

VELLOR_REFLECTED_TYPE(Blk, "Brumel::BFA::Blk", kNone);
VELLOR_REFLECTED_TYPE(PendingCmds, "Brumel::BFA::PendingCmds", kNone);

}  // namespace BFA

VELLOR_REFLECTED_TYPE(BestFitAllocator, "Brumel::BestFitAllocator", kNone);
VELLOR_REFLECTED_CHILD(Bitmap,
                       "Brumel::Bitmap",
                       kNone,
                       Vellor::constructor<Bitmap>("id", "size", "initialBitState"));

}  // namespace Brumel
