#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "framework/Xdk/XpHashFunction.h"
#include "xdksim/CrcTables.h"

xpCrcTables::xpCrcTables(U16 poly) : tables_() {
  for (U32 byte = 0; byte < 256; ++byte) {
    U32 crc = byte << 8;
    for (int bit = 0; bit < 8; ++bit) {
      crc = crc << 1 ^ ((crc & 0x8000) != 0 ? poly : 0U);
    }
    tables_[0][byte] = static_cast<U16>(crc);
  }
  for (U32 zeros = 1; zeros < tables_.size(); ++zeros) {
    for (U32 byte = 0; byte < 256; ++byte) {
      tables_[zeros][byte] = addByte(tables_[zeros - 1][byte], 0);
    }
  }
}

const xpCrcTables& xpCrcTables::of(U32 poly) {
  struct Registry {
    std::mutex mutex;
    std::map<U16, std::unique_ptr<const xpCrcTables>> tables;
  };

  // Never destroyed: a hash function with static storage may still be in use when statics go.
  static Registry& registry = *new Registry;
  const auto shortPoly = static_cast<U16>(poly);
  const std::lock_guard lock(registry.mutex);
  auto& tables = registry.tables[shortPoly];
  if (tables == nullptr) {
    tables = std::make_unique<const xpCrcTables>(shortPoly);
  }
  return *tables;
}

crcHashFunction::crcHashFunction(U32 width, U32 hashBits, U32 poly, bool /*enabled*/, U32 tread)
    : tables_(&xpCrcTables::of(poly)),
      bytes_(width / 8),
      mask_(hashBits < 16 ? (1U << hashBits) - 1 : 0xffffU),
      tread_(tread) {}

U32 crcHashFunction::hash(XpBitVector& bits) {
  const U8* next = bits.data();
  U16 crc = 0;
  // The odd bytes go first, so that whole words follow up to the end, where the key's first bits
  // are.
  for (U32 odd = bytes_ % 8; odd != 0; --odd, ++next) {
    if (crc != 0 || *next != 0) {
      crc = tables_->addByte(crc, *next);
    }
  }
  for (U32 words = bytes_ / 8; words != 0; --words, next += 8) {
    U64 word;
    std::memcpy(&word, next, sizeof word);
    if (crc != 0 || word != 0) {
      crc = tables_->addWord(crc, word);
    }
  }
  return crc & mask_;
}
