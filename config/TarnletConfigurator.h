#pragma once

#include "config/XpPrefixTableConfig.h"
#include "framework/Sennet/LpmTreadCfg.h"
#include "framework/Sennet/SystemStatus.h"
#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/ConfigBase.h"
#include "model/NextHopConfig.h"

namespace Quarle {

/// Fills the configuration entities from the chip's table contexts and binds each prefix table to
/// its hash. The one class that reads the chip's shape; everything else works on the numbers that
/// it leaves in the entities.
///
/// The client runs doConfig() once, before any state machine is built over the entities. Running it
/// again is harmless. A context that makes no sense is fatal: chip and software do not match.
///
/// The environment overrides the chip, for both families alike, and is read at each call:
/// NHI_TABLE_SIZE the size of the NHI table and, in its low 16 bits, of a tile; NUMBER_OF_NHI_TILES
/// the number of tiles in its low 8 bits. Both are decimal; what is no number counts as 0.
class VELLOR_API TarnletConfigurator : public Vellor::PtrInterface {
  VELLOR_OBJECT(TarnletConfigurator, Vellor::PtrInterface);

 public:
  /// REQUIRES: none is null.
  TarnletConfigurator(Sennet::SystemStatus::PtrConst systemStatus,
                      Tarnlet::ConfigV4::Ptr lpmConfigV4,
                      Tarnlet::ConfigV6::Ptr lpmConfigV6,
                      TarnletNextHop::Config::Ptr lpmNhConfig,
                      Quarle::Config::LpmTreadCfg::PtrConst lpmTreadCfg);

  VELLOR_CONST(systemStatus, SystemStatus, Sennet::SystemStatus::PtrConst);
  VELLOR_CONST(lpmConfigV4, LpmConfigV4, Tarnlet::ConfigV4::Ptr);
  VELLOR_CONST(lpmConfigV6, LpmConfigV6, Tarnlet::ConfigV6::Ptr);
  VELLOR_CONST(lpmNhConfig, LpmNhConfig, TarnletNextHop::Config::Ptr);
  VELLOR_CONST(lpmTreadCfg, LpmTreadCfg, Quarle::Config::LpmTreadCfg::PtrConst);

  VELLOR_OBJ_END;

  /// Fills all three configurations.
  void doConfig();

  /// Fills one family's configuration from table context `tableId` of the first chip.
  void configLpmWithTableContext(U32 tableId, const Tarnlet::ConfigBase::Ptr& lpmConfig);

  /// Gives the next-hop configuration its size. A size that is set already must be the chip's own.
  void configNhWithTableContext();

 private:
  Halyard::TableContextEntry::Ptr contextEntry(U32 tableId) const;
};

VELLOR_API TarnletConfigurator::Ptr tarnletConfiguratorFactory(
    const Sennet::SystemStatus::PtrConst& systemStatus,
    const Tarnlet::ConfigV4::Ptr& lpmConfigV4,
    const Tarnlet::ConfigV6::Ptr& lpmConfigV6,
    const TarnletNextHop::Config::Ptr& lpmNhConfig,
    const Config::LpmTreadCfg::PtrConst& lpmTreadCfg);

}  // namespace Quarle
