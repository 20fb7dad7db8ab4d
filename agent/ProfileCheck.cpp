#include "agent/ProfileCheck.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <string_view>

#include "agent/TileWindow.h"

namespace Quarle::Agent {

namespace {

using Tarnlet::ConfigBase;
using Tarnlet::kVrfBits;
using Tarnlet::PrefixTableConfig;

bool isIpv6(const ConfigBase& config) {
  return config.addressFamily() == Corsel::AddressFamily::ipv6;
}

U32 addressLength(const ConfigBase& config) { return isIpv6(config) ? 128 : 32; }

std::string number(U32 value) { return std::to_string(value); }

std::string length(U32 value) { return "/" + std::to_string(value); }

std::string table(const PrefixTableConfig& table) {
  return "prefix table " + number(table.tableId().value());
}

/// By rising id: the collection's own order says nothing to a reader.
std::vector<const PrefixTableConfig*> tablesOf(const ConfigBase& config) {
  std::vector<const PrefixTableConfig*> tables;
  for (const auto& member : config.prefixTableConfigCollection()) {
    tables.push_back(member.value.get());
  }
  std::sort(tables.begin(), tables.end(),
            [](const PrefixTableConfig* a, const PrefixTableConfig* b) {
              return a->tableId().value() < b->tableId().value();
            });
  return tables;
}

U32 leastTread(const ConfigBase& config, U32 keyBits) {
  return config.leastTreadForPrefixLen(static_cast<U8>(keyBits));
}

bool mayTake(const ConfigBase& config, const PrefixTableConfig& table, U32 keyBits) {
  return table.tread() >= leastTread(config, keyBits) && table.tread() <= keyBits;
}

class Check {
 public:
  Check(const ConfigBase& config, U32 maxLength)
      : config_(config), maxLength_(maxLength), tables_(tablesOf(config)) {}

  std::vector<std::string> run() {
    if (checkKey()) {
      checkTables();
      checkLengths();
    }
    if (checkPairs()) {
      checkBlockLimit();
    }
    checkTiles();
    return std::move(faults_);
  }

 private:
  /// `expected` ends every line.
  void fault(const std::string& what, const std::string& expected) {
    faults_.push_back(std::string(isIpv6(config_) ? "IPv6" : "IPv4") + ": " + what + ", expected " +
                      expected);
  }

  bool checkKey() {
    const U32 keyLength = addressLength(config_) + kVrfBits;
    if (config_.keyLength() != keyLength) {
      fault("keys of " + number(config_.keyLength()) + " bits", number(keyLength));
      return false;
    }
    if (config_.leastTreadForPrefixLens() != keyLength + 1) {
      fault("least treads for " + number(config_.leastTreadForPrefixLens()) + " lengths",
            "one for each of " + number(keyLength + 1));
      return false;
    }
    if (maxLength_ > addressLength(config_)) {
      fault("prefixes up to " + length(maxLength_),
            "none longer than " + length(addressLength(config_)));
      return false;
    }
    return true;
  }

  void checkTables() {
    std::map<U32, const PrefixTableConfig*> byTread;
    for (const PrefixTableConfig* each : tables_) {
      if (each->depth() == 0) {
        fault(table(*each) + " has no rows", "at least 1");
      }
      const PrefixTableConfig& first = *byTread.emplace(each->tread(), each).first->second;
      if (first.entrySize() != each->entrySize()) {
        fault("tables of tread " + number(each->tread()) + " exchange rows, but those of " +
                  table(first) + " hold " + number(first.entrySize()) + " bits and those of " +
                  table(*each) + " " + number(each->entrySize()),
              "one width");
      }
    }
    const auto& strides = config_.availableStrideCollection();
    if (strides.lowerBound(1) == strides.end()) {
      fault("no stride is offered", "at least one");
    }
  }

  /// One line for the shortest length without a table, one for each table that is too narrow.
  void checkLengths() {
    bool allTaken = true;
    std::vector<const PrefixTableConfig*> tooNarrow;
    for (U32 each = 0; each <= maxLength_; ++each) {
      const U32 keyBits = each + kVrfBits;
      bool taken = false;
      for (const PrefixTableConfig* candidate : tables_) {
        if (!mayTake(config_, *candidate, keyBits)) {
          continue;
        }
        taken = true;
        if (candidate->entrySize() < keyBits &&
            std::find(tooNarrow.begin(), tooNarrow.end(), candidate) == tooNarrow.end()) {
          tooNarrow.push_back(candidate);
          fault(table(*candidate) + " may be asked to take a " + length(each) + ", a key of " +
                    number(keyBits) + " bits, with rows that hold " +
                    number(candidate->entrySize()),
                atMost());
        }
      }
      if (!taken && allTaken) {
        allTaken = false;
        fault("no prefix table may take a " + length(each) + ", that is, has a tread from " +
                  number(leastTread(config_, keyBits)) + " to " + number(keyBits),
              atMost());
      }
    }
  }

  std::string atMost() const {
    const std::optional<U8> longest = longestServedLength(config_);
    return longest ? "prefixes up to " + length(*longest) + " at the most"
                   : "a table for every length from /0 on";
  }

  /// Whether blocks can be measured.
  bool checkPairs() {
    const U32 pairs = config_.nhiPairPerEntry();
    if (pairs != 6 && pairs != 7 && pairs != 8 && pairs != 10) {
      fault("NHI entries of " + number(pairs) + " pairs", "6, 7, 8 or 10");
      return false;
    }
    // The widths as the library has them would end the process for a base that is too wide.
    const U32 pairWidth = pairs == 6 ? 21 : pairs == 7 ? 18 : pairs == 8 ? 16 : 12;
    const U32 baseWidth = config_.nhiBlockBaseWidth();
    if (baseWidth == 0 || baseWidth >= pairWidth) {
      fault("NHI pairs of " + number(pairWidth) + " bits with " + number(baseWidth) +
                " of them for the base of a next-hop block",
            "1 to " + number(pairWidth - 1) + ", so that a size has room beside it");
    }
    return true;
  }

  void checkBlockLimit() {
    const char* text = std::getenv("NHI_MAX_BLOCK_SIZE");
    if (text == nullptr) {
      return;
    }
    const U32 needed = largestNhiBlock(config_);
    const std::string_view view(text);
    U32 limit = 0;
    const auto [end, error] = std::from_chars(view.begin(), view.end(), limit);
    if (error != std::errc() || end != view.end() || limit < needed) {
      fault("NHI_MAX_BLOCK_SIZE in the environment is \"" + std::string(view) + "\"",
            "a number of at least " + number(needed) + " entries, which a row can need");
    }
  }

  void checkTiles() {
    if (config_.nhiAvailableTiles() == 0) {
      fault("0 NHI tiles" + override("NUMBER_OF_NHI_TILES"), "at least 1");
    }
    if (config_.nhiEntriesPerTile() == 0) {
      fault("NHI tiles of 0 entries" + override("NHI_TABLE_SIZE"), "at least 1");
    }
  }

  /// Where a number comes from that the environment overrides.
  static std::string override(const char* variable) {
    const char* text = std::getenv(variable);
    return text == nullptr
               ? ""
               : std::string(" by ") + variable + "=\"" + text + "\" in the environment";
  }

  const ConfigBase& config_;
  const U32 maxLength_;
  const std::vector<const PrefixTableConfig*> tables_;
  std::vector<std::string> faults_;
};

}  // namespace

std::vector<std::string> profileFaults(const ConfigBase& config, U8 maxLength) {
  return Check(config, maxLength).run();
}

void checkProfile(const ConfigBase& config, U8 maxLength) {
  const std::vector<std::string> faults = profileFaults(config, maxLength);
  if (!faults.empty()) {
    throw ProfileError(faults.front());
  }
}

bool servesLength(const ConfigBase& config, U32 length) {
  const U32 keyBits = length + kVrfBits;
  if (keyBits > config.keyLength()) {
    return false;
  }
  bool taken = false;
  for (const auto& member : config.prefixTableConfigCollection()) {
    if (mayTake(config, *member.value, keyBits)) {
      if (member.value->entrySize() < keyBits) {
        return false;
      }
      taken = true;
    }
  }
  return taken;
}

std::optional<U8> longestServedLength(const ConfigBase& config) {
  std::optional<U8> longest;
  for (U32 length = 0; servesLength(config, length); ++length) {
    longest = static_cast<U8>(length);
  }
  return longest;
}

}  // namespace Quarle::Agent
