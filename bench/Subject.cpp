#include "bench/Subject.h"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace Quarle::Bench {

namespace {

using Agent::Family;
using Json = nlohmann::ordered_json;

constexpr int kUnusable = 2;

/// What a phase took, read twice and subtracted.
struct Usage {
  double seconds = 0;
  double cpuSeconds = 0;
  std::int64_t pageFaults = 0;
  std::int64_t preemptions = 0;

  static Usage now() {
    const auto secondsOf = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto clock = std::chrono::steady_clock::now().time_since_epoch();
    return {.seconds = std::chrono::duration<double>(clock).count(),
            .cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime),
            .pageFaults = usage.ru_minflt,
            .preemptions = usage.ru_nivcsw};
  }

  Usage operator-(const Usage& before) const {
    return {.seconds = seconds - before.seconds,
            .cpuSeconds = cpuSeconds - before.cpuSeconds,
            .pageFaults = pageFaults - before.pageFaults,
            .preemptions = preemptions - before.preemptions};
  }
};

/// One load: a subject, and the lines that tell of its phases.
class Load {
 public:
  Load(const char* name,
       Order order,
       Family family,
       const std::vector<WorkRoute>& routes,
       bool withCounts)
      : name_(name), order_(order), family_(family), routes_(routes), withCounts_(withCounts) {}

  void run(const MakeSubject& makeSubject) {
    const std::unique_ptr<Subject> subject = makeSubject(family_, routes_);
    const auto keep = [](const WorkRoute& route) { return std::optional<U8>(route.nextHop); };
    const auto change = [](const WorkRoute& route) {
      return std::optional<U8>(route.updatedNextHop());
    };
    const auto none = [](const WorkRoute&) { return std::optional<U8>(); };
    phase(
        "insert", *subject, [&](std::size_t i) { subject->insert(i, routes_[i].nextHop); }, keep);
    phase(
        "update", *subject, [&](std::size_t i) { subject->update(i, routes_[i].updatedNextHop()); },
        change);
    phase(
        "delete", *subject, [&](std::size_t i) { subject->remove(i); }, none);
  }

 private:
  template <typename RequestOne, typename Wanted>
  void phase(const char* op, Subject& subject, const RequestOne& requestOne, const Wanted& wanted) {
    const Usage before = Usage::now();
    for (std::size_t i = 0; i < routes_.size(); ++i) {
      requestOne(i);
    }
    subject.finish();
    const Usage used = Usage::now() - before;
    const std::int64_t bytes = subject.bytes();
    print(op, subject, used, bytes, countUnserved(subject, wanted));
  }

  template <typename Wanted>
  U64 countUnserved(Subject& subject, const Wanted& wanted) {
    subject.prepareCheck();
    U64 unserved = 0;
    for (std::size_t i = 0; i < routes_.size(); ++i) {
      unserved += subject.leadsTo(i, wanted(routes_[i])) ? 0 : 1;
    }
    return unserved;
  }

  void print(const char* op,
             const Subject& subject,
             const Usage& used,
             std::int64_t bytes,
             U64 unserved) const {
    const auto count = static_cast<double>(routes_.size());
    Json line = {
        {"name", name_},
        {"family", family_ == Family::ipv4 ? "ipv4" : "ipv6"},
        {"op", op},
        {"order", toText(order_)},
        {"routes", routes_.size()},
        {"seconds", used.seconds},
        {"rate", used.seconds > 0 ? std::round(count / used.seconds) : 0},
        {"bytes_per_route", count > 0 ? std::round(static_cast<double>(bytes) / count) : 0},
        {"cpu_seconds", used.cpuSeconds},
        {"unserved", unserved}};
    if (withCounts_) {
      line["page_faults"] = used.pageFaults;
      line["preemptions"] = used.preemptions;
      subject.report(line);
    }
    std::printf("%s\n", line.dump().c_str());
    std::fflush(stdout);
  }

  const char* name_;
  Order order_;
  Family family_;
  const std::vector<WorkRoute>& routes_;
  bool withCounts_;
};

int fail(const char* name, const std::string& text) {
  std::fprintf(stderr, "%s: %s\n", name, text.c_str());
  return kUnusable;
}

/// What `body` yields, from a process of its own.
int inChild(const char* name, const std::function<int()>& body) {
  const pid_t child = fork();
  if (child < 0) {
    return fail(name, "no process can be made for the load");
  }
  if (child == 0) {
    const int code = body();
    std::fflush(stdout);
    _exit(code);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status)) {
    return fail(name, "the load ended with signal " + std::to_string(WTERMSIG(status)));
  }
  return WEXITSTATUS(status);
}

}  // namespace

std::int64_t Subject::bytes() const { return heapInUse() - heapBefore_; }

std::int64_t Subject::heapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<std::int64_t>(info.uordblks + info.hblkhd);
}

int runLoads(const char* name,
             const WorkloadOptions& options,
             const Workload& workload,
             const MakeSubject& makeSubject,
             bool withCounts) {
  int code = 0;
  const bool single = options.repeat == 1 && options.families.size() == 1;
  for (U32 round = 0; round < options.repeat && code == 0; ++round) {
    for (const Family family : options.families) {
      const auto load = [&]() -> int {
        try {
          Load(name, options.order, family, workload.routes(family), withCounts).run(makeSubject);
          return 0;
        } catch (const std::exception& error) {
          return fail(name, error.what());
        }
      };
      code = single ? load() : inChild(name, load);
      if (code != 0) {
        break;
      }
    }
  }
  return code;
}

int runProgram(const char* name, CLI::App& app, int argc, char** argv, std::function<int()> run) {
  try {
    app.parse(argc, argv);
    return run();
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return app.exit(error);
    }
    return fail(name, error.what());
  } catch (const std::exception& error) {
    return fail(name, error.what());
  }
}

}  // namespace Quarle::Bench
