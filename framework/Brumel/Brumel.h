#pragma once

/// Chief header of the resource library: the allocator of runs of entries and the bit set.
#include "framework/Brumel/BestFitAllocator.h"
#include "framework/Brumel/Bitmap.h"
