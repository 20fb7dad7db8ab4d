#pragma once

#include "framework/Vellor/Export.h"
#include "framework/Vellor/Schema.h"
#include "model/Identifiers.h"
#include "model/NhiInfoKey.h"

namespace Quarle::Tarnlet {

/// Record of one shared NHI block: its content, where it stands and how many sub-tries use it.
class VELLOR_API NhiInfo : public Vellor::PtrInterface {
  VELLOR_OBJECT(NhiInfo, Vellor::PtrInterface);

 public:
  explicit NhiInfo(Tarnlet::NhiInfoKey nhiInfoKey) : nhiInfoKey_(std::move(nhiInfoKey)) {}

  VELLOR_CONST(nhiInfoKey, NhiInfoKey, Tarnlet::NhiInfoKey);
  VELLOR_OBJ_ATTR(nhiBaseIdx, NhiBaseIdx, NhiTableIdx, NhiTableIdx());
  // Has no floor: it wraps below 0.
  VELLOR_OBJ_COUNTER(subTrieCount, SubTrieCount, U32);

  VELLOR_OBJ_END;

  const Tarnlet::NhiInfoKey& fwkKey() const { return nhiInfoKey_; }

  /// The key's str() "/" the base's str() "/" the count.
  Vellor::String8 str() const;
};

VELLOR_API NhiInfo::Ptr nhiInfoFactory(const NhiInfoKey& nhiInfoKey);

}  // namespace Quarle::Tarnlet
