#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/TarnletSm.h"
#include "tests/support/ChipShape.h"
#include "tests/support/CommandText.h"
#include "tests/support/EngineAudit.h"
#include "tests/support/Hardware.h"
#include "tests/support/Hitless.h"

#include <gtest/gtest.h>

namespace Quarle::Tarnlet::Testing {

/// A next-hop block of `size` rows at `base`.
inline NextHopBlock via(U32 base, U16 size = 1) { return NextHopBlock(base, size); }

/// A small chip under its machine, told as a story: shape first, then routes.
///
/// After each request the commands are carried out on a model of the chip, one by one, with a
/// lookup of everything that they may touch (see replay()), and the machine is audited. What was
/// wrong is collected: takeFaults(). The commands wait as text until commands() fetches them.
class ChipStory {
 public:
  ChipStory() = default;

  explicit ChipStory(ChipShape shape) : shape_(std::move(shape)) {}

  ChipStory(const ChipStory&) = delete;
  ChipStory& operator=(const ChipStory&) = delete;

  // --- shape: before the machine is built

  ChipStory& ipv6();
  ChipStory& tables(std::vector<TableShape> tables);
  ChipStory& strides(std::vector<U8> strides);
  ChipStory& pairsPerEntry(U8 pairs);
  ChipStory& tiles(U8 tiles, U16 entriesPerTile);
  ChipStory& oneEntryPerSubTrie();
  ChipStory& leastTread(U8 fromKeyLength, U8 tread);

  /// Builds configuration and machine; the first word about a route does it too.
  ChipStory& start();

  /// Builds a machine over the configuration as it stands, in place of any earlier one.
  ChipStory& restartCold();

  // --- routes

  ChipStory& route(const std::string& prefix, NextHopBlock block);
  ChipStory& withdraw(const std::string& prefix);

  /// The same request again.
  ChipStory& notify(const std::string& prefix);

  /// Writes a request that the machine does not hear of.
  ChipStory& wantSilently(const std::string& prefix, NextHopBlock block);
  ChipStory& forgetSilently(const std::string& prefix);

  /// Puts down in the status what direct calls have placed.
  ChipStory& settle();

  /// The commands so far, a line each; they are then forgotten.
  std::string commands();

  ChipStory& drain();

  // --- what stands

  const ConfigBase::Ptr& config();
  const Status::Ptr& status();
  LpmSm& sm();
  LpmPrefix::Ptr prefix(const std::string& text);
  PrefixTable::Ptr table(U8 id);

  /// The sub-trie that holds an installed prefix, else null.
  SubTrie::Ptr subTrie(const std::string& prefix);

  /// "t0[3].1", table, row and slot; "-" when not installed.
  std::string where(const std::string& prefix);

  /// Blocks in sorted order, "0:4+2" tile, offset and size, between blanks.
  std::string blocks();

  U32 freeEntries(U8 tile = 0);

  /// What the chip answers for an address: a block or "none".
  std::string lookup(const std::string& address);

  bool installed(const std::string& prefix);

  Hardware& hardware();

  std::string takeFaults() { return std::exchange(faults_, {}); }

  /// Ends the machine: its reactor goes with it.
  void endMachine() { sm_ = nullptr; }

  /// Withdraws everything and sees that nothing is left behind.
  void finish();

 private:
  Key key(const std::string& text) const { return keyFrom(text, shape_.longKey); }

  /// The installed routes, with every block that the chip may show for them.
  Routes routes() const;
  ChipStory& request(const std::string& what, const LpmPrefix::Ptr& prefix, NextHopBlock block);
  /// Carries out what stands in the queue, without lookups on the way.
  void absorb();
  void noteWish(const LpmPrefix::Ptr& prefix, bool served);
  void carryOut(const std::string& what,
                const LpmPrefix::Ptr& prefix,
                const Routes& before,
                U64 movesBefore);
  bool withdrawOne();
  std::string emptyWithSpareTile();

  ChipShape shape_;
  ConfigBase::Ptr config_;
  Status::Ptr status_;
  LpmSm::Ptr sm_;
  std::unique_ptr<Hardware> hardware_;
  // What refused updates have wanted since the route was last served: it reaches the chip when the
  // sub-trie is rewritten for another reason.
  std::map<Key, std::vector<NextHopBlock>> wishes_;
  std::string commands_;
  std::string faults_;
};

/// Base of the suites over a chip. Its end audits every route, withdraws all and balances the
/// counts.
class ChipTest : public ::testing::Test {
 protected:
  ChipTest();
  void TearDown() override;

  ChipStory chip;
};

/// The chip's commands since last time, with its faults, if any, in front.
std::string commandsAndFaults(ChipStory& chip);

}  // namespace Quarle::Tarnlet::Testing

/// The commands since last time, line by line; drains them.
#define EXPECT_COMMANDS(chip, lines)                             \
  EXPECT_EQ(::Quarle::Tarnlet::Testing::commandsAndFaults(chip), \
            ::Quarle::Tarnlet::Testing::dedent(lines))
