#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/ReferenceTrie.h"
#include "agent/source/RouteEntry.h"
#include "model/TarnletNextHop.h"
#include "xdksim/Chip.h"

namespace Quarle::Agent {

/// Holds a chip's look-ups against a reference trie: the matched length and the rows that the match
/// leads to must be those of the longest prefix in the trie, and where the trie has none the chip
/// must have none either.
class LookupCheck {
 public:
  /// The next-hop rows that the trie's value stands for.
  using BlockOf = std::function<TarnletNextHop::NextHopBlock(ReferenceTrie::Value)>;

  /// Faults whose text is kept; all are counted.
  static constexpr std::size_t kFaultsKept = 10;

  /// The chip and the trie outlive the check.
  LookupCheck(const XdkSim::Chip& chip, const ReferenceTrie& expected, BlockOf blockOf, U16 vrf = 0)
      : chip_(chip), expected_(expected), blockOf_(std::move(blockOf)), vrf_(vrf) {}

  /// Looks `address` up; true when the answer is right.
  bool checkAddress(const IpAddress& address);

  /// Looks up the first and the last address of `prefix`, which may be the same.
  void checkPrefix(const RoutePrefix& prefix);

  U64 lookups() const { return lookups_; }

  U64 wrong() const { return wrong_; }

  /// The first wrong look-ups: what was expected, then what each table of the chip had to say.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  void keepFault(const IpAddress& address, const std::optional<ReferenceTrie::Match>& expected);

  const XdkSim::Chip& chip_;
  const ReferenceTrie& expected_;
  BlockOf blockOf_;
  U16 vrf_;
  U64 lookups_ = 0;
  U64 wrong_ = 0;
  std::vector<std::string> faults_;
};

}  // namespace Quarle::Agent
