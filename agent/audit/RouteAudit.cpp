#include "agent/audit/RouteAudit.h"

#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>

#include "agent/audit/ForkedCall.h"
#include "framework/Vellor/Prefetch.h"

namespace Quarle::Agent {

namespace {

using Routes = std::span<const Tarnlet::LpmPrefix::Ptr* const>;

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
      throw std::system_error(errno, std::generic_category(),
                              "the audit has no page to share with its child");
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

/// Asks the memory for what the audit of a route looks up first: in a large table each of these is
/// a cache miss.
class RouteLookAhead {
 public:
  RouteLookAhead(const Tarnlet::LpmSm& engine, Routes routes) : engine_(engine), routes_(routes) {}

  /// Before the audit of the route at `position`.
  void at(std::size_t position) const {
    constexpr std::size_t kFar = 16;
    constexpr std::size_t kNear = 8;
    if (position + kFar >= routes_.size()) {
      return;
    }
    Vellor::prefetch(routes_[position + kFar]->get());
    const Tarnlet::LpmPrefix::Ptr& near = *routes_[position + kNear];
    if (const auto* member = engine_.prefixToSubTrieCollection().find(near)) {
      Vellor::prefetch(member->value.get());
    }
  }

 private:
  const Tarnlet::LpmSm& engine_;
  const Routes routes_;
};

/// In a child: audits routes from `position` on, which stays at the one that fails, until all are
/// done or the child has copied this many pages.
void verifyFrom(const Tarnlet::LpmSm& engine,
                Routes routes,
                std::atomic<U64>& position,
                long pages) {
  constexpr U64 kRoutesBetweenLooks = 64;
  const long enough = pagesCopied() + pages;
  const RouteLookAhead ahead(engine, routes);
  while (position < routes.size()) {
    ahead.at(position);
    engine.verifyLpmRoute(*routes[position]);
    if (++position % kRoutesBetweenLooks == 0 && pagesCopied() > enough) {
      return;
    }
  }
}

RouteVerdict verdictOf(const ForkedCall& call) {
  const std::string_view words = call.words;
  // Every label brings a blank of its own, which no condition has there.
  const std::size_t end = words.find(")  ");
  if (!words.starts_with(kFailedCondition) || end == words.npos) {
    return {.condition = call.ending.empty() ? "ended by an exception" : call.ending,
            .context = call.words};
  }
  const std::size_t begin = kFailedCondition.size();
  return {.condition = std::string(words.substr(begin, end - begin)),
          .context = std::string(words.substr(end + 3))};
}

}  // namespace

std::size_t verifyRoutes(const Tarnlet::LpmSm& engine,
                         Routes routes,
                         const std::function<bool(std::size_t, const RouteVerdict&)>& failed) {
  SharedNumber position;
  const long pages = pagesPerChild();
  while (*position < routes.size()) {
    const ForkedCall child = callForked([&] { verifyFrom(engine, routes, *position, pages); });
    if (!child.returned()) {
      const std::size_t at = (*position)++;
      if (!failed(at, verdictOf(child))) {
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
