#pragma once

// The model of the prefix side, whole: values, prefixes, configuration, status and commands.
#include "model/Command.h"
#include "model/ConfigBase.h"
#include "model/Enumerations.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"
#include "model/NhiInfo.h"
#include "model/NhiInfoKey.h"
#include "model/PrefixTable.h"
#include "model/PrefixTableConfig.h"
#include "model/Status.h"
#include "model/SubTrie.h"
#include "model/SubTrieBranch.h"
