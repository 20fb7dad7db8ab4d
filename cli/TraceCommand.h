#pragma once

#include <string>

namespace CLI {
class App;
}

namespace Quarle::Cli {

/// What `tarnlet trace` is asked to do.
struct TraceOptions {
  std::string file;
  bool follow = false;
  bool json = false;
};

/// Gives `app` the options of `trace`, which are read into `options`.
void addTraceOptions(CLI::App& app, TraceOptions& options);

/// Prints the messages of a trace file, the oldest first; when it is to follow the file, until the
/// process is ended from outside. Raises `Ferrix::TraceError`, and `std::runtime_error` when the
/// standard output cannot be written.
void runTrace(const TraceOptions& options);

/// Has the process trace to the file that the variable TARNLET_TRACE_FILE names, if it is set.
/// Raises `Ferrix::TraceError`.
void traceToEnvironmentFile();

}  // namespace Quarle::Cli
