#include "framework/Ferrix/FileLayout.h"

#include <algorithm>
#include <iterator>

#include "framework/Ferrix/TraceError.h"

namespace Ferrix {

namespace {

constexpr U32 swapped(U32 word) {
  return word >> 24 | (word >> 8 & 0xff00U) | (word << 8 & 0xff0000U) | word << 24;
}

}  // namespace

void refuse(const Vellor::String8& path, const std::string& text) {
  throw TraceError(path + ": " + Vellor::String8(text));
}

void checkRingSize(const Vellor::String8& path, U64 ringSize) {
  if (ringSize < kMinRingSize || ringSize > kMaxRingSize || ringSize % 8 != 0) {
    refuse(path, "a ring of " + std::to_string(ringSize) +
                     " bytes, expected a multiple of 8 from " + std::to_string(kMinRingSize) +
                     " to " + std::to_string(kMaxRingSize));
  }
}

void checkHeader(const Vellor::String8& path, const FileHeader& header, U64 size) {
  const FileHeader expected;
  if (size < sizeof(FileHeader)) {
    refuse(path, std::to_string(size) + " bytes long, expected a trace file of " +
                     std::to_string(kHeaderSize) + " bytes or more");
  }
  if (!std::equal(std::begin(header.magic), std::end(header.magic), std::begin(expected.magic))) {
    refuse(path, "no trace file, expected one that begins with \"FERRIX\"");
  }
  if (header.byteOrder == swapped(kByteOrder)) {
    refuse(path, "written by a machine of the other byte order, expected one of this machine's");
  }
  if (header.byteOrder != kByteOrder) {
    refuse(path, "byte order mark " + std::to_string(header.byteOrder) + ", expected " +
                     std::to_string(kByteOrder));
  }
  if (header.version != kVersion) {
    refuse(path, "trace file of version " + std::to_string(header.version) + ", expected version " +
                     std::to_string(kVersion));
  }
  if (header.descTableSize != kDescTableSize) {
    refuse(path, "a description table of " + std::to_string(header.descTableSize) +
                     " bytes, expected " + std::to_string(kDescTableSize));
  }
  checkRingSize(path, header.ringSize);
}

}  // namespace Ferrix
