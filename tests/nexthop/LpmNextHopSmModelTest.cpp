#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/nexthop/NextHopTable.h"
#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace {

using namespace Quarle::TarnletNextHop;
using Quarle::TarnletNextHop::Testing::NextHopTable;

/// The table as one would explain it: an owner for each row, every question answered by walking
/// them all.
class Model {
 public:
  explicit Model(U32 rows) : owner_(rows, kFree) {}

  void request(U64 group, U16 ways) {
    if (wanted_.contains(group) && wanted_[group] == ways) {
      return;
    }
    wanted_[group] = ways;
    if (ways == 65535) {
      take(group);
    } else if (!told_.contains(group) || told_[group] != ways) {
      give(group, ways);
    }
  }

  void withdraw(U64 group) {
    wanted_.erase(group);
    take(group);
  }

  std::string groups() const {
    std::string out;
    for (std::size_t at = 0; at < owner_.size(); at = endOfRun(at)) {
      if (owner_[at] != kFree) {
        out += (out.empty() ? "" : " ") + std::to_string(owner_[at]) + "@" + std::to_string(at) +
               "+" + std::to_string(told_.at(owner_[at]));
      }
    }
    return out;
  }

  std::string takeMoves() { return std::exchange(moves_, {}); }

 private:
  static constexpr U64 kFree = ~U64{0};

  void take(U64 group) {
    std::replace(owner_.begin(), owner_.end(), group, kFree);
    told_.erase(group);
  }

  std::size_t endOfRun(std::size_t at) const {
    std::size_t end = at;
    while (end < owner_.size() && owner_[end] == owner_[at]) {
      ++end;
    }
    return end;
  }

  std::optional<std::size_t> bestFit(std::size_t size) const {
    std::optional<std::size_t> best;
    for (std::size_t at = 0; at < owner_.size(); at = endOfRun(at)) {
      const std::size_t run = endOfRun(at) - at;
      if (owner_[at] == kFree && run >= size && (!best || run < endOfRun(*best) - *best)) {
        best = at;
      }
    }
    return best;
  }

  void give(U64 group, U16 ways) {
    if (std::count(owner_.begin(), owner_.end(), kFree) < ways) {
      return;
    }
    std::optional<std::size_t> at = bestFit(ways);
    if (!at) {
      compact();
      at = bestFit(ways);
    }
    std::replace(owner_.begin(), owner_.end(), group, kFree);
    std::fill_n(owner_.begin() + static_cast<std::ptrdiff_t>(*at), ways, group);
    told_[group] = ways;
  }

  void compact() {
    std::vector<U64> compacted;
    for (std::size_t at = 0; at < owner_.size(); at = endOfRun(at)) {
      const U64 group = owner_[at];
      if (group == kFree) {
        continue;
      }
      if (compacted.size() != at) {
        told_[group] = wanted_[group];
        const std::string size = "+" + std::to_string(told_[group]);
        moves_ += (moves_.empty() ? "" : " ") + std::to_string(group) + ":" + std::to_string(at) +
                  size + ">" + std::to_string(compacted.size()) + size;
      }
      compacted.insert(compacted.end(), endOfRun(at) - at, group);
    }
    compacted.resize(owner_.size(), kFree);
    owner_ = std::move(compacted);
  }

  std::vector<U64> owner_;
  std::map<U64, U16> wanted_;
  // The size that the status shows, which a compaction takes from the request.
  std::map<U64, U16> told_;
  std::string moves_;
};

/// The hardware's rows as a consumer of the status leaves them: which group, which of its ways.
class Rows {
 public:
  explicit Rows(U32 rows) : rows_(rows) {}

  /// Carries a move out: by copying the rows, or by writing the group's content anew.
  void move(const ShuffleCmd& cmd, bool copy) {
    if (!copy) {
      write(cmd.swId().value(), cmd.nextHopBlock());
      return;
    }
    const U32 from = cmd.prevNextHopBlock().base().value();
    const U32 to = cmd.nextHopBlock().base().value();
    for (U32 way = 0; way < cmd.nextHopBlock().size().value(); ++way) {
      rows_.at(to + way) = rows_.at(from + way);
    }
  }

  void write(U64 group, const NextHopBlock& block) {
    for (U32 way = 0; way < block.size().value(); ++way) {
      rows_.at(block.base().value() + way) = {group, way};
    }
  }

  /// The first row of the group's block that is not the group's own; empty when all are.
  std::string wrongRow(U64 group, const NextHopBlock& block) const {
    for (U32 way = 0; way < block.size().value(); ++way) {
      const auto& [owner, ownWay] = rows_.at(block.base().value() + way);
      if (owner != group || ownWay != way) {
        return "row " + std::to_string(block.base().value() + way) + " holds group " +
               std::to_string(owner) + " way " + std::to_string(ownWay);
      }
    }
    return "";
  }

 private:
  std::vector<std::pair<U64, U32>> rows_;
};

struct Shape {
  U32 rows;
  U32 groups;
  U16 largest;
  U32 steps;
};

std::ostream& operator<<(std::ostream& stream, const Shape& shape) {
  return stream << "rows " << shape.rows << " groups " << shape.groups << " largest "
                << shape.largest;
}

/// Runs random requests on the machine and the model at once.
class LpmNextHopSmAgainstModel : public testing::TestWithParam<Shape> {
 protected:
  void SetUp() override { table_.start(); }

  U64 drawGroup() { return random_.between(1, shape_.groups); }

  U16 drawWays() {
    return random_.oneIn(20) ? 65535 : static_cast<U16>(random_.between(1, shape_.largest));
  }

  void want(U64 group, U16 ways) {
    table_.want(group, ways);
    model_.request(group, ways);
  }

  void withdraw(U64 group) {
    table_.withdraw(group);
    model_.withdraw(group);
  }

  /// The moves of the last request, the same on both sides; the queue stays.
  void compareMoves() {
    if (table_.status->shuffleCmds() != 0) {
      ++compactions_;
    }
    moves_.clear();
    for (auto cmd = table_.status->shuffleCmdIterator(); cmd; ++cmd) {
      moves_.push_back(cmd.value());
    }
    ASSERT_EQ(table_.moves(), model_.takeMoves());
  }

  void compare() {
    ASSERT_EQ(table_.groups(), model_.groups());
    table_.audit();
  }

  std::string whereWeAre(U32 step) const {
    return random_.seedText() + " step " + std::to_string(step) + ", before " + table_.groups();
  }

  const Shape shape_ = GetParam();
  Random random_;
  NextHopTable table_{shape_.rows};
  Model model_{shape_.rows};
  std::vector<ShuffleCmd::Ptr> moves_;
  U32 compactions_ = 0;
};

TEST_P(LpmNextHopSmAgainstModel, everyRequestEndsAsTheModels) {
  for (U32 step = 0; step < shape_.steps && !HasFatalFailure(); ++step) {
    SCOPED_TRACE(whereWeAre(step));
    if (random_.oneIn(3)) {
      withdraw(drawGroup());
    } else {
      want(drawGroup(), drawWays());
    }
    compareMoves();
    compare();
  }
  EXPECT_GT(compactions_, 0U) << random_.seedText() << ": the run compacted nothing";
}

// A client that puts the old request back when a resize is refused, and a consumer that carries the
// moves out in their order before it writes the group that was asked for.
TEST_P(LpmNextHopSmAgainstModel, movesInTheirOrderKeepEveryGroupsRows) {
  Rows hardware(shape_.rows);
  for (U32 step = 0; step < shape_.steps && !HasFatalFailure(); ++step) {
    SCOPED_TRACE(whereWeAre(step));
    const U64 group = drawGroup();
    const NextHopBlock before = table_.status->swIdToNextHopBlock(group);
    if (random_.oneIn(3)) {
      withdraw(group);
    } else {
      const U16 ways = drawWays();
      want(group, ways);
      if (ways != 65535 && before != NextHopBlock() &&
          table_.status->swIdToNextHopBlock(group).size() != ways) {
        want(group, before.size().value());
      }
    }
    compareMoves();
    compare();
    ASSERT_TRUE(table_.sizesAgree()) << table_.groups();

    // A group in the middle of a resize is told with its new size already, so its rows cannot be
    // copied.
    const bool copy = before == NextHopBlock();
    for (const ShuffleCmd::Ptr& cmd : moves_) {
      hardware.move(*cmd, copy);
    }
    const NextHopBlock after = table_.status->swIdToNextHopBlock(group);
    if (after != NextHopBlock()) {
      hardware.write(group, after);
    }
    for (auto other = table_.status->swIdToNextHopBlockIterator(); other; ++other) {
      ASSERT_EQ(hardware.wrongRow(other.key().value(), other.value()), "")
          << "group " << other.key().value() << " of " << table_.groups();
    }
  }
  EXPECT_GT(compactions_, 0U) << random_.seedText() << ": the run compacted nothing";
}

INSTANTIATE_TEST_SUITE_P(Shapes,
                         LpmNextHopSmAgainstModel,
                         testing::Values(Shape{8, 4, 4, 4000},
                                         Shape{40, 14, 9, 4000},
                                         Shape{64, 40, 3, 3000},
                                         Shape{300, 60, 24, 1500}));

}  // namespace
