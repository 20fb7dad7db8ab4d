#pragma once

// The prefix table engine, whole.
#include "engine/LpmSm.h"
#include "engine/PrefixEntryDecoding.h"
#include "engine/RestartHelperBase.h"
