#include "framework/Vellor/Enumeration.h"

namespace Vellor {

String8 enumerationText(const EnumerationNames& names, U32 number) {
  if (number < names.enumerators.size()) {
    return names.enumerators[number];
  }
  return format("%s(%d)", names.type, static_cast<int>(number));
}

U32 enumerationNumber(const EnumerationNames& names, U32 number) {
  if (number >= names.enumerators.size()) {
    throwRangeException(names.type);
  }
  return number;
}

U32 enumerationNumber(const EnumerationNames& names, const String8& text) {
  for (U32 number = 0; number < names.enumerators.size(); ++number) {
    if (text == names.enumerators[number]) {
      return number;
    }
  }
  throwRangeException(names.type);
}

}  // namespace Vellor
