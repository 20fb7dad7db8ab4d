// Uses a value type of the library and a class of the SDK that it links.

#include <iostream>

#include "framework/Corsel/Corsel.h"
#include "framework/Vellor/Vellor.h"
#include "framework/Xdk/Xdk.h"

int main() {
  const Corsel::Prefix prefix(Vellor::String8("10.1.0.0/16"));
  U8 key[18] = {0x0a, 0x01};
  XpBitVector bits(144, key, 144);
  crcHashFunction hash(144, 12, 0x1021, true, 35);
  std::cout << "library: " << prefix << " hashes to row " << hash.hash(bits) << '\n';
  return prefix.validAsPrefix() ? 0 : 1;
}
