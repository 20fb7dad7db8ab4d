// Looking up as the hardware does it: hash the key in every table, compare the branch of the row
// that stands there, find the longest leaf among its slots, let the longest match over all tables
// win, and follow its slot to the NHI pair.

#include "xdksim/Chip.h"

namespace XdkSim {

namespace {

U32 addressBytes(Family family) { return family == Family::ipv4 ? 4 : 16; }

/// Whether the branch of `row` begins `key`.
bool branchMatches(const PrefixRow& row, const LpmKey& key, U32 keyWidth) {
  U32 left = row.branchLen();
  if (left > keyWidth || left > row.usable()) {
    return false;
  }
  // Both ends right: the branch's first bits in the row are its last key bits.
  for (U32 done = 0; left != 0; done += 64) {
    const U32 count = std::min(left, 64U);
    left -= count;
    if (row.branchBits(done, count) != key.bits(left, count)) {
      return false;
    }
  }
  return true;
}

/// Whether the bits of `leaf` follow in `key` behind a branch of `branchLen` bits.
///
/// REQUIRES: `branchLen` + the leaf's length <= 144.
bool leafMatches(const Leaf& leaf, const LpmKey& key, U32 branchLen) {
  const U32 length = leaf.length();
  if (length < 64) {
    return (leaf.low & lowBits(length)) == key.bits(branchLen, length);
  }
  return leaf.low == key.bits(branchLen + length - 64, 64) &&
         (leaf.high & lowBits(length - 64)) == key.bits(branchLen, length - 64);
}

/// The key spelled by branch and leaf.
LpmKey keyOf(const PrefixRow& row, const LpmKey& branch, const Leaf& leaf) {
  LpmKey key = branch;
  const U32 length = leaf.length();
  const U32 lowCount = std::min(length, 64U);
  key.bitsIs(row.branchLen(), length - lowCount, leaf.high & lowBits(length - lowCount));
  key.bitsIs(row.branchLen() + length - lowCount, lowCount, leaf.low & lowBits(lowCount));
  return key;
}

}  // namespace

U32 Chip::Table::hash(const LpmKey& key) const {
  // The chip's hash unit takes the key with its last byte first, so the zeros behind the tread lead
  // and leave no trace.
  U16 remainder = 0;
  if (key.words[1] != 0 || key.words[2] != 0) {
    remainder = crc->addByte(remainder, key.byte(17));
    remainder = crc->addByte(remainder, key.byte(16));
    remainder = crc->addWord(remainder, key.words[1]);
  }
  return crc->addWord(remainder, key.words[0]) & (rows - 1);
}

bool Chip::Bank::matches(const PrefixRow& row, const LpmKey& key) const {
  return row.mode() == kSparseModeCode && row.keySize() == keySizeCode(keyWidth) &&
         branchMatches(row, key, keyWidth);
}

void Chip::Bank::findLeaf(const PrefixRow& row,
                          const LpmKey& key,
                          U32 table,
                          LookupResult& best) const {
  const U32 branchLen = row.branchLen();
  const U32 slots = row.slots();
  for (U32 slot = 0; slot < slots; ++slot) {
    const Leaf leaf = row.leaf(slot);
    if (leaf.empty()) {
      continue;
    }
    const U32 length = branchLen + leaf.length();
    const bool longer = !best.matched || length > best.matchLen;
    if (longer && length <= keyWidth && leafMatches(leaf, key, branchLen)) {
      best.matched = true;
      best.matchLen = length;
      best.table = table;
      best.slot = slot;
    }
  }
}

NhiPlace Chip::Bank::nhiPlace(const PrefixRow& row, U32 slot) const {
  return {.tile = row.nhiTile(),
          .row = row.nhiOffset() + slot / nhiLayout.pairs(),
          .pair = slot % nhiLayout.pairs()};
}

NhiPair Chip::Bank::pairAt(const NhiPlace& place) const {
  if (place.tile >= tiles || place.row >= entriesPerTile) {
    return {};
  }
  return nhiLayout.pair(nhiRow(place.tile, place.row), place.pair);
}

LookupResult Chip::lookup(Family family, U16 vrf, const U8* address) const {
  const Bank& here = bank(family);
  const LpmKey key = LpmKey::of(vrf, address, addressBytes(family));

  // First the rows of all tables, so that the memory fetches them while the others are hashed.
  struct Candidate {
    const Table* table;
    U32 row;
  };

  std::array<Candidate, ChipProfile::kMaxTables> candidates;
  U32 count = 0;
  LpmKey hashed;
  U32 hashedTread = 0;
  for (const Table& table : here.tables) {
    if (table.tread != hashedTread) {
      hashedTread = table.tread;
      hashed = key.prefix(hashedTread);
    }
    const U32 row = table.hash(hashed);
    if (table.isOccupied(row)) {
      candidates[count] = {.table = &table, .row = row};
      ++count;
      __builtin_prefetch(table.words + std::size_t{row} * (table.width / 64));
    }
  }

  LookupResult best;
  PrefixRow bestRow(nullptr, 0);
  for (U32 i = 0; i < count; ++i) {
    const Table& table = *candidates[i].table;
    const PrefixRow row = table.row(candidates[i].row);
    if (!here.matches(row, key)) {
      continue;
    }
    const U32 lengthBefore = best.matchLen;
    const bool matchedBefore = best.matched;
    here.findLeaf(row, key, static_cast<U32>(&table - here.tables.data()), best);
    if (best.matched != matchedBefore || best.matchLen != lengthBefore) {
      best.row = candidates[i].row;
      bestRow = row;
    }
  }
  if (best.matched) {
    const NhiPlace place = here.nhiPlace(bestRow, best.slot);
    const NhiPair pair = here.pairAt(place);
    best.tile = place.tile;
    best.nhiRow = place.row;
    best.pair = place.pair;
    best.base = pair.base;
    best.size = pair.size;
  }
  return best;
}

TableExplanation Chip::Bank::explainTable(U32 table, const LpmKey& key) const {
  const Table& here = tables[table];
  TableExplanation seen;
  seen.table = table;
  seen.tread = here.tread;
  seen.row = here.hash(key.prefix(here.tread));
  seen.occupied = here.isOccupied(seen.row);
  if (!seen.occupied) {
    return seen;
  }
  const PrefixRow row = here.row(seen.row);
  seen.readable = row.mode() == kSparseModeCode && row.keySize() == keySizeCode(keyWidth);
  seen.branchLen = row.branchLen();
  seen.stride = row.stride();
  seen.branch = branchOf(unpackPrefixRow(row));
  seen.branchMatches = matches(row, key);
  for (U32 slot = 0; slot < row.slots(); ++slot) {
    const Leaf leaf = row.leaf(slot);
    // A damaged row can spell prefixes longer than a key; nothing matches those.
    if (leaf.empty() || row.branchLen() + leaf.length() > keyWidth) {
      continue;
    }
    const NhiPlace place = nhiPlace(row, slot);
    seen.leaves.push_back({.slot = slot,
                           .key = keyOf(row, seen.branch, leaf),
                           .length = row.branchLen() + leaf.length(),
                           .matches = seen.branchMatches && leafMatches(leaf, key, row.branchLen()),
                           .place = place,
                           .pair = pairAt(place)});
  }
  return seen;
}

Explanation Chip::explain(Family family, U16 vrf, const U8* address) const {
  const Bank& here = bank(family);
  Explanation explanation;
  explanation.family = family;
  explanation.key = LpmKey::of(vrf, address, addressBytes(family));
  for (U32 table = 0; table < here.tables.size(); ++table) {
    explanation.tables.push_back(here.explainTable(table, explanation.key));
  }
  explanation.result = lookup(family, vrf, address);
  if (explanation.result.hasNextHop()) {
    const U32 base = explanation.result.base;
    const U32 size = std::max<U32>(explanation.result.size, 1);
    for (U32 row = base; row - base < size && row < profile_.nextHopRows; ++row) {
      xpNextHopEntry entry;
      static_cast<void>(readNextHopRow(row, entry));
      explanation.nextHops.push_back({.row = row, .entry = entry});
    }
  }
  return explanation;
}

}  // namespace XdkSim
