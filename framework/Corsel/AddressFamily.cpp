#include "framework/Corsel/AddressFamily.h"

#include "framework/Vellor/Enumeration.h"

namespace Corsel {

namespace {

constexpr const char* kAddressFamilies[] = {"unspecified", "ipv4", "ipv6"};
constexpr Vellor::EnumerationNames kNames{"AddressFamily", kAddressFamilies};

}  // namespace

Vellor::String8 valueToStrep(AddressFamily family) {
  return "'" + Vellor::enumerationText(kNames, static_cast<U32>(family)) + "'";
}

void sequenceToValue(Vellor::StrepIterator& iterator,
                     const Vellor::StrepIterator& end,
                     AddressFamily* family) {
  Vellor::String8 text;
  Vellor::sequenceToValue(iterator, end, &text);
  *family = static_cast<AddressFamily>(Vellor::enumerationNumber(kNames, text));
}

const Vellor::FwkType& vellorValueType(const AddressFamily*) {
  static constinit const Vellor::FwkType kType{"Corsel::AddressFamily"};
  return kType;
}

}  // namespace Corsel
