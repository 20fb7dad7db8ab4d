#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "agent/source/RouteTable.h"

namespace Quarle::Agent {

struct RibOptions {
  /// A bad line ends the load with a `RibError` instead of being counted.
  bool strict = false;

  /// How many messages of bad lines the report keeps; all are counted.
  std::size_t faultsKept = 10;

  /// Called now and then, and at the end, with bytes of the file read and bytes in all, 0 when
  /// unknown.
  std::function<void(std::uint64_t read, std::uint64_t total)> progress = {};
};

/// What a load met. `lines` = blank and comment lines + good lines + `badLines`.
struct RibReport {
  std::uint64_t lines = 0;
  std::uint64_t badLines = 0;

  /// Good lines whose prefix had come before: the last one's next hops hold.
  std::uint64_t duplicates = 0;

  /// "file:line: what is wrong, expected ..." of the first bad lines.
  std::vector<std::string> faults;
};

struct RibLoad {
  RouteTable table;
  RibReport report;
};

/// Reads a routing table written as text: one route a line, `prefix[ nexthop...]`, fields parted by
/// blanks or tabs; `#` starts a comment; blank lines and CR before the line end do not matter. The
/// file may be compressed, see InputFile.h. A bad line is left out as a whole.
///
/// Raises `RibError` when the file cannot be read to its end, and when `strict` at a bad line.
RibLoad loadRibFile(const std::filesystem::path& path, const RibOptions& options = {});

}  // namespace Quarle::Agent
