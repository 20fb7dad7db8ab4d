#pragma once

#include <string>

#include "framework/Brumel/BestFitAllocator.h"

/// Blocks and moves as text, so that a test line reads as what the allocator did.
namespace Brumel::Testing {

inline BestFitAllocator::Ptr newAllocator(U32 memSz, U32 maxBlkSz, U32 offset = 0) {
  return new BestFitAllocator("test", memSz, offset, maxBlkSz);
}

/// "offset+size", or "null".
inline std::string text(const BFA::Blk::Ptr& blk) {
  return blk == nullptr ? "null"
                        : std::to_string(blk->offset()) + "+" + std::to_string(blk->blkSz());
}

/// The moves of a log in its order: "old>new+size ...". Empties the log.
inline std::string moves(const BFA::PendingCmds::Ptr& cmds) {
  std::string out;
  while (cmds->pendingCmdLogs() != 0) {
    const BFA::PendingCmdLog log = cmds->pendingCmdLogDeq();
    out += (out.empty() ? "" : " ") + std::to_string(log.oldOffset()) + ">" + text(log.blk());
  }
  return out;
}

}  // namespace Brumel::Testing
