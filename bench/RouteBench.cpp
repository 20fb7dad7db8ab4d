// A whole table through the library or the client: every route inserted, given another next hop and
// deleted, each timed from the request to the empty command queue. Nothing is written to a chip.

#include <string>

#include "bench/OurSubjects.h"

#include <CLI/CLI.hpp>

namespace Quarle::Bench {

namespace {

struct Options {
  WorkloadOptions workload;
  std::string chip = "internet";
  std::string through = "library";
  U32 drainEvery = 1;
  U32 batch = 256;
  bool counts = false;
};

const char* nameOf(const Options& options) {
  return options.through == "library"  ? "tarnlet_library"
         : options.through == "client" ? "tarnlet_client"
                                       : "tarnlet_batches";
}

int run(const Options& options) {
  const Workload workload(options.workload);
  const XdkSim::Chip chip(XdkSim::findProfile(options.chip));
  return runLoads(
      nameOf(options), options.workload, workload,
      [&](Agent::Family family, const std::vector<WorkRoute>& routes) {
        return options.through == "library"
                   ? makeLibrarySubject(chip, family, routes, options.drainEvery)
                   : makeClientSubject(chip, family, routes,
                                       options.through == "batches" ? options.batch : 1);
      },
      options.counts);
}

int main(int argc, char** argv) {
  CLI::App app("Times a routing table through Tarnlet and prints one JSON line for each operation.",
               "RouteBench");
  Options options;
  addWorkloadOptions(app, options.workload);
  app.add_option("--chip", options.chip, "Chip profile: a name or the path of a JSON file")
      ->type_name("PROFILE")
      ->capture_default_str();
  app.add_option("--through", options.through,
                 "What is driven: the library's engine, the client above it route by route, or the "
                 "client by batches")
      ->check(CLI::IsMember({"library", "client", "batches"}))
      ->capture_default_str();
  app.add_option("--drain-every", options.drainEvery,
                 "Requests between two drains of the command queue (library alone)")
      ->type_name("N")
      ->check(CLI::Range(1, 1'000'000'000))
      ->capture_default_str();
  app.add_option("--batch", options.batch, "Changes in one batch (batches alone)")
      ->type_name("N")
      ->check(CLI::Range(1, 1'000'000'000))
      ->capture_default_str();
  app.add_flag("--counts", options.counts,
               "Also page faults, preemptions, and the commands so far by kind");
  return runProgram("RouteBench", app, argc, argv, [&] { return run(options); });
}

}  // namespace

}  // namespace Quarle::Bench

int main(int argc, char** argv) { return Quarle::Bench::main(argc, argv); }
