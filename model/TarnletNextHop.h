#pragma once

// The model of the next-hop side, whole.
#include "model/NextHopBlock.h"
#include "model/NextHopConfig.h"
