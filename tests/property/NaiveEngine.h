#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/ChipShape.h"

namespace Quarle::Tarnlet::Testing {

/// The engine once more, as one would explain it: step by step, byte by byte, with nothing kept
/// that can be found by looking. For one NHI tile. Slow, and shares no code with the engine.
class NaiveEngine {
 public:
  explicit NaiveEngine(const ChipShape& shape);
  ~NaiveEngine();

  void requestIs(const Key& prefix, NextHopBlock block);
  void requestDel(const Key& prefix);
  void notify(const Key& prefix);

  bool installed(const Key& prefix) const { return placed_.contains(prefix); }

  /// The commands since last time, a line each as textOf(command) has them.
  std::string takeCommands();

  /// Whether a block that several sub-tries share was moved since last time: their order among
  /// each other is then free.
  bool takeFreeOrder();

  /// All sub-tries by table and row: branch with all its bytes, lengths, slots, base and block
  /// size.
  std::string text() const;

  /// The installed routes with their blocks.
  std::string routes() const;

  U64 moves() const { return moves_; }

  U64 attempts() const { return attempts_; }

  U64 successes() const { return successes_; }

 private:
  enum class Code { pass, fail, retry, notPresent, present, nhiFull, nhiCapacity, full, collision };

  using Bytes = std::array<U8, 18>;
  using Content = std::vector<NextHopBlock>;

  struct Table;

  struct SubTrie {
    Table* table = nullptr;
    U32 row = 0;
    Bytes branch{};
    U8 branchLen = 0;
    U8 stride = 0;
    U8 nhiBlkSize = 0;
    std::optional<U32> base;
    // Empty while nothing is linked.
    Content content;
    // Slots in use; maxSlot is one above the highest since the last compaction.
    std::map<U8, Key> prefixes;
    U8 maxSlot = 0;
  };

  struct Table {
    TableShape shape;
    Vellor::Ptr<ShapedTableConfig> config;
    std::map<U32, std::unique_ptr<SubTrie>> rows;
  };

  /// A block of the tile and who points at it.
  struct Block {
    U32 size = 0;
    Content content;
    std::set<SubTrie*> users;
  };

  void handle(const Key& prefix);
  void insert(const Key& prefix);
  void update(const Key& prefix);
  void remove(const Key& prefix);
  Code insertInternal(const Key& prefix, Table& table);
  Code insertToTable(const Key& prefix, Table& table);
  Code createSubTrie(const Key& prefix, Table& table);
  Code insertToSubTrie(const Key& prefix, SubTrie& subTrie);
  Code move(const Key& prefix, Table& table);

  U8 nextStride(U8 stride) const;
  bool fit(const SubTrie& subTrie, U8 branchLen, U8 stride, U8 prefixes) const;
  void compactSlots(SubTrie& subTrie);

  NextHopBlock wanted(const Key& prefix) const;
  Content contentOf(const SubTrie& subTrie) const;
  bool updateNhi(SubTrie& subTrie);
  void release(SubTrie& subTrie);
  U8 blockSize(U32 slots) const;
  U32 freeEntries() const;
  std::optional<U32> bestFit(U32 size) const;
  std::optional<U32> allocate(U32 slots);
  void compactTile();

  void writeNhi(const SubTrie& subTrie);
  void writePrefix(const SubTrie& subTrie);
  void writeClear(U8 table, U32 row, const SubTrie& subTrie);
  void writeRow(
      const std::string& what, U8 table, U32 row, const SubTrie& subTrie, const std::string& list);

  ChipShape shape_;
  std::map<U8, std::unique_ptr<Table>> tables_;
  std::vector<Table*> sorted_;
  std::map<Key, NextHopBlock> requests_;
  std::map<Key, NextHopBlock> installed_;
  std::map<Key, SubTrie*> placed_;
  std::map<U32, Block> tile_;
  std::string commands_;
  bool freeOrder_ = false;
  U64 moves_ = 0;
  U64 attempts_ = 0;
  U64 successes_ = 0;
};

}  // namespace Quarle::Tarnlet::Testing
