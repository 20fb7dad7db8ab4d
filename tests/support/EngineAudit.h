#pragma once

#include <string>

#include "engine/TarnletSm.h"
#include "tests/support/Hitless.h"

namespace Quarle::Tarnlet::Testing {

/// Everything that must hold of a machine between requests, derived anew from its sub-tries: slots
/// and bitmaps, the maps of prefixes, the counts and sets of shared blocks, the blocks in their
/// tiles, the routes in the status, and the chip as the commands left it. One line for each thing
/// that does not agree, nothing when all does. `routes` tells which blocks a route may have.
std::string audit(const LpmSm& sm, const Hardware& hardware, const Routes& routes);

}  // namespace Quarle::Tarnlet::Testing
