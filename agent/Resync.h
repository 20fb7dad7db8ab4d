#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "agent/Answer.h"
#include "agent/RouteKey.h"
#include "model/LpmPrefix.h"

namespace Quarle::Agent {

/// What a resynchronisation has found in one family.
struct ResyncCounts {
  // Claimed, and leading there already.
  U64 unchanged = 0;
  // Claimed, and leading elsewhere now.
  U64 changed = 0;
  // Requested and not on the chip before.
  U64 added = 0;
  // Requested in vain: on the chip as before, or not at all.
  U64 refused = 0;
  // By the caller, or because nobody claimed them.
  U64 withdrawn = 0;
  // Claimed by nobody, and on the list of refused until there is room to take them out.
  U64 waiting = 0;

  bool operator==(const ResyncCounts&) const = default;
};

/// A set of prefix objects: a word for each and nothing else, since a full table is in it for as
/// long as a resynchronisation takes.
class PrefixMarks {
 public:
  /// Room for `most` prefixes.
  explicit PrefixMarks(U64 most);

  /// REQUIRES: fewer than `most` were inserted, and not this one.
  void insert(const Tarnlet::LpmPrefix* prefix);

  bool contains(const Tarnlet::LpmPrefix* prefix) const {
    return places_[placeOf(prefix)] == wordOf(prefix);
  }

  /// Whether it was there.
  bool erase(const Tarnlet::LpmPrefix* prefix);

 private:
  static constexpr std::uintptr_t kEmpty = 0;
  // No object's address. Searches go on behind it.
  static constexpr std::uintptr_t kErased = 1;

  static std::uintptr_t wordOf(const Tarnlet::LpmPrefix* prefix) {
    return reinterpret_cast<std::uintptr_t>(prefix);
  }

  /// Where the prefix stands, or where the search for it ends.
  U64 placeOf(const Tarnlet::LpmPrefix* prefix) const;

  // Each a prefix, empty or erased.
  std::vector<std::uintptr_t> places_;
};

/// The state of one family between the begin of a resynchronisation and its end.
struct Resync {
  explicit Resync(U64 routes) : marks(routes) {}

  void count(const Answer& answer, ResyncCounts& counts) const;

  // Installed routes that nobody has claimed yet.
  PrefixMarks marks;
  // Routes with a wish that nobody has claimed yet.
  std::unordered_set<RouteKey, RouteKeyHash> wishes;
  // Whether the end has begun; then `leaving` are those still to be looked at, the next one last.
  bool isEnding = false;
  std::vector<RouteKey> leaving;
};

}  // namespace Quarle::Agent
