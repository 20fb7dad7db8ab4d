#pragma once

#include <array>
#include <list>
#include <unordered_set>

#include "agent/Refusal.h"
#include "agent/RouteKey.h"
#include "model/NextHopBlock.h"

namespace Quarle::Agent {

/// A wish that was refused: where the route should lead, or that it should go, and why it does not.
struct RefusedWish {
  RouteKey key;
  // Null for a withdrawal: the route stays in the chip until there is room to take it out.
  TarnletNextHop::SwId group;
  RefusalReason reason = RefusalReason::invalid;

  bool isWithdrawal() const { return group == TarnletNextHop::SwId(); }
};

/// The refused wishes of one family, at most one for a route, in lines: one for the withdrawals and
/// one for each reason of the others. In each line those that were refused longest ago stand first.
///
/// Written by the `FamilyClient`, read by whoever wants to know what is missing on the chip. Each
/// operation costs the same whatever the number of wishes.
class RefusedWishes {
 public:
  using Line = std::list<RefusedWish>;

  /// The wish for this route, or null.
  const RefusedWish* find(const RouteKey& key) const;

  U64 size() const { return byKey_.size(); }

  bool empty() const { return byKey_.empty(); }

  /// Wishes refused for this reason, withdrawals included.
  U64 count(RefusalReason reason) const;

  /// Wishes for a route, refused for this reason.
  const Line& of(RefusalReason reason) const { return lines_[lineOf(reason)]; }

  const Line& withdrawals() const { return lines_[kWithdrawals]; }

  /// Calls `visit(wish)` for each wish.
  template <typename Visit>
  void forEach(const Visit& visit) const {
    for (const Line& line : lines_) {
      for (const RefusedWish& wish : line) {
        visit(wish);
      }
    }
  }

  /// Puts the wish at the end of its line, in place of any that there is for its route.
  void put(const RefusedWish& wish);

  /// Forgets the wish for this route; false when there is none.
  bool erase(const RouteKey& key);

 private:
  struct KeyHash {
    using is_transparent = void;

    std::size_t operator()(const RouteKey& key) const { return RouteKeyHash()(key); }

    std::size_t operator()(Line::const_iterator place) const { return RouteKeyHash()(place->key); }
  };

  struct KeyEqual {
    using is_transparent = void;

    static const RouteKey& keyOf(const RouteKey& key) { return key; }

    static const RouteKey& keyOf(Line::const_iterator place) { return place->key; }

    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const {
      return keyOf(a) == keyOf(b);
    }
  };

  static constexpr std::size_t kWithdrawals = kRefusalReasons.size();

  static std::size_t lineOf(RefusalReason reason) { return static_cast<std::size_t>(reason); }

  static std::size_t lineOf(const RefusedWish& wish) {
    return wish.isWithdrawal() ? kWithdrawals : lineOf(wish.reason);
  }

  std::array<Line, kWithdrawals + 1> lines_;
  std::unordered_set<Line::iterator, KeyHash, KeyEqual> byKey_;
};

}  // namespace Quarle::Agent
