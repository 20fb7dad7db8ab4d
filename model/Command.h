#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Enumerations.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"
#include "model/NextHopBlock.h"
#include "model/SubTrieBranch.h"

namespace Quarle::Tarnlet {

using TarnletNextHop::NextHopBlockList;

/// A write to the hardware. Immutable once built; shared between the queue and whoever carries it
/// out, in queue order.
class VELLOR_API CommandBase : public Vellor::PtrInterface {
  VELLOR_OBJECT(CommandBase, Vellor::PtrInterface);

 public:
  explicit CommandBase(CommandType cmdType) : cmdType_(cmdType) {}

  VELLOR_CONST(cmdType, CmdType, CommandType);

  VELLOR_OBJ_END;
};

/// Write one prefix table entry. A list without a non-null member clears the entry.
class VELLOR_API PrefixCommand : public CommandBase {
  VELLOR_OBJECT(PrefixCommand, CommandBase);

 public:
  PrefixCommand(PrefixTableId tableId,
                PrefixTableIdx index,
                const SubTrieBranch& branch,
                U8 branchLen,
                U8 stride,
                SubTrieMode mode,
                LpmPrefixList prefixList,
                const NhiTableIdx& nhiBaseIdx);

  VELLOR_CONST(tableId, TableId, PrefixTableId);
  VELLOR_CONST(index, Index, PrefixTableIdx);
  VELLOR_CONST(branch, Branch, SubTrieBranch);
  VELLOR_CONST(branchLen, BranchLen, U8);
  VELLOR_CONST(stride, Stride, U8);
  VELLOR_CONST(mode, Mode, SubTrieMode);
  // One member for each slot, from slot 0; a null member is an empty slot.
  VELLOR_CONST(prefixList, PrefixList, LpmPrefixList);
  VELLOR_CONST(nhiBaseIdx, NhiBaseIdx, NhiTableIdx);

  VELLOR_OBJ_END;
};

/// Write one NHI table entry.
class VELLOR_API NhiCommand : public CommandBase {
  VELLOR_OBJECT(NhiCommand, CommandBase);

 public:
  NhiCommand(const NhiTableIdx& index, NextHopBlockList nextHopBlockList);

  VELLOR_CONST(index, Index, NhiTableIdx);
  // The pairs of this entry, as many as it has slots; the last entry of a block is not padded.
  VELLOR_CONST(nextHopBlockList, NextHopBlockList, TarnletNextHop::NextHopBlockList);

  VELLOR_OBJ_END;
};

VELLOR_API PrefixCommand::Ptr prefixCommandFactory(PrefixTableId tableId,
                                                   PrefixTableIdx index,
                                                   const SubTrieBranch& branch,
                                                   U8 branchLen,
                                                   U8 stride,
                                                   SubTrieMode mode,
                                                   LpmPrefixList prefixList,
                                                   const NhiTableIdx& nhiBaseIdx);
VELLOR_API NhiCommand::Ptr nhiCommandFactory(const NhiTableIdx& index,
                                             NextHopBlockList nextHopBlockList);

}  // namespace Quarle::Tarnlet
