#include "cli/shell/ForkedCall.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

namespace Quarle::Cli {

namespace {

constexpr int kReturned = 0;
constexpr int kRaised = 1;

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

[[noreturn]] void runChild(const std::function<void()>& call, int errorStream) {
  dup2(errorStream, STDERR_FILENO);
  // An abort that was expected leaves no core behind.
  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
  setrlimit(RLIMIT_CORE, &none);
  try {
    call();
  } catch (const std::exception& misuse) {
    std::fputs(misuse.what(), stderr);
    _exit(kRaised);
  }
  _exit(kReturned);
}

}  // namespace

ForkedCall callForked(const std::function<void()>& call) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    raise("a pipe for the child");
  }
  const pid_t child = fork();
  if (child < 0) {
    close(ends[0]);
    close(ends[1]);
    raise("a child process");
  }
  if (child == 0) {
    close(ends[0]);
    runChild(call, ends[1]);
  }
  close(ends[1]);
  ForkedCall result{.text = readAll(ends[0])};
  while (result.text.ends_with('\n')) {
    result.text.pop_back();
  }
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  result.returned = WIFEXITED(status) && WEXITSTATUS(status) == kReturned;
  return result;
}

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
