#pragma once

#include "framework/Vellor/Types.h"

namespace Quarle::Tarnlet::Testing {

/// The seed of this run: VELLOR_TEST_SEED, or a fixed one. Printed when first asked for, so that a
/// failure can be repeated.
U64 testSeed();

/// Gives the maps that are keyed by address another order, derived from the seed: nothing may
/// depend on it. REQUIRES: no such map has a member.
void shuffleAddressOrder();

}  // namespace Quarle::Tarnlet::Testing
