#include "tests/framework/Vellor/SampleEntity.h"

namespace Vellor::Testing {

VELLOR_FWK_TYPE(Table, "Vellor::Testing::Table");
VELLOR_FWK_TYPE(Sample, "Vellor::Testing::Sample");
VELLOR_FWK_TYPE(DerivedSample, "Vellor::Testing::DerivedSample");

U32 Sample::twiceLevel() const { return 2 * level_; }

}  // namespace Vellor::Testing
