#include "tests/support/Hardware.h"

#include <algorithm>

#include "tests/support/CommandText.h"

namespace Quarle::Tarnlet::Testing {

namespace {

bool leafMatches(const Hardware::Row& row, U32 slot, const Key& address) {
  if (!row.leaves[slot]) {
    return false;
  }
  const Hardware::Leaf& leaf = *row.leaves[slot];
  for (U32 i = 0; i < leaf.size(); ++i) {
    if (address.bit(row.branch.len + i) != leaf[i]) {
      return false;
    }
  }
  return true;
}

}  // namespace

Key Hardware::Row::prefix(U32 slot) const {
  Key key = branch;
  for (const bool bit : *leaves[slot]) {
    key.bitIs(key.len++, bit);
  }
  return key;
}

std::string Hardware::Answer::text() const {
  return (block == NextHopBlock()
              ? std::string("none")
              : Testing::textOf(block) + " by t" + std::to_string(row.first) + "[" +
                    std::to_string(row.second) + "] slot " + std::to_string(slot)) +
         (ambiguous ? ", ambiguous" : "");
}

Hardware::Hardware(const ChipShape& shape) : shape_(shape) {
  for (const TableShape& table : shape.tables) {
    tables_[table.id] = {new ShapedTableConfig(table, shape.longKey)};
  }
}

std::string Hardware::apply(const CommandBase& command) {
  const std::string fault = command.cmdType() == commandTypePrefix
                                ? applyPrefix(dynamic_cast<const PrefixCommand&>(command))
                                : applyNhi(dynamic_cast<const NhiCommand&>(command));
  return fault.empty() ? "" : fault + ": " + Testing::textOf(command, shape_.longKey);
}

std::string Hardware::applyPrefix(const PrefixCommand& command) {
  const auto table = tables_.find(command.tableId().value());
  if (table == tables_.end()) {
    return "no such table";
  }
  if (command.index().value() >= table->second.config->depth()) {
    return "no such row";
  }
  const Place place{table->first, command.index().value()};
  Row row{.branch = keyOf(command.branch(), command.branchLen(), shape_.longKey),
          .stride = command.stride(),
          .leaves = {},
          .nhiBase = command.nhiBaseIdx()};
  bool clears = true;
  for (auto member = command.prefixList().prefixIterator(); member; ++member) {
    row.leaves.emplace_back();
    if (member.value() == nullptr) {
      continue;
    }
    clears = false;
    const Key prefix = keyOf(*member.value());
    if (!prefix.beginsWith(row.branch)) {
      return "a prefix does not begin with the branch";
    }
    Leaf leaf;
    for (U32 i = row.branch.len; i < prefix.len; ++i) {
      leaf.push_back(prefix.bit(i));
    }
    // The stop bit takes one more.
    if (leaf.size() + 1 > row.stride) {
      return "a leaf is wider than the stride";
    }
    row.leaves.back() = std::move(leaf);
  }
  if (clears) {
    rows_.erase(place);
    return "";
  }
  if (row.branch.len + row.leaves.size() * row.stride > table->second.config->entrySize()) {
    return "the row is wider than the entry";
  }
  for (const Place& entry : entriesOf(row)) {
    if (!entries_.contains(entry)) {
      return "the row points at an entry never written";
    }
  }
  rows_[place] = std::move(row);
  return "";
}

std::string Hardware::applyNhi(const NhiCommand& command) {
  Entry entry;
  for (auto pair = command.nextHopBlockList().nextHopBlockIterator(); pair; ++pair) {
    entry.push_back(pair.value());
  }
  if (command.index().tile().value() >= shape_.tiles ||
      command.index().offset() >= shape_.entriesPerTile) {
    return "no such NHI entry";
  }
  if (entry.empty() || entry.size() > shape_.pairsPerEntry) {
    return "an NHI entry holds 1 to " + std::to_string(shape_.pairsPerEntry) + " pairs";
  }
  entries_[{command.index().tile().value(), command.index().offset()}] = std::move(entry);
  return "";
}

std::vector<Hardware::Place> Hardware::entriesOf(const Row& row) const {
  const U32 count =
      static_cast<U32>((row.leaves.size() + shape_.pairsPerEntry - 1) / shape_.pairsPerEntry);
  std::vector<Place> entries;
  for (U32 i = 0; i < count; ++i) {
    entries.emplace_back(row.nhiBase.tile().value(), row.nhiBase.offset() + i);
  }
  return entries;
}

const Hardware::Entry* Hardware::entry(Place place) const {
  const auto found = entries_.find(place);
  return found == entries_.end() ? nullptr : &found->second;
}

NextHopBlock Hardware::pairOf(const Row& row, U32 slot) const {
  const Entry* read =
      entry({row.nhiBase.tile().value(), row.nhiBase.offset() + slot / shape_.pairsPerEntry});
  const U32 pair = slot % shape_.pairsPerEntry;
  return read == nullptr || pair >= read->size() ? NextHopBlock() : (*read)[pair];
}

Hardware::Answer Hardware::lookup(const Key& address) const {
  Answer best;
  int bestLen = -1;
  for (const auto& [id, table] : tables_) {
    const auto found = rows_.find({id, table.config->rowOf(address)});
    if (found == rows_.end() || !address.beginsWith(found->second.branch)) {
      continue;
    }
    const Row& row = found->second;
    for (U32 slot = 0; slot < row.leaves.size(); ++slot) {
      if (!leafMatches(row, slot, address)) {
        continue;
      }
      const int len = static_cast<int>(row.branch.len + row.leaves[slot]->size());
      const NextHopBlock block = pairOf(row, slot);
      if (len > bestLen) {
        best = {.block = block, .ambiguous = false, .row = found->first, .slot = slot};
        bestLen = len;
      } else if (len == bestLen && block != best.block) {
        best.ambiguous = true;
      }
    }
  }
  return best;
}

std::string Hardware::text() const {
  std::string out;
  for (const auto& [place, row] : rows_) {
    std::string list;
    for (U32 slot = 0; slot < row.leaves.size(); ++slot) {
      list += list.empty() ? "" : ", ";
      list += row.leaves[slot]
                  ? Testing::textOf(row.prefix(slot)) + " " + Testing::textOf(pairOf(row, slot))
                  : "-";
    }
    out += "t" + std::to_string(place.first) + "[" + std::to_string(place.second) +
           "] branch=" + Testing::textOf(row.branch) + " stride=" + std::to_string(row.stride) +
           " [" + list + "] nhi=" + Testing::textOf(row.nhiBase) + "\n";
  }
  return out;
}

}  // namespace Quarle::Tarnlet::Testing
