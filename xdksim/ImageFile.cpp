#include "xdksim/ImageFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace XdkSim {

namespace {

// A device or a pipe must not be waited for: whether it is a file is only known once it is open.
constexpr int kOpenFlags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr mode_t kReadableByAll = 0666;

[[noreturn]] void raiseError(const std::filesystem::path& path,
                             const std::string& what,
                             const std::string& expected) {
  throw ImageError(path.string() + ": " + what + ", expected " + expected);
}

std::string reason(int error) { return std::string(" (") + std::strerror(error) + ")"; }

}  // namespace

ImageFile ImageFile::open(const std::filesystem::path& path) {
  const int descriptor = ::open(path.c_str(), kOpenFlags);
  if (descriptor < 0) {
    raiseError(path, "cannot be opened" + reason(errno), "a chip image");
  }
  return {path, descriptor, /*made=*/false};
}

ImageFile ImageFile::make(const std::filesystem::path& path, ExistingFile existing) {
  const int descriptor = ::open(path.c_str(), kOpenFlags | O_CREAT | O_EXCL, kReadableByAll);
  if (descriptor >= 0) {
    return {path, descriptor, /*made=*/true};
  }
  if (errno != EEXIST) {
    raiseError(path, "cannot be made" + reason(errno), "a place for a chip image");
  }
  if (existing == ExistingFile::refuse) {
    raiseError(path, "exists", "a new name, or leave to replace the image there");
  }
  return open(path);
}

ImageFile::ImageFile(const std::filesystem::path& path, int descriptor, bool made)
    : path_(path), descriptor_(descriptor), removed_(made) {
  struct stat status {};

  // From here on the destructor does not run when something is raised.
  try {
    if (::fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode)) {
      fails("is not a regular file", "a chip image");
    }
    lock();
  } catch (...) {
    ::close(descriptor_);
    throw;
  }
}

void ImageFile::lock() const {
  if (::flock(descriptor_, LOCK_EX | LOCK_NB) == 0) {
    return;
  }
  if (errno == EWOULDBLOCK) {
    fails("is in use by another chip", "one at a time");
  }
  failsWithReason("cannot be locked", "a file system with locks");
}

ImageFile::ImageFile(ImageFile&& other) noexcept
    : path_(std::move(other.path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      removed_(std::exchange(other.removed_, false)),
      mapping_(std::exchange(other.mapping_, {})) {}

ImageFile::~ImageFile() {
  if (!mapping_.empty()) {
    ::munmap(mapping_.data(), mapping_.size());
  }
  if (removed_) {
    ::unlink(path_.c_str());
  }
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

U64 ImageFile::bytes() const {
  struct stat status {};

  if (::fstat(descriptor_, &status) != 0) {
    failsWithReason("has no length", "a chip image");
  }
  return static_cast<U64>(status.st_size);
}

void ImageFile::bytesAre(U64 bytes) {
  if (::ftruncate(descriptor_, static_cast<off_t>(bytes)) != 0) {
    failsWithReason("cannot have " + std::to_string(bytes) + " bytes", "room for the whole chip");
  }
}

void ImageFile::requireRoom(U64 bytes) const {
  struct statvfs status {};

  if (::fstatvfs(descriptor_, &status) != 0) {
    failsWithReason("its file system does not tell its room", "one that does");
  }
  const U64 room = U64{status.f_bavail} * status.f_frsize;
  if (room < bytes) {
    fails(std::to_string(room) + " bytes free in its file system",
          std::to_string(bytes) + " for the whole chip");
  }
}

std::size_t ImageFile::read(U64 from, std::span<std::byte> bytes) const {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::pread(descriptor_, bytes.data() + done, bytes.size() - done,
                                  static_cast<off_t>(from + done));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      failsWithReason("cannot be read", "a chip image");
    }
    if (count == 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

void ImageFile::write(U64 to, std::span<const std::byte> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::pwrite(descriptor_, bytes.data() + done, bytes.size() - done,
                                   static_cast<off_t>(to + done));
    if (count < 0 && errno != EINTR) {
      failsWithReason("cannot be written", "room for a chip image");
    }
    done += count < 0 ? 0 : static_cast<std::size_t>(count);
  }
}

std::span<std::byte> ImageFile::map() {
  const auto size = static_cast<std::size_t>(bytes());
  void* start = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
  if (start == MAP_FAILED) {
    failsWithReason("cannot be mapped", "a file system and memory for it");
  }
  mapping_ = {static_cast<std::byte*>(start), size};
  return mapping_;
}

void ImageFile::fails(const std::string& what, const std::string& expected) const {
  raiseError(path_, what, expected);
}

void ImageFile::failsWithReason(const std::string& what, const std::string& expected) const {
  raiseError(path_, what + reason(errno), expected);
}

}  // namespace XdkSim
