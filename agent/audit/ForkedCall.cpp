// What the library says on its standard error stream must come back without the trace lines that
// may stand around it, and without the assertion's own line, which follows with no line end between
// them. So the child's stream is a socket that keeps each write apart.

#include "agent/audit/ForkedCall.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <string_view>
#include <system_error>
#include <utility>

namespace Quarle::Agent {

namespace {

constexpr int kReturned = 0;
constexpr int kRaised = 1;

// Bytes of what a child writes that are kept.
constexpr std::size_t kMostTold = 1 << 20;

[[noreturn]] void raise(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// A descriptor that is closed with its owner.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}

  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

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

/// The child's whole life.
[[noreturn]] void live(const std::function<void()>& call, int stream) {
  const rlimit noCore{};
  setrlimit(RLIMIT_CORE, &noCore);
  // Whatever the caller does at its own end is not for the child.
  for (const int end : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    std::signal(end, SIG_DFL);
  }
  dup2(stream, STDERR_FILENO);
  dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
  try {
    call();
  } catch (const std::exception& misuse) {
    const std::string text = misuse.what() + std::string("\n");
    [[maybe_unused]] const ssize_t size = write(stream, text.data(), text.size());
    _exit(kRaised);
  }
  _exit(kReturned);
}

/// What a child has written.
struct Heard {
  // Up to the line on a failed condition, or all of it.
  std::string told;
  // That line, or else the last write.
  std::string last;
  bool hasFailed = false;
};

/// Reads until the child is gone.
Heard hear(int stream) {
  Heard heard;
  std::array<char, 16384> buffer;
  for (;;) {
    const ssize_t size = read(stream, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size <= 0) {
      return heard;
    }
    if (heard.hasFailed) {
      continue;
    }
    heard.last.assign(buffer.data(), static_cast<std::size_t>(size));
    heard.hasFailed = heard.last.starts_with(kFailedCondition);
    heard.told += heard.hasFailed ? "" : heard.last;
    if (heard.told.size() > 2 * kMostTold) {
      heard.told.erase(0, heard.told.size() - kMostTold);
    }
  }
}

std::string trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \n");
  return first == text.npos
             ? std::string()
             : std::string(text.substr(first, text.find_last_not_of(" \n") - first + 1));
}

std::string inOneLine(std::string_view text) {
  std::string line = trimmed(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

std::string lastLine(std::string_view text) {
  const std::string all = trimmed(text);
  return all.substr(all.rfind('\n') + 1);
}

std::string endOf(int status) {
  if (WIFSIGNALED(status)) {
    return "ended by signal " + std::to_string(WTERMSIG(status)) + ", " +
           strsignal(WTERMSIG(status));
  }
  return "ended with exit code " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::string ForkedCall::reason() const {
  const bool isTold = end == End::raised || words.starts_with(kFailedCondition) ||
                      words.find("Assertion `") != words.npos;
  if (isTold) {
    return words;
  }
  return words.empty() ? ending : ending + ": " + words;
}

ForkedCall callForked(const std::function<void()>& call) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    raise("there is no way to hear a child process");
  }
  Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);
  const pid_t child = fork();
  if (child < 0) {
    raise("there can be no child process");
  }
  if (child == 0) {
    live(call, theirs.number());
  }
  theirs.close();
  Heard heard = hear(ours.number());
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      raise("a child process is lost");
    }
  }
  using End = ForkedCall::End;
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (code == kReturned) {
    return {.end = End::returned, .words = {}, .ending = {}, .told = std::move(heard.told)};
  }
  if (code == kRaised) {
    heard.told.resize(heard.told.size() - (heard.hasFailed ? 0 : heard.last.size()));
    return {.end = End::raised,
            .words = inOneLine(heard.last),
            .ending = {},
            .told = std::move(heard.told)};
  }
  return {.end = End::died,
          .words = heard.hasFailed ? inOneLine(heard.last) : lastLine(heard.told),
          .ending = endOf(status),
          .told = std::move(heard.told)};
}

}  // namespace Quarle::Agent
