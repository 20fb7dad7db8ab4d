#pragma once

#include "framework/Vellor/Exception.h"
#include "framework/Vellor/Export.h"

namespace Ferrix {

/// A trace file cannot be made, continued or read. The message is one line: which file, what is
/// wrong with it and what was expected.
class VELLOR_API TraceError : public Vellor::Exception {
 public:
  using Exception::Exception;
  ~TraceError() override;
};

}  // namespace Ferrix
