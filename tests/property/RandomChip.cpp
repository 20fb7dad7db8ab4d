#include "tests/property/RandomChip.h"

#include <algorithm>
#include <set>

#include "tests/support/CommandText.h"

namespace Quarle::Tarnlet::Testing {

namespace {

using rc::gen::element;

/// Of the whole range from the first case on.
U32 number(U32 low, U32 high) {
  return *rc::gen::resize(rc::kNominalSize, rc::gen::inRange<U32>(low, high + 1));
}

/// Tables of one to three treads, one to three of each. The last, of tread 16, may hold every
/// length.
std::vector<TableShape> tables(bool longKey, bool narrow) {
  std::set<U8> treads = {16};
  for (U32 i = number(1, 3); i > 0; --i) {
    treads.insert(static_cast<U8>(longKey ? number(17, 70) : number(17, 40)));
  }
  std::vector<TableShape> shapes;
  for (const U8 tread : treads) {
    // Sub-tries move between tables of a tread, so these are of one width.
    const PrefixTableType type =
        narrow && number(0, 1) == 0 ? prefixTableNarrow128b : prefixTableWide256b;
    for (U32 i = number(1, 3); i > 0 && shapes.size() < 6; --i) {
      shapes.push_back({.id = static_cast<U8>(shapes.size()),
                        .tread = tread,
                        .depth = number(1, 12),
                        .type = type});
    }
  }
  return shapes;
}

std::vector<U8> strides() {
  switch (number(0, 3)) {
    case 0: {
      std::vector<U8> all;
      for (U8 stride = 1; stride < 48; ++stride) {
        all.push_back(stride);
      }
      return all;
    }
    case 1:
      return {2, 5, 9, 33, 64};
    default:
      return usualStrides();
  }
}

/// Prefixes of which most begin like another one.
std::vector<Key> prefixes(bool longKey, U8 longest) {
  std::vector<Key> keys;
  const U32 count = number(4, 80);
  for (U32 i = 0; i < count; ++i) {
    Key key;
    key.longKey = longKey;
    key.len = static_cast<U8>(number(16, longest));
    U32 from = 14;
    if (!keys.empty() && number(0, 3) != 0) {
      // Like an earlier one, up to some bit.
      const Key& like = keys[number(0, static_cast<U32>(keys.size()) - 1)];
      from = number(14, std::min(like.len, key.len));
      key.bytes = like.cut(static_cast<U8>(from)).bytes;
    }
    for (U32 bit = from; bit < key.len; bit += number(1, 8)) {
      key.bitIs(bit, true);
    }
    keys.push_back(key);
  }
  return keys;
}

RandomChip chip(bool longKey) {
  RandomChip chip;
  const bool narrow = number(0, 1) == 0;
  chip.shape.longKey = longKey;
  chip.shape.tables = tables(longKey, narrow);
  chip.shape.strides = strides();
  // Few pairs make blocks of several entries, which a tile soon holds in pieces.
  chip.shape.pairsPerEntry = *element<U8>(6, 7, 8, 10, 1, 2, 2, 3);
  chip.shape.multiEntry = number(0, 4) != 0;
  chip.shape.entriesPerTile = static_cast<U16>(number(1, 32));
  // A narrow row cannot be asked for a key beyond its width.
  // Few next hops share their blocks, many do not.
  chip.hops = *element<U32>(1, 4, 100, 100);
  chip.prefixes = prefixes(longKey, longKey ? (narrow ? 88 : 144) : 48);
  return chip;
}

}  // namespace

rc::Gen<RandomChip> randomChip(bool longKey) {
  return rc::gen::exec([longKey] { return chip(longKey); });
}

rc::Gen<RandomChip> crowdedChip() {
  return rc::gen::exec([] {
    RandomChip crowded;
    crowded.shape.tables = {{.id = 0, .tread = 20, .depth = number(8, 24)},
                            {.id = 1, .tread = 20, .depth = number(8, 24)}};
    crowded.shape.strides = strides();
    crowded.shape.pairsPerEntry = *element<U8>(1, 2, 3);
    crowded.shape.entriesPerTile = static_cast<U16>(number(8, 20));
    crowded.hops = *element<U32>(8, 100);
    for (U32 i = number(30, 80); i > 0; --i) {
      Key key{.longKey = false, .len = static_cast<U8>(number(21, 28)), .bytes = {}};
      for (U32 bit = 14; bit < key.len; ++bit) {
        key.bitIs(bit, number(0, 2) == 0);
      }
      crowded.prefixes.push_back(key);
    }
    return crowded;
  });
}

rc::Gen<RandomChip> roomyChip() {
  return rc::gen::exec([] {
    RandomChip roomy = chip(number(0, 1) == 0);
    roomy.shape.tiles = static_cast<U8>(number(2, 5));
    roomy.shape.entriesPerTile = 1024;
    return roomy;
  });
}

rc::Gen<std::vector<Operation>> randomOperations(U32 most) {
  const rc::Gen<Operation> one = rc::gen::exec([] {
    Operation operation;
    const U32 kind = number(0, 15);
    operation.kind = kind < 10   ? Operation::Kind::route
                     : kind < 15 ? Operation::Kind::withdraw
                                 : Operation::Kind::notify;
    operation.prefix = number(0, 1000);
    operation.hop = number(0, 1000);
    operation.takesBack = number(0, 2) != 0;
    return operation;
  });
  return rc::gen::resize(static_cast<int>(most), rc::gen::container<std::vector<Operation>>(one));
}

std::string textOf(const RandomChip& chip, const Operation& operation) {
  const std::string prefix = textOf(chip.prefixes[operation.prefix % chip.prefixes.size()]);
  switch (operation.kind) {
    case Operation::Kind::route:
      return "route " + prefix + " via " + std::to_string(operation.hop % chip.hops) +
             (operation.takesBack ? "" : ", standing");
    case Operation::Kind::withdraw:
      return "withdraw " + prefix;
    case Operation::Kind::notify:
      return "notify " + prefix;
  }
  return "";
}

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
  return stream << static_cast<unsigned>(operation.kind) << " #" << operation.prefix << " via "
                << operation.hop << (operation.takesBack ? "" : " standing");
}

std::ostream& operator<<(std::ostream& stream, const RandomChip& chip) {
  stream << (chip.shape.longKey ? "IPv6" : "IPv4") << ", tables";
  for (const TableShape& table : chip.shape.tables) {
    stream << " {" << unsigned{table.id} << ": tread " << unsigned{table.tread} << ", depth "
           << table.depth << (table.type == prefixTableNarrow128b ? ", narrow}" : "}");
  }
  stream << ", strides";
  for (const U8 stride : chip.shape.strides) {
    stream << " " << unsigned{stride};
  }
  return stream << ", " << unsigned{chip.shape.pairsPerEntry} << " pairs, "
                << unsigned{chip.shape.tiles} << " tiles of " << chip.shape.entriesPerTile
                << (chip.shape.multiEntry ? "" : ", one entry per sub-trie") << ", "
                << chip.prefixes.size() << " prefixes, " << chip.hops << " next hops\n";
}

}  // namespace Quarle::Tarnlet::Testing
