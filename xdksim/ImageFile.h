#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>

#include "framework/Vellor/Types.h"
#include "framework/Xdk/XpExport.h"

namespace XdkSim {

/// A chip image that cannot be made or used. The text is one line: where, what stands there, what
/// was expected.
class XDK_API ImageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What to do when an image is to be made and there is a file of that name.
enum class ExistingFile : U8 { refuse, replace };

/// The file that a chip image lives in, open for this process alone, and mapped once `map` was
/// called. Used by `ChipImage`.
///
/// 1. While it lives no other `ImageFile` has the same file, in this process or another. The lock
///    ends with the process (or with the last one forked from it), so a killed one leaves none
///    behind.
/// 2. A file that it made itself is removed again with it unless `keep` was called.
///
/// All operations raise `ImageError`.
class XDK_API ImageFile {
 public:
  static ImageFile open(const std::filesystem::path& path);

  /// A new, empty file, or with `replace` perhaps an existing one with whatever it holds.
  static ImageFile make(const std::filesystem::path& path, ExistingFile existing);

  ImageFile(ImageFile&& other) noexcept;
  ImageFile& operator=(ImageFile&&) = delete;
  ~ImageFile();

  const std::filesystem::path& path() const { return path_; }

  U64 bytes() const;

  /// Cuts the file, or makes it longer with a hole that takes no room on the disk until it is
  /// written.
  void bytesAre(U64 bytes);

  /// Refuses unless the file system has `bytes` to spare. A write to a mapped hole of a full file
  /// system would end the process.
  void requireRoom(U64 bytes) const;

  /// Fills `bytes` from the file's offset `from`; how many there were.
  std::size_t read(U64 from, std::span<std::byte> bytes) const;
  void write(U64 to, std::span<const std::byte> bytes);

  /// The whole file, for reading and writing.
  std::span<std::byte> map();

  void keep() { removed_ = false; }

  /// Raises "PATH: what, expected EXPECTED".
  [[noreturn]] void fails(const std::string& what, const std::string& expected) const;

 private:
  ImageFile(const std::filesystem::path& path, int descriptor, bool made);

  /// Raises "PATH: what (why the last call failed), expected EXPECTED".
  [[noreturn]] void failsWithReason(const std::string& what, const std::string& expected) const;

  void lock() const;

  std::filesystem::path path_;
  int descriptor_;
  bool removed_;
  std::span<std::byte> mapping_;
};

}  // namespace XdkSim
