// The faces of the configurator and of what it binds a prefix table to.

#include "config/TarnletConfigurator.h"
#include "config/XpPrefixTableConfig.h"
#include "framework/Vellor/Reflect.h"

namespace Quarle {

namespace {

using Vellor::operation;
using Vellor::operations;

constexpr auto kTarnletConfigurator = operations(
    operation<&TarnletConfigurator::doConfig>("doConfig"),
    operation<&TarnletConfigurator::configLpmWithTableContext>(
        "configLpmWithTableContext", "tableId", "lpmConfig"),
    operation<&TarnletConfigurator::configNhWithTableContext>("configNhWithTableContext"));

}  // namespace

VELLOR_REFLECTED_TYPE(TarnletConfigurator, "Quarle::TarnletConfigurator", kTarnletConfigurator);

namespace Tarnlet {

namespace {

constexpr auto kPrefixTableConfig =
    operations(operation<&PrefixTableConfig::hashFunc>("hashFunc", "lpmPrefix"),
               operation<&PrefixTableConfig::str>("str"));

}  // namespace

VELLOR_REFLECTED_TYPE(XpPrefixTableConfig,
                      "Quarle::Tarnlet::XpPrefixTableConfig",
                      kPrefixTableConfig);

}  // namespace Tarnlet
}  // namespace Quarle
