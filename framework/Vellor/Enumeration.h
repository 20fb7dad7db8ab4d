#pragma once

#include <span>

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Vellor {

/// The bare name of an enumeration and its enumerators' names, which stand for 0, 1, 2 and on.
struct EnumerationNames {
  const char* type;
  std::span<const char* const> enumerators;
};

/// The enumerator's name, or "Type(%d)" for a number without one.
VELLOR_API String8 enumerationText(const EnumerationNames& names, U32 number);

/// The number, when an enumerator has it; else RangeException with the type's name.
VELLOR_API U32 enumerationNumber(const EnumerationNames& names, U32 number);

/// The number of the enumerator of this name; else RangeException with the type's name.
VELLOR_API U32 enumerationNumber(const EnumerationNames& names, const String8& text);

}  // namespace Vellor
