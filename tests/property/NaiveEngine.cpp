#include "tests/property/NaiveEngine.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "tests/support/CommandText.h"

namespace Quarle::Tarnlet::Testing {

namespace {

/// Where the engine would abort; the tests stay clear of it.
void require(bool holds) {
  if (!holds) {
    throw std::logic_error("the engine would abort");
  }
}

/// The walk over a collection of small numbers goes by their bits read backwards.
U32 backwards(U32 number) {
  U32 out = 0;
  for (U32 bit = 0; bit < 32; ++bit) {
    out |= (number >> bit & 1U) << (31 - bit);
  }
  return out;
}

std::array<U8, 18> firstBits(const Key& key, U8 len) { return key.cut(len).bytes; }

/// Byte by byte: shortens `branch` to what it has in common with `other` in `len` bits.
void commonBranch(std::array<U8, 18>& branch,
                  const std::array<U8, 18>& other,
                  U8 len,
                  U8& commonLen) {
  for (U32 byte = 0; byte < (len + 7U) / 8; ++byte) {
    if (branch[byte] == other[byte]) {
      continue;
    }
    U32 equal = 0;
    while ((branch[byte] >> (7 - equal) & 1) == (other[byte] >> (7 - equal) & 1)) {
      ++equal;
    }
    if (byte * 8 + equal >= len) {
      break;
    }
    commonLen = static_cast<U8>(byte * 8 + equal);
    branch[byte] = static_cast<U8>(branch[byte] >> (8 - equal) << (8 - equal));
    return;
  }
  commonLen = len;
}

}  // namespace

NaiveEngine::NaiveEngine(const ChipShape& shape) : shape_(shape) {
  for (const TableShape& table : shape.tables) {
    tables_[table.id] = std::make_unique<Table>();
    tables_[table.id]->shape = table;
    tables_[table.id]->config = new ShapedTableConfig(table, shape.longKey);
    sorted_.push_back(tables_[table.id].get());
  }
  std::sort(sorted_.begin(), sorted_.end(), [](const Table* a, const Table* b) {
    return std::pair(-int{a->shape.tread}, backwards(a->shape.id)) <
           std::pair(-int{b->shape.tread}, backwards(b->shape.id));
  });
}

NaiveEngine::~NaiveEngine() = default;

void NaiveEngine::requestIs(const Key& prefix, NextHopBlock block) {
  if (requests_.contains(prefix) && requests_[prefix] == block) {
    return;
  }
  requests_[prefix] = block;
  handle(prefix);
}

void NaiveEngine::requestDel(const Key& prefix) {
  if (requests_.erase(prefix) != 0) {
    handle(prefix);
  }
}

void NaiveEngine::notify(const Key& prefix) { handle(prefix); }

NextHopBlock NaiveEngine::wanted(const Key& prefix) const {
  const auto request = requests_.find(prefix);
  return request == requests_.end() ? NextHopBlock() : request->second;
}

void NaiveEngine::handle(const Key& prefix) {
  const bool wants = wanted(prefix) != NextHopBlock();
  if (wants && placed_.contains(prefix)) {
    update(prefix);
  } else if (wants) {
    insert(prefix);
  } else if (placed_.contains(prefix)) {
    remove(prefix);
  }
}

// --- routes

void NaiveEngine::insert(const Key& prefix) {
  U8 leastTread = 0;
  for (const auto& [fromLen, tread] : shape_.leastTreads) {
    if (prefix.len >= fromLen) {
      leastTread = tread;
    }
  }
  Code ret = Code::fail;
  bool lastResort = false;
  for (std::size_t i = 0; i < sorted_.size() && ret != Code::pass;) {
    const U8 tread = sorted_[i]->shape.tread;
    if (tread < leastTread || tread > prefix.len) {
      ++i;
    } else if (tread == prefix.len) {
      lastResort = true;
      ++i;
    } else {
      ret = insertInternal(prefix, *sorted_[i]);
      i += ret != Code::retry ? 1 : 0;
    }
  }
  for (std::size_t i = 0; lastResort && ret != Code::pass && i < sorted_.size();) {
    if (sorted_[i]->shape.tread == prefix.len) {
      ret = insertInternal(prefix, *sorted_[i]);
    }
    i += ret != Code::retry ? 1 : 0;
  }
  if (ret == Code::pass) {
    installed_[prefix] = wanted(prefix);
  }
}

void NaiveEngine::update(const Key& prefix) {
  SubTrie& subTrie = *placed_.at(prefix);
  if (!updateNhi(subTrie)) {
    return;
  }
  writeNhi(subTrie);
  writePrefix(subTrie);
  installed_[prefix] = wanted(prefix);
}

void NaiveEngine::remove(const Key& prefix) {
  SubTrie& subTrie = *placed_.at(prefix);
  std::erase_if(subTrie.prefixes, [&](const auto& slot) { return slot.second == prefix; });
  placed_.erase(prefix);
  if (!subTrie.prefixes.empty()) {
    compactSlots(subTrie);
    require(updateNhi(subTrie));
    writeNhi(subTrie);
    writePrefix(subTrie);
  } else {
    release(subTrie);
    writePrefix(subTrie);
    subTrie.table->rows.erase(subTrie.row);
  }
  installed_.erase(prefix);
}

// --- one prefix into one table

NaiveEngine::Code NaiveEngine::insertInternal(const Key& prefix, Table& table) {
  const Code ret = insertToTable(prefix, table);
  if (ret == Code::pass) {
    return ret;
  }
  if (ret == Code::collision) {
    ++attempts_;
    if (move(prefix, table) == Code::pass) {
      ++successes_;
      return Code::retry;
    }
    return ret;
  }
  return createSubTrie(prefix, table);
}

NaiveEngine::Code NaiveEngine::insertToTable(const Key& prefix, Table& table) {
  const auto row = table.rows.find(table.config->rowOf(prefix));
  return row == table.rows.end() ? Code::notPresent : insertToSubTrie(prefix, *row->second);
}

NaiveEngine::Code NaiveEngine::createSubTrie(const Key& prefix, Table& table) {
  const U32 row = table.config->rowOf(prefix);
  if (table.rows.contains(row)) {
    return Code::present;
  }
  auto subTrie = std::make_unique<SubTrie>();
  subTrie->table = &table;
  subTrie->row = row;
  subTrie->branch = firstBits(prefix, prefix.len);
  subTrie->branchLen = prefix.len;
  SubTrie& made = *subTrie;
  table.rows[row] = std::move(subTrie);
  const Code ret = insertToSubTrie(prefix, made);
  if (ret != Code::pass) {
    table.rows.erase(row);
  }
  return ret;
}

NaiveEngine::Code NaiveEngine::insertToSubTrie(const Key& prefix, SubTrie& subTrie) {
  const U8 prefixLen = prefix.len;
  const U8 tread = subTrie.table->shape.tread;
  U8 commonLen = std::min(prefixLen, subTrie.branchLen);
  Bytes branch = firstBits(prefix, commonLen);
  U8 newBranchLen = 0;
  commonBranch(branch, subTrie.branch, commonLen, newBranchLen);
  if (newBranchLen < tread) {
    return Code::collision;
  }
  const U8 reach = static_cast<U8>(subTrie.stride + subTrie.branchLen - newBranchLen);
  const U8 prefixReach = static_cast<U8>(prefixLen - newBranchLen);
  U8 newStride = nextStride(prefixReach >= reach ? static_cast<U8>(prefixReach + 1) : reach);
  const U8 newNumPrefixes = static_cast<U8>(subTrie.maxSlot + 1);

  if (!fit(subTrie, newBranchLen, newStride, newNumPrefixes)) {
    branch = firstBits(prefix, prefixLen);
    newBranchLen = prefixLen;
    U8 maxPrefixLen = prefixLen;
    std::map<U32, Key> walk;
    for (const auto& [slot, member] : subTrie.prefixes) {
      walk[backwards(slot)] = member;
    }
    for (const auto& [order, member] : walk) {
      const U8 within = std::min(newBranchLen, member.len);
      commonBranch(branch, firstBits(member, member.len), within, newBranchLen);
      maxPrefixLen = std::max(maxPrefixLen, member.len);
    }
    newStride = nextStride(static_cast<U8>(maxPrefixLen - newBranchLen + 1));
    if (maxPrefixLen < newStride) {
      newBranchLen = 0;
    } else if (maxPrefixLen + 1 - newStride >= tread) {
      newBranchLen = static_cast<U8>(maxPrefixLen + 1 - newStride);
    }
    if (!fit(subTrie, newBranchLen, newStride, newNumPrefixes)) {
      return Code::full;
    }
  }

  bool inPlace = newStride == subTrie.stride && newBranchLen == subTrie.branchLen;
  if (newNumPrefixes > shape_.pairsPerEntry && !shape_.multiEntry) {
    return Code::nhiCapacity;
  }
  if (!subTrie.base || blockSize(newNumPrefixes) > subTrie.nhiBlkSize) {
    inPlace = false;
  }
  if (freeEntries() < blockSize(newNumPrefixes)) {
    return Code::nhiFull;
  }

  subTrie.branch = branch;
  subTrie.branchLen = newBranchLen;
  subTrie.stride = newStride;
  subTrie.nhiBlkSize = blockSize(newNumPrefixes);
  if (!inPlace) {
    compactSlots(subTrie);
  }
  U8 slot = 0;
  while (subTrie.prefixes.contains(slot)) {
    ++slot;
  }
  subTrie.prefixes[slot] = prefix;
  subTrie.maxSlot = std::max(subTrie.maxSlot, static_cast<U8>(slot + 1));
  require(updateNhi(subTrie));
  writeNhi(subTrie);
  writePrefix(subTrie);
  placed_[prefix] = &subTrie;
  return Code::pass;
}

NaiveEngine::Code NaiveEngine::move(const Key& prefix, Table& table) {
  const U32 from = table.config->rowOf(prefix);
  SubTrie* subTrie = table.rows.at(from).get();
  const Key& first = subTrie->prefixes.begin()->second;
  for (Table* target : sorted_) {
    const U32 to = target->config->rowOf(first);
    if (target == &table || target->shape.tread != table.shape.tread || target->rows.contains(to)) {
      continue;
    }
    target->rows[to] = std::move(table.rows.at(from));
    table.rows.erase(from);
    subTrie->table = target;
    subTrie->row = to;
    writePrefix(*subTrie);
    writeClear(table.shape.id, from, *subTrie);
    return Code::pass;
  }
  return Code::fail;
}

U8 NaiveEngine::nextStride(U8 stride) const {
  U8 best = 255;
  for (const U8 offered : shape_.strides) {
    if (offered >= stride && offered < best) {
      best = offered;
    }
  }
  return best;
}

bool NaiveEngine::fit(const SubTrie& subTrie, U8 branchLen, U8 stride, U8 prefixes) const {
  const U32 entry = subTrie.table->shape.type == prefixTableNarrow128b ? 88 : 216;
  require(branchLen <= entry);
  return U32{stride} * prefixes <= entry - branchLen;
}

void NaiveEngine::compactSlots(SubTrie& subTrie) {
  std::map<U32, Key> walk;
  for (const auto& [slot, member] : subTrie.prefixes) {
    walk[backwards(slot)] = member;
  }
  subTrie.prefixes.clear();
  subTrie.maxSlot = 0;
  for (const auto& [order, member] : walk) {
    subTrie.prefixes[subTrie.maxSlot++] = member;
  }
}

std::string NaiveEngine::text() const {
  std::string out;
  for (const auto& [id, table] : tables_) {
    for (const auto& [row, subTrie] : table->rows) {
      out += "t" + std::to_string(id) + "[" + std::to_string(row) + "] ";
      for (const U8 byte : subTrie->branch) {
        out += Vellor::format("%02x", unsigned{byte}).str();
      }
      out += "/" + std::to_string(subTrie->branchLen) + " " + std::to_string(subTrie->stride);
      for (const auto& [slot, member] : subTrie->prefixes) {
        out += " " + std::to_string(slot) + "=" + textOf(member);
      }
      out +=
          " 0:" + std::to_string(*subTrie->base) + "+" + std::to_string(subTrie->nhiBlkSize) + "\n";
    }
  }
  return out;
}

std::string NaiveEngine::routes() const {
  std::string out;
  for (const auto& [prefix, block] : installed_) {
    out += textOf(prefix) + " " + textOf(block) + "\n";
  }
  return out;
}

}  // namespace Quarle::Tarnlet::Testing
