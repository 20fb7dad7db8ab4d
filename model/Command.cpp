#include "model/Command.h"

namespace Quarle::Tarnlet {

PrefixCommand::PrefixCommand(PrefixTableId tableId,
                             PrefixTableIdx index,
                             const SubTrieBranch& branch,
                             U8 branchLen,
                             U8 stride,
                             SubTrieMode mode,
                             LpmPrefixList prefixList,
                             const NhiTableIdx& nhiBaseIdx)
    : CommandBase(commandTypePrefix),
      tableId_(tableId),
      index_(index),
      branch_(branch),
      branchLen_(branchLen),
      stride_(stride),
      mode_(mode),
      prefixList_(std::move(prefixList)),
      nhiBaseIdx_(nhiBaseIdx) {}

NhiCommand::NhiCommand(const NhiTableIdx& index, TarnletNextHop::NextHopBlockList nextHopBlockList)
    : CommandBase(commandTypeNhi), index_(index), nextHopBlockList_(std::move(nextHopBlockList)) {}

PrefixCommand::Ptr prefixCommandFactory(PrefixTableId tableId,
                                        PrefixTableIdx index,
                                        const SubTrieBranch& branch,
                                        U8 branchLen,
                                        U8 stride,
                                        SubTrieMode mode,
                                        LpmPrefixList prefixList,
                                        const NhiTableIdx& nhiBaseIdx) {
  return new PrefixCommand(tableId, index, branch, branchLen, stride, mode, std::move(prefixList),
                           nhiBaseIdx);
}

NhiCommand::Ptr nhiCommandFactory(const NhiTableIdx& index, NextHopBlockList nextHopBlockList) {
  return new NhiCommand(index, std::move(nextHopBlockList));
}

}  // namespace Quarle::Tarnlet
