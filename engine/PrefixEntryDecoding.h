#pragma once

#include <vector>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Ptr.h"
#include "framework/Vellor/Types.h"
#include "model/ConfigBase.h"
#include "model/LpmPrefix.h"
#include "model/PrefixTableConfig.h"
#include "model/SubTrieBranch.h"

struct xpLpmPrefixEntry;

namespace Quarle::Tarnlet {

class RestartHelperBase;

/// The key that a branch and one leaf spell, for RestartHelperBase::createPrefix(): the leaf's bits
/// below its stop bit continue the branch. `branch` becomes the key and the result is its length in
/// key bits, cut to 8 bits. Bits of `branch` behind that length mean nothing: a leaf of 64 bits
/// behind a branch that ends with a word leaves a copy of itself there. The leaf words are used up.
/// A leaf without a bit is fatal. Raises Vellor::RangeException when the key would need more words
/// than a SubTrieBranch has; `branch` is then half done.
///
/// REQUIRES: `branch` is zero behind `branchLen`.
VELLOR_API U8 combineBranchAndLeaf(SubTrieBranch& branch,
                                   U8 branchLen,
                                   U64& leafVal,
                                   U64& leafValHigh);

/// Decodes row `offset` of a prefix table into `branch` and `prefixes`, one member for each slot up
/// to the last used one, null in an empty slot. False when the row cannot have been written for
/// this place: its prefixes have then been handed to the helper's deletePrefix(), and the reason is
/// in the trace. True with no prefix for a row without leaves. What the helper's createPrefix()
/// raises goes through, and a branch longer than a SubTrieBranch raises Vellor::RangeException.
///
/// For the restart walk alone. REQUIRES: `branch` is zero and `prefixes` empty.
bool parsePrefixTableEntry(const ConfigBase::Ptr& config,
                           const Vellor::Ptr<RestartHelperBase>& helper,
                           const PrefixTableConfig::Ptr& tableConfig,
                           const xpLpmPrefixEntry& entry,
                           U32 offset,
                           SubTrieBranch& branch,
                           std::vector<LpmPrefix::Ptr>& prefixes);

}  // namespace Quarle::Tarnlet
