// The faces of the value types.

#include "framework/Vellor/Reflect.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"
#include "model/NextHopBlock.h"
#include "model/NhiInfoKey.h"
#include "model/SubTrieBranch.h"

namespace Quarle {

namespace {

using Vellor::computedAttribute;
using Vellor::operations;
using Vellor::valueAttribute;

/// `null` and `hash` of a wrapper read as its value.
template <class T>
constexpr auto wrapperAttributes() {
  return operations(valueAttribute<T, &T::value, &T::valueIs>("value"),
                    computedAttribute<T, &T::value>("null"),
                    computedAttribute<T, &T::value>("hash"));
}

}  // namespace

namespace TarnletNextHop {

VELLOR_REFLECTED_VALUE(SwId, "Quarle::TarnletNextHop::SwId", wrapperAttributes<SwId>());
VELLOR_REFLECTED_VALUE(Nway, "Quarle::TarnletNextHop::Nway", wrapperAttributes<Nway>());
VELLOR_REFLECTED_VALUE(NextHopTableIdx,
                       "Quarle::TarnletNextHop::NextHopTableIdx",
                       wrapperAttributes<NextHopTableIdx>());
VELLOR_REFLECTED_VALUE(
    NextHopBlock,
    "Quarle::TarnletNextHop::NextHopBlock",
    operations(valueAttribute<NextHopBlock, &NextHopBlock::base, &NextHopBlock::baseIs>("base"),
               valueAttribute<NextHopBlock, &NextHopBlock::size, &NextHopBlock::sizeIs>("size"),
               computedAttribute<NextHopBlock, &NextHopBlock::hash>("hash"),
               computedAttribute<NextHopBlock, &NextHopBlock::str>("str")));
VELLOR_REFLECTED_VALUE(NextHopBlockList,
                       "Quarle::TarnletNextHop::NextHopBlockList",
                       Vellor::lineFaces<NextHopBlockList>());

}  // namespace TarnletNextHop

namespace Tarnlet {

VELLOR_REFLECTED_VALUE(PrefixTableId,
                       "Quarle::Tarnlet::PrefixTableId",
                       wrapperAttributes<PrefixTableId>());
VELLOR_REFLECTED_VALUE(PrefixTableIdx,
                       "Quarle::Tarnlet::PrefixTableIdx",
                       wrapperAttributes<PrefixTableIdx>());
VELLOR_REFLECTED_VALUE(NhiTileIdx, "Quarle::Tarnlet::NhiTileIdx", wrapperAttributes<NhiTileIdx>());
VELLOR_REFLECTED_VALUE(
    NhiTableIdx,
    "Quarle::Tarnlet::NhiTableIdx",
    operations(valueAttribute<NhiTableIdx, &NhiTableIdx::tile, &NhiTableIdx::tileIs>("tile"),
               valueAttribute<NhiTableIdx, &NhiTableIdx::offset, &NhiTableIdx::offsetIs>("offset"),
               computedAttribute<NhiTableIdx, &NhiTableIdx::hash>("hash"),
               computedAttribute<NhiTableIdx, &NhiTableIdx::str>("str")));

using Branch = SubTrieBranch;
VELLOR_REFLECTED_VALUE(
    SubTrieBranch,
    "Quarle::Tarnlet::SubTrieBranch",
    operations(
        valueAttribute<Branch, &Branch::word0, &Branch::word0Is>("word0"),
        valueAttribute<Branch, &Branch::word1, &Branch::word1Is>("word1"),
        valueAttribute<Branch, &Branch::word2, &Branch::word2Is>("word2"),
        valueAttribute<Branch, &Branch::word3, &Branch::word3Is>("word3"),
        valueAttribute<Branch, &Branch::word4, &Branch::word4Is>("word4"),
        Vellor::viewAttribute<Branch, &Branch::u8, &Branch::u8Is, &Branch::u8Del>("u8"),
        Vellor::viewAttribute<Branch, &Branch::u64, &Branch::u64Is, &Branch::u64Del>("u64")));
VELLOR_REFLECTED_VALUE(
    NhiInfoKey,
    "Quarle::Tarnlet::NhiInfoKey",
    Vellor::operationsAfter(Vellor::lineFaces<NhiInfoKey>(),
                            operations(computedAttribute<NhiInfoKey, &NhiInfoKey::hash>("hash"),
                                       computedAttribute<NhiInfoKey, &NhiInfoKey::str>("str"))));
VELLOR_REFLECTED_VALUE(LpmPrefixList,
                       "Quarle::Tarnlet::LpmPrefixList",
                       Vellor::lineFaces<LpmPrefixList>());

}  // namespace Tarnlet
}  // namespace Quarle
