#include "framework/Vellor/Exception.h"

namespace Vellor {

// The destructors are out of line so that each type's record stands once, in this library, and is
// caught across it.
Exception::~Exception() = default;
RangeException::~RangeException() = default;
NoImplementationException::~NoImplementationException() = default;
ImmutableAttrMutationException::~ImmutableAttrMutationException() = default;
NondeletableAttrException::~NondeletableAttrException() = default;
OpNotSupportedException::~OpNotSupportedException() = default;

void throwRangeException(String8 text) { throw RangeException(std::move(text)); }

}  // namespace Vellor
