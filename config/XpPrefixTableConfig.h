#pragma once

#include <memory>

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "framework/Xdk/XpHashFunction.h"
#include "model/Enumerations.h"
#include "model/Identifiers.h"
#include "model/LpmPrefix.h"
#include "model/PrefixTableConfig.h"

namespace Quarle::Tarnlet {

/// A prefix table bound to the chip's hash. The configurator builds it and gives it the hash
/// object, which it owns from then on; LpmSm asks it for rows.
class VELLOR_API XpPrefixTableConfig : public PrefixTableConfig {
  VELLOR_OBJECT(XpPrefixTableConfig, PrefixTableConfig);

 public:
  XpPrefixTableConfig(PrefixTableId tableId, PrefixTableType tableType, U32 depth, U8 tread)
      : PrefixTableConfig(tableId, tableType, depth, tread) {}

  ~XpPrefixTableConfig() override;

  VELLOR_RECORD(xdkHashFunction, XdkHashFunction, value);

  VELLOR_OBJ_END;

  xpHashFunction* xdkHashFunction() const { return xdkHashFunction_.get(); }

  /// Takes `xdkHashFunction` over; another one that was held is destroyed.
  void xdkHashFunctionIs(xpHashFunction* xdkHashFunction);

  /// The row that the chip selects for the first `tread` bits of the prefix's key, as the hash
  /// object gives it. Fatal without a hash object.
  U32 hashFunc(const LpmPrefix::Ptr& lpmPrefix) const override;

  /// Destroys the hash object.
  void doCleanup();

 private:
  std::unique_ptr<xpHashFunction> xdkHashFunction_;
};

VELLOR_API Vellor::Ptr<XpPrefixTableConfig> xpPrefixTableConfigFactory(PrefixTableId tableId,
                                                                       PrefixTableType tableType,
                                                                       U32 depth,
                                                                       U8 tread);

}  // namespace Quarle::Tarnlet
