#include "xdksim/Damage.h"

#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <utility>

namespace XdkSim {

std::vector<RowPlace> usedRows(const Chip& chip) {
  std::vector<RowPlace> rows = chip.memory().layout().rows();
  std::erase_if(rows, [&chip](const RowPlace& place) {
    return std::ranges::all_of(chip.memory().row(place), [](U64 word) { return word == 0; });
  });
  return rows;
}

std::vector<RowPlace> usedRows(const Chip& chip, RowKind kind, Family family) {
  std::vector<RowPlace> rows = usedRows(chip);
  std::erase_if(rows, [kind, family](const RowPlace& place) {
    return place.kind != kind || place.family != family;
  });
  return rows;
}

void flipBit(Chip& chip, const RowBit& bit) {
  chip.memory().row(bit.place)[bit.bit / 64] ^= U64{1} << bit.bit % 64;
  chip.memoryChanged(bit.place);
}

std::vector<RowBit> flipRandomBits(Chip& chip,
                                   std::span<const RowPlace> rows,
                                   U32 count,
                                   U64 seed) {
  std::mt19937_64 random(seed);
  std::vector<RowBit> flipped;
  std::set<std::pair<std::size_t, U32>> drawn;
  while (flipped.size() < count) {
    const std::size_t index = random() % rows.size();
    const auto bits = static_cast<U32>(chip.memory().row(rows[index]).size() * 64);
    const auto bit = static_cast<U32>(random() % bits);
    if (drawn.emplace(index, bit).second) {
      flipped.push_back({.place = rows[index], .bit = bit});
      flipBit(chip, flipped.back());
    }
  }
  return flipped;
}

XP_STATUS writeHalf(Chip& chip,
                    const RowPlace& place,
                    U32 newWords,
                    const std::function<XP_STATUS()>& write) {
  const std::span<U64> row = chip.memory().row(place);
  std::array<U64, ChipLayout::kMaxRowWords> before;
  std::copy(row.begin(), row.end(), before.begin());
  const XP_STATUS status = write();
  for (std::size_t word = 0; word < row.size(); ++word) {
    if ((newWords >> word & 1) == 0) {
      row[word] = before[word];
    }
  }
  chip.memoryChanged(place);
  return status;
}

}  // namespace XdkSim
