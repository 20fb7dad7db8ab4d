// The textual forms under a fuzzer; TextFormFuzzTest.cpp runs the same over made-up texts.

#include <cstddef>
#include <cstdint>

#include "tests/fuzz/TextForms.h"

// A program has one such entry, and that of the tests is the restart's.
#ifdef TARNLET_FUZZER

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Quarle::Tarnlet::Testing::readAndWriteAny(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}

#endif
