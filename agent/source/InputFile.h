#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>

struct archive;

namespace Quarle::Agent {

/// A source of routes that cannot be read on: one line with what, where and what was expected.
class RibError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A file read from its beginning to its end, unpacked on the way when it is gzip, bzip2, xz or
/// zstd by its content; its name does not matter.
///
/// Order of calls: construct, `nextBlock` until it returns nothing.
class InputFile {
 public:
  /// Opens the file; raises `RibError` when it cannot be read.
  explicit InputFile(const std::filesystem::path& path);

  /// The next bytes, valid until the next call; empty at the end of the file. Raises `RibError`
  /// when the file cannot be read or its compressed data is damaged or cut off.
  std::string_view nextBlock();

  /// Bytes of the file as it lies on the disk that were read so far.
  std::uint64_t bytesRead() const;

  /// Bytes of the file on the disk; 0 for a pipe.
  std::uint64_t bytesTotal() const { return bytesTotal_; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const;
    void operator()(archive* reader) const;
  };

  /// Raises `RibError` with the reader's own words.
  [[noreturn]] void fail() const;

  std::filesystem::path path_;
  std::uint64_t bytesTotal_ = 0;
  std::unique_ptr<std::FILE, Closer> file_;
  std::unique_ptr<archive, Closer> reader_;
  bool atEnd_ = false;
};

}  // namespace Quarle::Agent
