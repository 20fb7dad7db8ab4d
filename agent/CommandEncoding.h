#pragma once

#include "framework/Xdk/Xdk.h"
#include "model/Tarnlet.h"

namespace Quarle::Agent {

/// Spells a prefix command as the SDK's record of a prefix row. A command without a single prefix
/// clears its row, which is the all-zero record.
///
/// Raises std::length_error when the command has more slots than the record.
void encode(const Tarnlet::PrefixCommand& command,
            Tarnlet::KeyType keyType,
            xpLpmPrefixEntry& entry);

/// Spells an NHI command as the SDK's record of an NHI row. Pairs that the command does not name
/// lead nowhere: no slot uses them.
///
/// Raises std::length_error when the command has more pairs than the record.
void encode(const Tarnlet::NhiCommand& command, xpLpmNhiEntry& entry);

}  // namespace Quarle::Agent
