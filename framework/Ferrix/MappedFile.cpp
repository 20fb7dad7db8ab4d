#include "framework/Ferrix/MappedFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "framework/Ferrix/FileLayout.h"

namespace Ferrix {

namespace {

/// An open descriptor that has no owner yet.
class Opened {
 public:
  explicit Opened(int fd) : fd_(fd) {}

  ~Opened() {
    if (fd_ >= 0) {
      close(fd_);
    }
  }

  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  int fd() const { return fd_; }

  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace

MappedFile::MappedFile(const Vellor::String8& path, Access access) : path_(path), access_(access) {
  constexpr mode_t kMode = 0644;
  const bool writes = access == Access::write;
  // Without O_NONBLOCK a pipe would hold the opening up for ever.
  const int flags = (writes ? O_RDWR | O_CREAT : O_RDONLY) | O_CLOEXEC | O_NONBLOCK;
  Opened opened(open(path_.charPtr(), flags, kMode));
  if (opened.fd() < 0) {
    systemRefused(writes ? "opened for writing" : "opened", errno);
  }

  struct stat status {};

  if (fstat(opened.fd(), &status) != 0 || !S_ISREG(status.st_mode)) {
    refuse(path_, "no regular file, expected a trace file");
  }
  // The lock belongs to the open file: it ends with the process, however that ends.
  if (writes && flock(opened.fd(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) {
      systemRefused("locked", errno);
    }
    refuse(path_, "another process traces to this file, expected one that is not in use");
  }
  fd_ = opened.release();
}

MappedFile::~MappedFile() {
  if (base_ != nullptr) {
    munmap(base_, mapped_);
  }
  close(fd_);
}

U64 MappedFile::size() const {
  struct stat status {};

  if (fstat(fd_, &status) != 0) {
    systemRefused("looked at", errno);
  }
  return static_cast<U64>(status.st_size);
}

U64 MappedFile::readFront(void* to, U64 size) const {
  const ssize_t got = pread(fd_, to, size, 0);
  if (got < 0) {
    systemRefused("read", errno);
  }
  return static_cast<U64>(got);
}

void MappedFile::writeFront(const void* from, U64 size) {
  const ssize_t put = pwrite(fd_, from, size, 0);
  if (put != static_cast<ssize_t>(size)) {
    systemRefused("written", put < 0 ? errno : ENOSPC);
  }
}

void MappedFile::reserve(U64 size) {
  int error = EINTR;
  while (error == EINTR) {
    error = posix_fallocate(fd_, 0, static_cast<off_t>(size));
  }
  if (error != 0) {
    systemRefused(("made " + std::to_string(size) + " bytes long").c_str(), error);
  }
}

U8* MappedFile::map(U64 size) {
  const int protection = access_ == Access::write ? PROT_READ | PROT_WRITE : PROT_READ;
  void* base = mmap(nullptr, size, protection, MAP_SHARED, fd_, 0);
  if (base == MAP_FAILED) {
    systemRefused("mapped into memory", errno);
  }
  base_ = static_cast<U8*>(base);
  mapped_ = size;
  return base_;
}

void MappedFile::systemRefused(const char* what, int error) const {
  refuse(path_, std::string("cannot be ") + what + ": " + std::generic_category().message(error));
}

void inForkedChildren(void (*handler)()) { pthread_atfork(nullptr, nullptr, handler); }

}  // namespace Ferrix
