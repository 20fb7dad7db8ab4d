#include "tests/support/Hitless.h"

#include <algorithm>
#include <set>

#include "tests/support/CommandText.h"

namespace Quarle::Tarnlet::Testing {

namespace {

using Place = Hardware::Place;

std::string textOf(const std::vector<NextHopBlock>& blocks) {
  std::string out;
  for (const NextHopBlock& block : blocks) {
    out += (out.empty() ? "" : " or ") + Testing::textOf(block);
  }
  return out;
}

class Replay {
 public:
  Replay(const Request& request, Hardware& hardware) : request_(request), hardware_(hardware) {
    for (std::size_t i = 0; i < request.commands.size(); ++i) {
      if (const PrefixCommand* command = prefixCommand(i)) {
        rewrites_[placeOf(*command)].push_back(i);
        changedRow_ = placeOf(*command);
      }
    }
  }

  std::string run() {
    for (at_ = 0; at_ < request_.commands.size(); ++at_) {
      std::set<Key> addresses;
      if (prefixCommand(at_) != nullptr) {
        addressesOf(placeOf(*prefixCommand(at_)), addresses);
        fault_ += hardware_.apply(*request_.commands[at_]);
        addressesOf(placeOf(*prefixCommand(at_)), addresses);
        windowsAfterRewrite(placeOf(*prefixCommand(at_)));
      } else {
        for (const Place& row : rowsChangedBy(nhiCommand(at_))) {
          openWindow(row);
          addressesOf(row, addresses);
        }
        fault_ += hardware_.apply(*request_.commands[at_]);
      }
      for (const Key& address : addresses) {
        check(address);
      }
      if (!fault_.empty()) {
        return report();
      }
    }
    fault_ += compare(request_.after, hardware_);
    return fault_.empty() ? "" : report();
  }

 private:
  const PrefixCommand* prefixCommand(std::size_t i) const {
    return dynamic_cast<const PrefixCommand*>(request_.commands[i].get());
  }

  const NhiCommand& nhiCommand(std::size_t i) const {
    return dynamic_cast<const NhiCommand&>(*request_.commands[i]);
  }

  static Place placeOf(const PrefixCommand& command) {
    return {command.tableId().value(), command.index().value()};
  }

  void addressesOf(const Place& place, std::set<Key>& addresses) const {
    const auto row = hardware_.rows().find(place);
    if (row == hardware_.rows().end()) {
      return;
    }
    for (U32 slot = 0; slot < row->second.leaves.size(); ++slot) {
      if (row->second.leaves[slot]) {
        const Key prefix = row->second.prefix(slot);
        addresses.insert(prefix.lowest());
        addresses.insert(prefix.highest());
      }
    }
  }

  /// The rows that read an entry which this command gives another content.
  std::vector<Place> rowsChangedBy(const NhiCommand& command) const {
    const Place place{command.index().tile().value(), command.index().offset()};
    Hardware::Entry content;
    for (auto pair = command.nextHopBlockList().nextHopBlockIterator(); pair; ++pair) {
      content.push_back(pair.value());
    }
    std::vector<Place> rows;
    if (hardware_.entry(place) != nullptr && *hardware_.entry(place) == content) {
      return rows;
    }
    for (const auto& [rowPlace, row] : hardware_.rows()) {
      const std::vector<Place> entries = hardware_.entriesOf(row);
      if (std::find(entries.begin(), entries.end(), place) != entries.end()) {
        rows.push_back(rowPlace);
      }
    }
    return rows;
  }

  /// Window 1, when the row's next rewrite is a slide by no more than its size.
  void openWindow(const Place& place) {
    const Hardware::Row& row = hardware_.rows().at(place);
    const auto rewrites = rewrites_.find(place);
    if (!request_.compacted || rewrites == rewrites_.end()) {
      return;
    }
    const auto next = std::upper_bound(rewrites->second.begin(), rewrites->second.end(), at_);
    if (next == rewrites->second.end()) {
      return;
    }
    const NhiTableIdx moved = prefixCommand(*next)->nhiBaseIdx();
    if (moved.tile() == row.nhiBase.tile() && moved.offset() < row.nhiBase.offset() &&
        moved.offset() + hardware_.entriesOf(row).size() >= row.nhiBase.offset()) {
      windows_.insert(place);
    }
  }

  /// Closes window 1; window 2 stays until the changed row's last rewrite.
  void windowsAfterRewrite(const Place& place) {
    windows_.erase(place);
    if (request_.compacted && place == changedRow_ && rewrites_.at(place).back() != at_) {
      windows_.insert(place);
    }
  }

  void check(const Key& address) {
    const Hardware::Answer answer = hardware_.lookup(address);
    if (windows_.contains(answer.row)) {
      return;
    }
    std::vector<NextHopBlock> allowed = request_.before.answers(address);
    for (const NextHopBlock& block : request_.after.answers(address)) {
      if (std::find(allowed.begin(), allowed.end(), block) == allowed.end()) {
        allowed.push_back(block);
      }
    }
    if (answer.ambiguous ||
        std::find(allowed.begin(), allowed.end(), answer.block) == allowed.end()) {
      fault_ += Testing::textOf(address) + " answers " + answer.text() + ", expected " +
                textOf(allowed) + "\n";
    }
  }

  std::string report() const {
    std::string text = fault_ + "after command " + std::to_string(at_ + 1) + " of:\n";
    for (const CommandBase::Ptr& command : request_.commands) {
      text += "  " + Testing::textOf(*command, hardware_.shape().longKey) + "\n";
    }
    return text + "rows:\n" + hardware_.text();
  }

  const Request& request_;
  Hardware& hardware_;
  std::size_t at_ = 0;
  std::map<Place, std::vector<std::size_t>> rewrites_;
  // The row of the request's last prefix command.
  Place changedRow_{};
  std::set<Place> windows_;
  std::string fault_;
};

}  // namespace

void Routes::add(const Key& prefix, NextHopBlock block) {
  std::vector<NextHopBlock>& blocks = routes_[prefix];
  if (std::find(blocks.begin(), blocks.end(), block) == blocks.end()) {
    blocks.push_back(block);
  }
}

std::vector<NextHopBlock> Routes::answers(const Key& address) const {
  std::size_t length = 0;
  const std::vector<NextHopBlock>* best = nullptr;
  for (const auto& [prefix, blocks] : routes_) {
    if (address.beginsWith(prefix) && (best == nullptr || prefix.len >= length)) {
      length = prefix.len;
      best = &blocks;
    }
  }
  return best == nullptr ? std::vector<NextHopBlock>{NextHopBlock()} : *best;
}

std::string replay(const Request& request, Hardware& hardware) {
  return Replay(request, hardware).run();
}

std::string compare(const Routes& routes, const Hardware& hardware) {
  std::string fault;
  for (const auto& [prefix, blocks] : routes.all()) {
    for (const Key& address : {prefix.lowest(), prefix.highest()}) {
      const std::vector<NextHopBlock> allowed = routes.answers(address);
      const Hardware::Answer answer = hardware.lookup(address);
      if (answer.ambiguous ||
          std::find(allowed.begin(), allowed.end(), answer.block) == allowed.end()) {
        fault += Testing::textOf(address) + " answers " + answer.text() + ", expected " +
                 textOf(allowed) + "\n";
      }
    }
  }
  return fault;
}

}  // namespace Quarle::Tarnlet::Testing
