#include "cli/shell/WrittenText.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace Quarle::Cli {

namespace {

[[noreturn]] void raise(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return text;
    }
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

std::string writtenBy(const std::function<void(int descriptor)>& call) {
  constexpr int kDescriptors = 256;
  const int descriptor = memfd_create("answer", 0);
  if (descriptor < 0) {
    raise("a file in memory");
  }
  if (descriptor >= kDescriptors) {
    close(descriptor);
    errno = EMFILE;
    raise("a descriptor below 256");
  }
  try {
    call(descriptor);
  } catch (...) {
    close(descriptor);
    throw;
  }
  lseek(descriptor, 0, SEEK_SET);
  std::string text = readAll(descriptor);
  close(descriptor);
  return text;
}

}  // namespace Quarle::Cli
