#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ChipShape.h"
#include "tests/support/Key.h"

namespace Quarle::Tarnlet::Testing {

/// The chip as the commands alone leave it, and the lookup as hardware does it: hash in every
/// table, compare the branch, find the longest leaf, the longest match over all tables wins, then
/// the pair of its slot.
///
/// Rows keep what a chip would keep: branch bits and leaves, no prefix objects. A command that no
/// chip could carry out is a fault, told by apply().
class Hardware {
 public:
  // Table and row of a prefix table, tile and entry of the NHI memory.
  using Place = std::pair<U8, U32>;

  /// A leaf: the bits of the prefix behind the branch.
  using Leaf = std::vector<bool>;

  struct Row {
    Key branch;
    U8 stride = 0;
    // By slot; nothing in an empty one.
    std::vector<std::optional<Leaf>> leaves;
    NhiTableIdx nhiBase;

    /// The prefix of a slot, put together again from branch and leaf.
    Key prefix(U32 slot) const;

    friend bool operator==(const Row&, const Row&) = default;
  };

  using Entry = std::vector<NextHopBlock>;

  struct Answer {
    // The null block when no leaf matched, and for an empty pair.
    NextHopBlock block;
    // Two rows answer with prefixes of one length and different pairs.
    bool ambiguous = false;
    Place row{};
    U32 slot = 0;

    std::string text() const;
  };

  explicit Hardware(const ChipShape& shape);

  /// Carries a command out; says what is wrong with it, nothing when it is sound.
  [[nodiscard]] std::string apply(const CommandBase& command);

  Answer lookup(const Key& address) const;

  const std::map<Place, Row>& rows() const { return rows_; }

  /// NHI entries that a row reads.
  std::vector<Place> entriesOf(const Row& row) const;

  /// Null for an entry never written.
  const Entry* entry(Place place) const;

  NextHopBlock pairOf(const Row& row, U32 slot) const;

  U8 pairsPerEntry() const { return shape_.pairsPerEntry; }

  const ChipShape& shape() const { return shape_; }

  /// All rows and their pairs, one line each.
  std::string text() const;

 private:
  struct Table {
    Vellor::Ptr<ShapedTableConfig> config;
  };

  std::string applyPrefix(const PrefixCommand& command);
  std::string applyNhi(const NhiCommand& command);

  ChipShape shape_;
  std::map<U8, Table> tables_;
  std::map<Place, Row> rows_;
  std::map<Place, Entry> entries_;
};

}  // namespace Quarle::Tarnlet::Testing
