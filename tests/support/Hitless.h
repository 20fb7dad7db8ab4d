#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/Hardware.h"

namespace Quarle::Tarnlet::Testing {

/// Routes as a naive router holds them. A route may have several blocks: the one that is installed,
/// and those that refused updates wanted, which show as soon as its sub-trie is rewritten.
class Routes {
 public:
  void add(const Key& prefix, NextHopBlock block);

  const std::map<Key, std::vector<NextHopBlock>>& all() const { return routes_; }

  /// What the longest match of an address may answer; the null block alone when nothing matches.
  std::vector<NextHopBlock> answers(const Key& address) const;

 private:
  std::map<Key, std::vector<NextHopBlock>> routes_;
};

/// One request's commands, and the routes before and after it.
struct Request {
  std::vector<CommandBase::Ptr> commands;
  Routes before;
  Routes after;
  // The tile was compacted on the way.
  bool compacted = false;
};

/// Carries a request's commands out one by one and looks, after each, at every address that it may
/// have touched: the answer must be that of before or of after, and that of after at the end. Says
/// what is wrong, nothing when all is well.
///
/// A compaction opens windows that no order of writes can avoid, and these alone are left out:
///  1. A row whose block slides by no more than its size, from the write that falls onto the old
///     place of the block until the row is rewritten.
///  2. The row that the request itself changes, once it was rewritten at its moved old block, until
///     it is rewritten at its new one.
std::string replay(const Request& request, Hardware& hardware);

/// Every route's first and last address.
std::string compare(const Routes& routes, const Hardware& hardware);

}  // namespace Quarle::Tarnlet::Testing
