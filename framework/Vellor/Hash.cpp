#include "framework/Vellor/Hash.h"

namespace Vellor {

constinit U64 addressHashSeed = 0;

}  // namespace Vellor
