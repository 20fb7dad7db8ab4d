// The faces of the shared objects and entities.

#include "framework/Vellor/Reflect.h"
#include "model/Tarnlet.h"
#include "model/TarnletNextHop.h"

namespace Quarle {

namespace {

using Vellor::operation;
using Vellor::operations;
using Vellor::operationsAfter;

constexpr std::array<Vellor::AttributeFace, 0> kNone{};

}  // namespace

namespace Tarnlet {

namespace {

constexpr auto kLpmPrefix = operations(operation<&LpmPrefix::branch>("branch", "branchLen"),
                                       operation<&LpmPrefix::stringValue>("stringValue"));
constexpr auto kLpmPrefixV4 =
    operationsAfter(kLpmPrefix,
                    operations(operation<&LpmPrefixV4::createFanoutPrefixV4>("createFanoutPrefixV4",
                                                                             "targetTread")));
constexpr auto kSubTrie =
    operations(operation<&SubTrie::fit>("fit", "branchLen", "stride", "numPrefixes", "mode"),
               operation<&SubTrie::allocatePrefixBitmap>("allocatePrefixBitmap"),
               operation<&SubTrie::compactPrefixes>("compactPrefixes"),
               operation<&SubTrie::addPrefix>("addPrefix", "prefix"),
               operation<&SubTrie::removePrefix>("removePrefix", "prefix"),
               operation<&SubTrie::dump>("dump"),
               operation<&SubTrie::str>("str"));
constexpr auto kConfigBase =
    operations(operation<&ConfigBase::populateLeastTreadForPrefixLenSettings>(
                   "populateLeastTreadForPrefixLenSettings", "lpmTreadUserCfgd"),
               operation<&ConfigBase::fanoutPrefixLen>("fanoutPrefixLen", "prefixLen"));
constexpr auto kPrefixTableConfig =
    operations(operation<&PrefixTableConfig::hashFunc>("hashFunc", "lpmPrefix"),
               operation<&PrefixTableConfig::str>("str"));

}  // namespace

VELLOR_REFLECTED_TYPE(LpmPrefix, "Quarle::Tarnlet::LpmPrefix", kLpmPrefix);
VELLOR_REFLECTED_TYPE(LpmPrefixV4, "Quarle::Tarnlet::LpmPrefixV4", kLpmPrefixV4);
VELLOR_REFLECTED_TYPE(LpmPrefixV6, "Quarle::Tarnlet::LpmPrefixV6", kLpmPrefix);
VELLOR_REFLECTED_TYPE(CommandBase, "Quarle::Tarnlet::CommandBase", kNone);
VELLOR_REFLECTED_TYPE(PrefixCommand, "Quarle::Tarnlet::PrefixCommand", kNone);
VELLOR_REFLECTED_TYPE(NhiCommand, "Quarle::Tarnlet::NhiCommand", kNone);
VELLOR_REFLECTED_TYPE(SubTrie, "Quarle::Tarnlet::SubTrie", kSubTrie);
VELLOR_REFLECTED_TYPE(SubTrieSet, "Quarle::Tarnlet::SubTrieSet", kNone);
VELLOR_REFLECTED_TYPE(NhiInfo, "Quarle::Tarnlet::NhiInfo", kNone);
VELLOR_REFLECTED_TYPE(PrefixTableConfig, "Quarle::Tarnlet::PrefixTableConfig", kPrefixTableConfig);
VELLOR_REFLECTED_CHILD(PrefixTable,
                       "Quarle::Tarnlet::PrefixTable",
                       kNone,
                       Vellor::constructor<PrefixTable>("tableConfig"));
VELLOR_REFLECTED_TYPE(ConfigBase, "Quarle::Tarnlet::ConfigBase", kConfigBase);
VELLOR_REFLECTED_TYPE(ConfigV4, "Quarle::Tarnlet::ConfigV4", kConfigBase);
VELLOR_REFLECTED_TYPE(ConfigV6, "Quarle::Tarnlet::ConfigV6", kConfigBase);
VELLOR_REFLECTED_TYPE(Status, "Quarle::Tarnlet::Status", kNone);

}  // namespace Tarnlet

namespace TarnletNextHop {

VELLOR_REFLECTED_TYPE(ShuffleCmd, "Quarle::TarnletNextHop::ShuffleCmd", kNone);
VELLOR_REFLECTED_TYPE(Config, "Quarle::TarnletNextHop::Config", kNone);
VELLOR_REFLECTED_TYPE(Status, "Quarle::TarnletNextHop::Status", kNone);

}  // namespace TarnletNextHop
}  // namespace Quarle
