#pragma once

#include <ostream>

#include "xdksim/RowPlace.h"

namespace XdkSim {

/// How a failing test shows a row.
inline void PrintTo(const RowPlace& place, std::ostream* out) { *out << toText(place); }

}  // namespace XdkSim
