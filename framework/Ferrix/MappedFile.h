#pragma once

#include "framework/Vellor/String8.h"
#include "framework/Vellor/Types.h"

namespace Ferrix {

/// An open file and its mapping into memory, shared with all who map it. All that Ferrix asks of
/// the operating system is asked here.
///
/// Order of calls: the constructor, then `readFront`, `writeFront` and `reserve` as needed, then
/// `map` once. Everything raises `TraceError` when the system refuses.
class MappedFile {
 public:
  enum class Access : U8 {
    read,   // the file exists; any number of processes
    write,  // the file is made when there is none; one process at a time
  };

  MappedFile(const Vellor::String8& path, Access access);
  ~MappedFile();

  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  const Vellor::String8& path() const { return path_; }

  /// Bytes of the file now.
  U64 size() const;

  /// Reads the file's first bytes; yields how many there were.
  U64 readFront(void* to, U64 size) const;

  /// Writes the file's first bytes.
  void writeFront(const void* from, U64 size);

  /// Makes the file at least `size` bytes long and has the disk set them aside: a write to mapped
  /// memory that finds the disk full would end the process.
  void reserve(U64 size);

  /// Maps the first `size` bytes.
  ///
  /// REQUIRES: the file is that long.
  U8* map(U64 size);

 private:
  [[noreturn]] void systemRefused(const char* what, int error) const;

  Vellor::String8 path_;
  Access access_;
  int fd_ = -1;
  U8* base_ = nullptr;
  U64 mapped_ = 0;
};

/// Has every child that this process forks from now on call `handler` first.
void inForkedChildren(void (*handler)());

}  // namespace Ferrix
