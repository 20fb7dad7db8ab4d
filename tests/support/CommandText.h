#pragma once

#include <string>

#include "model/Tarnlet.h"

namespace Quarle::Tarnlet::Testing {

// Commands as lines that say everything a command carries:
//
//   nhi 0:5 = 7/1 8/1 none                   tile 0, entry 5; pairs are base/size
//   prefix t0[3] branch=10.1.0.0/16 stride=9 [10.1.0.0/24, -, 10.1.2.0/24] nhi=0:5
//   clear t0[3] branch=10.1.0.0/16 stride=9 [-, -, -] nhi=0:5
//
// A prefix entry without a non-null member reads `clear`; any mode but modeSparse is added behind
// the stride.

std::string textOf(const TarnletNextHop::NextHopBlock& block);
std::string textOf(const NhiTableIdx& index);
std::string textOf(const CommandBase& command, bool longKey);

/// The text without its first line end, the indentation of its first line, and what stands behind
/// its last line end: lets a raw literal stand indented in a test.
std::string dedent(const std::string& text);

}  // namespace Quarle::Tarnlet::Testing
