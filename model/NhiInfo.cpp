#include "model/NhiInfo.h"

namespace Quarle::Tarnlet {

Vellor::String8 NhiInfo::str() const {
  return Vellor::format("%s/%s/%u", nhiInfoKey_.str().charPtr(), nhiBaseIdx_.str().charPtr(),
                        subTrieCount_);
}

NhiInfo::Ptr nhiInfoFactory(const NhiInfoKey& nhiInfoKey) { return new NhiInfo(nhiInfoKey); }

}  // namespace Quarle::Tarnlet
