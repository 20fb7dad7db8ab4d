#include "cli/TraceCommand.h"

#include "framework/Ferrix/Ferrix.h"
#include "framework/Ferrix/TraceReader.h"

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <thread>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace Quarle::Cli {

namespace {

constexpr std::chrono::milliseconds kPause{100};

/// "2026-11-21T17:00:00.123456789Z".
std::string timeText(std::uint64_t nanoseconds) {
  using std::chrono::floor;
  const std::chrono::sys_time<std::chrono::nanoseconds> time{
      std::chrono::nanoseconds(static_cast<std::int64_t>(nanoseconds))};
  const auto day = floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%09" PRId64 "Z",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()),
                static_cast<std::int64_t>(clock.subseconds().count()));
  return text;
}

/// A message keeps to its line, whatever texts it holds.
std::string inOneLine(const std::string& text) {
  std::string line;
  for (const char letter : text) {
    if (letter == '\n') {
      line += "\\n";
    } else if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7f') {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(letter));
      line += escaped;
    } else {
      line += letter;
    }
  }
  return line;
}

std::string lineOf(const Ferrix::TraceMessage& message) {
  return timeText(message.time) + " " + message.file + ":" + std::to_string(message.line) + ": " +
         inOneLine(message.text) + "\n";
}

std::string jsonOf(const Ferrix::TraceMessage& message) {
  const nlohmann::ordered_json object = {
      {"time", timeText(message.time)}, {"file", message.file}, {"line", message.line},
      {"missed", message.missed},       {"text", message.text},
  };
  // A text that was cut may end within a letter.
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void print(const std::string& line) {
  if (std::fputs(line.c_str(), stdout) == EOF) {
    throw std::runtime_error("standard output: cannot be written");
  }
}

void flush() {
  if (std::fflush(stdout) != 0) {
    throw std::runtime_error("standard output: cannot be written");
  }
}

void printNew(const TraceOptions& options, Ferrix::TraceReader& reader) {
  while (const std::optional<Ferrix::TraceMessage> message = reader.next()) {
    if (message->missed != 0) {
      std::fprintf(stderr,
                   "%s: %u missing here: overwritten before they were read, or never finished\n",
                   options.file.c_str(), message->missed);
    }
    print(options.json ? jsonOf(*message) : lineOf(*message));
  }
  flush();
}

}  // namespace

void addTraceOptions(CLI::App& app, TraceOptions& options) {
  app.add_option("FILE", options.file, "A file that a process traces to, or has traced to")
      ->required();
  app.add_flag("--json", options.json, "Print one JSON object a line");
  app.add_flag("--follow", options.follow, "Go on with what is written, until interrupted");
  app.footer(
      "A process of this command traces to the file that TARNLET_TRACE_FILE names: it is made "
      "when\n"
      "there is none, and continued otherwise. It keeps the newest messages.");
}

void runTrace(const TraceOptions& options) {
  Ferrix::TraceReader reader(options.file);
  try {
    printNew(options, reader);
    while (options.follow) {
      std::this_thread::sleep_for(kPause);
      printNew(options, reader);
    }
  } catch (...) {
    // What could be read stands before the line that tells why the rest could not.
    std::fflush(stdout);
    throw;
  }
  if (reader.undescribed() != 0) {
    std::fprintf(stderr, "%s: %" PRIu64 " left out: their descriptions found no room\n",
                 options.file.c_str(), reader.undescribed());
  }
}

void traceToEnvironmentFile() {
  const char* path = std::getenv("TARNLET_TRACE_FILE");
  if (path != nullptr && *path != '\0') {
    Ferrix::traceFileIs(path);
  }
}

}  // namespace Quarle::Cli
