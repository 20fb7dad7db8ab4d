#pragma once

/// The chip SDK as this system sees it (library libXdk): return codes, the records of the LPM
/// memories, the table contexts, the hash functions and the LPM manager. All names are global, as
/// the SDK has them.

#include "framework/Xdk/XpHashFunction.h"
#include "framework/Xdk/XpIpRouteLpmMgr.h"
#include "framework/Xdk/XpLpmEntry.h"
#include "framework/Xdk/XpStatus.h"
#include "framework/Xdk/XpTableContext.h"
