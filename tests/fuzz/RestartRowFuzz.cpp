// Any bytes as one prefix row of a chip: pre-flight must make of the row what the library takes
// over whole, or clear it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/restart/RestartChip.h"

namespace Quarle::Agent::Testing {
namespace {

constexpr RowPlace kPlace{.table = 0, .row = 3};

/// An SDK whose one row is `row`, every pair of which leads somewhere.
class OneRow final : public xpIpRouteLpmMgr {
 public:
  explicit OneRow(const xpLpmPrefixEntry& row) : row_(row) {}

  XP_STATUS readPrefixEntry(
      U32 /*device*/, U32 tableId, U32 index, xpLpmPrefixEntry* entry, U8 /*flag*/) override {
    if (RowPlace{.table = tableId, .row = index} != kPlace) {
      return XP_ERR_NOTHING_TO_READ;
    }
    *entry = row_;
    return XP_NO_ERR;
  }

  XP_STATUS writePrefixEntry(U32, U32, U32, xpLpmPrefixEntry* entry) override {
    row_ = *entry;
    return XP_NO_ERR;
  }

  XP_STATUS readNhiEntry(U32, U32, U32 index, xpLpmNhiEntry* entry, U8 /*flag*/) override {
    for (U32 i = 0; i < xpLpmNhiEntry::kPairs; ++i) {
      entry->base[i] = index;
      entry->size[i] = 1;
    }
    return XP_NO_ERR;
  }

  XP_STATUS writeNhiEntry(U32, U32, U32, xpLpmNhiEntry*) override { return XP_NO_ERR; }

 private:
  xpLpmPrefixEntry row_;
};

void restartWith(bool longKey, const xpLpmPrefixEntry& row) {
  RestartChip restart(longKey);
  OneRow sdk(row);
  const PreFlightReport report = preFlight(restart.agentFamily(), *restart.config, sdk);
  restart.start(/*warm=*/true, &sdk);
  if (restart.subTries() != report.rowsSound || restart.config->requests() != report.prefixes) {
    std::fprintf(stderr, "%u rows adopted, expected %llu\n", restart.subTries(),
                 static_cast<unsigned long long>(report.rowsSound));
    std::abort();
  }
}

}  // namespace
}  // namespace Quarle::Agent::Testing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  xpLpmPrefixEntry row;
  std::memcpy(static_cast<void*>(&row), data + 1, std::min(size - 1, sizeof row));
  Quarle::Agent::Testing::restartWith((data[0] & 1) != 0, row);
  return 0;
}
