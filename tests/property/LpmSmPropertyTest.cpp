#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sstream>

#include "tests/property/ForAll.h"
#include "tests/property/NaiveEngine.h"
#include "tests/property/RandomChip.h"
#include "tests/support/ChipStory.h"

namespace {

using namespace Quarle::Tarnlet;
using namespace Quarle::Tarnlet::Testing;
using Kind = Operation::Kind;

/// A chip, and the words of what was done to it so far. They are told even when a fatal check ends
/// the process.
class Run {
 public:
  explicit Run(const RandomChip& chip) : random_(chip), story_(chip.shape) {
    std::ostringstream stream;
    stream << chip;
    told_ = stream.str();
    running_ = this;
    std::signal(SIGABRT, [](int) {
      if (running_ != nullptr) {
        std::fputs(running_->told_.c_str(), stderr);
      }
    });
    story_.start();
  }

  ~Run() { running_ = nullptr; }

  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  ChipStory& story() { return story_; }

  const Key& key(const Operation& operation) const {
    return random_.prefixes[operation.prefix % random_.prefixes.size()];
  }

  NextHopBlock hop(const Operation& operation) const { return via(operation.hop % random_.hops); }

  std::string prefix(const Operation& operation) const { return textOf(key(operation)); }

  /// A delete that leaves something behind needs a block and ends the process without one: a client
  /// keeps headroom for it.
  bool allowed(const Operation& operation) {
    const SubTrie::Ptr subTrie = story_.subTrie(prefix(operation));
    if (operation.kind != Kind::withdraw || subTrie == nullptr || subTrie->prefixs() == 1) {
      return true;
    }
    return story_.sm().isNhiBlockAvailable(static_cast<U8>(subTrie->prefixs() - 1));
  }

  /// The block that a refused update is taken back to; the null block when nothing is to be done.
  NextHopBlock takeBack(const Operation& operation) {
    const NextHopBlock now =
        story_.status()->prefixToNextHopBlock(story_.prefix(prefix(operation)));
    const bool refused = now != NextHopBlock() && now != hop(operation);
    return operation.kind == Kind::route && refused ? now : NextHopBlock();
  }

  void carryOut(const Operation& operation) {
    told_ += textOf(random_, operation) + "\n";
    switch (operation.kind) {
      case Kind::route:
        story_.route(prefix(operation), hop(operation));
        break;
      case Kind::withdraw:
        story_.withdraw(prefix(operation));
        break;
      case Kind::notify:
        story_.notify(prefix(operation));
        break;
    }
  }

  std::string report(const std::string& fault) const { return fault.empty() ? "" : told_ + fault; }

 private:
  static inline Run* running_ = nullptr;

  const RandomChip& random_;
  ChipStory story_;
  std::string told_;
};

/// Invariants after each request, lookups after each command. A refused update is taken back at
/// once, as a client must: standing ahead of the chip, two of them may get into each other's pairs
/// when a block that they share is moved.
std::string faultOfHolding(const RandomChip& chip, const std::vector<Operation>& operations) {
  Run run(chip);
  for (const Operation& operation : operations) {
    if (!run.allowed(operation)) {
      continue;
    }
    run.carryOut(operation);
    const NextHopBlock back = run.takeBack(operation);
    if (back != NextHopBlock()) {
      run.story().route(run.prefix(operation), back);
    }
    const std::string fault = run.story().takeFaults();
    if (!fault.empty()) {
      return run.report(fault);
    }
  }
  run.story().finish();
  return run.report(run.story().takeFaults());
}

/// The real sub-tries as NaiveEngine::text() has its own.
std::string subTriesOf(LpmSm& sm) {
  std::map<std::pair<U32, U32>, std::string> rows;
  for (auto table = sm.prefixTableIterator(); table; ++table) {
    for (auto row = table.ptr()->subTrieIterator(); row; ++row) {
      const SubTrie& subTrie = *row.ptr();
      std::string line = "t" + std::to_string(table.key().value()) + "[" +
                         std::to_string(row.key().value()) + "] ";
      for (U32 i = 0; i < 18; ++i) {
        line += Vellor::format("%02x", unsigned{subTrie.branch().u8(i)}).str();
      }
      line += "/" + std::to_string(subTrie.branchLen()) + " " + std::to_string(subTrie.stride());
      for (U32 slot = 0; slot < subTrie.maxPrefixSlot(); ++slot) {
        line += " " + std::to_string(slot) + "=" +
                textOf(keyOf(*subTrie.prefix(static_cast<U8>(slot))));
      }
      rows[{table.key().value(), row.key().value()}] = line + " " + textOf(subTrie.nhiBaseIdx()) +
                                                       "+" + std::to_string(subTrie.nhiBlkSize()) +
                                                       "\n";
    }
  }
  std::string out;
  for (const auto& [place, line] : rows) {
    out += line;
  }
  return out;
}

std::string routesOf(const Status& status) {
  std::map<Key, NextHopBlock> routes;
  for (const auto& route : status.prefixToNextHopBlockCollection()) {
    routes[keyOf(*route.key)] = route.value;
  }
  std::string out;
  for (const auto& [prefix, block] : routes) {
    out += textOf(prefix) + " " + textOf(block) + "\n";
  }
  return out;
}

std::string sortedLines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  std::string out;
  for (const std::string& line : lines) {
    out += line + "\n";
  }
  return out;
}

std::string difference(const std::string& what,
                       const std::string& engine,
                       const std::string& naive) {
  return engine == naive ? "" : what + " of the engine:\n" + engine + "of the naive one:\n" + naive;
}

std::string compareWithNaive(Run& run, NaiveEngine& naive) {
  LpmSm& sm = run.story().sm();
  std::string commands = run.story().commands();
  std::string expected = naive.takeCommands();
  if (naive.takeFreeOrder()) {
    commands = sortedLines(commands);
    expected = sortedLines(expected);
  }
  return difference("commands", commands, expected) +
         difference("sub-tries", subTriesOf(sm), naive.text()) +
         difference("routes", routesOf(*run.story().status()), naive.routes()) +
         difference("counters",
                    std::to_string(sm.numNhiBlockDefrag()) + " " +
                        std::to_string(sm.numHashShufflingAttempt()) + " " +
                        std::to_string(sm.numHashShufflingSuccess()) + "\n",
                    std::to_string(naive.moves()) + " " + std::to_string(naive.attempts()) + " " +
                        std::to_string(naive.successes()) + "\n");
}

/// Commands, layout and counters are those of the naive engine.
std::string faultOfAgreeing(const RandomChip& chip, const std::vector<Operation>& operations) {
  Run run(chip);
  NaiveEngine naive(chip.shape);
  for (const Operation& operation : operations) {
    if (!run.allowed(operation)) {
      continue;
    }
    run.carryOut(operation);
    const Key& prefix = run.key(operation);
    switch (operation.kind) {
      case Kind::route:
        naive.requestIs(prefix, run.hop(operation));
        break;
      case Kind::withdraw:
        naive.requestDel(prefix);
        break;
      case Kind::notify:
        naive.notify(prefix);
        break;
    }
    const NextHopBlock back = run.takeBack(operation);
    if (back != NextHopBlock() && operation.takesBack) {
      run.story().route(run.prefix(operation), back);
      naive.requestIs(prefix, back);
    }
    const std::string fault = compareWithNaive(run, naive);
    if (!fault.empty()) {
      return run.report(fault);
    }
  }
  return "";
}

/// A route that comes and goes leaves everything as it was, but for the order of slots, the layout
/// of a row that it joined, and rows that it moved aside.
std::string faultOfComingAndGoing(const RandomChip& chip,
                                  const std::vector<Operation>& operations) {
  Run run(chip);
  run.story().sm().hashShufflingEnabledIs(false);
  for (const Operation& operation : operations) {
    if (operation.kind == Kind::withdraw && run.allowed(operation)) {
      run.carryOut(operation);
      continue;
    }
    if (operation.kind != Kind::route || run.story().installed(run.prefix(operation))) {
      continue;
    }
    const std::string routes = routesOf(*run.story().status());
    const std::string blocks = run.story().blocks();
    const U32 freeEntries = run.story().freeEntries();
    const U64 moves = run.story().sm().numNhiBlockDefrag();
    run.carryOut(operation);
    const SubTrie::Ptr joined = run.story().subTrie(run.prefix(operation));
    const bool alone = joined != nullptr && joined->prefixs() == 1;
    Operation away = operation;
    away.kind = Kind::withdraw;
    if (!run.allowed(away)) {
      continue;
    }
    run.carryOut(away);
    std::string fault = difference("routes", routesOf(*run.story().status()), routes);
    // A row that was joined may share less with its slots in another order.
    if (alone || joined == nullptr) {
      fault += difference("free entries", std::to_string(run.story().freeEntries()) + "\n",
                          std::to_string(freeEntries) + "\n");
      if (run.story().sm().numNhiBlockDefrag() == moves) {
        fault += difference("blocks", run.story().blocks() + "\n", blocks + "\n");
      }
    }
    if (!fault.empty()) {
      return run.report(fault);
    }
    if (joined == nullptr || alone) {
      run.carryOut(operation);
    }
  }
  return run.report(run.story().takeFaults());
}

TEST(LpmSmProperty, ipv4InvariantsHoldAndForwardingNeverBreaks) {
  forAllCases(300, faultOfHolding, randomChip(false), randomOperations(250));
}

TEST(LpmSmProperty, ipv6InvariantsHoldAndForwardingNeverBreaks) {
  forAllCases(150, faultOfHolding, randomChip(true), randomOperations(250));
}

TEST(LpmSmProperty, forwardingNeverBreaksThroughCompactionsButInTheirWindows) {
  forAllCases(200, faultOfHolding, crowdedChip(), randomOperations(250));
}

TEST(LpmSmProperty, invariantsHoldWithManyTilesThatAllHaveRoom) {
  forAllCases(100, faultOfHolding, roomyChip(), randomOperations(250));
}

TEST(LpmSmProperty, ipv4CommandsAreThoseOfTheNaiveEngine) {
  forAllCases(300, faultOfAgreeing, randomChip(false), randomOperations(250));
}

TEST(LpmSmProperty, ipv6CommandsAreThoseOfTheNaiveEngine) {
  forAllCases(150, faultOfAgreeing, randomChip(true), randomOperations(250));
}

TEST(LpmSmProperty, commandsOfCompactionsAreThoseOfTheNaiveEngine) {
  forAllCases(150, faultOfAgreeing, crowdedChip(), randomOperations(250));
}

TEST(LpmSmProperty, aRouteThatComesAndGoesLeavesNothingBehind) {
  forAllCases(100, faultOfComingAndGoing, randomChip(false), randomOperations(250));
}

}  // namespace
