#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "bench/Workload.h"

#include <nlohmann/json_fwd.hpp>

namespace Quarle::Bench {

/// A keeper of routes under measurement, ours or another. Routes are named by their place in the
/// workload that it was made for, so that each can keep them beforehand in the form it takes.
///
/// Order of calls: `insert` for every route, `finish`, then the same with `update` and `remove`;
/// after each `finish`, untimed, `prepareCheck` and any number of `leadsTo`.
class Subject {
 public:
  Subject() = default;
  Subject(const Subject&) = delete;
  Subject& operator=(const Subject&) = delete;
  virtual ~Subject() = default;

  virtual void insert(std::size_t route, U8 nextHop) = 0;
  virtual void update(std::size_t route, U8 nextHop) = 0;
  virtual void remove(std::size_t route) = 0;

  /// Returns when all that was asked for is done.
  virtual void finish() {}

  /// Bytes that the subject has taken since before it was made, its copy of the workload left out:
  /// by default the growth of the process's heap.
  virtual std::int64_t bytes() const;

  virtual void prepareCheck() {}

  /// Whether the route leads to `nextHop`, or, without one, nowhere.
  virtual bool leadsTo(std::size_t route, std::optional<U8> nextHop) = 0;

  /// What the subject has to tell of itself beside the times, into a result line.
  virtual void report(nlohmann::ordered_json& /*line*/) const {}

 private:
  static std::int64_t heapInUse();

  const std::int64_t heapBefore_ = heapInUse();
};

using MakeSubject = std::function<std::unique_ptr<Subject>(Agent::Family family,
                                                           const std::vector<WorkRoute>& routes)>;

/// Inserts, updates and deletes every route of the workload through a new subject for each family
/// and repetition, and prints one JSON line for each of the three phases.
///
/// Each load has a process of its own, when there are several: what the one before left in the
/// allocators would flatter the next.
///
/// Returns the process's exit code: not 0 when a load's process came to grief.
int runLoads(const char* name,
             const WorkloadOptions& options,
             const Workload& workload,
             const MakeSubject& makeSubject,
             bool withCounts);

/// The `main` of a benchmark of `name`: `run` does the work. A command line or a file that cannot
/// be used ends it with one line and code 2.
int runProgram(const char* name, CLI::App& app, int argc, char** argv, std::function<int()> run);

}  // namespace Quarle::Bench
