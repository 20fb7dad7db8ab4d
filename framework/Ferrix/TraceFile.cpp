// The file is either not there, or empty, or holds a whole header: what a writer that ended leaves
// is continued, whenever it ended.

#include "framework/Ferrix/TraceFile.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "framework/Ferrix/Description.h"
#include "framework/Ferrix/Ferrix.h"

namespace Ferrix {

constinit TraceFile* theTraceFile = nullptr;

namespace {

// So the table is full before a message's head cannot name a description.
static_assert(kDescTableSize / sizeof(DescHead) <= 65536);

// Numbers the trace files of this process, from 1.
U32 traceFiles = 0;

std::string keyOf(std::string_view file, U32 line, const std::string& format) {
  return std::string(file) + ':' + std::to_string(line) + ':' + format;
}

/// Tells statements' formats apart without building them.
U64 fingerprintOf(std::initializer_list<Arg> operands) {
  U64 fingerprint = 1;
  for (const Arg& operand : operands) {
    const bool isLiteral = operand.type == ArgType::literal;
    fingerprint = fingerprint * 31 + (isLiteral ? reinterpret_cast<U64>(operand.text.data())
                                                : static_cast<U64>(operand.type));
  }
  return fingerprint;
}

}  // namespace

TraceFile::TraceFile(const Vellor::String8& path, U64 ringSize)
    : file_(path, MappedFile::Access::write),
      base_(file_.map(prepare(file_, ringSize))),
      header_(*reinterpret_cast<FileHeader*>(base_)),
      ring_(header_, reinterpret_cast<U64*>(base_ + kHeaderSize + kDescTableSize)),
      number_(++traceFiles) {
  checkPositions();
  U32 id = 0;
  for (const Description& known : descriptionsOf(path, std::span(table(), header_.descUsed))) {
    ids_.emplace(keyOf(known.file, known.line, known.format), id++);
  }
}

U64 TraceFile::prepare(MappedFile& file, U64 ringSize) {
  checkRingSize(file.path(), ringSize);
  FileHeader header;
  header.ringSize = ringSize;
  if (file.size() == 0) {
    file.writeFront(&header, sizeof header);
  } else {
    checkHeader(file.path(), header, file.readFront(&header, sizeof header));
    // Its maker may have ended between the header and the rest.
    const bool used = header.begun != 0 || header.descUsed != 0;
    if (used && file.size() < header.fileSize()) {
      refuse(file.path(), "damaged: " + std::to_string(file.size()) + " bytes long, expected " +
                              std::to_string(header.fileSize()));
    }
  }
  file.reserve(header.fileSize());
  return header.fileSize();
}

void TraceFile::checkPositions() const {
  const FileHeader& header = header_;
  const U64 all = header.tail | header.head | header.descUsed;
  if (header.descUsed > kDescTableSize || header.tail > header.head ||
      header.head - header.tail > header.ringSize || all % 8 != 0) {
    refuse(file_.path(), "damaged: messages from " + std::to_string(header.tail) + " to " +
                             std::to_string(header.head) + " and descriptions to " +
                             std::to_string(header.descUsed) +
                             ", expected rising multiples of 8 and at most " +
                             std::to_string(header.ringSize) + " and " +
                             std::to_string(kDescTableSize) + " bytes");
  }
}

void TraceFile::writeMsg(MsgDesc& desc, std::initializer_list<Arg> operands) {
  const U64 fingerprint = fingerprintOf(operands);
  if (desc.traceFile_ != number_ || desc.fingerprint_ != fingerprint) {
    const std::optional<U32> id = idOf(desc, formatOf(operands));
    if (!id) {
      publish(header_.undescribed, header_.undescribed + 1);
      return;
    }
    desc.traceFile_ = number_;
    desc.id_ = *id;
    desc.fingerprint_ = fingerprint;
  }
  ring_.startMsg(static_cast<U16>(desc.id_));
  for (const Arg& operand : operands) {
    if (operand.type == ArgType::text) {
      ring_.text(operand.text);
    } else if (operand.type != ArgType::literal) {
      ring_.number(operand.bits, widthOf(operand.type));
    }
  }
  ring_.endMsg();
}

std::optional<U32> TraceFile::idOf(const MsgDesc& desc, const std::string& format) {
  constexpr std::size_t kMaxText = std::numeric_limits<U16>::max();
  const std::string_view file = desc.file();
  const std::string key = keyOf(file, desc.line(), format);
  if (const auto known = ids_.find(key); known != ids_.end()) {
    return known->second;
  }
  const U64 used = header_.descUsed;
  const U64 size = roundedUp(sizeof(DescHead) + file.size() + format.size());
  if (file.size() > kMaxText || format.size() > kMaxText || size > kDescTableSize - used) {
    return std::nullopt;
  }
  const DescHead head{.size = static_cast<U32>(size),
                      .line = desc.line(),
                      .fileSize = static_cast<U16>(file.size()),
                      .formatSize = static_cast<U16>(format.size())};
  U8* to = table() + used;
  std::memcpy(to, &head, sizeof head);
  to = std::copy(file.begin(), file.end(), to + sizeof head);
  std::copy(format.begin(), format.end(), to);
  publish(header_.descUsed, used + size);
  const U32 id = static_cast<U32>(ids_.size());
  ids_.emplace(key, id);
  return id;
}

void traceFileIs(const Vellor::String8& path, U64 ringSize) {
  // One file has one writer, and a child would be a second: it leaves the file to its parent.
  static const bool inChildren = (inForkedChildren(traceFileDel), true);
  static_cast<void>(inChildren);
  traceFileDel();
  theTraceFile = new TraceFile(path, ringSize);
}

void traceFileDel() {
  delete theTraceFile;
  theTraceFile = nullptr;
}

void writeMsg(MsgDesc& desc, std::initializer_list<Arg> operands) {
  theTraceFile->writeMsg(desc, operands);
}

}  // namespace Ferrix
