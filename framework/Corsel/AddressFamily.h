#pragma once

#include "framework/Vellor/Strep.h"
#include "framework/Vellor/Types.h"

namespace Corsel {

/// The value 1 is IPv4; every other one prints as IPv6.
enum class AddressFamily : U32 { unspecified = 0, ipv4 = 1, ipv6 = 2 };

/// The textual form is the name between single quotes.
VELLOR_API Vellor::String8 valueToStrep(AddressFamily family);
VELLOR_API void sequenceToValue(Vellor::StrepIterator& iterator,
                                const Vellor::StrepIterator& end,
                                AddressFamily* family);
VELLOR_API const Vellor::FwkType& vellorValueType(const AddressFamily*);

}  // namespace Corsel
