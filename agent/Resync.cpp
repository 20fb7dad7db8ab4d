#include "agent/Resync.h"

#include <bit>

#include "agent/source/Random.h"

namespace Quarle::Agent {

PrefixMarks::PrefixMarks(U64 most) : places_(std::bit_ceil(2 * most + 1)) {}

U64 PrefixMarks::placeOf(const Tarnlet::LpmPrefix* prefix) const {
  const U64 mask = places_.size() - 1;
  const std::uintptr_t word = wordOf(prefix);
  U64 place = mixed(word) & mask;
  while (places_[place] != kEmpty && places_[place] != word) {
    place = (place + 1) & mask;
  }
  return place;
}

void PrefixMarks::insert(const Tarnlet::LpmPrefix* prefix) {
  places_[placeOf(prefix)] = wordOf(prefix);
}

bool PrefixMarks::erase(const Tarnlet::LpmPrefix* prefix) {
  std::uintptr_t& place = places_[placeOf(prefix)];
  if (place == kEmpty) {
    return false;
  }
  place = kErased;
  return true;
}

void Resync::count(const Answer& answer, ResyncCounts& counts) const {
  switch (answer.outcome) {
    case Outcome::placed:
      ++counts.added;
      return;
    case Outcome::updated:
      ++counts.changed;
      return;
    case Outcome::unchanged:
      ++counts.unchanged;
      return;
    case Outcome::withdrawn:
      ++counts.withdrawn;
      return;
    case Outcome::refused:
      ++counts.refused;
      return;
    case Outcome::absent:
      return;
  }
}

}  // namespace Quarle::Agent
