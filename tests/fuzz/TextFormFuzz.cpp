// The textual forms under a fuzzer; TextFormFuzzTest.cpp runs the same over made-up texts.

#include <cstddef>
#include <cstdint>

#include "tests/fuzz/TextForms.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Quarle::Tarnlet::Testing::readAndWriteAny(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
