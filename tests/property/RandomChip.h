#pragma once

#include <string>
#include <vector>

#include "tests/support/ChipShape.h"

#include <rapidcheck.h>

namespace Quarle::Tarnlet::Testing {

/// What a client does next, for the prefix of a number.
struct Operation {
  enum class Kind : U8 { route, withdraw, notify };

  Kind kind = Kind::route;
  U32 prefix = 0;
  U32 hop = 0;
  // A refused update is taken back at once, or left standing ahead of the chip.
  bool takesBack = true;
};

/// A chip so small that everything collides, fills up and falls into pieces.
struct RandomChip {
  ChipShape shape;
  // What an operation's numbers choose from, modulo their count.
  std::vector<Key> prefixes;
  U32 hops = 1;
};

rc::Gen<RandomChip> randomChip(bool longKey);

/// Blocks of several entries in a tile that is nearly full: it is compacted again and again.
rc::Gen<RandomChip> crowdedChip();

/// Many tiles with room for everything in each of them.
rc::Gen<RandomChip> roomyChip();

rc::Gen<std::vector<Operation>> randomOperations(U32 most);

std::string textOf(const RandomChip& chip, const Operation& operation);

std::ostream& operator<<(std::ostream& stream, const Operation& operation);
std::ostream& operator<<(std::ostream& stream, const RandomChip& chip);

}  // namespace Quarle::Tarnlet::Testing
