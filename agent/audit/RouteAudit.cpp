// What the library says on its standard error stream must come back without the trace lines that
// may stand around it, and without the assertion's own line, which follows with no line end between
// them. So the child's stream is a socket that keeps each write apart.

#include "agent/audit/RouteAudit.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace Quarle::Agent {

namespace {

using Routes = std::span<const Tarnlet::LpmPrefix::Ptr* const>;

[[noreturn]] void raise(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// A descriptor that is closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}

  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  ~Descriptor() { close(); }

  void close() {
    if (number_ >= 0) {
      ::close(std::exchange(number_, -1));
    }
  }

  int number() const { return number_; }

 private:
  int number_;
};

/// A number that a child writes and its parent reads.
class SharedNumber {
 public:
  SharedNumber()
      : page_(mmap(nullptr,
                   sizeof(std::atomic<U64>),
                   PROT_READ | PROT_WRITE,
                   MAP_SHARED | MAP_ANONYMOUS,
                   -1,
                   0)) {
    if (page_ == MAP_FAILED) {
      raise("the audit has no page to share with its child");
    }
    number_ = new (page_) std::atomic<U64>(0);
  }

  ~SharedNumber() { munmap(page_, sizeof(std::atomic<U64>)); }

  SharedNumber(const SharedNumber&) = delete;
  SharedNumber& operator=(const SharedNumber&) = delete;

  std::atomic<U64>& operator*() { return *number_; }

 private:
  void* page_;
  std::atomic<U64>* number_;
};

// A child shares its parent's pages until it writes to them, and the counted pointers of an audit
// write to most that it looks at. So a child ends when it has copied some, and the next one begins
// with none: together they take no more memory than one.
long pagesPerChild() {
  constexpr long kLeast = 1024;
  constexpr long kShareOfMemory = 14;
  long all = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return std::max(kLeast, resident / kShareOfMemory);
}

long pagesCopied() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

/// The child's whole life.
[[noreturn]] void verifyAll(const Tarnlet::LpmSm& engine,
                            Routes routes,
                            std::atomic<U64>& position,
                            long pages,
                            int stream) {
  const rlimit noCore{};
  setrlimit(RLIMIT_CORE, &noCore);
  // Whatever the caller does at its own end is not for the child.
  for (const int end : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    std::signal(end, SIG_DFL);
  }
  dup2(stream, STDERR_FILENO);
  constexpr U64 kRoutesBetweenLooks = 64;
  const long enough = pagesCopied() + pages;
  while (position < routes.size()) {
    engine.verifyLpmRoute(*routes[position]);
    if (++position % kRoutesBetweenLooks == 0 && pagesCopied() > enough) {
      break;
    }
  }
  _exit(0);
}

std::string trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \n");
  if (first == text.npos) {
    return {};
  }
  std::string line(text.substr(first, text.find_last_not_of(" \n") - first + 1));
  for (char& character : line) {
    if (character == '\n') {
      character = ' ';
    }
  }
  return line;
}

/// Reads until the child is gone; what it said of a failed condition, or else said last.
std::string lastWords(int stream) {
  constexpr std::string_view kBegin = "Failed(";
  std::array<char, 16384> buffer;
  std::string words;
  for (;;) {
    const ssize_t size = read(stream, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size <= 0) {
      return words;
    }
    if (!words.starts_with(kBegin)) {
      words.assign(buffer.data(), static_cast<std::size_t>(size));
    }
  }
}

std::string endOf(int status) {
  if (WIFSIGNALED(status)) {
    return "ended by signal " + std::to_string(WTERMSIG(status)) + ", " +
           strsignal(WTERMSIG(status));
  }
  return "ended with exit code " + std::to_string(WEXITSTATUS(status));
}

RouteVerdict verdictOf(std::string_view words, int status) {
  constexpr std::string_view kBegin = "Failed(";
  // Every label brings a blank of its own, which no condition has there.
  const std::size_t end = words.find(")  ");
  if (!words.starts_with(kBegin) || end == words.npos) {
    return {.condition = endOf(status), .context = trimmed(words)};
  }
  return {.condition = std::string(words.substr(kBegin.size(), end - kBegin.size())),
          .context = trimmed(words.substr(end + 1))};
}

/// Audits routes from `position` on in one child, which moves it; what it died of, with `position`
/// at that route.
std::optional<RouteVerdict> verifyInChild(const Tarnlet::LpmSm& engine,
                                          Routes routes,
                                          std::atomic<U64>& position,
                                          long pages) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    raise("the audit has no way to hear its child");
  }
  Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);
  const pid_t child = fork();
  if (child < 0) {
    raise("the audit could not start its child");
  }
  if (child == 0) {
    verifyAll(engine, routes, position, pages, theirs.number());
  }
  theirs.close();
  const std::string words = lastWords(ours.number());
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      raise("the audit has lost its child");
    }
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return std::nullopt;
  }
  return verdictOf(words, status);
}

}  // namespace

std::size_t verifyRoutes(const Tarnlet::LpmSm& engine,
                         Routes routes,
                         const std::function<bool(std::size_t, const RouteVerdict&)>& failed) {
  SharedNumber position;
  const long pages = pagesPerChild();
  while (*position < routes.size()) {
    const std::optional<RouteVerdict> verdict = verifyInChild(engine, routes, *position, pages);
    if (verdict) {
      const std::size_t at = (*position)++;
      if (!failed(at, *verdict)) {
        break;
      }
    }
  }
  return *position;
}

std::optional<RouteVerdict> verifyRoute(const Tarnlet::LpmSm& engine,
                                        const Tarnlet::LpmPrefix::Ptr& route) {
  const Tarnlet::LpmPrefix::Ptr* const routes[] = {&route};
  std::optional<RouteVerdict> result;
  verifyRoutes(engine, routes, [&result](std::size_t, const RouteVerdict& verdict) {
    result = verdict;
    return false;
  });
  return result;
}

}  // namespace Quarle::Agent
