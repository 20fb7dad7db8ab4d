// Text routing tables. A full table has a million lines and a few hundred different lists of next
// hops, so a list is parsed when its text comes up for the first time and found by its text from
// then on. Everything about one line is decided before the table changes: a line counts whole or
// not at all.

#include "agent/source/RibFile.h"

#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "agent/source/InputFile.h"
#include "agent/source/RouteText.h"

namespace Quarle::Agent {

namespace {

// A file without line ends, such as a binary one, must not be gathered in memory.
constexpr std::size_t kLongestLine = 64 * 1024;

constexpr std::string_view kBlanks = " \t\r";

/// Cuts the next field off the front of `rest`; empty when there is none.
std::string_view cutField(std::string_view& rest) {
  const std::size_t begin = rest.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    rest = {};
    return {};
  }
  rest.remove_prefix(begin);
  const std::string_view field = rest.substr(0, rest.find_first_of(kBlanks));
  rest.remove_prefix(field.size());
  return field;
}

/// Lets a map of strings be searched without making one.
struct TextHash {
  using is_transparent = void;

  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};

/// Takes the lines of one file and builds its table. Used by `loadRibFile` alone.
class TextRib {
 public:
  TextRib(std::string name, const RibOptions& options)
      : name_(std::move(name)), options_(options) {}

  void takeLine(std::string_view line) {
    ++report_.lines;
    line = line.substr(0, line.find('#'));
    const std::string_view field = cutField(line);
    if (field.empty()) {
      return;
    }
    const Parsed<RoutePrefix> prefix = parsePrefix(field);
    if (!prefix.ok()) {
      refuse(prefix.fault);
      return;
    }
    const std::optional<std::uint32_t> nextHopSet = nextHopSetOf(line);
    if (nextHopSet && !builder_.routeIs(prefix.value, *nextHopSet)) {
      ++report_.duplicates;
    }
  }

  void takeOverlongLine() {
    ++report_.lines;
    refuse("line is longer than " + std::to_string(kLongestLine) +
           " bytes, expected prefix[ nexthop...]");
  }

  RibLoad finish() { return {.table = builder_.finish(), .report = std::move(report_)}; }

 private:
  /// The id of the next hops listed in `text`, nothing when one of them is bad.
  std::optional<std::uint32_t> nextHopSetOf(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
      return 0;
    }
    text = text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
    const auto known = idByText_.find(text);
    if (known != idByText_.end()) {
      return known->second;
    }
    std::vector<IpAddress> nextHops;
    std::string_view rest = text;
    for (std::string_view field = cutField(rest); !field.empty(); field = cutField(rest)) {
      const Parsed<IpAddress> nextHop = parseAddress(field);
      if (!nextHop.ok()) {
        refuse("next hop " + nextHop.fault);
        return std::nullopt;
      }
      nextHops.push_back(nextHop.value);
    }
    const std::uint32_t id = builder_.nextHopSets().idOf(nextHops);
    idByText_.emplace(text, id);
    return id;
  }

  void refuse(const std::string& fault) {
    const std::string message = name_ + ":" + std::to_string(report_.lines) + ": " + fault;
    if (options_.strict) {
      throw RibError(message);
    }
    ++report_.badLines;
    if (report_.faults.size() < options_.faultsKept) {
      report_.faults.push_back(message);
    }
  }

  std::string name_;
  const RibOptions& options_;
  RouteTableBuilder builder_;
  RibReport report_;
  std::unordered_map<std::string, std::uint32_t, TextHash, std::equal_to<>> idByText_;
};

/// Parts a stream of blocks into lines; a line that spans blocks is gathered on the way.
class LineSplitter {
 public:
  explicit LineSplitter(TextRib& rib) : rib_(rib) {}

  void takeBlock(std::string_view block) {
    for (std::size_t end = block.find('\n'); end != std::string_view::npos;
         end = block.find('\n')) {
      endLine(block.substr(0, end));
      block.remove_prefix(end + 1);
    }
    keep(block);
  }

  /// The last line may lack its line end.
  void takeEnd() {
    if (!begun_.empty() || overlong_) {
      endLine({});
    }
  }

 private:
  void endLine(std::string_view part) {
    if (overlong_ || begun_.size() + part.size() > kLongestLine) {
      rib_.takeOverlongLine();
    } else if (begun_.empty()) {
      rib_.takeLine(part);
    } else {
      begun_ += part;
      rib_.takeLine(begun_);
    }
    begun_.clear();
    overlong_ = false;
  }

  void keep(std::string_view part) {
    overlong_ = overlong_ || begun_.size() + part.size() > kLongestLine;
    if (overlong_) {
      begun_.clear();
    } else {
      begun_ += part;
    }
  }

  TextRib& rib_;
  std::string begun_;
  bool overlong_ = false;
};

}  // namespace

RibLoad loadRibFile(const std::filesystem::path& path, const RibOptions& options) {
  InputFile file(path);
  TextRib rib(path.string(), options);
  LineSplitter lines(rib);
  std::string_view block;
  do {
    block = file.nextBlock();
    lines.takeBlock(block);
    if (options.progress) {
      options.progress(file.bytesRead(), file.bytesTotal());
    }
  } while (!block.empty());
  lines.takeEnd();
  return rib.finish();
}

}  // namespace Quarle::Agent
