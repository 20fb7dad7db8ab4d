#include "framework/Ferrix/TraceError.h"

namespace Ferrix {

// Out of line, so that the type's record stands once and is caught across the library.
TraceError::~TraceError() = default;

}  // namespace Ferrix
